"""Compares the figures that the pages quote with those that were measured, bench/figures.txt.

A page quotes a figure as it stands there, or rounded: to the decimals that it shows, or to a coarser
step where the list below says so. Sizes and counts of instructions that no line of the list covers
fail, too.
"""
import pathlib
import re
import sys

TOP = pathlib.Path(__file__).resolve().parents[1]
MODES = (6000, 6001, 6002)
HOPS = (160, 192, 320)
STREAM_RATES = (8000, 11025, 16000, 22050, 24000, 32000, 44100, 48000, 88200, 96000, 176400, 192000)

# Figures of this form must be in the list, except in the section on what was tried: its figures are of
# code that is gone.
COST = r"of (\d+) bytes|(\d[\d.]*) (?:kB|instructions)\b"
TALE = ("docs/performance.md", "## What was tried")

# Converts instructions per frame of 12 ms to per cent of a core, at 1 GHz and one instruction per cycle.
CORE = "/ 0.012 / 1000000000 * 100"


def pool(hop, channels):
    return f"pool.hop{hop}.channels{channels}"

CONSTANTS = "(constants - constants.self_test) / 1000"


def pool_kb(hop, channels):
    return f"{pool(hop, channels)} / 1000"


def of_modes(prefix):
    return [f"{prefix}.{mode}" for mode in MODES]


def stream_rate(rate):
    """Latency in samples and ms, what the filters add to the 32 ms at 16 kHz, and memory."""
    latency = f"stream.latency.{rate}"
    return [latency, f"{latency} / {rate} * 1000", f"{latency} / {rate} * 1000 - 32",
            f"stream.memory.{rate} / 1000"]


def growth(hop):
    return of_modes("instructions.baseline") if hop == 192 else \
        [f"growth.{mode}.hop{hop}.channels2" for mode in MODES]


def readme_costs(mode):
    """Three counts to hundreds, and what share of a core the smallest and the largest are."""
    counts = [f"instructions.{target}.{mode}" for target in ("baseline", "avx2", "aarch64")]
    return [(count, 100) for count in counts] + [f"{counts[1]} {CORE}", f"{counts[0]} {CORE}"]


