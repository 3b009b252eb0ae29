#!/usr/bin/env python3
"""Makes a two-microphone test recording: a synthetic talker and noise in a simulated room.

Without options it makes the stored recording of the self-test: two short sentences in 2.0 s,
32000 frames at 16 kHz. A file name that ends in .wav gets a WAV file, any other name raw signed
16-bit little-endian samples, channel 0 first. The same options and seed give the same samples.

Angles are measured from the line of the microphones: 0 on the side of microphone 0, 90 broadside,
180 on the side of microphone 1.
"""
import argparse
import sys

import numpy as np
from scipy import signal
from scipy.io import wavfile

import room
from room import RATE_HZ
from sounds import COLOURS, coloured_spectrum, db_to_gain, rms, speak

SHORT_TEXT = ["Good morning.", "Come in."]
LONG_TEXT = [
    "The kettle is on the stove, and the window is still open.",
    "Please turn down the fan before you answer the telephone.",
    "We will meet at the station at half past seven.",
    "Nobody could hear what she said from across the room.",
]
LONG_TEXT_FROM_S = 4.0
PLANE_WAVES = 96  # of the diffuse field
MIC_HIGHPASS_HZ = 70.0
CHECK_BLOCK = 320  # samples, 20 ms
MAX_LEVEL_DIFFERENCE_DB = 3.0
FULL_SCALE = 32767  # largest sample of 16 bits


def talk(options, length):
    """Lays the sentences out in time, over and over as long as they fit, with pauses between.

    Returns the dry speech and a mask that is True while the talker is speaking."""
    usual_text = SHORT_TEXT if options.duration < LONG_TEXT_FROM_S else LONG_TEXT
    text = options.text or usual_text
    clips = [speak(("espeak-ng", options.voice), line, options.words_per_minute) for line in text]
    speech = np.zeros(length)
    talking = np.zeros(length, dtype=bool)
    start = int(options.lead * RATE_HZ)
    end = length - int(options.tail * RATE_HZ)
    count = 0
    while start + len(clips[count % len(clips)]) <= end:
        clip = clips[count % len(clips)]
        speech[start:start + len(clip)] = clip
        talking[start:start + len(clip)] = True
        start += len(clip) + int(options.pause * RATE_HZ)
        count += 1
    if count == 0:
        sys.exit(f"make_recording: not even the first sentence fits into {options.duration} s; "
                 "shorten the text or raise --duration")
    return speech, talking


# --- Scene -----------------------------------------------------------------------------------


def image_at_microphones(dry, angle_deg, distance_m, options):
    """What both microphones receive from a source in the room: array of 2 x samples."""
    place = room.Room(options.rt60)
    source = room.source_position(place, angle_deg, distance_m)
    if source is None:
        sys.exit(f"make_recording: a source at {angle_deg} degrees and {distance_m} m is outside"
                 " the room; choose an angle from 0 to 180 or a smaller distance")
    microphones = room.microphone_positions(place, options.spacing)
    responses = [room.room_response(place, source, microphone) for microphone in microphones]
    return np.stack([signal.fftconvolve(dry, response)[:len(dry)] for response in responses])


def diffuse_field(rng, length, options):
    """Spherically isotropic noise: independent plane waves from directions spread evenly over the
    sphere. Only their angle to the line of the microphones matters, and its cosine is uniform. The
    coherence tends to sin(x)/x with x = 2 pi f spacing / c (R. K. Cook et al., "Measurement of
    correlation coefficients in reverberant sound fields", 1955)."""
    cosines = 1.0 - (2.0 * np.arange(PLANE_WAVES) + 1.0) / PLANE_WAVES
    omega = 2.0 * np.pi * np.fft.rfftfreq(length, 1.0 / RATE_HZ)
    spectra = np.zeros((2, len(omega)), dtype=complex)
    for cosine in cosines:
        wave = coloured_spectrum(rng, length, options.noise_colour)
        advance_s = 0.5 * options.spacing * cosine / room.SOUND_M_S
        spectra[0] += wave * np.exp(1j * omega * advance_s)
        spectra[1] += wave * np.exp(-1j * omega * advance_s)
    return np.fft.irfft(spectra, length)


def scale_noise(point, diffuse, speech, talking, options):
    """Mixes point and diffuse noise at --point-to-diffuse, scales the sum to --snr, both taken at
    microphone 0; speech counts while the talker is speaking. Returns 2 x samples."""
    point = point / rms(point[0])
    diffuse = diffuse / rms(diffuse[0])
    share = 1.0 / (1.0 + 10.0**(-options.point_to_diffuse / 10.0))
    noise = np.sqrt(share) * point + np.sqrt(1.0 - share) * diffuse
    return noise * rms(speech[0, talking]) / rms(noise[0]) / db_to_gain(options.snr)


