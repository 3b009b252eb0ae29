"""What the tests of the program share: a directory of their own, the program, recordings, and
checks that say what they expected and what they got.

A test file ends with program.main() and is run as FILE_test.py SE_BF [CASE...].
"""
import os
import pathlib
import shutil
import subprocess
import sys
import tempfile
import unittest

import numpy as np
from scipy.io import wavfile

TOP = pathlib.Path(__file__).resolve().parents[2]
TOOL = ""  # path of the program, from the command line
LIMIT_S = 60  # a command that takes longer hangs


def is_instrumented():
    """Whether the program is built with a sanitizer, which no library may come before."""
    return b"__asan_init" in pathlib.Path(TOOL).read_bytes()


def recording():
    """The stored recording: samples of two microphones at 16 kHz, frames x 2, 16-bit."""
    return np.fromfile(TOP / "src/conformance/pcm_in_multi.s16", "<i2").reshape(-1, 2)


def write_wav(path, samples, rate_hz=16000):
    wavfile.write(path, rate_hz, samples)


def mpeg_frame(index, kilobits):
    """1152 samples of silence at 44.1 kHz, as MPEG-1 layer 3; index: of the bit rate."""
    return bytes([0xFF, 0xFB, index << 4, 0xC0]).ljust(144000 * kilobits // 44100, b"\0")


def read_wav(path):
    """Samples of a WAV file as they are stored."""
    return wavfile.read(path)[1]


class ProgramCase(unittest.TestCase):
    """A test in an empty working directory, which is removed afterwards."""
    maxDiff = None

    def setUp(self):
        self.work = pathlib.Path(tempfile.mkdtemp(prefix="se_bf."))
        self.addCleanup(shutil.rmtree, self.work, ignore_errors=True)
        self.addCleanup(os.chdir, os.getcwd())
        os.chdir(self.work)

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


def main():
    global TOOL
    TOOL = os.path.abspath(sys.argv.pop(1))
    unittest.main(verbosity=2)
