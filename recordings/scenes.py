"""Named sets of simulated scenes, each reproducible: two sets to tune on, two blind ones with other
voices, and sets of faults, of nearly clean speech and of two talkers who are both wanted.

`python scenes.py FOLDER SET...` writes the scenes of the sets as WAV files to listen to.
"""
import dataclasses
import hashlib
import os
import pathlib
import sys
import zipfile

import numpy as np
from scipy import signal
from scipy.io import wavfile

import room
import sounds
from room import RATE_HZ
from sounds import db_to_gain, rms

TUNING_SETS = {"tune-a": 11, "tune-b": 12}  # name and seed
BLIND_SETS = {"blind-a": 21, "blind-b": 22}
SCENES_OF_A_SET = 20
CLEAN_SCENES = 6
TALKER_PAIRS = 8
KINDS = ("fan", "babble", "traffic", "music", "white", "rival", "dishes", "hum", "gusts", "typing",
         "pink", "vent")
FAULTS = ("mic 1 dead", "mic 0 dies", "mic 1 a copy", "mic 1 inverted copy", "mic 1 6 dB weaker",
          "talker moves", "mic 1 noisy, clipped", "wind on mic 1", "mic 1 healed")
PLANE_WAVES = 24  # of a diffuse field
MIC_HIGHPASS_HZ = 70.0
EARLY_S = 0.05  # later reflections disturb speech (J. S. Bradley, H. Sato, M. Picard, "On the
                # importance of early reflections for speech in rooms", 2003)
SETTLING = RATE_HZ  # samples in which the room fills with noise before the scene begins
FULL_SCALE = 32767.0


@dataclasses.dataclass(frozen=True)
class Plan:
    """All that decides a scene."""
    name: str
    seed: tuple
    kind: str  # of noise
    snr_db: float  # speech while talking to noise, at microphone 0
    spacing_m: float
    angles_deg: tuple  # of the talkers
    place: room.Room
    distance_m: float
    spread: float  # share of the noise that is diffuse
    talkers: tuple  # who speak in turn, each a voice and a language
    others: tuple  # voices of babble and rivals
    level_dbfs: float  # of the speech while talking
    seconds: int
    fault: str = ""


@dataclasses.dataclass(frozen=True)
class Scene:
    """A scene. The samples are in 16-bit units."""
    plan: Plan
    recording: np.ndarray  # frames x 2, int16: what the microphones give
    speech: np.ndarray  # 2 x frames: the reverberant speech in it, faults left out
    early: np.ndarray  # 2 x frames: of that, what arrives within EARLY_S of the direct sound
    noise: np.ndarray  # 2 x frames: the rest, faults left out
    talking: np.ndarray  # frames, True while anybody wanted speaks


# --- Plans -----------------------------------------------------------------------------------


def random_room(rng, rt60_s):
    size = rng.uniform((3.2, 3.0, 2.4), (7.0, 5.5, 3.0))
    centre = np.append(size[:2] * rng.uniform(0.35, 0.65, 2), rng.uniform(0.8, 1.4))
    return room.Room(float(rt60_s), tuple(size.tolist()), tuple(centre.tolist()))


def noise_spread(rng, kind):
    """Fields are diffuse, come from one place or both; the other kinds come from places."""
    return float(rng.choice([0.0, 0.5, 1.0])) if kind in sounds.FIELDS else 0.0


