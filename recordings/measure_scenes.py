#!/usr/bin/env python3
"""Measures the modes of the enhancer on simulated scenes and prints a table in Markdown.

The first seconds, in which the estimators adapt, do not count. The columns, all in dB:
  SI-SDR  scale-invariant signal-to-distortion ratio (J. Le Roux et al., "SDR - half-baked or well
          done?", 2019), input and output, against the reverberant clean speech; the best of
          microphone 0, microphone 1 and their mean as reference, because a beamformer does not say
          which of them it takes for its own
  SDR     signal-to-distortion ratio that forgives a fixed filter of 16 ms on the speech of each
          microphone, so also any fixed beamformer (after E. Vincent et al., "Performance
          measurement in blind audio source separation", 2006), input and output
  noise   change of level in the pauses of the talker: mean over 20 ms frames, against microphone 0
  speech  change of level of the speech, from the projection of the output on the clean speech
  net     by how much the noise fell more than the speech
"""
import argparse
import os
import subprocess
import tempfile

import numpy as np
from scipy import linalg, signal
from scipy.io import wavfile

import make_recording
from pause_level import frame_powers
from room import RATE_HZ

ADAPTATION_S = 3.0
DURATION_S = 15.0
REVERBERATION_S = 0.3  # after a sentence, not yet a pause
FRAME = 320  # samples, 20 ms
SDR_TAPS = 256  # 16 ms
LOADING = 1e-8  # of the normal equations, whose two signals are nearly alike at low frequencies
SILENCE = 1.0  # mean square of one quantisation step

POINT_ONLY = ["--point-to-diffuse=inf"]
DIFFUSE_ONLY = ["--point-to-diffuse=-inf"]
SCENES = [
    ("talker 0, point noise 130 + diffuse", ["--talker-angle", "0"]),
    ("talker 30, point noise 130 + diffuse", []),
    ("talker 90, point noise 130 + diffuse", ["--talker-angle", "90"]),
    ("talker 30, point noise 130", POINT_ONLY),
    ("talker 90, point noise 110", ["--talker-angle", "90", "--noise-angle", "110"] + POINT_ONLY),
    ("talker 30, point noise 130, no walls", ["--rt60", "0"] + POINT_ONLY),
    ("talker 30, point noise 130, white", ["--noise-colour", "white"] + POINT_ONLY),
    ("talker 30, point noise 130, SNR 0 dB", ["--snr", "0"] + POINT_ONLY),
    ("talker 30, diffuse noise", DIFFUSE_ONLY),
    ("talker 90, diffuse noise", ["--talker-angle", "90"] + DIFFUSE_ONLY),
]
MODES = [
    ("mean", ["--mode", "mean"]),
    ("omlsa", ["--mode", "omlsa"]),
    ("omlsa, mic 0", ["--mode", "omlsa", "--channels", "0"]),
    ("mvdr", ["--mode", "mvdr"]),
]


def si_sdr_db(estimate, reference):
    target = reference * np.dot(estimate, reference) / np.dot(reference, reference)
    return 10.0 * np.log10(np.sum(target**2) / np.sum((estimate - target)**2))


def correlation(a, b, lags):
    """Sums over n of a[n + lag] b[n]."""
    return signal.correlate(a, b, method="fft")[len(b) - 1 + lags]


def sdr_db(estimate, speech):
    """Target to error, where the target is the least-squares sum of two fixed filters of SDR_TAPS
    taps, one on the speech at each microphone. Half of the taps look ahead."""
    taps = np.arange(SDR_TAPS)
    ahead = SDR_TAPS // 2
    gram = np.block([[linalg.toeplitz(correlation(q, m, taps), correlation(q, m, -taps))
                      for q in speech] for m in speech])
    gram += LOADING * np.trace(gram) / len(gram) * np.eye(len(gram))
    right = np.concatenate([correlation(estimate, m, taps - ahead) for m in speech])
    filters = linalg.solve(gram, right, assume_a="pos").reshape(2, SDR_TAPS)
    target = sum(signal.fftconvolve(m, h)[ahead:ahead + len(m)] for m, h in zip(speech, filters))
    return 10.0 * np.log10(np.sum(target**2) / np.sum((estimate - target)**2))


