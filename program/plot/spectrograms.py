#!/usr/bin/env python3
"""Draws the spectrograms of recordings into one picture, on one time axis and one colour scale.

IN [OUT ...] stand above each other. Each --column adds a further column of files, for instance
another input with its outputs. Of several channels the first is drawn. The files may have any
length: they are read piece by piece, and a pixel shows the loudest of the moments that it covers,
so that a click shows in an hour of sound.
"""
import argparse
import io
import itertools
import os
import shutil
import signal
import sys


def print_in_one_line(kind, error, _):
    """What a user sees instead of a traceback."""
    print("out of memory; close other programs and try again" if issubclass(kind, MemoryError)
          else f"{kind.__name__}: {' '.join(str(error).split())}", file=sys.stderr)


sys.excepthook = print_in_one_line
signal.signal(signal.SIGTERM, lambda number, frame: sys.exit(1))  # in good order

try:
    import matplotlib
    matplotlib.use("Agg")
    from matplotlib import cm, colors
    import matplotlib.pyplot as plt
    import numpy as np

    from audio_io import blocks, open_sound
except ModuleNotFoundError as missing:
    sys.exit(f"{missing}; install the packages python3-numpy python3-matplotlib")
except ImportError as error:
    sys.exit(f"Python cannot load what it draws with ({str(error).strip().splitlines()[-1]}); free "
             "some memory, or install the packages python3-numpy python3-matplotlib again")

WINDOW_S = 0.032
STEP_S = 0.008
RANGE_DB = 70.0  # of the colour scale, below the loudest point of the picture
LEAST_TOP_DB = -90.0  # a sine of the least amplitude in 16 bits; below it all is black
POWER_FLOOR = 1e-24
DPI = 110
SPARE_PIXELS = 4  # columns fewer than an axis is wide: no rounding may leave one out
TIME_UNITS = ((18000.0, 3600.0, "h"), (600.0, 60.0, "min"), (0.0, 1.0, "s"))  # from this duration


