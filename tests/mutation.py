#!/usr/bin/env python3
"""Mutation check: how many small faults in the signal path does the suite notice?

Changes one operator, constant, member or statement per mutant in lines of src/noise, src/spectral,
src/spatial and src/interface, drawn from each file in proportion to its size. Each is built with
gcc -O1 in a scratch copy of the tree under build/mutation, and the library's tests run on it until
one fails. A mutant that does not compile, or to the same programs, is not counted. Prints the
survivors and the score; exit 1 when under 80 % are killed. Needs tools/packages.sh build test.
"""
import argparse
import collections
import concurrent.futures
import hashlib
import pathlib
import random
import re
import shutil
import subprocess

ROOT = pathlib.Path(__file__).resolve().parent.parent
FOLDERS = ("noise", "spectral", "spatial", "interface")
NOT_BUILT = ("q31_vector_neon.cpp", "q31_checked_arith.h")
TARGETS = ("module_tests", "stream_tests", "output_hashes")
FLAGS = ("-G", "Ninja", "-DTM_SE_BF_BUILD_TOOLS=OFF", "-DTM_SE_BF_ENDURANCE_SECONDS=30",
         "-DCMAKE_C_COMPILER=gcc", "-DCMAKE_CXX_COMPILER=g++", "-DCMAKE_BUILD_TYPE=Mutant",
         "-DCMAKE_C_FLAGS_MUTANT=-O1", "-DCMAKE_CXX_FLAGS_MUTANT=-O1")
# A mutant's process gets 30 s of processor time, 2 GiB of memory and files of 64 MiB.
LIMITED = ("bash", "-c", 'ulimit -t 30 -v 2097152 -f 65536 -c 0; exec "$@"', "limited")
LEAST_PERCENT = 80

SWAPS = {" + ": " - ", " * ": " / ", " += ": " -= ", " < ": " <= ", " > ": " >= ", " == ": " != ",
         " && ": " || ", "++": "--", ".re": ".im", "true": "false", " << ": " >> "}
SWAPS.update({new: old for old, new in SWAPS.items()})
OPERATOR = re.compile("|".join(re.escape(s) + (r"(?!\w)" if s[-1].isalpha() else "")
                               for s in sorted(SWAPS, key=len, reverse=True)))
LITERAL = re.compile(r"(?<![\w.\"])(\d+\.\d*(?:e-?\d+)?f?|\d+)(?![\w.\"])")
STATEMENT = re.compile(r"^ {2,}(?!return|const|using|static|break|continue|typename|extern)"
                       r"[\w*(][^{}]*(=|\(|\+\+|--).*;$")
SKIPPED = re.compile(r"^\s*(//|#|using |namespace |static_assert|template )|SE_BF_RARELY_RUN|\"")

mutant = collections.namedtuple("mutant", "place file line old new")


def changed_literal(text):
    if text in ("0.0f", "0.0"):
        return text.replace("0", "1", 1)
    if "." in text:
        return f"({'1.25f' if text.endswith('f') else '1.25'} * {text})"
    return {"0": "1", "1": "0"}.get(text, str(int(text) + 1))


def variants(line):
    """Every line that `line` can be mutated to."""
    code = line.split("//")[0].rstrip()
    if not code or SKIPPED.search(code):
        return []
    found = [(m, SWAPS[m.group()]) for m in OPERATOR.finditer(code)]
    found += [(m, changed_literal(m.group())) for m in LITERAL.finditer(code)]
    lines = [code[:m.start()] + new + code[m.end():] for m, new in found]
    return lines + ([re.sub(r"\S.*", ";", code)] if STATEMENT.match(code) else [])


def draw(seed):
    """A mutant per line, in an order whose every beginning holds like parts of all files."""
    rng = random.Random(seed)
    drawn = []
    for path in sorted(p for f in FOLDERS for p in (ROOT / "src" / f).iterdir()):
        lines = [] if path.name in NOT_BUILT else path.read_text().splitlines()
        mutants = [(i, old, rng.choice(v)) for i, old in enumerate(lines) if (v := variants(old))]
        rng.shuffle(mutants)
        drawn += [mutant((place + rng.random()) / len(mutants), path.relative_to(ROOT), *m)
                  for place, m in enumerate(mutants)]
    return collections.deque(sorted(drawn))


def succeeds(*command):
    return subprocess.run([*LIMITED, *command], capture_output=True, check=False).returncode == 0


def first_failure(build):
    """Name of a test that fails, or an empty text."""
    if succeeds("ctest", "--test-dir", build, "-L", "library", "--stop-on-failure"):
        return ""
    return (build / "Testing/Temporary/LastTestsFailed.log").read_text().split(":")[-1].strip()


def programs(build):
    """The programs under test by their digest, or an empty text when they cannot be built."""
    if not succeeds("cmake", "--build", build, "-j", "1", "--target", *TARGETS):
        return ""
    files = [p for name in (*TARGETS, "libtm_se_bf.so.*.*") for p in sorted(build.rglob(name))]
    return hashlib.sha256(b"".join(p.read_bytes() for p in files if p.is_file())).hexdigest()


def work(home, mutants, count, results):
    """Takes mutants until enough count; notes which test notices each, or that none does."""
    shutil.rmtree(home, ignore_errors=True)
    shutil.copytree(ROOT, home, ignore=shutil.ignore_patterns(".git", "build", "demo"))
    build = home / "build"
    succeeds("cmake", "-S", home, "-B", build, *FLAGS)
    unchanged = programs(build)
    if not unchanged or (failure := first_failure(build)):
        raise SystemExit("mutation: the unchanged tree does not build or fails " + failure)
    while mutants and sum(r != "not counted" for _, r in results) < count:
        m = mutants.popleft()
        original = (home / m.file).read_text()
        lines = original.splitlines()
        lines[m.line] = m.new
        (home / m.file).write_text("\n".join(lines) + "\n")
        counted = programs(build) not in ("", unchanged)
        results.append((m, (first_failure(build) or "survived") if counted else "not counted"))
        (home / m.file).write_text(original)
        print(f"{len(results)}: {m.file}:{m.line + 1}: {m.new.strip()} [{results[-1][1]}]")


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    for name, usual in (("count", 160), ("seed", 1), ("jobs", 2)):
        parser.add_argument("--" + name, type=int, default=usual)
    options = parser.parse_args()
    mutants = draw(options.seed)
    results = []
    with concurrent.futures.ThreadPoolExecutor() as pool:
        runs = [pool.submit(work, ROOT / "build" / "mutation" / str(job), mutants, options.count,
                            results) for job in range(options.jobs)]
    for done in runs:
        done.result()

    counted = [(m, r) for m, r in results if r != "not counted"]
    survivors = sorted(m for m, r in counted if r == "survived")
    for m in survivors:
        print(f"survived: {m.file}:{m.line + 1}\n  - {m.old.strip()}\n  + {m.new.strip()}")
    for name, kills in collections.Counter(r for _, r in counted).most_common():
        print(f"{kills:4} {name}")
    percent = 100.0 * (1.0 - len(survivors) / max(len(counted), 1))
    print(f"{len(counted)} mutants, {len(counted) - len(survivors)} killed: {percent:.1f} %; "
          f"{len(results) - len(counted)} more did not compile or changed nothing")
    return 0 if percent >= LEAST_PERCENT else 1


if __name__ == "__main__":
    raise SystemExit(main())
