"""Compares enhanced recordings.

compare.py REFERENCE GOT [--delay N|any] --exact | --level-db X --correlation Y
compare.py --raw WAV RAW        writes the samples of a WAV file
compare.py --pad SECONDS WAV WAV    writes a WAV file with silence before and after
"""
import argparse
import sys

import numpy as np
from scipy import signal
from scipy.io import wavfile

RATE_HZ = 16000
BLOCK = 320
TYPES = {"S16_LE": ("<i2", 32768.0), "S32_LE": ("<i4", 2147483648.0), "FLOAT_LE": ("<f4", 1.0)}


def read(path, sample_format="S16_LE"):
    """Samples of full scale 1 of a WAV file, or of raw samples in the given format."""
    if path.endswith(".wav"):
        samples = wavfile.read(path)[1]
        sample_format = {"int16": "S16_LE", "int32": "S32_LE", "float32": "FLOAT_LE"}[
            str(samples.dtype)]
    else:
        samples = np.fromfile(path, TYPES[sample_format][0])
    return samples / TYPES[sample_format][1]


def level_db(samples):
    return 10 * np.log10(np.mean(samples ** 2))


def expect(condition, message):
    print(("ok: " if condition else "NOT ok: ") + message)
    if not condition:
        sys.exit(1)


def compare_exact(options, reference, got):
    delay = int(options.delay)
    # Behind the first block, gains that differ between bins make sound ahead of the sound's start.
    expect(not got[:min(delay, BLOCK)].any(), "silence while the first block fills up")
    got = got[delay:]
    if options.all:
        expect(len(got) == len(reference), f"length {len(got)} is {len(reference)}")
    # SoX drops a few samples at the end when it makes up for the latency.
    count = min(len(reference), len(got))
    expect(count > 0.9 * len(reference), f"{count} samples to compare")
    different = np.nonzero(reference[:count] != got[:count])[0]
    expect(len(different) == 0, f"the same samples, {len(different)} differ")


def compare_roughly(options, reference, got):
    if options.rate != RATE_HZ:
        got = signal.resample_poly(got, RATE_HZ, options.rate)
    likeness = signal.correlate(got, reference, "full")
    delay = int(np.argmax(likeness)) - (len(reference) - 1)
    if options.delay != "any":
        # Two samples for the delay of a rate converter.
        expect(abs(delay - int(options.delay)) <= 2, f"delay {delay}, expected {options.delay}")
    got = got[max(delay, 0):][:len(reference)]
    reference = reference[:len(got)]
    correlation = np.dot(reference, got) / np.linalg.norm(reference) / np.linalg.norm(got)
    expect(correlation >= options.correlation, f"correlation {correlation:.3f}")
    difference = level_db(got) - level_db(reference)
    expect(abs(difference) <= options.level_db, f"level {difference:+.2f} dB")


def parse_arguments():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("files", nargs=2)
    parser.add_argument("--raw", action="store_true")
    parser.add_argument("--pad", type=float)
    parser.add_argument("--exact", action="store_true")
    parser.add_argument("--all", action="store_true", help="lengths must agree")
    parser.add_argument("--delay", default="0")
    parser.add_argument("--format", default="S16_LE", choices=TYPES)
    parser.add_argument("--channels", type=int, default=1)
    parser.add_argument("--rate", type=int, default=RATE_HZ)
    parser.add_argument("--level-db", type=float)
    parser.add_argument("--correlation", type=float)
    return parser.parse_args()


def main():
    options = parse_arguments()
    first, second = options.files
    if options.raw:
        wavfile.read(first)[1].astype("<i2").tofile(second)
        return
    if options.pad is not None:
        rate_hz, samples = wavfile.read(first)
        silence = np.zeros((int(options.pad * rate_hz), samples.shape[1]), samples.dtype)
        wavfile.write(second, rate_hz, np.concatenate([silence, samples, silence]))
        return
    reference = read(first)
    got = read(second, options.format)
    if options.channels > 1:
        got = got.reshape(-1, options.channels)
        expect(all(np.array_equal(got[:, 0], channel) for channel in got.T), "equal channels")
        got = got[:, 0]
    if options.exact:
        compare_exact(options, reference, got)
    else:
        compare_roughly(options, reference, got)


if __name__ == "__main__":
    main()
