"""Checks the tools of recordings/: measures on signals whose figures are known, and scenes for what
their plans say."""
import dataclasses
import pathlib
import sys

import numpy as np

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[1] / "recordings"))
import quality  # noqa: E402
import room  # noqa: E402
import scenes  # noqa: E402
import sounds  # noqa: E402
from room import RATE_HZ  # noqa: E402

LENGTH = 4 * RATE_HZ
EVERYWHERE = np.ones(LENGTH, dtype=bool)
failures = []


def check(what, got, expected, tolerance):
    if not abs(float(got) - expected) <= tolerance:
        failures.append(f"{what}: expected {expected:.4g} within {tolerance:g}, got {got:.4g}")


def check_measures():
    """Signal and noise are orthogonal, so that their ratio is the figure exactly."""
    rng = np.random.default_rng(1)
    level = sounds.slow_envelope(rng, LENGTH, 0.1, 20.0)
    speech = 1000.0 * level * rng.standard_normal(LENGTH)
    noise = rng.standard_normal(LENGTH)
    noise -= speech * np.dot(noise, speech) / np.dot(speech, speech)
    noise *= sounds.rms(speech) / sounds.rms(noise)
    check("SI-SDR at 10 dB, half as loud",
          quality.si_sdr_db(0.5 * (speech + noise * 10.0**-0.5), speech), 10.0, 0.001)
    check("SI-SDR of silence", quality.si_sdr_db(0.0 * speech, speech), quality.LEAST_DB, 0.0)
    factor = quality.speech_correlations([speech, speech[::-1]])
    smeared = np.convolve(speech, [0.5, 0.0, 0.0, 1.0])[3:]  # from 3 samples ahead
    unrelated = noise * sounds.rms(smeared) / sounds.rms(noise) * 10.0**-0.5
    check("SDR at 10 dB, filtered",
          quality.sdr_db(smeared + unrelated, [speech, speech[::-1]], factor), 10.0, 0.1)
    scores = [quality.stoi(speech + gain * noise, speech) for gain in (0.0, 0.3, 3.0)]
    check("STOI of the same signal", scores[0], 1.0, 1e-6)
    check("STOI with a little noise", scores[1], 0.91, 0.03)
    check("STOI with more noise than speech", scores[2], 0.33, 0.05)
    other = rng.standard_normal(LENGTH)
    check("STOI of another steady noise", quality.stoi(noise, other), 0.0, 0.05)
    tone = np.sin(2.0 * np.pi * 480.0 / quality.STOI_RATE_HZ * np.arange(LENGTH))
    check("band of a tone 5 thirds of an octave above the first",
          np.argmax(quality.third_octaves(tone)[:, 0]), 5, 0.0)
    check("log-kurtosis of the same noise, softer",
          quality.log_kurtosis(0.1 * noise, noise, EVERYWHERE), 0.0, 0.01)
    # Powers of a Gaussian are exponential: kurtosis 4! / (2!)^2. Spectra of which one in ten
    # remains have ten times the kurtosis.
    fan = 1e6 * sounds.coloured(rng, LENGTH, "fan")
    check("kurtosis of Gaussian noise", quality.power_kurtosis(fan, EVERYWHERE), 6.0, 0.8)
    one_in_ten = np.arange(LENGTH) // (LENGTH // 100) % 10 == 0
    check("log-kurtosis when a tenth is left",
          quality.log_kurtosis(noise * one_in_ten, noise, EVERYWHERE), np.log(10.0), 0.4)


def check_response():
    """The quick response against the exact one, where sound has energy."""
    place = room.Room(0.2)
    source = room.source_position(place, 40.0, 1.3)
    microphone = room.microphone_positions(place, 0.1)[0]
    exact, quick = [np.fft.rfft(make(place, source, microphone), 8192)[:3500]
                    for make in (room.room_response, room.quick_response)]
    error_db = 20.0 * np.log10(np.linalg.norm(exact - quick) / np.linalg.norm(exact))
    check("error of the quick response in dB, or -50", max(error_db, -50.0), -50.0, 0.0)


def stand_in_speech(voice, sentence, words_per_minute):
    """As long as the sentence; the synthesizers need not be there."""
    del voice
    rng = np.random.default_rng(len(sentence))
    clip = rng.standard_normal(len(sentence) * RATE_HZ * 10 // words_per_minute)
    return clip / sounds.rms(clip)


def check_scenes():
    sounds.speak = stand_in_speech
    plans = {plan.name: plan for make in scenes.SETS.values() for plan in make()}
    check("scenes of all sets", len(plans), 103, 0)
    plan = dataclasses.replace(plans["tune-a 00"], place=room.Room(0.1), kind="gusts", spread=0.5,
                               snr_db=5.0, angles_deg=(0.0,), spacing_m=0.12, seconds=8)
    first, second = scenes.build(plan), scenes.build(plan)
    check("a scene made twice", np.array_equal(first.recording, second.recording), True, 0.0)
    talking = sounds.rms(first.speech[0, first.talking])
    check("SNR", 20.0 * np.log10(talking / sounds.rms(first.noise[0])), plan.snr_db, 0.1)
    check("recording less speech and noise, RMS",
          sounds.rms(first.recording.T - first.speech - first.noise), 12.0**-0.5, 0.02)
    prepared = quality.prepare(first)
    check("speech in pauses, RMS to that while talking",
          sounds.rms(first.speech[0, prepared["pauses"]]) / talking, 0.0, 0.01)
    # At 0 degrees sound is at microphone 0 first: 12 cm are 5.6 samples.
    lags = np.arange(-10, 11)
    behind = quality.correlation(first.speech[1].astype(float), first.speech[0].astype(float), lags)
    check("samples by which microphone 1 hears the talker later", lags[np.argmax(behind)], 6, 0)
    aligned = prepared["references"][3]
    check("aligned mean, RMS to microphone 0",
          sounds.rms(aligned) / sounds.rms(first.speech[0]), 1.0, 0.1)
    measures = quality.measure(0.5 * aligned, prepared)
    check("SI-SDR of half the aligned mean, or 60", min(measures["si_sdr"], 60.0), 60.0, 0.0)
    check("its change of speech", measures["speech"], -6.02, 0.01)
    halved = quality.measure(0.5 * prepared["heard"], prepared)
    check("noise of half the recording", halved["noise"], -6.02, 0.05)
    check("net of half the recording", halved["net"], 0.0, 0.3)
    # Of decaying sound exp(-13.8 EARLY_S / rt60) of the energy is late: 0.001 of it here, and 0.3 of
    # what the walls give in a room of 0.6 s.
    late = sounds.rms(first.speech - first.early) / sounds.rms(first.speech)
    check("late speech in a dry room, RMS to all", late, 0.02, 0.02)
    long = scenes.build(dataclasses.replace(plan, place=room.Room(0.6)))
    late = sounds.rms(long.speech - long.early) / sounds.rms(long.speech)
    check("late speech in a reverberant room, RMS to all", late, 0.45, 0.1)
    dead = scenes.build(dataclasses.replace(plan, fault="mic 1 dead"))
    check("dead microphone", np.any(dead.recording[:, 1]), False, 0.0)
    check("the other one", np.array_equal(dead.recording[:, 0], first.recording[:, 0]), True, 0.0)


check_measures()
check_response()
check_scenes()
if failures:
    sys.exit("recordings:\n" + "\n".join(failures))
