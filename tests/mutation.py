#!/usr/bin/env python3
"""Mutation check: how many small faults in the signal path does the suite notice?

Changes an operator, constant, member or statement per mutant, in src/noise, src/spectral, src/spatial
and src/interface, builds it with gcc -O1 in a scratch copy under build/mutation and runs the library's
tests. What does not compile, or to the same programs, is not counted. Prints the survivors and the
score; exit 1 when under 80 % are killed. Needs scripts/packages.sh build test.
"""
import argparse
import hashlib
import pathlib
import random
import re
import shutil
import subprocess

ROOT = pathlib.Path(__file__).resolve().parent.parent
HOME = ROOT / "build" / "mutation"
BUILD = HOME / "build"
FOLDERS = ("noise", "spectral", "spatial", "interface")
TARGETS = ("module_tests", "stream_tests", "output_hashes")
FLAGS = ("-G", "Ninja", "-DTM_SE_BF_BUILD_TOOLS=OFF", "-DCMAKE_CXX_COMPILER=g++",
         "-DCMAKE_BUILD_TYPE=Mutant", "-DCMAKE_CXX_FLAGS_MUTANT=-O1")
# Mutants may loop, allocate or print without end.
LIMITED = ("bash", "-c", 'ulimit -t 30 -v 2097152 -f 65536 -c 0; exec "$@"', "limited")

SWAPS = {" + ": " - ", " * ": " / ", " += ": " -= ", " < ": " <= ", " > ": " >= ", " == ": " != ",
         " && ": " || ", "++": "--", ".re": ".im", "true": "false", " << ": " >> "}
SWAPS.update({new: old for old, new in SWAPS.items()})
OPERATOR = re.compile("|".join(re.escape(s) + (r"(?!\w)" if s[-1].isalpha() else "")
                               for s in sorted(SWAPS, key=len, reverse=True)))
LITERAL = re.compile(r"(?<![\w.\"])(\d+\.\d*(?:e-?\d+)?f?|\d+)(?![\w.\"])")
STATEMENT = re.compile(r"^ {2,}(?!return|const|using|static|break|continue|typename|extern)"
                       r"[\w*(][^{}]*(=|\(|\+\+|--).*;$")
SKIPPED = re.compile(r"^\s*(//|#|using |namespace |static_assert|template )|SE_BF_RARELY_RUN|\"")


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
    """A mutant (file, line, old text, new text) of every line, in random order."""
    rng = random.Random(seed)
    mutants = []
    for path in sorted(p for f in FOLDERS for p in (ROOT / "src" / f).rglob("*.*")):
        for i, old in enumerate(path.read_text().splitlines()):
            mutants += [(path.relative_to(ROOT), i, old, rng.choice(v)) for v in [variants(old)] if v]
    rng.shuffle(mutants)
    return mutants


def succeeds(*command):
    return subprocess.run([*LIMITED, *command], capture_output=True, check=False).returncode == 0


def passes():
    return succeeds("ctest", "--test-dir", BUILD, "-L", "library", "--stop-on-failure", "-j", "2")


def programs():
    """The programs under test by their digest, or an empty text when they cannot be built."""
    if not succeeds("cmake", "--build", BUILD, "-j", "2", "--target", *TARGETS):
        return ""
    files = [p for name in (*TARGETS, "libtm_se_bf.so.*.*") for p in sorted(BUILD.rglob(name))]
    return hashlib.sha256(b"".join(p.read_bytes() for p in files if p.is_file())).hexdigest()


def survives(file, line, new, unchanged):
    """Whether no test notices the new text, or None when it does not count."""
    original = (HOME / file).read_text()
    lines = original.splitlines()
    lines[line] = new
    (HOME / file).write_text("\n".join(lines) + "\n")
    result = passes() if programs() not in ("", unchanged) else None
    (HOME / file).write_text(original)
    return result


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--count", type=int, default=160)
    parser.add_argument("--seed", type=int, default=1)
    options = parser.parse_args()
    shutil.rmtree(HOME, ignore_errors=True)
    shutil.copytree(ROOT, HOME, ignore=shutil.ignore_patterns(".git", "build", "demo"))
    succeeds("cmake", "-S", HOME, "-B", BUILD, *FLAGS)
    unchanged = programs()
    if not unchanged or not passes():
        raise SystemExit("mutation: the unchanged tree does not build or fails its tests")
    counted = survivors = 0
    for file, line, old, new in draw(options.seed):
        if counted == options.count:
            break
        result = survives(file, line, new, unchanged)
        counted += result is not None
        survivors += result is True
        if result:
            print(f"survived: {file}:{line + 1}\n  - {old.strip()}\n  + {new.strip()}")
    percent = 100.0 * (1.0 - survivors / max(counted, 1))
    print(f"{counted} mutants, {counted - survivors} killed: {percent:.1f} %")
    return 0 if percent >= 80 else 1


raise SystemExit(main())