def plan_various(name, seed, voices):
    """SCENES_OF_A_SET scenes that cover kinds of noise, ratios and reverberation evenly."""
    rng = np.random.default_rng(seed)
    snrs_db = rng.permutation(np.linspace(-5.0, 20.0, SCENES_OF_A_SET))
    rt60s_s = rng.permutation(np.append(np.linspace(0.2, 0.6, SCENES_OF_A_SET - 2), [0.75, 0.9]))
    plans = []
    for n in range(SCENES_OF_A_SET):
        kind = KINDS[n % len(KINDS)]
        talker = int(rng.integers(len(voices)))
        plans.append(Plan(
            name=f"{name} {n:02}", seed=(seed, n), kind=kind, snr_db=float(snrs_db[n]),
            spacing_m=float(rng.uniform(0.02, 0.14)),
            angles_deg=(float(rng.uniform(0.0, 180.0)),),
            place=random_room(rng, rt60s_s[n]), distance_m=float(rng.uniform(0.4, 1.4)),
            spread=noise_spread(rng, kind), talkers=(voices[talker],),
            others=tuple(voices[:talker] + voices[talker + 1:]),
            level_dbfs=float(rng.uniform(-36.0, -20.0)), seconds=int(rng.integers(11, 16))))
    return plans


def plan_alike(set_name, seed, names, **changes):
    """One scene for each name, in an office with some noise, but for the changes."""
    rng = np.random.default_rng(seed)
    voices = sounds.BLIND_VOICES
    plans = []
    for n, name in enumerate(names):
        plans.append(Plan(
            name=f"{set_name} {name}", seed=(seed, n), kind="fan", snr_db=8.0, spacing_m=0.06,
            angles_deg=(float(rng.uniform(30.0, 150.0)),),
            place=random_room(rng, rng.uniform(0.25, 0.5)), distance_m=1.0, spread=0.5,
            talkers=(voices[n % len(voices)],), others=(), level_dbfs=-27.0, seconds=14))
        plans[n] = dataclasses.replace(plans[n], **changes)
    return plans


def plan_faults(name, seed):
    plans = [dataclasses.replace(plan, fault=fault)
             for plan, fault in zip(plan_alike(name, seed, FAULTS), FAULTS)]
    moves = FAULTS.index("talker moves")
    plans[moves] = dataclasses.replace(plans[moves], angles_deg=(40.0, 140.0))
    return plans


def plan_pairs(name, seed):
    plans = plan_alike(name, seed, [f"{n:02}" for n in range(TALKER_PAIRS)])
    rng = np.random.default_rng(seed + 1)
    voices = sounds.BLIND_VOICES
    for n, plan in enumerate(plans):
        pair = rng.choice(len(voices), 2, replace=False)
        plans[n] = dataclasses.replace(
            plan, talkers=tuple(voices[voice] for voice in pair),
            angles_deg=(float(rng.uniform(10.0, 80.0)), float(rng.uniform(100.0, 170.0))),
            spacing_m=float(rng.uniform(0.03, 0.12)), snr_db=float(rng.uniform(0.0, 18.0)),
            kind=("fan", "pink", "traffic", "hum")[n % 4])
    return plans


def plan_clean(name, seed):
    return plan_alike(name, seed, [f"{n:02}" for n in range(CLEAN_SCENES)], snr_db=35.0)


SETS = {
    **{name: lambda name=name: plan_various(name, TUNING_SETS[name], sounds.TUNING_VOICES)
       for name in TUNING_SETS},
    **{name: lambda name=name: plan_various(name, BLIND_SETS[name], sounds.BLIND_VOICES)
       for name in BLIND_SETS},
    "faults": lambda: plan_faults("faults", 31),
    "clean": lambda: plan_clean("clean", 32),
    "two-talkers": lambda: plan_pairs("two-talkers", 33),
}

# --- Building --------------------------------------------------------------------------------


def images_at_microphones(plan, dry, position):
    """What both microphones receive from a source in the room, 2 x samples: all of it, and the early
    part."""
    every, early = [], []
    for microphone in room.microphone_positions(plan.place, plan.spacing_m):
        response = room.quick_response(plan.place, position, microphone)
        direct_s = np.linalg.norm(position - microphone) / room.SOUND_M_S
        first = response[:int((direct_s + EARLY_S) * RATE_HZ)]
        every.append(signal.fftconvolve(dry, response)[:len(dry)])
        early.append(signal.fftconvolve(dry, first)[:len(dry)])
    return np.stack(every), np.stack(early)