def moments(sound, window, step):
    """Yields the sound in pieces, as rows of `window` samples that are centred on every `step`-th
    sample from the first on. Zeros surround the sound."""
    samples = np.zeros(window // 2)
    left = sound.frames // step + 1
    for block in itertools.chain(blocks(sound), [np.zeros(window)]):
        samples = np.concatenate((samples, block))
        if len(samples) >= window:
            rows = np.lib.stride_tricks.sliding_window_view(samples, window)[::step][:left]
            yield rows
            left -= len(rows)
            samples = samples[len(rows) * step:]


def loudest_levels(sound, columns, report=lambda samples: None):
    """Spectrogram with a Hann window in at most so many columns, each the maximum of its moments.

    Returns the levels in dB (full-scale sine: 0), columns x frequencies, and the edges of the
    picture: first and last in s, lowest and highest in Hz. `report` is called with the samples done.
    """
    window = max(16, int(WINDOW_S * sound.rate_hz))
    step = max(1, int(STEP_S * sound.rate_hz))
    count = sound.frames // step + 1
    columns = min(columns, count)
    taper = 0.5 - 0.5 * np.cos(2.0 * np.pi * np.arange(window) / window)
    taper *= 2.0 / np.sum(taper)
    powers = np.zeros((columns, window // 2 + 1), np.float32)
    done = 0
    for rows in moments(sound, window, step):
        spectrum = np.fft.rfft(rows * taper)
        power = np.square(spectrum.real) + np.square(spectrum.imag)
        column = np.arange(done, done + len(rows)) * columns // count
        starts = np.flatnonzero(np.diff(column, prepend=-1))
        loudest = np.maximum.reduceat(power, starts)
        powers[column[starts]] = np.maximum(powers[column[starts]], loudest)
        done += len(rows)
        report(len(rows) * step)
    step_s = step / sound.rate_hz
    bin_hz = sound.rate_hz / window
    return 10.0 * np.log10(powers + POWER_FLOOR), (-0.5 * step_s, (count - 0.5) * step_s,
                                                   -0.5 * bin_hz, (window // 2 + 0.5) * bin_hz)


def parse_arguments():
    parser = argparse.ArgumentParser(description=__doc__.split("\n\n", maxsplit=1)[0])
    parser.add_argument("files", nargs="+", metavar="WAV", help="input first, outputs below it")
    parser.add_argument("--output", required=True, metavar="PNG", help="the picture")
    parser.add_argument("--column", nargs="+", action="append", default=[], metavar="WAV",
                        help="a further column of files")
    parser.add_argument("--title", action="append", default=[],
                        help="of a picture, column by column from the top (default: its file name)")
    parser.add_argument("--raw-rate", type=int, metavar="HZ",
                        help="the files are raw 16-bit PCM of one channel at this rate")
    parser.add_argument("--progress", action="store_true",
                        help="print on standard output which share of the sound has been read")
    return parser.parse_args()


def progress_report(sounds):
    """Function that takes the number of samples read and prints their share of all samples."""
    total = max(1, sum(sound.frames for column in sounds for sound in column))
    done = 0

    def report(samples):
        nonlocal done
        done += samples
        print(f"progress {done / total:.4f}", flush=True)
    return report


def time_axis(column):
    """Duration of the longest sound in s, and the unit of its axis: seconds and name."""
    length_s = max(STEP_S, max(sound.frames / sound.rate_hz for sound in column))
    return length_s, *next(unit[1:] for unit in TIME_UNITS if length_s >= unit[0])


def lay_out(sounds, titles, scale):
    """Figure and axes for all sounds, and the columns of pixels that each axis has room for."""
    rows = max(len(column) for column in sounds)
    figure, axes = plt.subplots(rows, len(sounds), squeeze=False, sharex="col", sharey=True,
                                layout="constrained", dpi=DPI,
                                figsize=(3.0 + 6.0 * len(sounds), 1.0 + 2.4 * rows))
    titles = iter(titles)
    for c, column in enumerate(sounds):
        for r, sound in enumerate(column):
            title = os.fsencode(next(titles, os.path.basename(sound.path)))
            axes[r, c].set_title(title.decode("utf-8", "replace"), fontsize=11, parse_math=False)
            axes[r, 0].set_ylabel("frequency / kHz")
        for r in range(len(column), rows):
            axes[r, c].set_axis_off()
        length_s, unit_s, unit = time_axis(column)
        axes[0, c].set_xlim(0.0, length_s / unit_s)
        axes[len(column) - 1, c].set_xlabel(f"time / {unit}")
        axes[len(column) - 1, c].tick_params(labelbottom=True)
    axes[0, 0].set_ylim(0.0, max(sound.rate_hz for column in sounds for sound in column) / 2000.0)
    figure.colorbar(scale, ax=axes, label="level / dBFS", pad=0.01)
    figure.draw_without_rendering()
    return figure, axes, int(min(axis.bbox.width for axis in axes.flat)) - SPARE_PIXELS


def draw(sounds, titles, report):
    """Figure of all spectrograms; sounds is a list of columns of Sounds."""
    scale = cm.ScalarMappable(colors.Normalize(LEAST_TOP_DB - RANGE_DB, 0.0), "magma")
    figure, axes, pixels = lay_out(sounds, titles, scale)
    top_db = LEAST_TOP_DB
    for c, column in enumerate(sounds):
        length_s, unit_s, _ = time_axis(column)
        for r, sound in enumerate(column):
            own_pixels = max(1, int(pixels * sound.frames / sound.rate_hz / length_s))
            levels, (first_s, last_s, low_hz, high_hz) = loudest_levels(sound, own_pixels, report)
            top_db = max(top_db, float(np.max(levels)))
            axes[r, c].imshow(levels.T, scale.cmap, scale.norm, aspect="auto", origin="lower",
                              interpolation="nearest", extent=(first_s / unit_s, last_s / unit_s,
                                                               low_hz / 1000.0, high_hz / 1000.0))
    scale.set_clim(top_db - RANGE_DB, top_db)
    return figure


def write(path, picture):
    """Writes the picture. One that has the name already stays until the new one is whole."""
    place = os.path.realpath(path)
    replaced = os.path.isfile(place)
    in_place = os.path.exists(place) and not replaced  # a device
    new = place if in_place else os.path.join(os.path.dirname(place), f".plot-{os.getpid()}.png")
    try:
        with open(new, "wb") as file:
            file.write(picture)
        if replaced:
            shutil.copymode(place, new)
        if not in_place:
            os.replace(new, place)
    except OSError as error:
        if not in_place and os.path.exists(new):
            os.remove(new)
        sys.exit(f"cannot write {path}: {error.strerror}")


def main():
    arguments = parse_arguments()
    sounds = [[open_sound(path, arguments.raw_rate) for path in column]
              for column in [arguments.files] + arguments.column]
    report = progress_report(sounds) if arguments.progress else lambda samples: None
    picture = io.BytesIO()
    draw(sounds, arguments.title, report).savefig(picture, format="png")
    write(arguments.output, picture.getbuffer())


if __name__ == "__main__":
    main()
