#!/usr/bin/env python3
"""Compares the instructions per frame of the three modes with bench/figures.txt and fails when one has
grown by more than 2 %.

The figures belong to one compiler: with another, or without valgrind, nothing is judged.
"""
import argparse
import pathlib
import shutil
import sys

import measure

TOLERATED_GROWTH_PERCENT = 2.0


def main():
    parser = argparse.ArgumentParser(description=__doc__.partition("\n\n")[0])
    parser.add_argument("builds", metavar="BUILD_DIR", nargs="?", type=pathlib.Path,
                        default=measure.TOP / "build/counts",
                        help="where the two libraries are built (build/counts)")
    builds = parser.parse_args().builds.resolve()
    if not shutil.which("valgrind"):
        print("instruction counts: skipped, valgrind is missing")
        return 0
    variants = {"baseline": ["-DTM_SE_BF_AVX2=OFF", "-DTM_SE_BF_SSE41=OFF"],
                "avx": ["-DTM_SE_BF_AVX2=OFF"], "avx2": []}
    if not measure.has_avx2():
        del variants["avx"], variants["avx2"]
        print("instruction counts: AVX and AVX2 rows skipped, this processor has no AVX2")
    committed, its_compiler = measure.read_figures()
    judged = its_compiler == measure.compiler()
    if not judged:
        print(f"instruction counts: not judged, the committed ones are of {its_compiler}, "
              f"this compiler is {measure.compiler()}")

    grown = False
    driver = builds / "run_stream"
    print(f"{'variant':9} {'mode':>6} {'committed':>10} {'now':>10} {'growth':>8}")
    for variant, options in variants.items():
        library = builds / variant
        measure.build_library(measure.TOP, library, *options)
        measure.build_driver("run_stream", library, driver)
        for mode in measure.MODES:
            before = int(committed[f"instructions.{variant}.{mode}"])
            now = measure.per_frame(library, driver, mode)
            growth = 100 * (now - before) / before
            too_much = growth > TOLERATED_GROWTH_PERCENT
            grown = grown or too_much
            print(f"{variant:9} {mode:6} {before:10} {now:10} {growth:+6.2f} %"
                  f"{'  GROWN' if too_much else ''}", flush=True)
    if grown:
        print(f"instruction counts: more than {TOLERATED_GROWTH_PERCENT:g} % above the committed "
              "figures; speed it up, or commit new figures with bench/report.py --write and say why")
    return 1 if grown and judged else 0


if __name__ == "__main__":
    try:
        sys.exit(main())
    except measure.Failed as why:
        sys.exit(f"check_counts.py: {why}")
