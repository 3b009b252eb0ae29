"""Reads the first channel of WAV files (PCM), or raw PCM, piece by piece, for the plot scripts."""
import collections
import os
import sys
import wave

import numpy as np

BLOCK_FRAMES = 1 << 16
RAW_BYTES = 2  # of a sample of raw PCM, which has one channel

# `read` takes a number of frames and returns their bytes; `frames` is never more than the file has
# room for, whatever its header says.
Sound = collections.namedtuple("Sound", "file path rate_hz frames channels sample_bytes read")


def open_sound(path, raw_rate_hz=None):
    """A Sound. With raw_rate_hz the file is raw 16-bit little-endian PCM at that rate."""
    try:
        file = open(path, "rb")
        size = os.fstat(file.fileno()).st_size
        if raw_rate_hz is not None:
            return Sound(file, path, raw_rate_hz, size // RAW_BYTES, 1, RAW_BYTES,
                         lambda frames: file.read(frames * RAW_BYTES))
        header = wave.open(file)
        frame_bytes = header.getnchannels() * header.getsampwidth()
        return Sound(file, path, header.getframerate(), min(header.getnframes(), size // frame_bytes),
                     header.getnchannels(), header.getsampwidth(), header.readframes)
    except (OSError, EOFError, wave.Error) as error:
        sys.exit(f"{path}: cannot be read as a WAV file of PCM samples ({error})")


def decode(sound, data):
    """Samples of the first channel, full scale 1, from the bytes of frames."""
    width = sound.sample_bytes
    if width == 1:
        return (np.frombuffer(data, "u1")[::sound.channels] - 128.0) / 128.0
    if width == 3:  # becomes the upper three bytes of four
        words = np.zeros((len(data) // 3, 4), "u1")
        words[:, 1:] = np.frombuffer(data, "u1").reshape(-1, 3)
        data, width = words.tobytes(), 4
    samples = np.frombuffer(data, f"<i{width}")[::sound.channels]
    return samples / 2.0 ** (8 * width - 1)


def blocks(sound):
    """Yields the samples of the first channel in pieces of BLOCK_FRAMES at most, once."""
    frame_bytes = sound.channels * sound.sample_bytes
    left = sound.frames
    with sound.file:
        while left > 0:
            data = sound.read(min(left, BLOCK_FRAMES))
            count = len(data) // frame_bytes
            left = left - count if count > 0 else 0
            yield decode(sound, data[:count * frame_bytes])


def read_channel_0(path):
    """Sample rate in Hz and all samples of the first channel, full scale 1."""
    sound = open_sound(path)
    return sound.rate_hz, np.concatenate([np.zeros(0), *blocks(sound)])
