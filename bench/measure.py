"""What bench/report.py and bench/check_counts.py share: the library of a tree, built as it is
released, and the instructions that it executes per frame."""
import os
import pathlib
import re
import subprocess

TOP = pathlib.Path(__file__).resolve().parents[1]
BENCH = TOP / "bench"
FIGURES = BENCH / "figures.txt"
MODES = (6000, 6001, 6002)
RATE_HZ = 16000
HOP = 192
COUNT_S = 12  # of audio in every count: whole frames at all hops, and whole weight updates


class Failed(Exception):
    """What cannot be measured here, and why."""


def run(*command, **environment):
    """Runs a command on the stored recording; returns its output and messages."""
    words = [str(word) for word in command]
    environment = {**os.environ, "RECORDING": str(TOP / "src/conformance/pcm_in_multi.s16"),
                   **{name: str(value) for name, value in environment.items()}}
    try:
        done = subprocess.run(words, env=environment, capture_output=True, text=True,
                              errors="replace", check=False)
    except FileNotFoundError as missing:
        raise Failed(f"{words[0]} is missing") from missing
    if done.returncode != 0:
        raise Failed(f"{' '.join(words)}: status {done.returncode}\n"
                     f"{(done.stdout + done.stderr)[-2000:]}")
    return done


def compiler():
    """Name and version of the compiler, on which counts of instructions depend."""
    name = run("c++", "--version").stdout.split()[0]
    machine = os.uname().machine
    return f"{name} {run('c++', '-dumpfullversion').stdout.strip()}" + (
        "" if machine == "x86_64" else f" on {machine}")


def has_avx2():
    return "avx2" in pathlib.Path("/proc/cpuinfo").read_text().split()


def build_library(source, build, *options):
    """The shared library alone, as released."""
    run("cmake", "-S", source, "-B", build, "-G", "Ninja", "-DCMAKE_BUILD_TYPE=Release",
        "-DTM_SE_BF_BUILD_TESTS=OFF", "-DTM_SE_BF_BUILD_TOOLS=OFF", *options)
    run("cmake", "--build", build, "-j", os.cpu_count(), "--target", "tm_se_bf")


def build_driver(name, library, output, compiler="c++"):
    """A program that uses the public interface only, so that it runs with any library."""
    run(compiler, "-std=c++17", "-O2", "-fno-builtin", f"-I{TOP}/include", BENCH / f"{name}.cpp",
        "-o", output, f"-L{library}", "-ltm_se_bf")


def collected(profile, library, *command, options=("--toggle-collect=se_bf_do",)):
    """Instructions of a run, which callgrind counts; its file stays at `profile`."""
    said = run("valgrind", "--tool=callgrind", f"--callgrind-out-file={profile}", *options, *command,
               LD_LIBRARY_PATH=library).stderr
    found = re.search(r"Collected : (\d+)", said)
    if not found:
        raise Failed(f"callgrind gave no count\n{said[-2000:]}")
    return int(found[1])


def frames(hop):
    return COUNT_S * RATE_HZ // hop


def per_frame(library, driver, mode, hop=HOP, channels=2, profile=os.devnull):
    """Instructions per frame inside se_bf_do: the difference of a run of twice COUNT_S and one of
    COUNT_S, of which callgrind's file stays at `profile`."""
    short = collected(profile, library, driver, mode, COUNT_S, hop, channels)
    long = collected(os.devnull, library, driver, mode, 2 * COUNT_S, hop, channels)
    return (long - short) // frames(hop)


def read_figures():
    """The committed figures as words by name, and the compiler that they belong to."""
    text = FIGURES.read_text()
    figures = {line.split()[0]: line.split()[1] for line in text.splitlines() if line[0] != "#"}
    return figures, re.search("^# compiler: (.*)$", text, re.MULTILINE)[1]
