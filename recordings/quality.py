"""Measures of an enhanced recording whose speech and noise are known.

Samples are floats in 16-bit units at RATE_HZ; outputs are aligned with the recording.
"""
import numpy as np
from scipy import linalg, signal

from room import RATE_HZ, SOUND_M_S

START_S = 2.0  # in which the estimators adapt; measured apart
REVERBERATION_S = 0.3  # after a sentence at least, not yet a pause
FRAME = 320  # samples, 20 ms
SILENCE = 1.0  # mean square of one quantisation step
LEAST_DB = -40.0  # of ratios and of speech, for outputs that are silent
SDR_TAPS = 256  # 16 ms
LOADING = 1e-8  # of the normal equations, whose two signals are nearly alike at low frequencies
SPECTRUM = 512  # samples, of the spectra whose kurtosis is taken

# Of STOI, as its paper has them.
STOI_RATE_HZ = 10000
STOI_FRAME = 256
STOI_HOP = 128
STOI_FFT = 512
STOI_BANDS = 15  # thirds of an octave from STOI_LOWEST_HZ
STOI_LOWEST_HZ = 150.0
STOI_SEGMENT = 30  # frames, 384 ms
STOI_CLIPPING_DB = 15.0
STOI_RANGE_DB = 40.0


# --- Distortion ------------------------------------------------------------------------------


def ratio_db(target, estimate):
    """Energy of the target to that of the rest of the estimate."""
    energy = np.sum(target**2) / (np.sum((estimate - target)**2) + SILENCE)
    return max(10.0 * np.log10(energy + np.finfo(float).tiny), LEAST_DB)


def si_sdr_db(estimate, reference):
    """Scale-invariant signal-to-distortion ratio (J. Le Roux et al., "SDR - half-baked or well
    done?", 2019)."""
    target = reference * np.dot(estimate, reference) / np.dot(reference, reference)
    return ratio_db(target, estimate)


def correlation(a, b, lags):
    """Sums over n of a[n + lag] b[n]."""
    return signal.correlate(a, b, method="fft")[len(b) - 1 + lags]


def speech_correlations(speech):
    """Cholesky factor of the normal equations of sdr_db()."""
    taps = np.arange(SDR_TAPS)
    gram = np.block([[linalg.toeplitz(correlation(q, m, taps), correlation(q, m, -taps))
                      for q in speech] for m in speech])
    gram += LOADING * np.trace(gram) / len(gram) * np.eye(len(gram))
    return linalg.cho_factor(gram)


def sdr_db(estimate, speech, factor):
    """Signal-to-distortion ratio that forgives a fixed filter of SDR_TAPS taps on the speech of
    each microphone, so also any fixed beamformer (after E. Vincent et al., "Performance measurement
    in blind audio source separation", 2006). Half of the taps look ahead."""
    taps = np.arange(SDR_TAPS)
    ahead = SDR_TAPS // 2
    right = np.concatenate([correlation(estimate, m, taps - ahead) for m in speech])
    filters = linalg.cho_solve(factor, right).reshape(2, SDR_TAPS)
    target = sum(signal.fftconvolve(m, h)[ahead:ahead + len(m)] for m, h in zip(speech, filters))
    return ratio_db(target, estimate)


# --- Intelligibility -------------------------------------------------------------------------


def stoi_frames(samples):
    """Windowed frames of STOI."""
    window = np.hanning(STOI_FRAME + 2)[1:-1]
    frames = np.lib.stride_tricks.sliding_window_view(samples, STOI_FRAME)[::STOI_HOP]
    return frames * window


def overlap_add(frames):
    length = (len(frames) - 1) * STOI_HOP + STOI_FRAME
    result = np.zeros(length)
    for n, frame in enumerate(frames):
        result[n * STOI_HOP:n * STOI_HOP + STOI_FRAME] += frame
    return result


def third_octaves(samples):
    """Amplitudes in thirds of an octave, bands x frames."""
    powers = np.abs(np.fft.rfft(stoi_frames(samples), STOI_FFT))**2
    edges_hz = STOI_LOWEST_HZ * 2.0**((2.0 * np.arange(STOI_BANDS + 1) - 1.0) / 6.0)
    edges = np.round(edges_hz * STOI_FFT / STOI_RATE_HZ).astype(int)
    return np.sqrt(np.stack([powers[:, a:b].sum(axis=1) for a, b in zip(edges[:-1], edges[1:])]))


def normalised(segments):
    """Segments less their mean, of norm 1."""
    centred = segments - segments.mean(axis=-1, keepdims=True)
    return centred / (np.linalg.norm(centred, axis=-1, keepdims=True) + np.finfo(float).eps)


