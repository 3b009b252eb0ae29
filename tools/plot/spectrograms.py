#!/usr/bin/env python3
"""Draws the spectrograms of recordings into one picture, on one time axis and one colour scale.

IN [OUT ...] stand above each other. Each --column adds a further column of files, for instance
another input with its outputs. Of several channels the first is drawn.
"""
import argparse
import os
import sys

import matplotlib
matplotlib.use("Agg")
import matplotlib.pyplot as plt
import numpy as np
from scipy import signal

from audio_io import read_channel_0

WINDOW_S = 0.032
STEP_S = 0.008
RANGE_DB = 70.0  # of the colour scale, below the loudest point of the picture
LEVEL_FLOOR = 1e-12


def spectrogram_db(rate_hz, samples):
    """Times, frequencies and levels in dB (full-scale sine: 0) of a Hann-window spectrogram."""
    window = max(16, int(WINDOW_S * rate_hz))
    step = max(1, int(STEP_S * rate_hz))
    samples = np.pad(samples, (0, max(0, window - len(samples))))
    frequency_hz, time_s, spectrum = signal.stft(samples, rate_hz, "hann", window, window - step)
    return time_s, frequency_hz, 20.0 * np.log10(2.0 * np.abs(spectrum) + LEVEL_FLOOR)


def parse_arguments():
    parser = argparse.ArgumentParser(description=__doc__.split("\n\n", maxsplit=1)[0])
    parser.add_argument("files", nargs="+", metavar="WAV", help="input first, outputs below it")
    parser.add_argument("--output", required=True, metavar="PNG", help="the picture")
    parser.add_argument("--column", nargs="+", action="append", default=[], metavar="WAV",
                        help="a further column of files")
    parser.add_argument("--title", action="append", default=[],
                        help="of a picture, column by column from the top (default: its file name)")
    return parser.parse_args()


def draw(columns, titles):
    """Figure of all spectrograms; columns is a list of lists of file names."""
    pictures = [[spectrogram_db(*read_channel_0(path)) for path in column] for column in columns]
    rows = max(len(column) for column in columns)
    top_db = max(np.max(level) for column in pictures for _, _, level in column)
    figure, axes = plt.subplots(rows, len(columns), squeeze=False, sharex="col", sharey=True,
                                layout="constrained",
                                figsize=(3.0 + 6.0 * len(columns), 1.0 + 2.4 * rows))
    titles = iter(titles)
    for c, column in enumerate(columns):
        for r, path in enumerate(column):
            time_s, frequency_hz, level_db = pictures[c][r]
            mesh = axes[r, c].pcolormesh(time_s, frequency_hz / 1000.0, level_db, cmap="magma",
                                         vmin=top_db - RANGE_DB, vmax=top_db, shading="nearest",
                                         rasterized=True)
            axes[r, c].set_title(next(titles, os.path.basename(path)), fontsize=11)
            axes[r, 0].set_ylabel("frequency / kHz")
        for r in range(len(column), rows):
            axes[r, c].set_axis_off()
        axes[len(column) - 1, c].set_xlabel("time / s")
        axes[len(column) - 1, c].tick_params(labelbottom=True)
    figure.colorbar(mesh, ax=axes, label="level / dBFS", pad=0.01)
    return figure


def main():
    arguments = parse_arguments()
    figure = draw([arguments.files] + arguments.column, arguments.title)
    try:
        figure.savefig(arguments.output, dpi=110, format="png")
    except OSError as error:
        sys.exit(f"cannot write {arguments.output}: {error.strerror}")


if __name__ == "__main__":
    main()
