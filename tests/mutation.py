#!/usr/bin/env python3
"""Mutation check: how many small faults in the signal path does the suite notice?

mutation.py [--count 160] [--seed 1] [--jobs 2] [--dir build/mutation] [--only WORD]

Draws lines of src/noise, src/spectral, src/spatial and src/interface, from each file in proportion
to its size, and changes one operator, constant, member or statement per mutant. Each mutant is
built with gcc -O1 in a scratch copy of the tree, never in the tree itself, and run through
module_tests and stream_tests (a process for each test) and output_hashes until something fails or
takes over 30 s. A mutant that does not compile, or that compiles to the same programs, is not
counted; another line of the file is drawn. Left out are comments, the NEON lanes and the range
checks of the fixed-point operations, which this build does not contain.

Prints the survivors and the score; exit 1 when under 80 % are killed. Some minutes for 160
mutants. Needs tools/packages.sh build test.
"""
import argparse
import collections
import concurrent.futures
import hashlib
import os
import pathlib
import random
import re
import resource
import shutil
import subprocess

ROOT = pathlib.Path(__file__).resolve().parent.parent
FOLDERS = ("noise", "spectral", "spatial", "interface")
NOT_BUILT = ("q31_vector_neon.cpp", "q31_checked_arith.h")
PROGRAMS = ("tests/module_tests", "tests/stream_tests", "tests/streams/output_hashes")
TIMEOUT_S = 30
MEMORY_BYTES = 2 << 30
FILE_BYTES = 64 << 20
LEAST_PERCENT = 80

SWAPS = {" + ": " - ", " - ": " + ", " * ": " / ", " / ": " * ", " += ": " -= ", " -= ": " += ",
         " < ": " <= ", " > ": " >= ", " <= ": " < ", " >= ": " > ", " == ": " != ", " != ": " == ",
         " && ": " || ", " || ": " && ", "++": "--", "--": "++", ".re": ".im", ".im": ".re",
         "true": "false", "false": "true", " << ": " >> ", " >> ": " << "}
LONGEST_FIRST = sorted(SWAPS, key=len, reverse=True)
OPERATOR = re.compile("|".join(re.escape(s) + (r"(?!\w)" if s[-1].isalpha() else "")
                               for s in LONGEST_FIRST))
LITERAL = re.compile(r"(?<![\w.\"])(\d+\.\d*(?:e-?\d+)?f?|\d+)(?![\w.\"])")
STATEMENT = re.compile(r"^ {2,}(?!return|const|using|static|break|continue|typename|extern)"
                       r"[\w*(][^{}]*(=|\(|\+\+|--).*;$")
SKIPPED = re.compile(r"^\s*(//|#|using |namespace |static_assert|template )|SE_BF_RARELY_RUN|\"")

mutant = collections.namedtuple("mutant", "file line old new")


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
    if STATEMENT.match(code):
        lines.append(re.sub(r"\S.*", ";", code))
    return lines


