"""What the tests of the program share: a directory of their own, the program, recordings, and
checks that say what they expected and what they got.

A test file ends with program.main() and is run as FILE_test.py SE_BF [CLASS.CASE...].
"""
import os
import pathlib
import resource
import shutil
import subprocess
import sys
import tempfile
import time
import unittest
import wave

import numpy as np

TOP = pathlib.Path(__file__).resolve().parents[2]
TOOL = os.path.abspath(sys.argv.pop(1))
HAS_RATES = os.environ.get("TM_SE_BF_STREAM_RATES") != "OFF"  # set by CTest
needs_rates = unittest.skipUnless(HAS_RATES, "built without rates")
LIMIT_S = 60  # a command that takes longer hangs
RECORD = "se_bf-results.txt"


def is_instrumented():
    """Whether the program is built with a sanitizer, which no library may come before."""
    return b"__asan_init" in pathlib.Path(TOOL).read_bytes()


def stored(name):
    """Samples that are stored with the library, 16-bit."""
    return np.fromfile(TOP / f"src/conformance/pcm_{name}.s16", "<i2")


def recording():
    """The stored recording: samples of two microphones at 16 kHz, frames x 2, 16-bit."""
    return stored("in_multi").reshape(-1, 2)


def write_wav(path, samples, rate_hz=16000):
    """samples: frames x channels or frames, 16-bit."""
    with wave.open(path, "wb") as file:
        file.setparams(((*samples.shape, 1)[1], 2, rate_hz, 0, "NONE", None))
        file.writeframes(samples.astype("<i2").tobytes())


def write_long_au(path, size=1 << 30):
    """Hours of silence at 16 kHz, mono, of unknown length: a file without contents."""
    pathlib.Path(path).write_bytes(b".snd\0\0\0\x18\xff\xff\xff\xff\0\0\0\3\0\0\x3e\x80\0\0\0\1")
    os.truncate(path, 24 + size)


def mpeg_frame(index, kilobits):
    """1152 samples of silence at 44.1 kHz, as MPEG-1 layer 3; index: of the bit rate."""
    return bytes([0xFF, 0xFB, index << 4, 0xC0]).ljust(144000 * kilobits // 44100, b"\0")


def read_wav(path):
    """Samples of a mono WAV file of 16 bits."""
    with wave.open(path) as file:
        return np.frombuffer(file.readframes(file.getnframes()), "<i2")


def compile_library(path, source):
    """A shared library of C source, to be loaded before others."""
    subprocess.run([os.environ.get("CC", "cc"), "-shared", "-fPIC", "-w", "-x", "c", "-", "-o", path],
                   input=source.encode(), check=True)
    return {"LD_PRELOAD": os.path.abspath(path)}


def without_rights():
    """Words to put before a command, so that file permissions bind root, too."""
    root = ["setpriv", "--bounding-set=-dac_override,-dac_read_search"]
    return root if os.geteuid() == 0 else []


def limited(what, count):
    """Settings that run a program with a limit (resource.setrlimit); a limit of the file size acts as a
    full disk."""
    return {"preexec_fn": lambda: resource.setrlimit(what, (count, count))}


def wait_for(condition):
    """Waits until the condition gives something, and returns that."""
    end = time.monotonic() + LIMIT_S
    while not (found := condition()):
        assert time.monotonic() < end, "waited in vain"
        time.sleep(0.01)
    return found


class ProgramCase(unittest.TestCase):
    """A test in a working directory with the recording, in.wav, which is removed afterwards."""
    maxDiff = None

    def setUp(self):
        self.work = pathlib.Path(tempfile.mkdtemp(prefix="se_bf."))
        self.addCleanup(shutil.rmtree, self.work, ignore_errors=True)
        self.addCleanup(os.chdir, os.getcwd())
        os.chdir(self.work)
        write_wav("in.wav", recording())

    def run_tool(self, *words, **settings):
        """Runs the program to its end; standard output and error are bytes of the result."""
        settings = {"stdin": subprocess.DEVNULL, "capture_output": True, "timeout": LIMIT_S,
                    **settings}
        if "input" in settings:
            del settings["stdin"]
        return subprocess.run([TOOL, *map(str, words)], check=False, **settings)

    def expect(self, status, text, *words, **settings):
        """Runs the program, checks its exit status and that its messages contain `text`; an empty
        `text` stands for no message at all. Returns the result."""
        result = self.run_tool(*words, **settings)
        said = result.stderr.decode(errors="replace")
        told = f"{' '.join(map(str, words))}: said {said!r}"
        self.assertEqual(status, result.returncode, f"exit status of {told}")
        if text == "":
            self.assertEqual("", said, f"no message expected of {told}")
        else:
            self.assertIn(text, said, f"message of {told}")
        return result


    def enhance(self, *words, status=0, told="", **settings):
        """Enhances without a table; returns what went to standard output."""
        return self.expect(status, told, "enhance", "--quiet", *words, **settings).stdout


def main():
    unittest.main(verbosity=2)
