#!/usr/bin/env python3
"""Measures what the library costs and prints it as a table in Markdown, beside the goals.

Needs valgrind and a C++ compiler. Used where installed, named where missing: libbenchmark-dev,
libfftw3-dev, libkissfft-dev, libsamplerate0-dev, libwebrtc-audio-processing-dev; for aarch64 the
cross compiler and qemu-user. Takes some minutes.
"""
import argparse
import collections
import contextlib
import json
import os
import pathlib
import re
import statistics
import sys
import tempfile

from measure import (BENCH, COUNT_S, FIGURES, HOP, MODES, RATE_HZ, TOP, Failed, build_driver,
                     build_library, collected, compiler, frames, has_avx2, per_frame, run)

HOPS = (160, 192, 320)
STREAM_RATES = (8000, 11025, 16000, 22050, 24000, 32000, 44100, 48000, 88200, 96000, 159999, 176400,
                192000)
COST_RATES = (16000, 48000)
STREAM_MODES = (6001, 6002)
REFINED = 1  # SE_BF_STREAM_REFINED
BLOCK_MS = 20
ARM = "aarch64-linux-gnu"
TRANSFORMS = "spx_i?fft(?:_windowed)?"  # the functions that transform a frame, forward and back
PROCESS = "se_bf_stream_process_s16"
PER_FRAME = "instructions per frame"
PER_SECOND = "instructions per second"
PER_BLOCK = "instructions per 20 ms"
COUNTS = "ratio of instructions"
TIMES = "ratio of times"

# Name, where {} is each mode in turn; unit; how it is measured; goals, and stretch goals.
# growth: by hop and channels. transforms: instructions of forward and inverse transforms. share: all
# instructions over those of the transforms. worst: worst call over median call. pair: a forward and an
# inverse transform of the library over those of another library. silence: digital silence after speech
# over speech. denormals: operations on denormals in that silence. system: heap calls, system calls and
# page faults after the first call. stream: the stream library, baseline build; cost: all of a
# stream, by rate and mode; share: that over the core alone. refined: a stream in that mode at 16 kHz, per
# 20 ms; worst: worst block of 20 ms over the median one. rates: stereo down from 48 kHz and mono back up.
MEASURED = [
    ("instructions.baseline.{}", PER_FRAME, "callgrind", (36000, 42000, 66000),
     (30000, 34000, 52000)),
    ("instructions.avx.{}", PER_FRAME, "callgrind", (21500, 25000, 40000), (17000, 20500, 33000)),
    ("instructions.avx2.{}", PER_FRAME, "callgrind", (8700, 10300, 16300), (7500, 9000, 14000)),
    ("instructions.aarch64.{}", PER_FRAME, "qemu", (32000, 36000, 56000), (26000, 29000, 45000)),
    *[(f"growth.6001.hop{hop}.channels1", PER_FRAME, "callgrind") for hop in HOPS],
    *[(f"growth.{{}}.hop{hop}.channels2", PER_FRAME, "callgrind") for hop in HOPS if hop != HOP],
    ("transforms.baseline.{}", PER_FRAME, "callgrind"),
    ("transforms.avx.{}", PER_FRAME, "callgrind"),
    ("transforms.avx2.{}", PER_FRAME, "callgrind"),
    ("share.baseline.{}", COUNTS, "callgrind", (1.15, 1.3, 1.4)),
    ("share.avx.{}", COUNTS, "callgrind"),
    ("share.avx2.{}", COUNTS, "callgrind", (1.15, 1.3, 1.4)),
    ("worst.baseline.6001", COUNTS, "callgrind", (1.10,), (1.05,)),
    ("worst.baseline.6002", COUNTS, "callgrind", (1.10,), (1.05,)),
    ("worst.avx2.6002", COUNTS, "callgrind", (1.10,), (1.05,)),
    ("pair.fftw.256", TIMES, "transform_pair", (2.0,), (1.5,)),
    ("pair.fftw.512", TIMES, "transform_pair"),
    ("pair.kiss.256", TIMES, "transform_pair"),
    ("silence.{}", TIMES, "silence_cost", (1.5,) * 3, (1.0,) * 3),
    ("denormals.6002", "operations per frame", "denormal_count"),
    ("system.{}", "calls and faults", "quiet_calls", (0,) * 3, (0,) * 3),
    ("text.baseline", "bytes", "size -A libtm_se_bf.so", (33000,), (24000,)),
    ("text.default", "bytes", "size -A libtm_se_bf.so"),
    ("text.small", "bytes", "size -A libtm_se_bf.so", (24576,)),
    ("text.vector", "bytes", "readelf -SW of objects"),
    ("text.scalar", "bytes", "readelf -SW of objects"),
    ("constants", "bytes", "size -A libtm_se_bf.so"),
    ("constants.small", "bytes", "size -A libtm_se_bf.so"),
    ("constants.self_test", "bytes", "src/conformance/*.s16"),
    ("static", "bytes", "size -A libtm_se_bf.so"),
    ("static.pool", "bytes", "nm -S libtm_se_bf.so"),
    ("static.self_test", "bytes", "nm -S libtm_se_bf.so"),
    *[(f"pool.hop{hop}.channels{channels}", "bytes", "memory_use")
      for hop in HOPS for channels in (1, 2)],
    ("stack.stream", "bytes", "memory_use"),
    ("stack.self_test", "bytes", "memory_use"),
    *[(f"stream.latency.{rate}", "samples", "stream_use") for rate in STREAM_RATES],
    *[(f"stream.memory.{rate}", "bytes", "stream_use") for rate in STREAM_RATES],
    *[(f"stream.cost.{rate}.{mode}", PER_SECOND, "callgrind")
      for rate in COST_RATES for mode in STREAM_MODES],
    *[(f"stream.share.avx2.{mode}", COUNTS, "callgrind") for mode in STREAM_MODES],
    *[(f"refined.baseline.channels{channels}", PER_BLOCK, "callgrind") for channels in (1, 2)],
    ("refined.aarch64.channels2", PER_BLOCK, "qemu"),
    ("refined.avx2.channels1", PER_BLOCK, "callgrind", (27000,)),
    ("refined.avx2.channels2", PER_BLOCK, "callgrind", (48000,)),
    ("refined.avx2.worst", COUNTS, "callgrind", (1.25,)),
    ("rates.path", PER_SECOND, "callgrind"),
    ("rates.libsamplerate", PER_SECOND, "callgrind"),
    ("webrtc.suppression", PER_FRAME, "callgrind"),
    ("webrtc.beamformer", PER_FRAME, "callgrind"),
]