def draw(count, seed, only):
    """Per file, a queue of mutants in random order and how many of them are wanted."""
    rng = random.Random(seed)
    queues = {}
    for path in sorted(p for f in FOLDERS for p in (ROOT / "src" / f).iterdir()):
        if path.name in NOT_BUILT or only not in path.name:
            continue
        lines = path.read_text().splitlines()
        queue = [mutant(path.relative_to(ROOT), i, old, rng.choice(v))
                 for i, old in enumerate(lines) if (v := variants(old))]
        rng.shuffle(queue)
        queues[path] = queue
    total = sum(map(len, queues.values()))
    wanted = {path: -(-count * len(queue) // total) for path, queue in queues.items()}
    return queues, wanted


class Tree:
    """A scratch copy of the tree and its build."""

    def __init__(self, home):
        self.tree = home / "tree"
        self.build = home / "build"
        self.temporary = home / "tmp"
        shutil.rmtree(home, ignore_errors=True)
        shutil.copytree(ROOT, self.tree, ignore=shutil.ignore_patterns(".git", "build", "demo"))
        self.temporary.mkdir()
        subprocess.run(["cmake", "-S", self.tree, "-B", self.build, "-G", "Ninja",
                        "-DTM_SE_BF_BUILD_TOOLS=OFF", "-DTM_SE_BF_ENDURANCE_SECONDS=30",
                        "-DCMAKE_C_COMPILER=gcc", "-DCMAKE_CXX_COMPILER=g++",
                        "-DCMAKE_BUILD_TYPE=Mutant", "-DCMAKE_C_FLAGS_MUTANT=-O1",
                        "-DCMAKE_CXX_FLAGS_MUTANT=-O1"], check=True, stdout=subprocess.DEVNULL)
        if not self.compile():
            raise SystemExit("mutation: the tree does not build")
        self.unchanged = self.programs_hash()
        self.tests = [(p, name) for p in PROGRAMS[:2] for name in self.test_names(p)]
        if failure := self.first_failure():
            raise SystemExit(f"mutation: {failure} fails without a mutant")

    def compile(self):
        names = [pathlib.Path(p).name for p in PROGRAMS]
        command = ["cmake", "--build", self.build, "-j", "1", "--target", *names]
        return subprocess.run(command, capture_output=True, check=False).returncode == 0

    def programs_hash(self):
        files = [self.build / p for p in PROGRAMS] + sorted(self.build.glob("libtm_se_bf.so.*.*"))
        return hashlib.sha256(b"".join(f.read_bytes() for f in files)).hexdigest()

    def test_names(self, program):
        listed = subprocess.run([self.build / program, "--gtest_list_tests"], check=True,
                                capture_output=True, text=True).stdout
        suite = ""
        for line in listed.splitlines():
            suite = line if re.match(r"\w+\.$", line) else suite
            if line.startswith("  "):
                yield suite + line.strip()

    def run(self, arguments):
        """Standard output, or None when the program fails or takes too long."""
        def limit():
            resource.setrlimit(resource.RLIMIT_AS, (MEMORY_BYTES, MEMORY_BYTES))
            resource.setrlimit(resource.RLIMIT_FSIZE, (FILE_BYTES, FILE_BYTES))
            resource.setrlimit(resource.RLIMIT_CORE, (0, 0))
        with open(self.temporary / "stdout", "w+", encoding="utf-8", errors="replace") as out:
            try:
                done = subprocess.run(arguments, stdout=out, stderr=subprocess.DEVNULL,
                                      timeout=TIMEOUT_S, preexec_fn=limit, check=False,
                                      env={**os.environ, "TMPDIR": str(self.temporary)})
            except subprocess.TimeoutExpired:
                return None
            out.seek(0)
            return out.read() if done.returncode == 0 else None

    def first_failure(self):
        for program, name in self.tests:
            if self.run([self.build / program, f"--gtest_filter={name}"]) is None:
                return name
        recording = self.tree / "src/conformance/pcm_in_multi.s16"
        hashes = self.run([self.build / PROGRAMS[2], recording])
        expected = (self.tree / "tests/streams/output_hashes.txt").read_text()
        same = hashes is not None and [h for h in hashes.splitlines() if h.startswith("hash ")]
        return None if same == expected.splitlines() else "OutputHashes"

    def judge(self, m):
        """What noticed the mutant: a test, "survived", or "not counted"."""
        path = self.tree / m.file
        original = path.read_text()
        lines = original.splitlines()
        lines[m.line] = m.new
        path.write_text("\n".join(lines) + "\n")
        counted = self.compile() and self.programs_hash() != self.unchanged
        result = (self.first_failure() or "survived") if counted else "not counted"
        path.write_text(original)
        return result


def work(home, queues, wanted, results):
    """Takes mutants from the queues, file by file, until each has as many as wanted."""
    tree = Tree(home)
    for path, queue in queues.items():
        while wanted[path] > 0 and queue:
            m = queue.pop()
            wanted[path] -= 1
            result = tree.judge(m)
            wanted[path] += 1 if result == "not counted" else 0
            results.append((m, result))
            print(f"{len(results)}: {m.file}:{m.line + 1}: {m.new.strip()} [{result}]", flush=True)


def main():
    parser = argparse.ArgumentParser(description=__doc__,
                                     formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--count", type=int, default=160)
    parser.add_argument("--seed", type=int, default=1)
    parser.add_argument("--jobs", type=int, default=2)
    parser.add_argument("--dir", type=pathlib.Path, default=ROOT / "build" / "mutation")
    parser.add_argument("--only", default="", help="files whose name contains this word")
    options = parser.parse_args()

    queues, wanted = draw(options.count, options.seed, options.only)
    results = []
    with concurrent.futures.ThreadPoolExecutor() as pool:
        runs = [pool.submit(work, options.dir / str(job), queues, wanted, results)
                for job in range(options.jobs)]
        for run in runs:
            run.result()

    counted = [(m, r) for m, r in results if r != "not counted"]
    survivors = [m for m, r in counted if r == "survived"]
    print("\nSurvivors:")
    for m in sorted(survivors):
        print(f"{m.file}:{m.line + 1}\n  - {m.old.strip()}\n  + {m.new.strip()}")
    print("\nFirst to notice:")
    for name, kills in collections.Counter(r for _, r in counted).most_common():
        print(f"  {kills:4} {name}")
    killed = len(counted) - len(survivors)
    percent = 100.0 * killed / max(len(counted), 1)
    print(f"{len(counted)} mutants, {killed} killed: {percent:.1f} %; "
          f"{len(results) - len(counted)} more did not compile or changed nothing")
    return 0 if percent >= LEAST_PERCENT else 1


if __name__ == "__main__":
    raise SystemExit(main())