def enhance(tool, pcm, words):
    """Output of the tool for a two-channel recording, as floats in 16-bit units."""
    with tempfile.TemporaryDirectory() as folder:
        before = os.path.join(folder, "in.wav")
        after = os.path.join(folder, "out.wav")
        wavfile.write(before, RATE_HZ, pcm)
        subprocess.run([tool, "enhance", before, after, "--quiet"] + words, check=True,
                       stdout=subprocess.DEVNULL)
        return wavfile.read(after)[1].astype(float)


def pauses_of(talking):
    """Mask that is True where the talker and the room are quiet."""
    ring = int(REVERBERATION_S * RATE_HZ)
    busy = np.convolve(talking.astype(float), np.ones(ring))[:len(talking)] > 0.5
    return ~busy


def frame_levels_db(samples, mask):
    """Levels of the 20 ms frames that lie within the mask."""
    count = len(samples) // FRAME
    inside = np.all(mask[:count * FRAME].reshape(count, FRAME), axis=1)
    return 10.0 * np.log10(np.maximum(frame_powers(samples, FRAME)[inside], SILENCE))


def measure(output, mixture, speech, talking):
    """SI-SDR, SDR, change of noise level and change of speech level of an output, in dB."""
    references = [speech[0], speech[1], np.mean(speech, axis=0)]
    best = max(references, key=lambda reference: si_sdr_db(output, reference))
    projection = np.dot(output, best) / np.dot(best, best)
    pauses = pauses_of(talking)
    noise_db = np.mean(frame_levels_db(output, pauses) - frame_levels_db(mixture, pauses))
    speech_db = 20.0 * np.log10(abs(projection))
    return si_sdr_db(output, best), sdr_db(output, speech), noise_db, speech_db


def print_scene(name, options, arguments):
    """Prints the rows of one scene."""
    adapted = slice(int(ADAPTATION_S * RATE_HZ), None)
    speech, noise, talking = make_recording.build_scene(options)
    pcm = make_recording.to_pcm(speech + noise)
    speech, talking = speech[:, adapted], talking[adapted]
    mixture = pcm[adapted, 0].astype(float)
    before = (si_sdr_db(mixture, speech[0]), sdr_db(mixture, speech))
    for mode, mode_words in MODES:
        words = mode_words + ["--mic-distance", str(options.spacing), "--hop", arguments.hop,
                              "--doa", str(options.talker_angle)]
        output = enhance(arguments.tool, pcm, words)[adapted]
        si_sdr, sdr, noise_db, speech_db = measure(output, mixture, speech, talking)
        print(f"| {name} | {mode} | {before[0]:.1f} | {si_sdr:.1f} | {before[1]:.1f} | {sdr:.1f} "
              f"| {noise_db:+.1f} | {speech_db:+.1f} | {speech_db - noise_db:.1f} |", flush=True)


def main():
    parser = argparse.ArgumentParser(description=__doc__,
                                     formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--tool", required=True, help="path of the program se_bf")
    parser.add_argument("--hop", default="320", help="analysis hop")
    parser.add_argument("--seed", default="1")
    arguments = parser.parse_args()
    print("| scene | mode | SI-SDR in | out | SDR in | out | noise | speech | net |")
    print("|---|---|---:|---:|---:|---:|---:|---:|---:|")
    for name, words in SCENES:
        usual = ["--seed", arguments.seed, "--duration", str(DURATION_S), "--pause", "0.8"]
        options = make_recording.option_parser().parse_args(usual + words)
        print_scene(name, options, arguments)


if __name__ == "__main__":
    main()