Row = collections.namedtuple("Row", "unit how goal stretch")
# A tree and where its library is built; drivers: programs that run with the library of any tree.
Tree = collections.namedtuple("Tree", "source builds drivers")


def rows():
    """What is measured, by name."""
    found = {}
    for name, unit, how, *goals in MEASURED:
        names = [name.format(mode) for mode in MODES] if "{}" in name else [name]
        goals = [*goals, *[(None,) * len(names)] * 2][:2]
        for one, goal, stretch in zip(names, *goals):
            found[one] = Row(unit, how, goal, stretch)
    return found


def note(text):
    print(f"report.py: {text}", file=sys.stderr)


def only(pattern, text):
    """What the group of the pattern matches, which must be there."""
    found = re.search(pattern, text, re.MULTILINE)
    if not found:
        raise Failed(f"no {pattern} in\n{text[-2000:]}")
    return found[1]


# Instructions.

def count_variant(tree, variant):
    """The three modes, and what part of them the transforms are."""
    library = tree.builds / variant
    figures = {}
    for mode in MODES:
        profile = tree.builds / f"{variant}.{mode}.callgrind"
        figures[f"instructions.{variant}.{mode}"] = per_frame(library, tree.drivers / "run_stream",
                                                              mode, profile=profile)
        functions = run("callgrind_annotate", "--inclusive=yes", "--threshold=100",
                        profile).stdout.replace(",", "")
        total = int(only(r"^ *(\d+).*PROGRAM TOTALS", functions))
        transforms = sum(map(int, re.findall(rf"^ *(\d+) .*:{TRANSFORMS}\(", functions, re.MULTILINE)))
        if transforms == 0:
            raise Failed(f"no function is called {TRANSFORMS}")
        figures[f"transforms.{variant}.{mode}"] = transforms // frames(HOP)
        figures[f"share.{variant}.{mode}"] = f"{total / transforms:.3f}"
    return figures


def count_growth(tree):
    """By hop and channels; with one channel only mode 6001 runs."""
    figures = {}
    for name in rows():
        if name.startswith("growth."):
            mode, hop, channels = re.findall(r"\d+", name)
            figures[name] = per_frame(tree.builds / "baseline", tree.drivers / "run_stream", mode,
                                      int(hop), channels)
    return figures


