"""Reads WAV files for the plot scripts."""
import sys
import warnings

import numpy as np
from scipy.io import wavfile

FULL_SCALE = {"int16": 32768.0, "int32": 2147483648.0, "float32": 1.0, "float64": 1.0}


def read_channel_0(path):
    """Sample rate in Hz and the samples of the first channel, full scale 1."""
    try:
        with warnings.catch_warnings():
            warnings.simplefilter("ignore", wavfile.WavFileWarning)
            rate_hz, samples = wavfile.read(path)
    except (OSError, ValueError) as error:
        sys.exit(f"{path}: cannot be read as a WAV file ({error})")
    if samples.ndim == 2:
        samples = samples[:, 0]
    if samples.dtype == np.uint8:
        return rate_hz, (samples - 128.0) / 128.0
    return rate_hz, samples / FULL_SCALE[str(samples.dtype)]
