"""The sounds of simulated scenes, all made here: speech by Debian's synthesizers, and noises.

Every noise comes from a seed; speech also depends on the installed versions of the synthesizers
(scripts/packages.sh scenes).
"""
import functools
import os
import subprocess
import tempfile

import numpy as np
from scipy import signal
from scipy.io import wavfile

from room import RATE_HZ

USUAL_WORDS_PER_MINUTE = 170
SPEEDS = (150, 170, 195)  # words per minute
LONG_PAUSE_EVERY = 3  # sentences

# Synthesizer and voice, and the language of the text. flite and festival join pieces of recorded
# speech, which is nearer to nature than the formants of espeak-ng. No voice is in both lists.
TUNING_VOICES = [
    (("flite", "slt"), "en"), (("flite", "awb"), "en"), (("festival", "lp_diphone"), "it"),
    (("espeak-ng", "en-gb"), "en"), (("espeak-ng", "de+f3"), "de"),
    (("festival", "cmu_us_slt_arctic_hts"), "en"), (("espeak-ng", "fr"), "fr"),
]
BLIND_VOICES = [
    (("flite", "rms"), "en"), (("festival", "czech_dita"), "cs"),
    (("festival", "kal_diphone"), "en"), (("espeak-ng", "en-us+f2"), "en"),
    (("festival", "suo_fi_lj_diphone"), "fi"), (("espeak-ng", "es"), "es"),
    (("espeak-ng", "de"), "de"),
]

SENTENCES = {
    "en": [
        "The kettle is on the stove, and the window is still open.",
        "Please turn down the fan before you answer the telephone.",
        "We will meet at the station at half past seven.",
        "Nobody could hear what she said from across the room.",
        "He left his umbrella under the third seat of the bus.",
        "Two small boats crossed the bay just after sunrise.",
        "Can you send me the address once more?",
        "The baker sells fresh rolls until the shop is empty.",
        "Six grey geese walked slowly past the garden gate.",
        "It rained all week, so the match was put off.",
    ],
    "de": [
        "Der Zug nach Hamburg hat heute zehn Minuten Verspätung.",
        "Kannst du bitte das Fenster schließen, es zieht hier sehr.",
        "Morgen früh gehen wir zusammen auf den Markt.",
        "Die Kinder spielen im Hof, bis es dunkel wird.",
    ],
    "fr": [
        "Le chat dort sur la chaise près de la fenêtre.",
        "Nous prendrons le train de huit heures demain matin.",
        "Est-ce que tu peux fermer la porte, s'il te plaît ?",
        "Il a oublié ses clés sur la table de la cuisine.",
    ],
    "es": [
        "La tienda de la esquina abre a las nueve y media.",
        "Mañana vamos a comer con mis abuelos en el campo.",
        "¿Puedes llamarme cuando llegues a la estación?",
        "El perro de los vecinos ladra toda la noche.",
    ],
    "it": [
        "Domani mattina prendiamo il treno delle otto.",
        "La finestra della cucina era ancora aperta.",
        "Puoi telefonarmi quando arrivi alla stazione?",
        "I ragazzi giocano nel cortile fino a sera.",
    ],
    "cs": [
        "Prosím zavřete okno, je tady zima.",
        "Zítra ráno pojedeme vlakem do Brna.",
        "Děti si hrají na dvoře až do večera.",
        "Zapomněl klíče na stole v kuchyni.",
    ],
    "fi": [
        "Huomenna aamulla menemme junalla kaupunkiin.",
        "Voisitko sulkea ikkunan, täällä on kylmä.",
        "Lapset leikkivät pihalla iltaan asti.",
        "Hän unohti avaimet keittiön pöydälle.",
    ],
}


def db_to_gain(level_db):
    return 10.0 ** (level_db / 20.0)


def rms(samples):
    return float(np.sqrt(np.mean(np.square(samples))))


# --- Speech ----------------------------------------------------------------------------------


def synthesizer_command(voice, words_per_minute, text_path, wav_path):
    engine, name = voice
    stretch = f"{USUAL_WORDS_PER_MINUTE / words_per_minute:.3f}"
    return {
        "espeak-ng": ["espeak-ng", "-v", name, "-s", str(words_per_minute), "-w", wav_path,
                      "-f", text_path],
        "flite": ["flite", "-voice", name, "--setf", f"duration_stretch={stretch}", "-f", text_path,
                  "-o", wav_path],
        "festival": ["text2wave", "-eval", f"(voice_{name})", "-eval",
                     f"(Parameter.set 'Duration_Stretch {stretch})", "-o", wav_path, text_path],
    }[engine]