# Page; its text, with # for a figure and ... for anything; what the figures are.
QUOTES = [
    ("README.md", "`refined`, the default ... 12 ms | # kB, a whole stream | # | # | # | # to # % |",
     ["stream.memory.16000 / 1000",
      *[(f"refined.{target}.channels2 * 12 / 20", 100) for target in ("baseline", "avx2", "aarch64")],
      f"refined.avx2.channels2 * 12 / 20 {CORE}", f"refined.baseline.channels2 * 12 / 20 {CORE}"]),
    ("docs/performance.md", "worst block takes # times", ["refined.avx2.worst"]),
    ("docs/performance.md", "| one | # | # | | # |",
     ["refined.baseline.channels1", "refined.avx2.channels1", "27000"]),
    ("docs/performance.md", "| two | # | # | # | # |",
     [*[f"refined.{target}.channels2" for target in ("baseline", "avx2", "aarch64")], "48000"]),
    ("README.md", "(6000) ... 12 ms | # kB | # | # | # | # to # % |",
     [pool_kb(192, 2), *readme_costs(6000)]),
    ("README.md", "(6001) ... 12 ms | one: # kB, two: # kB | # | # | # | # to # % |",
     [pool_kb(192, 1), pool_kb(192, 2), *readme_costs(6001)]),
    ("README.md", "(6002) ... 12 ms | # kB | # | # | # | # to # % |",
     [pool_kb(192, 2), *readme_costs(6002)]),
    ("README.md", "(6003) ... none | # kB |", [pool_kb(192, 2)]),
    ("README.md", "takes # kB (one channel: # kB)", [pool_kb(320, 2), pool_kb(320, 1)]),
    ("README.md", "# kB of code (# kB with the forms for SSE4.1, AVX and AVX2) and # kB of constants: # kB for the "
     "self-test's recording and reference, # kB mostly for the tables",
     ["text.baseline / 1000", "text.default / 1000", "constants / 1000",
      "constants.self_test / 1000", CONSTANTS]),
    ("README.md", "# kB of static memory (# kB the pool, # kB the self-test's) and # kB of stack, "
     "# kB where it prints a message or runs the self-test",
     ["static / 1000", "static.pool / 1000", "static.self_test / 1000", "stack.stream / 1000",
      "stack.self_test / 1000"]),
    ("README.md", "# ms at 16 kHz, # ms at 48 kHz. A stream takes # kB of memory at 16 kHz and # kB at",
     [*[f"stream.latency.{rate} / {rate} * 1000" for rate in (16000, 48000)],
      *[f"stream.memory.{rate} / 1000" for rate in (16000, 48000)]]),
    ("README.md", "for firmware: # kB of code and # kB of constants besides",
     ["text.small / 1000", "(constants.small - constants.self_test) / 1000"]),
    ("include/tm_se_bf_stream.h", "allocates everything, # KiB at", ["stream.memory.16000 / 1024"]),
    ("include/tm_se_bf.h", "The pool holds # bytes", ["static.pool"]),
    ("docs/algorithm.md", "needs # kB of memory instead of # kB",
     [pool_kb(320, 2), pool_kb(192, 2)]),
    ("docs/algorithm.md", "One static pool of # bytes", ["static.pool"]),
    *[("docs/algorithm.md", f"| {hop} | # kB | # kB |", [pool_kb(hop, 1), pool_kb(hop, 2)])
      for hop in HOPS],
    ("docs/algorithm.md", "adds # kB of buffers and, in the file, # kB of recording and reference",
     ["static.self_test / 1000", "constants.self_test / 1000"]),
    ("docs/architecture.md", "in one array of # bytes", ["static.pool"]),
    *[("docs/architecture.md", f"| {hop} | # | # |", [pool(hop, 1), pool(hop, 2)]) for hop in HOPS],
    ("docs/verification.md", "pool position, every hour | # | # |", [pool(192, 1), pool(192, 2)]),
    *[("docs/performance.md", f"frame, {label}, mode 6000 | # | ... 6001 | # | ... 6002 | # |",
       of_modes(f"instructions.{target}"))
      for label, target in (("x86-64 baseline", "baseline"), ("AVX2", "avx2"),
                            ("AVX without AVX2", "avx"), ("aarch64",) * 2)],
    ("docs/performance.md", "transforms, baseline, 6000 | # | ... 6001 | # | ... 6002 | # |",
     of_modes("share.baseline")),
    ("docs/performance.md", "same with AVX2, 6000, 6001, 6002 | #, #, # |", of_modes("share.avx2")),
    ("docs/performance.md", "over FFTW, AVX2, time | # |", ["pair.fftw.256"]),
    ("docs/performance.md", "median, baseline, 6001 and 6002 | #, # |",
     ["worst.baseline.6001", "worst.baseline.6002"]),
    ("docs/performance.md", "median, AVX2, 6002 | # |", ["worst.avx2.6002"]),
    ("docs/performance.md", "over speech, time, worst mode | # |", ["silence.6000"]),
    ("docs/performance.md", "page faults after the first call | # |", ["system.6002"]),
    ("docs/performance.md", "baseline build, bytes | # |", ["text.baseline"]),
    ("docs/performance.md", "default build, bytes | # |", ["text.default"]),
    ("docs/performance.md", "alone takes # instructions ... with suppression # (baseline x86-64)",
     ["webrtc.suppression", "webrtc.beamformer"]),
    ("docs/performance.md", "N = 512 over FFTW #, N = 256 over KissFFT #.",
     ["pair.fftw.512", "pair.kiss.256"]),
    ("docs/performance.md", "6002 takes, of # instructions", ["instructions.avx2.6002"]),
    ("docs/performance.md", "three transforms with their windows | # |", ["transforms.avx2.6002"]),
    ("docs/performance.md", "some # instructions; spectra stay packed", ["800"]),  # estimated
    ("docs/performance.md", "costs what 6001 does, #.", ["silence.6000"]),
    ("docs/performance.md", "take # kB as vector code, the scalar transform "
     "# kB, the rest of the library # kB",
     ["text.vector / 1000", "text.scalar / 1000",
      "(text.baseline - text.vector - text.scalar) / 1000"]),
    *[("docs/performance.md", f"| {hop} | 1 | | # |", [f"growth.6001.hop{hop}.channels1"])
      for hop in HOPS],
    *[("docs/performance.md", f"| {hop} | 2 | # | # | # |", growth(hop)) for hop in HOPS],
    *[("docs/performance.md", f"| {rate} | # | # | # | # kB |", stream_rate(rate))
      for rate in STREAM_RATES],
    ("docs/performance.md", "The # MB at 159999 Hz", ["stream.memory.159999 / 1000000"]),
    ("docs/performance.md", "the core alone, hop 320 | # | # |",
     [f"{figure} * 50 / 1000000" for figure in growth(320)[1:]]),
    *[("docs/performance.md", f"a stream at {rate // 1000} kHz | # | # |",
       [f"stream.cost.{rate}.{mode} / 1000000" for mode in MODES[1:]]) for rate in (16000, 48000)],
    ("docs/performance.md", "a stream takes # % more than the core in mode 6001, # % more in 6002 (with "
     "AVX2, where the core takes less than half, # % and # %)",
     [f"(stream.cost.16000.{mode} / growth.{mode}.hop320.channels2 / 50 - 1) * 100"
      for mode in MODES[1:]] + [f"(stream.share.avx2.{mode} - 1) * 100" for mode in MODES[1:]]),
    ("docs/performance.md", "band above 8 kHz, takes # million instructions; the same with "
     "libsamplerate's converter of medium quality, without that band, takes # million. # million "
     "instructions a second are # % of a core",
     ["rates.path / 1000000", "rates.libsamplerate / 1000000", "stream.cost.48000.6001 / 1000000",
      "stream.cost.48000.6001 / 1000000000 * 100"]),
    ("docs/performance.md", "forward and an inverse take # instructions", ["transforms.avx2.6000"]),
    ("docs/performance.md", "| default, x86-64 | # kB | # kB |", ["text.default / 1000", CONSTANTS]),
    ("docs/performance.md", "without AVX2, AVX and SSE4.1 | # kB |", ["text.baseline / 1000"]),
    ("docs/performance.md", "| `TM_SE_BF_SMALL` | # kB | # kB |",
     ["text.small / 1000", "(constants.small - constants.self_test) / 1000"]),
    ("docs/performance.md", "# operations a frame at most", [("denormals.6002", 100)]),
]


