"""compare.py REFERENCE GOT CORRELATION LEVEL_DB DELAY LENGTH

The WAV file GOT, of any format, must repeat REFERENCE, raw 16-bit samples at 16 kHz: at least so alike,
at most so far in level, and with this delay and length in samples (any: unknown)."""
import sys

import numpy as np
from scipy import signal
from scipy.io import wavfile

reference, got, least_correlation, most_level_db, *expected = sys.argv[1:]
reference = np.fromfile(reference, "<i2") / 32768
rate_hz, got = wavfile.read(got)
if got.dtype.kind == "i":
    got = got / 2.0 ** (8 * got.itemsize - 1)
channels = got.reshape(len(got), -1).T
got = signal.resample_poly(channels[0], 16000, rate_hz)
length = len(got)
delay = int(np.argmax(signal.correlate(got, reference))) - (len(reference) - 1)
got = got[max(delay, 0):][:len(reference)]
reference = reference[:len(got)]
correlation = np.dot(reference, got) / np.linalg.norm(reference) / np.linalg.norm(got)
level_db = 20 * np.log10(np.linalg.norm(got) / np.linalg.norm(reference))
print(f"correlation {correlation:.5f}, level {level_db:+.2f} dB, delay {delay}, length {length}")
assert all(np.array_equal(channels[0], channel) for channel in channels)
assert correlation >= float(least_correlation) and abs(level_db) <= float(most_level_db)
assert all(value in ("any", str(found)) for value, found in zip(expected, (delay, length)))
