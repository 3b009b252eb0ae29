"""The systems that measure_scenes.py compares: the modes of the stream library, which is called in
process, and WebRTC's noise suppressor."""
import ctypes
import os
import subprocess
import tempfile

import numpy as np

from room import RATE_HZ

FULL_SCALE = 32768.0
CONFIG_BYTES = 4096  # most that se_bf_stream_config may grow to
WEBRTC_DELAY = 96  # samples: a window of 256 over blocks of 160

# Modes of the stream library.
AUTO = 0
REFINED = 1
MEAN = 6000
OMLSA = 6001
MVDR = 6002

# Name: mode, microphones, whether spacing and direction are given. The others are no streams.
STREAMS = {
    "mean": (MEAN, 2, False),
    "omlsa": (OMLSA, 2, False),
    "omlsa, mic 0": (OMLSA, 1, False),
    "mvdr": (MVDR, 2, False),
    "mvdr, given": (MVDR, 2, True),
    "refined": (REFINED, 2, False),
    "refined, given": (REFINED, 2, True),
    "refined, mic 0": (REFINED, 1, False),
    "auto": (AUTO, 2, False),
    "auto, mic 0": (AUTO, 1, False),
}
NAMES = ["mic 0", *STREAMS, "webrtc"]
USUAL = [name for name in NAMES if not name.startswith("auto")]


class Config(ctypes.Structure):
    """se_bf_stream_config of include/tm_se_bf_stream.h."""
    _fields_ = [("size", ctypes.c_uint32), ("rate", ctypes.c_int32), ("channels", ctypes.c_int32),
                ("mode", ctypes.c_int32), ("hop", ctypes.c_int32),
                ("mic_distance", ctypes.c_float), ("doa", ctypes.c_float),
                ("plain", ctypes.c_int32), ("full_band", ctypes.c_int32),
                ("on_event", ctypes.c_void_p), ("user", ctypes.c_void_p),
                ("max_attenuation_db", ctypes.c_float), ("reserved", ctypes.c_int32)]


def open_library(path):
    """The stream library with the types of its functions."""
    try:
        library = ctypes.CDLL(path)
    except OSError as error:
        raise RuntimeError(f"{error}; build it, or name it with --build or --library") from error
    library.se_bf_stream_open.restype = ctypes.c_void_p
    library.se_bf_stream_open.argtypes = [ctypes.c_void_p, ctypes.POINTER(ctypes.c_char_p)]
    library.se_bf_stream_push_f32.restype = ctypes.c_size_t
    library.se_bf_stream_push_f32.argtypes = [ctypes.c_void_p, ctypes.c_void_p, ctypes.c_size_t,
                                              ctypes.c_void_p]
    library.se_bf_stream_finish_f32.restype = ctypes.c_size_t
    library.se_bf_stream_finish_f32.argtypes = [ctypes.c_void_p, ctypes.c_void_p]
    library.se_bf_stream_close.restype = None
    library.se_bf_stream_close.argtypes = [ctypes.c_void_p]
    return library


def run_stream(library, name, scene, hop):
    """Output of a stream for a scene, aligned, in 16-bit units. Refined and auto have their hop."""
    mode, channels, given = STREAMS[name]
    # With room for the fields of later versions, which keep their defaults.
    config = Config.from_buffer(ctypes.create_string_buffer(CONFIG_BYTES))
    library.se_bf_stream_config_init(ctypes.byref(config))
    config.rate, config.channels, config.mode = RATE_HZ, channels, mode
    config.hop = hop if mode >= MEAN else 0
    if given:
        config.mic_distance, config.doa = scene.plan.spacing_m, scene.plan.angles_deg[0]
    error = ctypes.c_char_p()
    stream = library.se_bf_stream_open(ctypes.byref(config), ctypes.byref(error))
    if not stream:
        raise RuntimeError(f"the stream library refuses '{name}': {error.value.decode()}")
    sound = np.ascontiguousarray(scene.recording[:, :channels], np.float32)
    sound /= np.float32(FULL_SCALE)
    output = np.zeros(len(sound), dtype=np.float32)
    count = library.se_bf_stream_push_f32(stream, sound.ctypes.data, len(sound), output.ctypes.data)
    library.se_bf_stream_finish_f32(stream, output.ctypes.data + count * output.itemsize)
    library.se_bf_stream_close(stream)
    return FULL_SCALE * output.astype(float)


def run_webrtc(program, scene):
    """Output of bench/webrtc_stream, whose noise suppressor hears microphone 0."""
    seconds = len(scene.recording) // RATE_HZ + 1
    padded = np.zeros((seconds * RATE_HZ, 2), dtype="<i2")
    padded[:len(scene.recording)] = scene.recording
    with tempfile.TemporaryDirectory() as folder:
        before = os.path.join(folder, "in.s16")
        after = os.path.join(folder, "out.f32")
        padded.tofile(before)
        subprocess.run([program, "ns", str(seconds), after], check=True, stderr=subprocess.DEVNULL,
                       env={**os.environ, "RECORDING": before})
        output = np.fromfile(after, dtype="<f4")
    return FULL_SCALE * output[WEBRTC_DELAY:][:len(scene.recording)].astype(float)


def run(name, scene, library, webrtc, hop):
    """Output of a system for a scene, as many samples as the recording."""
    if name == "mic 0":
        return scene.recording[:, 0].astype(float)
    if name == "webrtc":
        return run_webrtc(webrtc, scene)
    return run_stream(library, name, scene, hop)