@functools.lru_cache(maxsize=None)
def speak(voice, sentence, words_per_minute):
    """Speaks one sentence: float samples at RATE_HZ, RMS 1, outer silence cut."""
    encoding = "utf-8"
    if voice[0] == "festival":
        encoding = "iso8859-2" if "czech" in voice[1] else "latin-1"
    with tempfile.TemporaryDirectory() as folder:
        text_path = os.path.join(folder, "text")
        wav_path = os.path.join(folder, "speech.wav")
        with open(text_path, "w", encoding=encoding, errors="replace") as text:
            text.write(sentence)
        command = synthesizer_command(voice, words_per_minute, text_path, wav_path)
        try:
            subprocess.run(command, check=True, stderr=subprocess.PIPE)
            rate_hz, speech = wavfile.read(wav_path)
        except (OSError, subprocess.CalledProcessError) as error:
            raise RuntimeError(f"{command[0]} cannot speak with voice {voice[1]} ({error}); run "
                               "scripts/packages.sh scenes") from error
    speech = signal.resample_poly(speech.astype(float), RATE_HZ, rate_hz)
    loud = np.flatnonzero(np.abs(speech) > 0.01 * np.max(np.abs(speech)))
    speech = speech[loud[0]:loud[-1] + 1]
    return speech / rms(speech)