def worst_call(folder, function, library, *command):
    """Instructions of the worst call over those of the median call."""
    with tempfile.TemporaryDirectory(dir=folder) as calls:
        collected(f"{calls}/call", library, *command,
                  options=(f"--toggle-collect={function}", f"--dump-after={function}"))
        # One file per call; the last file is empty, because nothing follows the last call.
        counts = [int(only(r"^totals: (\d+)", path.read_text()))
                  for path in pathlib.Path(calls).iterdir()]
    counts = [count for count in counts if count > 0]
    return f"{max(counts) / statistics.median(counts):.3f}"


def count_worst(tree, variant, mode):
    worst = worst_call(tree.builds, "se_bf_do", tree.builds / variant, tree.drivers / "run_stream",
                       mode, 2 * COUNT_S)
    return {f"worst.{variant}.{mode}": worst}


def build_arm(tree):
    library = tree.builds / "arm"
    build_library(tree.source, library, "-DCMAKE_SYSTEM_NAME=Linux",
                  "-DCMAKE_SYSTEM_PROCESSOR=aarch64", f"-DCMAKE_C_COMPILER={ARM}-gcc",
                  f"-DCMAKE_CXX_COMPILER={ARM}-g++")
    run("cc", "-O2", "-shared", "-fPIC", BENCH / "qemu_count.c", "-o", tree.builds / "qemu_count.so")
    return library


def executed_by_arm(tree, driver, *words):
    """All instructions of a program, its caller's and the loader's included."""
    said = run("qemu-aarch64", "-plugin", tree.builds / "qemu_count.so", "-E",
               f"LD_LIBRARY_PATH={tree.builds / 'arm'}", driver, *words,
               QEMU_LD_PREFIX=f"/usr/{ARM}").stderr
    return int(only(r"^instructions\D*(\d+)", said))