def stoi(estimate, reference):
    """Short-time objective intelligibility, up to 1 (C. H. Taal, R. C. Hendriks, R. Heusdens,
    J. Jensen, "An algorithm for intelligibility prediction of time-frequency weighted noisy
    speech", 2011). NaN with less than 0.4 s of speech."""
    clean, heard = [signal.resample_poly(x, STOI_RATE_HZ // 1000, RATE_HZ // 1000)
                    for x in (reference, estimate)]
    clean, heard = stoi_frames(clean), stoi_frames(heard)
    level_db = 20.0 * np.log10(np.linalg.norm(clean, axis=1) + np.finfo(float).eps)
    loud = level_db > np.max(level_db) - STOI_RANGE_DB
    if np.count_nonzero(loud) <= STOI_SEGMENT:
        return float("nan")
    bands = [third_octaves(overlap_add(frames[loud])) for frames in (clean, heard)]
    x, y = [np.lib.stride_tricks.sliding_window_view(band, STOI_SEGMENT, axis=1) for band in bands]
    gain = np.linalg.norm(x, axis=-1, keepdims=True) / (
        np.linalg.norm(y, axis=-1, keepdims=True) + np.finfo(float).eps)
    clipped = np.minimum(gain * y, x * (1.0 + 10.0**(STOI_CLIPPING_DB / 20.0)))
    return float(np.mean(np.sum(normalised(x) * normalised(clipped), axis=-1)))


# --- Pauses ----------------------------------------------------------------------------------


def pauses_of(talking, reverberation_s):
    """Mask that is True where the talker and the room are quiet."""
    ring = int(max(REVERBERATION_S, reverberation_s) * RATE_HZ)
    busy = np.convolve(talking.astype(float), np.ones(ring))[:len(talking)] > 0.5
    return ~busy


def within(mask, length, hop):
    """Which frames of a length, one every hop, lie within the mask."""
    return np.all(np.lib.stride_tricks.sliding_window_view(mask, length)[::hop], axis=1)


def frame_levels_db(samples, mask):
    """Levels of the 20 ms frames that lie within the mask."""
    frames = np.lib.stride_tricks.sliding_window_view(samples, FRAME)[::FRAME]
    powers = np.mean(np.square(frames[within(mask, FRAME, FRAME)]), axis=1)
    return 10.0 * np.log10(np.maximum(powers, SILENCE))


def power_kurtosis(samples, mask):
    """Fourth moment over squared second moment of the powers of spectra within the mask, each bin
    relative to its own mean power."""
    frames = np.lib.stride_tricks.sliding_window_view(samples, SPECTRUM)[::SPECTRUM // 2]
    spectra = np.fft.rfft(frames[within(mask, SPECTRUM, SPECTRUM // 2)] * np.hanning(SPECTRUM))
    powers = np.abs(spectra[:, 1:-1])**2 + SILENCE
    powers /= np.mean(powers, axis=0)
    return np.mean(powers**4) / np.mean(powers**2)**2


def log_kurtosis(after, before, mask):
    """Musical noise: natural logarithm of the ratio of the kurtosis of power spectra in the pauses,
    after over before; 0: none (Y. Uemura et al., "Automatic optimization scheme of spectral
    subtraction based on musical noise assessment via higher-order statistics", 2008)."""
    return float(np.log(power_kurtosis(after, mask) / power_kurtosis(before, mask)))


# --- All of them -----------------------------------------------------------------------------


def aligned_mean(scene, speech, angle_deg):
    """Mean of the speech at both microphones, delayed against each other so that what comes from a
    direction coincides: what a delay-and-sum beamformer makes of the speech."""
    half_s = 0.5 * scene.plan.spacing_m * np.cos(np.deg2rad(angle_deg)) / SOUND_M_S
    turn = np.exp(-2j * np.pi * np.fft.rfftfreq(speech.shape[1], 1.0 / RATE_HZ) * half_s)
    spectra = np.fft.rfft(speech) * np.stack([turn, np.conj(turn)])
    return np.fft.irfft(np.mean(spectra, axis=0), speech.shape[1])


def prepare(scene, reverberant=False):
    """What the measures of all outputs of a scene share. reverberant: late reflections belong to
    the speech that is wanted."""
    everything = scene.speech.astype(float)
    speech = everything if reverberant else scene.early.astype(float)
    start = int(START_S * RATE_HZ)
    pauses = pauses_of(scene.talking, scene.plan.place.rt60_s)
    pauses[:start] = False
    references = [speech[0], speech[1], np.mean(speech, axis=0)]
    references += [aligned_mean(scene, speech, angle_deg) for angle_deg in scene.plan.angles_deg]
    return {"speech": speech, "start": start, "pauses": pauses, "references": references,
            "heard": everything[0] + scene.noise[0],
            "factor": speech_correlations(speech[:, start:])}


def measure(output, prepared):
    """All measures of an output: a dict of floats, NaN where a scene has no pause."""
    speech, start, pauses = (prepared[name] for name in ("speech", "start", "pauses"))
    later = output[start:]
    references = prepared["references"]
    best = max((reference[start:] for reference in references),
               key=lambda reference: si_sdr_db(later, reference))
    projection = np.dot(later, best) / np.dot(best, best)
    result = {
        "si_sdr": si_sdr_db(later, best),
        "start": max(si_sdr_db(output[:start], reference[:start]) for reference in references),
        "stoi": stoi(later, best),
        "sdr": sdr_db(later, speech[:, start:], prepared["factor"]),
        "speech": max(20.0 * np.log10(abs(projection) + np.finfo(float).tiny), LEAST_DB),
        "noise": float("nan"), "net": float("nan"), "log_kurtosis": float("nan"),
    }
    if np.any(within(pauses, SPECTRUM, SPECTRUM // 2)):
        heard = prepared["heard"]
        result["noise"] = np.mean(frame_levels_db(output, pauses) - frame_levels_db(heard, pauses))
        result["net"] = result["speech"] - result["noise"]
        result["log_kurtosis"] = log_kurtosis(output, heard, pauses)
    return {name: float(value) for name, value in result.items()}
