#!/usr/bin/env python3
"""Measures the sound of every mode on sets of simulated scenes, side by side, as Markdown tables.

The columns, means over the scenes of a set:
  SI-SDR   scale-invariant signal-to-distortion ratio in dB, from 2 s on, against the clean speech
           with its early reflections; the best of microphone 0, microphone 1, their mean and their
           mean aligned on the talker is the reference, because a beamformer does not say which it
           takes
  start    the same of the first 2 s, in which the estimators adapt
  STOI     short-time objective intelligibility, 0 to 1
  SDR      signal-to-distortion ratio in dB that forgives a fixed filter on each microphone
  speech   change of level of the speech in dB, from the projection of the output on that
           reference
  noise    change of level in the pauses of the talkers in dB: mean over 20 ms frames, against
           microphone 0 without faults
  net      by how many dB the noise fell more than the speech
  log-K    musical noise in the pauses: logarithm of the ratio of the kurtosis of power spectra

quality.py has the details and the literature, scenes.py the sets.
"""
import argparse
import functools
import json
import math
import multiprocessing
import os
import sys

import numpy as np

import quality
import scenes
import systems

COLUMNS = {"si_sdr": ("SI-SDR", ".2f"), "start": ("start", ".2f"), "stoi": ("STOI", ".3f"),
           "sdr": ("SDR", ".2f"), "speech": ("speech", "+.2f"), "noise": ("noise", "+.2f"),
           "net": ("net", ".2f"), "log_kurtosis": ("log-K", "+.2f")}


def measure_plan(plan, arguments):
    """Measures of all systems on one scene: name of the system to its measures."""
    scene = scenes.load(plan, arguments.cache)
    prepared = quality.prepare(scene, arguments.reverberant)
    library = systems.open_library(arguments.library)
    outputs = {name: systems.run(name, scene, library, arguments.webrtc, arguments.hop)
               for name in arguments.systems}
    return {name: quality.measure(output, prepared) for name, output in outputs.items()}


def mean_of(rows, column):
    """Mean over scenes, without those that have no such measure."""
    values = [row[column] for row in rows if not math.isnan(row[column])]
    return float(np.mean(values)) if values else math.nan


def print_table(title, rows):
    """Rows are pairs of a name and its measures."""
    print(f"| {title} | " + " | ".join(label for label, _ in COLUMNS.values()) + " |")
    print("|---|" + "---:|" * len(COLUMNS))
    for name, row in rows:
        cells = [format(row[column], form) for column, (_, form) in COLUMNS.items()]
        print(f"| {name} | " + " | ".join(cells) + " |")
    print(flush=True)


def measure_set(name, arguments, pool):
    """Prints the tables of one set and returns its measures as written with --json."""
    plans = scenes.SETS[name]()
    measured = pool.map(functools.partial(measure_plan, arguments=arguments), plans, chunksize=1)
    if arguments.detail:
        for plan, of_systems in zip(plans, measured):
            print_table(f"{plan.name}: {plan.kind}, {plan.snr_db:.0f} dB, "
                        f"{plan.place.rt60_s:.2f} s, {100.0 * plan.spacing_m:.0f} cm",
                        of_systems.items())
    means = {system: {column: mean_of([row[system] for row in measured], column)
                      for column in COLUMNS} for system in arguments.systems}
    print_table(f"{name}, {len(plans)} scenes", means.items())
    return {"means": means, "scenes": {plan.name: row for plan, row in zip(plans, measured)}}


def parse_arguments():
    parser = argparse.ArgumentParser(description=__doc__,
                                     formatter_class=argparse.RawDescriptionHelpFormatter)
    add = parser.add_argument
    add("--build", default="build/check", metavar="DIR", help="build tree (default: build/check)")
    add("--library", metavar="PATH", help="stream library, instead of that of the build tree")
    add("--set", nargs="+", choices=list(scenes.SETS), default=list(scenes.SETS), dest="sets",
        metavar="NAME", help=f"of {', '.join(scenes.SETS)} (default: all)")
    add("--systems", nargs="+", choices=systems.NAMES, metavar="NAME",
        help=f"of {'; '.join(systems.NAMES)} (default: all but auto)")
    add("--hop", type=int, choices=(160, 192, 320), default=320,
        help="of mean, omlsa and mvdr (default: 320)")
    add("--reverberant", action="store_true",
        help="the reference is all of the reverberant speech, with its late reflections")
    add("--webrtc", metavar="PATH", help="program bench/webrtc_stream, built with "
        "-DTM_SE_BF_BUILD_BENCH=ON (default: that of the build tree, if it is there)")
    add("--cache", metavar="DIR", help="keeps the scenes, which take a minute a set to make")
    add("--jobs", type=int, default=os.cpu_count(), help="processes (default: one for each core)")
    add("--json", metavar="FILE", help="also writes all measures there")
    add("--detail", action="store_true", help="also prints a table for each scene")
    arguments = parser.parse_args()
    if arguments.jobs < 1:
        parser.error("--jobs is a number of processes, 1 or more")
    complete(arguments, parser)
    return arguments


def complete(arguments, parser):
    """Finds the library and the program of the comparison; refuses what is not there."""
    arguments.library = arguments.library or os.path.join(arguments.build, "libtm_se_bf_stream.so")
    if not os.path.isfile(arguments.library):
        parser.error(f"{arguments.library} is not there; build it (cmake --preset check && cmake "
                     "--build build/check), or name another with --build or --library")
    wanted = arguments.webrtc is not None or "webrtc" in (arguments.systems or [])
    arguments.webrtc = arguments.webrtc or os.path.join(arguments.build, "bench/webrtc_stream")
    there = os.access(arguments.webrtc, os.X_OK) and os.path.isfile(arguments.webrtc)
    if wanted and not there:
        parser.error(f"{arguments.webrtc} is not there; build it with -DTM_SE_BF_BUILD_BENCH=ON, "
                     "or name another with --webrtc")
    arguments.systems = arguments.systems or [name for name in systems.USUAL
                                              if there or name != "webrtc"]
    if arguments.json and not os.path.isdir(os.path.dirname(arguments.json) or "."):
        parser.error(f"--json: the folder of {arguments.json} is not there; make it first")


def main():
    arguments = parse_arguments()
    results = {}
    with multiprocessing.Pool(arguments.jobs) as pool:
        try:
            for name in arguments.sets:
                results[name] = measure_set(name, arguments, pool)
        except (RuntimeError, OSError) as error:
            sys.exit(f"measure_scenes: {error}")
    if arguments.json:
        with open(arguments.json, "w", encoding="utf-8") as file:
            json.dump(results, file, indent=1)


if __name__ == "__main__":
    main()