def talk(rng, talkers, length, overlap_s=0.0):
    """Lets talkers, pairs of a voice and a language, speak in turn, with pauses between sentences
    and a long one after every third. Returns their dry speech, talkers x length, and a mask that is
    True while anybody speaks. With overlap_s a turn may begin as much before the other one ends."""
    speech = np.zeros((len(talkers), length))
    talking = np.zeros(length, dtype=bool)
    texts = [rng.permutation(SENTENCES[language]) for _, language in talkers]
    words_per_minute = rng.choice(SPEEDS)
    start = int(rng.uniform(0.3, 0.6) * RATE_HZ)
    end = length - int(0.7 * RATE_HZ)
    count = 0
    while True:
        who = count % len(talkers)
        sentence = texts[who][count // len(talkers) % len(texts[who])]
        clip = speak(talkers[who][0], str(sentence), int(words_per_minute))
        if start + len(clip) > end:
            return speech, talking
        speech[who, start:start + len(clip)] += clip * db_to_gain(rng.uniform(-2.0, 2.0))
        talking[start:start + len(clip)] = True
        count += 1
        long_pause = count % LONG_PAUSE_EVERY == 0
        pause_s = rng.uniform(1.6, 2.2) if long_pause else rng.uniform(0.4 - overlap_s, 0.9)
        start += len(clip) + int(pause_s * RATE_HZ)


# --- Noises ----------------------------------------------------------------------------------

# Amplitude over frequency. "fan" falls by 6 dB an octave above 300 Hz, as the broadband noise of a
# small fan does; "traffic" is a rumble with some tyre noise; "vent" hisses around 1 kHz.
COLOURS = {
    "white": np.ones_like,
    "pink": lambda f: 1.0 / np.sqrt(np.maximum(f, 50.0)),
    "fan": lambda f: 1.0 / np.sqrt(1.0 + (f / 300.0)**2),
    "traffic": lambda f: 1.0 / (1.0 + (f / 150.0)**2) + 0.1 / (1.0 + (f / 1200.0)**2),
    "vent": lambda f: (f / 1000.0) / (1.0 + (f / 1000.0)**2),
}


def coloured_spectrum(rng, length, colour):
    """Half spectrum of a Gaussian noise of one of COLOURS."""
    frequency_hz = np.fft.rfftfreq(length, 1.0 / RATE_HZ)
    real = rng.standard_normal(len(frequency_hz))
    return COLOURS[colour](frequency_hz) * (real + 1j * rng.standard_normal(len(frequency_hz)))


def coloured(rng, length, colour):
    return np.fft.irfft(coloured_spectrum(rng, length, colour), length)


def slow_envelope(rng, length, period_s, depth_db):
    """Random level that wanders by about +-depth_db within period_s."""
    count = int(length / RATE_HZ / period_s) + 4
    points = depth_db * rng.uniform(-1.0, 1.0, count)
    spots = np.arange(length) / RATE_HZ / period_s + 1.0
    return db_to_gain(np.interp(spots, np.arange(count), points))


def passing_cars(rng, length):
    """Level of a street: a bed, and a car every few seconds."""
    seconds = np.arange(length) / RATE_HZ
    level = np.full(length, 0.25)
    moment = rng.uniform(0.0, 3.0)
    while moment < seconds[-1]:
        level += rng.uniform(0.5, 1.5) / (1.0 + ((seconds - moment) / rng.uniform(0.4, 1.0))**2)
        moment += rng.exponential(3.0)
    return level


def hum(rng, length):
    """A machine: harmonics of 100 Hz or so, and broadband noise."""
    phase = 2.0 * np.pi * rng.uniform(95.0, 130.0) / RATE_HZ * np.arange(length)
    tones = sum(np.sin(n * phase + rng.uniform(0.0, 6.28)) * rng.uniform(0.3, 1.0) / n
                for n in range(1, 16))
    broadband = coloured(rng, length, "fan")
    return tones / rms(tones) + 0.8 * broadband / rms(broadband)


def struck(rng, length, per_second, rings, decay_s, frequency_hz):
    """Impulsive noise: strokes at random moments, each a burst and some decaying resonances."""
    sound = np.zeros(length + RATE_HZ)
    moment = 0.0
    while moment < length / RATE_HZ:
        seconds = np.arange(int(6.0 * decay_s * RATE_HZ)) / RATE_HZ
        stroke = rng.standard_normal(len(seconds)) * np.exp(-seconds / 0.003)
        for _ in range(rings):
            ring_s = decay_s * rng.uniform(0.3, 1.0)
            tone = np.sin(2.0 * np.pi * rng.uniform(*frequency_hz) * seconds)
            stroke += rng.uniform(0.1, 0.5) * tone * np.exp(-seconds / ring_s)
        start = int(moment * RATE_HZ)
        room_left = min(len(stroke), len(sound) - start)
        sound[start:start + room_left] += stroke[:room_left] * db_to_gain(rng.uniform(-12.0, 0.0))
        moment += rng.exponential(1.0 / per_second)
    return sound[:length]


def dishes(rng, length):
    return struck(rng, length, per_second=2.0, rings=5, decay_s=0.06, frequency_hz=(1200.0, 6500.0))


def typing(rng, length):
    return struck(rng, length, per_second=6.0, rings=2, decay_s=0.012, frequency_hz=(400.0, 3000.0))


def music(rng, length):
    """Chords of plucked and held tones over a beat."""
    sound = np.zeros(length + 4 * RATE_HZ)
    beat = int(rng.uniform(0.28, 0.5) * RATE_HZ)
    for n, start in enumerate(range(0, length, beat)):
        root_hz = 110.0 * 2.0**(rng.choice([0, 3, 5, 7, 10]) / 12.0)
        for step in (0, 4, 7, 12) if n % 4 == 0 else (rng.choice([12, 16, 19, 24]),):
            seconds = np.arange(int(1.6 * RATE_HZ)) / RATE_HZ
            fade = np.minimum(seconds / 0.01, 1.0) * np.exp(-seconds / rng.uniform(0.2, 0.7))
            phase = 2.0 * np.pi * root_hz * 2.0**(step / 12.0) * seconds
            tone = sum(np.sin(k * phase) / k**1.3 for k in range(1, 9)) * fade
            sound[start:start + len(tone)] += tone
        drum = rng.standard_normal(RATE_HZ // 8) * np.exp(-np.arange(RATE_HZ // 8) / 300.0)
        sound[start:start + len(drum)] += (0.8 if n % 2 else 0.3) * drum
    return sound[:length]


def chatter(rng, length, talker):
    """One talker without pauses."""
    clips = [speak(talker[0], str(sentence), int(rng.choice(SPEEDS)))
             for sentence in rng.permutation(SENTENCES[talker[1]])]
    joined = np.concatenate(clips)
    return np.roll(np.tile(joined, length // len(joined) + 1), rng.integers(len(joined)))[:length]


STEADY = ("fan", "white", "pink", "vent", "hum")
SWELLING = ("traffic", "gusts")  # noises whose level wanders everywhere at once
FIELDS = STEADY + SWELLING  # what may come from everywhere
PLACED = {"babble": 6, "rival": 1, "music": 1, "dishes": 2, "typing": 1}  # from so many places


def noise_waves(rng, kind, count, length, talkers):
    """Independent sounds of one kind, count x length, that share their level over time. Babble and
    rivals take their voices from `talkers`."""
    if kind in ("babble", "rival"):
        chosen = rng.permutation(len(talkers))[np.arange(count) % len(talkers)]
        return np.stack([chatter(rng, length, talkers[n]) for n in chosen])
    if kind in PLACED:
        return np.stack([globals()[kind](rng, length) for _ in range(count)])
    if kind == "hum":
        return np.stack([hum(rng, length) for _ in range(count)])
    level = 1.0
    if kind == "traffic":
        level = passing_cars(rng, length)
    elif kind == "gusts":
        level = slow_envelope(rng, length, 0.7, 8.0)
    colour = "vent" if kind == "gusts" else kind
    return level * np.stack([coloured(rng, length, colour) for _ in range(count)])


def wind(rng, length):
    """Wind at one microphone, RMS 1: a rumble below 200 Hz, in gusts."""
    gusts = slow_envelope(rng, length, 0.5, 12.0)
    lowpass = signal.butter(1, 120.0, fs=RATE_HZ, output="sos")
    sound = gusts * signal.sosfilt(lowpass, rng.standard_normal(length))
    return sound / rms(sound)