def pattern(quote):
    words = re.escape(quote).replace(r"\#", r"(\d+(?:\.\d+)?)").replace(r"\.\.\.", r"[\s\S]*?")
    return words.replace(r"\ ", r"\s+(?:\*\s)?")  # comments of the header start with a star


def read_figures():
    lines = (TOP / "bench/figures.txt").read_text().splitlines()
    return {line.split()[0]: float(line.split()[1]) for line in lines if not line.startswith("#")}


def compare(where, text, quoted, figures):
    """A complaint where the text is not the quoted expression in figures, rounded."""
    expression, step = quoted if isinstance(quoted, tuple) else (quoted, 0)
    names = r"[a-z][\w.]*"
    missing = set(re.findall(names, expression)) - figures.keys()
    if missing:
        return [f"{where}: bench/figures.txt has no {missing}"]
    value = eval(re.sub(names, lambda name: repr(figures[name[0]]), expression))
    step = max(step, 10.0 ** -len(text.partition(".")[2]))
    if abs(float(text) - value) <= step / 2 * 1.000001:
        return []
    return [f"{where}: says {text}, but {expression} is {value:g}"]


def parts_add_up(page, figures):
    """The table of what a frame of the beamformer takes."""
    table = page.partition("| part | instructions |")[2].partition("\n\n")[0]
    total = sum(map(int, re.findall(r"\| (\d+) \|", table)))
    return compare("docs/performance.md, sum of the parts", str(total), "instructions.avx2.6002",
                   figures)


def main():
    figures = read_figures()
    paths = [TOP / "README.md", *sorted((TOP / "include").glob("*.h")), *sorted((TOP / "docs").glob("*.md"))]
    pages = {str(path.relative_to(TOP)): path.read_text() for path in paths}
    complaints = parts_add_up(pages["docs/performance.md"], figures)
    found = {name: set() for name in pages}

    def place(name, start):
        return f"{name}:{pages[name].count(chr(10), 0, start) + 1}"

    for name, quote, quoted in QUOTES:
        matches = list(re.finditer(pattern(quote), pages[name]))
        if not matches:
            complaints.append(f"{name}: does not say {quote!r}; change the list in {__file__}")
        for match in matches:
            for group, one in enumerate(quoted, 1):
                found[name].add(match.start(group))
                complaints += compare(place(name, match.start(group)), match[group], one, figures)
    for name, page in pages.items():
        page = page.partition(TALE[1])[0] if name == TALE[0] else page
        for match in re.finditer(COST, page):
            if match.start(match.lastindex) not in found[name]:
                complaints.append(f"{place(name, match.start())}: {match[0]!r} is in no list; "
                                  f"measure it, or add it in {__file__}")
    print("\n".join(complaints) or f"{sum(map(len, found.values()))} figures, all as measured")
    return 1 if complaints else 0


if __name__ == "__main__":
    sys.exit(main())