def count_arm(tree):
    """As on x86-64, less the share of the caller, which qemu cannot leave out."""
    driver = tree.builds / "run_stream_arm"
    build_driver("run_stream", build_arm(tree), driver, f"{ARM}-g++")
    short, long = ({mode: executed_by_arm(tree, driver, mode, seconds, HOP, 2)
                    for mode in (0, *MODES)} for seconds in (COUNT_S, 2 * COUNT_S))
    counts = {mode: (long[mode] - short[mode]) // frames(HOP) for mode in short}
    return {f"instructions.aarch64.{mode}": counts[mode] - counts[0] for mode in MODES}


def count_refined_arm(tree):
    """With the share of the caller, which passes two channels on."""
    driver = tree.builds / "stream_use_arm"
    build_stream_use(build_arm(tree), driver, f"{ARM}-g++")
    short, long = (executed_by_arm(tree, driver, REFINED, seconds, RATE_HZ, 2, BLOCK_MS)
                   for seconds in (COUNT_S, 2 * COUNT_S))
    return {"refined.aarch64.channels2": (long - short) * BLOCK_MS // (1000 * COUNT_S)}


def count_webrtc(tree):
    """Other processing of the same recording, for the audio of one frame."""
    driver = tree.builds / "webrtc_stream"
    flags = run("pkg-config", "--cflags", "--libs", "webrtc-audio-processing").stdout.split()
    run("c++", "-std=c++17", "-O2", BENCH / "webrtc_stream.cpp", *flags, "-o", driver)

    def per_audio_of_a_frame(what):
        short, long = (collected(os.devnull, "", driver, what, seconds, options=())
                       for seconds in (COUNT_S, 2 * COUNT_S))
        return (long - short) // COUNT_S * HOP // RATE_HZ

    caller = per_audio_of_a_frame("caller")
    return {"webrtc.suppression": per_audio_of_a_frame("ns") - caller,
            "webrtc.beamformer": per_audio_of_a_frame("beamformer") - caller}


def stream_cost(library, driver, mode, rate, *more):
    """Instructions per second of all that a stream does; more: channels and milliseconds a call."""
    short, long = (collected(os.devnull, library, driver, mode, seconds, rate, *more,
                             options=(f"--toggle-collect={PROCESS}",))
                   for seconds in (COUNT_S, 2 * COUNT_S))
    return (long - short) // COUNT_S


def count_refined(tree):
    """By channels, and the worst block."""
    driver = tree.builds / "stream_use"
    figures = {}
    for variant in ("baseline", "avx2") if has_avx2() else ("baseline",):
        library = tree.builds / variant
        build_stream_use(library, driver)
        for channels in (1, 2):
            cost = stream_cost(library, driver, REFINED, RATE_HZ, channels, BLOCK_MS)
            figures[f"refined.{variant}.channels{channels}"] = cost * BLOCK_MS // 1000
    if has_avx2():
        figures["refined.avx2.worst"] = worst_call(tree.builds, PROCESS, library, driver, REFINED,
                                                   2 * COUNT_S, RATE_HZ, 2, BLOCK_MS)
    return figures


def count_streams(tree):
    """By rate and mode; and at 16 kHz over the core alone, hop 320."""
    driver = tree.builds / "stream_use"
    baseline, avx2 = (tree.builds / name for name in ("baseline", "avx2"))
    build_stream_use(baseline, driver)
    figures = {f"stream.cost.{rate}.{mode}": stream_cost(baseline, driver, mode, rate)
               for rate in COST_RATES for mode in STREAM_MODES}
    if has_avx2():
        build_stream_use(avx2, driver)
        for mode in STREAM_MODES:
            core = per_frame(avx2, tree.drivers / "run_stream", mode, 320) * RATE_HZ // 320
            over = stream_cost(avx2, driver, mode, RATE_HZ) / core
            figures[f"stream.share.avx2.{mode}"] = f"{over:.3f}"
    return figures


def count_rates(tree):
    """The conversion alone, less its preparation."""
    driver = tree.builds / "rate_cost"
    flags = run("pkg-config", "--cflags", "--libs", "samplerate").stdout.split()
    sources = [tree.source / f"stream/{name}.cpp"
               for name in ("rate_filter", "rate_converter", "upper_band", "rate_path")]
    run("c++", "-std=c++17", "-O3", "-ffp-contract=off", "-fno-math-errno",
        "-fno-trapping-math", f"-I{tree.source}/stream", f"-I{tree.source}/include",
        BENCH / "rate_cost.cpp", *sources, *flags,
        "-o", driver)

    def per_second(what):
        whole, opening = (collected(os.devnull, "", driver, what, 48000, *more, options=())
                          for more in ((), ("x",)))
        return (whole - opening) // 4
    return {f"rates.{what}": per_second(what) for what in ("path", "libsamplerate")}


# Times, and what must not happen.

def measure_silence(tree):
    said = run(tree.drivers / "silence_cost", LD_LIBRARY_PATH=tree.builds / "avx2").stderr
    return {f"silence.{mode}": worst
            for mode, worst in re.findall(r"^mode (\d+):.* worst (\S+)$", said, re.MULTILINE)}


def count_denormals(tree):
    if os.uname().machine != "x86_64":
        raise Failed("only x86-64 tells of denormals")
    program = tree.drivers / "denormal_count"
    build_driver(program.name, tree.builds / "avx2", program)
    said = run(program, 6002, LD_LIBRARY_PATH=tree.builds / "avx2").stderr
    return {"denormals.6002": only(r" worst (\S+)$", said)}


def count_system(tree):
    figures = {}
    for mode in MODES:
        said = run(tree.drivers / "quiet_calls", mode, LD_LIBRARY_PATH=tree.builds / "avx2").stderr
        counts = only(r"(heap \d+ system \d+ faults \d+)", said)
        figures[f"system.{mode}"] = sum(map(int, re.findall(r"\d+", counts)))
    return figures


def time_transforms(tree):
    """The pair over that of other libraries, all in one process, repetitions interleaved."""
    sources, flags = [BENCH / "transform_library.cpp"], []
    for package, other in ("fftw3f", "fftw"), ("kissfft-float", "kiss"):
        try:
            flags += run("pkg-config", "--cflags", "--libs", package).stdout.split()
            sources.append(BENCH / f"transform_{other}.cpp")
        except Failed:
            note(f"transforms: no comparison with {package}, its package is missing")
    program, times = tree.builds / "transforms", tree.builds / "transforms.json"
    link_objects(tree, program, *sources, *flags, "-lbenchmark_main", "-lbenchmark")
    run(program, "--benchmark_repetitions=25", "--benchmark_min_time=0.02",
        "--benchmark_enable_random_interleaving=true", "--benchmark_report_aggregates_only=true",
        f"--benchmark_out={times}", "--benchmark_out_format=json")
    time = {one["name"]: one["cpu_time"] for one in json.loads(times.read_text())["benchmarks"]}
    return {f"pair.{other}.{n}":
            f"{time[f'pair_library/N:{n}_median'] / time[f'pair_{other}/N:{n}_median']:.2f}"
            for other, n in (("fftw", 256), ("fftw", 512), ("kiss", 256))
            if f"pair_{other}/N:{n}_median" in time}


# Sizes.

def objects(tree, variant):
    return sorted((tree.builds / variant / "CMakeFiles/tm_se_bf_objects.dir").rglob("*.o"))


def link_objects(tree, program, *words):
    """A program of the library's objects and of sources that look inside it."""
    run("c++", "-std=c++17", "-O2", f"-I{tree.source}/include", f"-I{tree.source}/src", f"-I{BENCH}",
        *objects(tree, "avx2"), *words, "-lm", "-o", program)


def section_size(library, section):
    return int(only(rf"^{re.escape(section)}\s+(\d+)", run("size", "-A", library).stdout))


def variable_size(library, names):
    """Bytes of variables, added up."""
    sizes = re.findall(rf"^\S+ (\S+) \S (?:\S*[0-9])?(?:{names})E?$", run("nm", "-S", library).stdout,
                       re.MULTILINE)
    if not sizes:
        raise Failed(f"{library.name} has no variable {names}")
    return sum(int(size, 16) for size in sizes)


def constant(header, name):
    """Value of an integer constant of a header."""
    return int(re.search(rf"{name} = (\d+);", header.read_text())[1])


def code_size(tree, belongs):
    """Bytes of code in objects of the transforms whose paths below src/spectral belong, of the
    baseline build."""
    paths = [path for path in objects(tree, "baseline")
             if belongs(str(path).rpartition("/src/spectral/")[2])]
    if not paths:
        raise Failed("no such modules in src/spectral")
    return sum(int(size, 16) for size in re.findall(
        r" \.text\S* +PROGBITS +\S+ \S+ (\S+)", run("readelf", "-SW", *paths).stdout))


def measure_sizes(tree):
    baseline, default, small = (tree.builds / name / "libtm_se_bf.so"
                                for name in ("baseline", "avx2", "small"))
    return {
        "text.baseline": section_size(baseline, ".text"),
        "text.default": section_size(default, ".text"),
        "text.small": section_size(small, ".text"),
        "text.vector": code_size(tree, lambda path: "vector" in path),
        "text.scalar": code_size(tree, lambda path: path.startswith(("q31_cfft", "q31_rfft"))),
        "constants": section_size(default, ".rodata"),
        "constants.small": section_size(small, ".rodata"),
        "constants.self_test": sum(path.stat().st_size for path in
                                   (tree.source / "src/conformance").glob("*.s16")),
        "static": section_size(default, ".bss"),
        "static.pool": constant(tree.source / "src/support/core_state.h", "kStaticMemorySize"),
        "static.self_test": variable_size(default, "buff_out|buff_in_last"),
    }


def build_stream_use(library, output, compiler="c++"):
    run("cmake", "--build", library, "--target", "tm_se_bf_stream")
    run(compiler, "-std=c++17", "-O2", "-fno-builtin", f"-I{TOP}/include", BENCH / "stream_use.cpp",
        "-o", output, f"-L{library}", "-ltm_se_bf_stream")


def measure_streams(tree):
    """Latency and memory by rate."""
    library, program = tree.builds / "baseline", tree.builds / "stream_use"
    build_stream_use(library, program)
    said = run(program, LD_LIBRARY_PATH=library).stderr
    return dict(re.findall(r"^(stream\.\S+) (\d+)$", said, re.MULTILINE))


def measure_memory(tree):
    """The pool by configuration, and the stack."""
    program = tree.builds / "memory_use"
    link_objects(tree, program, BENCH / "memory_use.cpp", "-Wl,-z,now")
    found = dict(re.findall(r"^((?:pool|stack)\.\S+) (\d+)$", run(program).stderr, re.MULTILINE))
    return {name: found[name] for name in found.keys() & rows().keys()}


# The report.

def measure(tree, once):
    """All figures of a tree; what cannot be measured is reported and left out. once: with the figures
    that only one tree needs."""
    parts = [(count_variant, "baseline"), (count_worst, "baseline", 6001),
             (count_worst, "baseline", 6002)]
    if has_avx2():
        parts += [(count_variant, "avx"), (count_variant, "avx2"), (count_worst, "avx2", 6002)]
    else:
        note("AVX2: skipped, this processor has none")
    parts += [(part,) for part in (count_arm, measure_silence, count_denormals, count_system,
                                   measure_sizes, measure_memory, time_transforms)]
    if once:
        parts += [(part,) for part in (count_growth, count_streams, count_refined,
                                       count_refined_arm, count_rates, measure_streams,
                                       count_webrtc)]
    figures = {}
    for part, *words in parts:
        note(" ".join(map(str, [part.__name__, *words])))
        try:
            figures.update(part(tree, *words))
        except Failed as why:
            note(f"skipped: {why}")
    return figures


def build(tree):
    note(f"building {tree.builds.name}")
    avx2_off, sse41_off = "-DTM_SE_BF_AVX2=OFF", "-DTM_SE_BF_SSE41=OFF"
    build_library(tree.source, tree.builds / "baseline", avx2_off, sse41_off)
    build_library(tree.source, tree.builds / "avx", avx2_off)
    build_library(tree.source, tree.builds / "small", "-DTM_SE_BF_SMALL=ON")
    build_library(tree.source, tree.builds / "avx2")


def verdict(row, figure):
    if row.goal is None or figure == "-":
        return ""
    if row.stretch is not None and float(figure) <= row.stretch:
        return "stretch met"
    return "met" if float(figure) <= row.goal else "missed"


def print_table(columns):
    """columns: figures by name, by the name of the tree; goals are judged for the first."""
    print(f"Compiler: {compiler()}; hop {HOP}, two channels, 960 samples a call\n")
    print(f"| figure | unit | {' | '.join(columns)} | goal | stretch | |")
    print(f"|---|---|{'---|' * len(columns)}---|---|---|")
    for name, row in rows().items():
        cells = [figures.get(name, "-") for figures in columns.values()]
        goals = ["" if goal is None else goal for goal in (row.goal, row.stretch)]
        print("|", " | ".join(map(str, [name, row.unit, *cells, *goals, verdict(row, cells[0])])), "|")


def write_figures(figures):
    lines = [f"# Figures that the pages quote: name, value, unit, what measured it. "
             "Written by bench/report.py --write.",
             f"# x86-64 unless said, hop {HOP}, two channels, 960 samples a call, {COUNT_S} s of audio",
             f"# compiler: {compiler()}"]
    for name, row in sorted(rows().items()):
        if name in figures:
            lines.append(f"{name} {figures[name]} {row.unit}: {row.how}")
        else:
            note(f"{FIGURES.name} loses {name}")
    FIGURES.write_text("\n".join(lines) + "\n")


def main():
    parser = argparse.ArgumentParser(description=__doc__.partition("\n\n")[0])
    parser.add_argument("old", metavar="OLD_COMMIT", nargs="?", help="a second column for the library "
                        "of that commit, measured by the same programs")
    parser.add_argument("--write", action="store_true", help="make the figures of this tree those that "
                        "the pages have to quote, bench/figures.txt")
    parser.add_argument("--keep", metavar="DIR", type=pathlib.Path, help="build there and keep it (with "
                        "callgrind's files) instead of in a temporary directory")
    chosen = parser.parse_args()
    with contextlib.ExitStack() as cleaning:
        work = chosen.keep or pathlib.Path(cleaning.enter_context(tempfile.TemporaryDirectory()))
        work = work.resolve()
        current = Tree(TOP, work / "current", work)
        build(current)
        for name in "run_stream", "silence_cost", "quiet_calls":
            build_driver(name, current.builds / "avx2", work / name)
        columns = {"current": measure(current, once=True)}
        if chosen.old:
            old = Tree(work / "old", work / "old-builds", work)
            old.source.mkdir(exist_ok=True)
            run("git", "-C", TOP, "archive", "-o", work / "old.tar", chosen.old)
            run("tar", "-C", old.source, "-xf", work / "old.tar")
            build(old)
            columns[chosen.old] = measure(old, once=False)
    print_table(columns)
    if chosen.write:
        write_figures(columns["current"])


if __name__ == "__main__":
    try:
        main()
    except Failed as why:
        sys.exit(f"report.py: {why}")