def place_of_noise(rng, plan):
    """Somewhere in the room, 30 degrees or more away from the talkers."""
    while True:
        angle_deg = rng.uniform(0.0, 360.0)
        apart = [abs((angle_deg - talker + 180.0) % 360.0 - 180.0) for talker in plan.angles_deg]
        position = room.source_position(plan.place, angle_deg, rng.uniform(0.8, 2.5))
        if position is not None and min(apart) > 30.0:
            return position


def talker_position(plan, angle_deg):
    """At his distance, or nearer when the room is too small."""
    for share in (1.0, 0.8, 0.6, 0.4):
        position = room.source_position(plan.place, angle_deg, share * plan.distance_m)
        if position is not None:
            return position
    raise ValueError(f"{plan.name}: the talker at {angle_deg} degrees is in a wall")


def diffuse_field(waves, spacing_m):
    """Spherically isotropic noise of plane waves from directions spread evenly over the sphere,
    each a row of `waves`. Only their angle to the line of the microphones matters, and its cosine
    is uniform. The coherence tends to sin(x)/x with x = 2 pi f spacing / c (R. K. Cook et al.,
    "Measurement of correlation coefficients in reverberant sound fields", 1955)."""
    count, length = waves.shape
    omega = 2.0 * np.pi * np.fft.rfftfreq(length, 1.0 / RATE_HZ)
    spectra = np.zeros((2, len(omega)), dtype=complex)
    for n, wave in enumerate(waves):
        spectrum = np.fft.rfft(wave)
        cosine = 1.0 - (2.0 * n + 1.0) / count
        turn = np.exp(0.5j * omega * spacing_m * cosine / room.SOUND_M_S)
        spectra += np.stack([spectrum * turn, spectrum / turn])
    return np.fft.irfft(spectra, length)


def make_noise(rng, plan, length):
    """The noise at both microphones, 2 x length, RMS 1 at microphone 0."""
    total = np.zeros((2, length))
    if plan.spread > 0.0:
        waves = sounds.noise_waves(rng, plan.kind, PLANE_WAVES, length, plan.others)
        field = diffuse_field(waves, plan.spacing_m)
        total += np.sqrt(plan.spread) * field / rms(field[0])
    if plan.spread < 1.0:
        places = sounds.PLACED.get(plan.kind, 1)
        waves = sounds.noise_waves(rng, plan.kind, places, SETTLING + length, plan.others)
        images = sum(images_at_microphones(plan, wave, place_of_noise(rng, plan))[0]
                     for wave in waves)
        images = images[:, SETTLING:]
        total += np.sqrt(1.0 - plan.spread) * images / rms(images[0])
    return total / rms(total[0])


def make_speech(rng, plan, length):
    """The reverberant speech at both microphones, 2 x length, its early part, and the mask of the
    talkers."""
    dry, talking = sounds.talk(rng, plan.talkers, length, 0.8 if len(plan.talkers) > 1 else 0.0)
    if len(dry) < len(plan.angles_deg):  # one talker who walks from one place to another
        middle = length // 2 + int(np.argmin(talking[length // 2:]))
        there = np.arange(length) < middle
        dry = np.concatenate([dry * there, dry * ~there])
    images = [images_at_microphones(plan, source, talker_position(plan, angle_deg))
              for source, angle_deg in zip(dry, plan.angles_deg)]
    return sum(every for every, _ in images), sum(early for _, early in images), talking


