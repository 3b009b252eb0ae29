#!/usr/bin/env python3
"""Prints by how many dB the noise in the pauses of speech fell between an input and an output.

Rule: the first channel of the input is cut into 20 ms frames, and those of the first second (of a
file under 4 s: the first quarter) are left out, because a suppressor still adapts there. The
quietest 20 % of the rest count as pauses, the loudest 20 % as speech, judged by the level in the
100 ms around each frame of the input; the output, which is aligned with the input, is measured in
the same frames. The figure that counts is how much more the noise fell than the speech, so that a
plain attenuation does not pass for noise reduction. Mind that the loud frames of the input carry
noise too: at 6 dB, taking only the noise away lowers them by 1 dB.
"""
import argparse
import pathlib
import sys

import numpy as np

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[1] / "program/plot"))
from audio_io import read_channel_0  # noqa: E402

FRAME_S = 0.02
JUDGED_FRAMES = 5  # 100 ms, longer than the dips between two syllables
ADAPTATION_S = 1.0
ADAPTATION_SHARE = 0.25
PAUSE_SHARE = 0.2
SPEECH_SHARE = 0.2
SILENCE = 1e-10  # mean square below which a level is called digital silence
LEAST_FRAMES = 10


def frame_powers(samples, frame_length):
    count = len(samples) // frame_length
    return np.mean(np.square(samples[:count * frame_length].reshape(count, frame_length)), axis=1)


def level_db(powers):
    return 10.0 * np.log10(max(float(np.mean(powers)), SILENCE))


def pause_figures(rate_hz, before, after):
    """Level changes in dB (pauses, speech) from `before` to `after`, by the rule above."""
    frame_length = int(FRAME_S * rate_hz)
    skipped_s = min(ADAPTATION_S, ADAPTATION_SHARE * len(before) / rate_hz)
    first = int(np.ceil(skipped_s / FRAME_S))
    power_before = frame_powers(before, frame_length)[first:]
    power_after = frame_powers(after, frame_length)[first:]
    if len(power_before) < LEAST_FRAMES:
        sys.exit(f"pause_level: the recording is too short; it needs at least "
                 f"{LEAST_FRAMES * FRAME_S / (1.0 - ADAPTATION_SHARE):.1f} s")
    around = np.convolve(power_before, np.ones(JUDGED_FRAMES), mode="same")
    whole = np.convolve(np.ones(len(power_before)), np.ones(JUDGED_FRAMES), mode="same")
    order = np.argsort(around / whole)
    pauses = order[:int(PAUSE_SHARE * len(order))]
    speech = order[-int(SPEECH_SHARE * len(order)):]
    return [level_db(power_after[part]) - level_db(power_before[part]) for part in (pauses, speech)]


def main():
    parser = argparse.ArgumentParser(description=__doc__.split("\n\n", maxsplit=1)[0],
                                     epilog=__doc__.split("\n\n", maxsplit=1)[1])
    parser.add_argument("input", metavar="IN")
    parser.add_argument("output", metavar="OUT", nargs="+")
    arguments = parser.parse_args()
    rate_hz, before = read_channel_0(arguments.input)
    for path in arguments.output:
        out_rate_hz, after = read_channel_0(path)
        if out_rate_hz != rate_hz or len(after) != len(before):
            sys.exit(f"pause_level: {path} has not the rate and length of {arguments.input}")
        pauses_db, speech_db = pause_figures(rate_hz, before, after)
        print(f"{path}: noise in the pauses {pauses_db:+.1f} dB, loud speech {speech_db:+.1f} dB, "
              f"so the noise fell {speech_db - pauses_db:.1f} dB more than the speech")


if __name__ == "__main__":
    main()
