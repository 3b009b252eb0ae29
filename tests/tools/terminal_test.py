"""What the program shows on terminals, and what it says when it cannot write; the bypass."""
import fcntl
import os
import pty
import re
import struct
import subprocess
import termios

import numpy as np

import program


class Terminal(program.ProgramCase):
    def drawn(self, width):
        """What is drawn on a terminal of this width while a recording is enhanced."""
        ours, theirs = pty.openpty()
        fcntl.ioctl(theirs, termios.TIOCSWINSZ, struct.pack("4H", 24, width, 0, 0))
        with subprocess.Popen([program.TOOL, "enhance", "in.wav", "out.wav"], stderr=theirs,
                              stdin=subprocess.DEVNULL) as running:
            os.close(theirs)
            text = b""
            try:
                while piece := os.read(ours, 4096):
                    text += piece
            except OSError:  # the program has ended
                pass
        os.close(ours)
        self.assertEqual(0, running.returncode, text)
        return re.findall(r"\r\x1b\[K([^\r\n]+)", text.decode())[:-1]

    def test_the_bar_fits_the_line(self):
        program.write_wav("in.wav", program.recording())
        for width, shape in [(0, r"\[.{40}\] \d+ %"), (80, r"\[.{40}\] \d+ %"),
                             (30, r"\[.{21}\] \d+ %"), (13, r"\[.{4}\] \d+ %"), (12, r"\d+ %"),
                             (5, r"\d+ %"), (2, r"\d")]:
            lines = self.drawn(width)
            self.assertTrue(lines, f"a bar is expected in {width} columns")
            for line in lines:
                self.assertRegex(line, f"^{shape}$", f"drawn in {width} columns")
        self.assertEqual([], self.drawn(1), "one column has no room")

    def test_help_and_version_that_cannot_be_written_fail(self):
        with open("/dev/full", "wb") as full:
            for words in [["--version"], ["--help"], ["enhance", "--help"], ["plot", "--help"],
                          ["conform", "--help"]]:
                result = self.expect(1, "No space left", *words, capture_output=False, stdout=full,
                                     stderr=subprocess.PIPE)
                self.assertEqual(1, result.stderr.count(b"\n"), f"lines of {words}")

    def test_mono_copies_one_channel(self):
        sound = program.recording()[:20001, 0]
        program.write_wav("in.wav", sound)
        self.expect(0, "mode mono", "enhance", "--mode", "mono", "in.wav", "out.wav")
        self.expect(0, "", "enhance", "--quiet", "--mode", "mono", "in.wav", "copy.wav")
        np.testing.assert_array_equal(program.read_wav("copy.wav"), sound)
        self.expect(0, "", "enhance", "--quiet", "--mode", "mono", "--gain", "-60", "in.wav",
                    "low.wav")
        np.testing.assert_allclose(program.read_wav("low.wav"), sound / 1000.0, atol=0.51)
        table = self.expect(0, "", "enhance", "--mode", "mono", "--out-dir", "new", "in.wav").stdout
        self.assertIn(b" mono ", table)
        np.testing.assert_array_equal(program.read_wav("new/in.wav"), sound)
        program.write_wav("48.wav", np.repeat(sound, 3), 48000)
        self.expect(0, "", "enhance", "--quiet", "--mode", "mono", "48.wav", "48out.wav")
        self.assertEqual(3 * len(sound), len(program.read_wav("48out.wav")))
        self.expect(0, "needs two channels", "enhance", "--mode", "mean", "in.wav", "omlsa.wav")


program.main()