def apply_fault(rng, fault, sound):
    """What faulty microphones make of a recording, 2 x frames. Modifies it."""
    length = sound.shape[1]
    if fault == "mic 1 dead":
        sound[1] = 0.0
    elif fault == "mic 0 dies":
        sound[0, length // 2:] = 0.0
    elif fault == "mic 1 healed":
        sound[1, :length // 2] = 0.0
    elif fault == "mic 1 a copy":
        sound[1] = 0.6 * sound[0]
    elif fault == "mic 1 inverted copy":
        sound[1] = -sound[0]
    elif fault == "mic 1 6 dB weaker":
        sound[1] *= db_to_gain(-6.0)
    elif fault == "mic 1 noisy, clipped":
        crackle = rng.standard_normal(length) * rms(sound[0])
        ceiling = 1.5 * rms(sound[0])
        sound[1] = np.clip(sound[1] + 0.5 * crackle, -ceiling, ceiling)
    elif fault == "wind on mic 1":
        sound[1] += 3.0 * rms(sound[0]) * sounds.wind(rng, length)


def build(plan):
    """The scene of a plan."""
    rng = np.random.default_rng(plan.seed)
    length = plan.seconds * RATE_HZ
    speech, early, talking = make_speech(rng, plan, length)
    noise = make_noise(rng, plan, length)
    highpass = signal.butter(2, MIC_HIGHPASS_HZ, "highpass", fs=RATE_HZ, output="sos")
    speech, early, noise = [signal.sosfilt(highpass, one) for one in (speech, early, noise)]
    level = rms(speech[0, talking])
    speech, early = speech / level, early / level
    noise = noise / rms(noise[0]) * db_to_gain(-plan.snr_db)
    mismatch = db_to_gain(rng.uniform(-1.5, 1.5, 2) - 0.75)[:, None]
    level = FULL_SCALE * db_to_gain(plan.level_dbfs)
    level = min(level, 0.9 * FULL_SCALE / np.max(np.abs((speech + noise) * mismatch)))
    speech, early, noise = [one * level * mismatch for one in (speech, early, noise)]
    self_noise_dbfs = rng.uniform(-80.0, -68.0)
    noise += FULL_SCALE * db_to_gain(self_noise_dbfs) * rng.standard_normal(noise.shape)
    sound = speech + noise
    apply_fault(rng, plan.fault, sound)
    recording = np.clip(np.round(sound.T), -FULL_SCALE - 1, FULL_SCALE).astype(np.int16)
    speech, early, noise = [one.astype(np.float32) for one in (speech, early, noise)]
    return Scene(plan, recording, speech, early, noise, talking)


# --- Storage ---------------------------------------------------------------------------------


def digest(plan):
    """Changes with the plan and with the code that builds scenes."""
    folder = pathlib.Path(__file__).parent
    code = b"".join((folder / name).read_bytes() for name in ("room.py", "sounds.py", "scenes.py"))
    return hashlib.sha256(code + repr(plan).encode()).hexdigest()[:12]


def load(plan, folder):
    """The scene of a plan, from the folder if it is there, else built and stored there. Without a
    folder nothing is stored."""
    if folder is None:
        return build(plan)
    path = os.path.join(folder, f"{plan.name.replace(' ', '-')}-{digest(plan)}.npz")
    fields = ("recording", "speech", "early", "noise", "talking")
    try:
        with np.load(path) as stored:
            return Scene(plan, *[stored[name] for name in fields])
    except (OSError, KeyError, zipfile.BadZipFile):
        scene = build(plan)
    os.makedirs(folder, exist_ok=True)
    unfinished = f"{path}.{os.getpid()}.npz"
    np.savez(unfinished, **{name: getattr(scene, name) for name in fields})
    os.replace(unfinished, path)
    return scene


def main():
    if len(sys.argv) < 3 or any(name not in SETS for name in sys.argv[2:]):
        sys.exit(f"usage: scenes.py FOLDER SET...; sets: {' '.join(SETS)}")
    os.makedirs(sys.argv[1], exist_ok=True)
    for name in sys.argv[2:]:
        for plan in SETS[name]():
            path = os.path.join(sys.argv[1], plan.name.replace(" ", "-").replace(",", "") + ".wav")
            wavfile.write(path, RATE_HZ, build(plan).recording)
            print(path)


if __name__ == "__main__":
    main()