def build_scene(options):
    """Simulates the scene. Returns speech and noise as 2 x samples each, in 16-bit units, whose
    rounded sum is the recording, and the mask of the talker."""
    length = int(round(options.duration * RATE_HZ))
    rng = np.random.default_rng(options.seed)
    dry, talking = talk(options, length)
    speech = image_at_microphones(dry, options.talker_angle, options.talker_distance, options)
    steady = np.fft.irfft(coloured_spectrum(rng, length, options.noise_colour), length)
    # A circular second round lets the room ring from the first sample on.
    point = image_at_microphones(np.tile(steady, 2), options.noise_angle, options.noise_distance,
                                 options)[:, length:]
    diffuse = diffuse_field(rng, length, options)
    highpass = signal.butter(2, MIC_HIGHPASS_HZ, "highpass", fs=RATE_HZ, output="sos")
    speech, point, diffuse = [signal.sosfilt(highpass, x) for x in (speech, point, diffuse)]
    noise = scale_noise(point, diffuse, speech, talking, options)
    mismatch = np.array([[1.0], [db_to_gain(-options.mismatch)]])
    speech, noise = speech * mismatch, noise * mismatch
    scale = FULL_SCALE * db_to_gain(options.peak) / np.max(np.abs(speech + noise))
    self_noise = FULL_SCALE * db_to_gain(options.self_noise) * rng.standard_normal((2, length))
    return speech * scale, noise * scale + self_noise, talking


def to_pcm(signals):
    """Interleaved 16-bit samples of 2 x samples in 16-bit units."""
    return np.clip(np.round(signals.T), -FULL_SCALE - 1, FULL_SCALE).astype("<i2")


def check_recording(pcm):
    """Stops when the recording could be mistaken for one of a faulty microphone."""
    blocks = pcm[:len(pcm) // CHECK_BLOCK * CHECK_BLOCK].reshape(-1, CHECK_BLOCK, 2)
    level_db = 20.0 * np.log10([rms(pcm[:, m].astype(float)) + 1e-9 for m in range(2)])
    if np.max(np.abs(pcm.astype(int))) >= FULL_SCALE:
        sys.exit("make_recording: the recording clips; lower --peak")
    if not np.all(np.any(blocks != 0, axis=1)):
        sys.exit("make_recording: a block is digitally silent; raise --self-noise")
    difference_db = abs(level_db[0] - level_db[1])
    if np.array_equal(pcm[:, 0], pcm[:, 1]) or difference_db > MAX_LEVEL_DIFFERENCE_DB:
        sys.exit("make_recording: the channels are equal or too far apart; change --mismatch")
    return level_db


def write_pcm(path, pcm):
    if path.lower().endswith(".wav"):
        wavfile.write(path, RATE_HZ, pcm)
    else:
        pcm.tofile(path)


def option_parser():
    parser = argparse.ArgumentParser(description=__doc__.split("\n\n")[0],
                                     formatter_class=argparse.ArgumentDefaultsHelpFormatter)
    add = parser.add_argument
    add("--seed", type=int, default=1, help="of every random sequence")
    add("--duration", type=float, default=2.0, help="seconds")
    add("--text", action="append",
        help="a sentence; may be repeated (default: a greeting, from 4 s on longer sentences)")
    add("--voice", default="en-us", help="of espeak-ng")
    add("--words-per-minute", type=int, default=180, help="speed of the talker")
    add("--lead", type=float, default=0.38, help="seconds of noise before the first sentence")
    add("--pause", type=float, default=0.25, help="seconds between two sentences")
    add("--tail", type=float, default=0.2, help="least seconds of noise at the end")
    add("--spacing", type=float, default=0.06, help="of the microphones in metres")
    add("--talker-angle", type=float, default=30.0, help="degrees")
    add("--talker-distance", type=float, default=1.2, help="metres")
    add("--noise-angle", type=float, default=130.0, help="of the point noise in degrees")
    add("--noise-distance", type=float, default=1.8, help="metres")
    add("--noise-colour", choices=tuple(COLOURS), default="fan", help="of all noise")
    add("--snr", type=float, default=6.0, help="speech to noise at microphone 0 in dB")
    add("--point-to-diffuse", type=float, default=4.0,
        help="point noise to diffuse noise in dB; inf: point noise only, -inf: diffuse only")
    add("--rt60", type=float, default=0.25, help="reverberation time in seconds; 0: no walls")
    add("--mismatch", type=float, default=0.8, help="dB by which microphone 1 is weaker")
    add("--self-noise", type=float, default=-66.0, help="RMS of each microphone's own noise, dBFS")
    add("--peak", type=float, default=-7.5, help="of the recording, dBFS")
    add("--speech-output", help="also writes the speech alone, both microphones")
    add("--noise-output", help="also writes the noise alone, both microphones")
    return parser


def main():
    parser = option_parser()
    parser.add_argument("output")
    options = parser.parse_args()
    try:
        speech, noise, _ = build_scene(options)
    except RuntimeError as error:
        sys.exit(f"make_recording: {error}")
    pcm = to_pcm(speech + noise)
    level_db = check_recording(pcm)
    write_pcm(options.output, pcm)
    if options.speech_output:
        write_pcm(options.speech_output, to_pcm(speech))
    if options.noise_output:
        write_pcm(options.noise_output, to_pcm(noise))
    full_scale_db = 20.0 * np.log10(FULL_SCALE)
    print(f"{options.output}: {len(pcm)} frames, peak "
          f"{20.0 * np.log10(np.max(np.abs(pcm.astype(int)))) - full_scale_db:.1f} dBFS, RMS "
          f"{level_db[0] - full_scale_db:.1f} and {level_db[1] - full_scale_db:.1f} dBFS")


if __name__ == "__main__":
    main()
