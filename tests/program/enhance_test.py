"""What enhancing makes of a recording, what it says, of mistakes too, and shows on terminals."""
import fcntl
import os
import pathlib
import pty
import re
import struct
import subprocess
import termios
import unittest
import wave

import numpy as np

import program
from program import ProgramCase, recording


def click(rate_hz):
    """Three channels of noise, a little more than a second, the last with a click after a third of one."""
    sound = np.random.default_rng(1).integers(-20, 20, (rate_hz + 77, 3))
    sound[rate_hz // 3, 2] = 30000
    return sound


class Sound(ProgramCase):
    def test_the_beamformer_gives_the_stored_reference(self):
        """The reference is the aligned output from sample 64 on."""
        got = self.expect(0, "mode mvdr, hop 192", "enhance", "--raw-channels", 2, "--mode", "mvdr",
                          "--hop", 192, "--plain", "-", "-", input=recording().tobytes()).stdout
        np.testing.assert_array_equal(np.frombuffer(got, "<i2")[64:][:31616],
                                      program.stored("bf_mvdr")[:31616])
        self.enhance("--mode", "mvdr", "--hop", 192, "--plain", "in.wav", "out.wav")
        self.assertEqual(got, pathlib.Path("out.wav").read_bytes()[44:])

    def test_every_option_of_the_beamformer_is_heard(self):
        """Digital silence ends the beamforming of a stream without shield."""
        late = np.tile(recording(), (2, 1))
        late[:8000] = 0
        program.write_wav("in.wav", late)
        scenes = "", "--hop=160", "--plain", "--mic-distance=0.1 --doa=0", "--mic-distance=0.1 --doa=160"
        self.assertEqual(5, len({self.run_tool("enhance", "--mode=mvdr", *scene.split(), "in.wav",
                                               "-").stdout for scene in scenes}))

    def test_the_default_is_refined_and_tells_the_talker(self):
        """He is heard two samples later at microphone 1."""
        talker = np.tile(recording()[:, 0], 4)
        program.write_wav("in.wav", np.stack([talker, np.roll(talker, 2)], axis=1))
        noise = np.random.default_rng(1).normal(0, 900, (64000, 2))
        program.write_wav("noise.wav", noise)
        heard = {}
        for words, told in [
                ("", r"refined, .*, talker: delay 125 us, confidence [01]\.\d\d"),
                ("--mode auto", "refined, .*, talker: delay 125 us, .*"),
                ("--mode refined", "refined, .*, talker: delay 125 us, .*"),
                ("--channels 1,0", "talker: delay -125 us, .*"),
                ("--mic-distance 0.03", "talker: delay 125 us, .*, more than --mic-distance allows"),
                ("--mic-distance 0.06", r"talker: 44 degrees \(delay 125 us, confidence .*\)"),
                ("--mic-distance 0.06 --doa 44", "refined.* out"),
                ("--channels 0", "refined.* out"), ("--hop 160", "omlsa, hop 160.* out"),
                ("--hop 160 --mode omlsa", "omlsa.* out")]:
            result = self.run_tool("enhance", *words.split(), "in.wav", "-")
            heard[words] = result.stdout
            self.assertRegex(result.stderr.decode(), f"mode .*{told}\n\\Z", words)
        self.assertEqual({heard[""]}, {heard[f"--mode {mode}"] for mode in ("auto", "refined")})
        self.assertEqual(heard["--hop 160"], heard["--hop 160 --mode omlsa"])
        self.expect(0, "talker: not found", "enhance", "noise.wav", "x.wav")
        for words, least, most in ("", -60, -15), ("--max-attenuation 6", -6.1, -5):
            self.enhance("--channels", 0, *words.split(), "noise.wav", "x.wav")
            levels = [np.std(x[32000:]) for x in (program.read_wav("x.wav"), noise[:, 0])]
            change_db = 20 * np.log10(levels[0] / levels[1])
            self.assertTrue(least < change_db < most, f"{words}: noise by {change_db:.2f} dB")

    @program.needs_rates
    def test_rate_length_and_time_stay(self):
        for rate_hz in 8000, 44100, 48000:
            program.write_wav("in.wav", click(rate_hz), rate_hz)
            self.enhance("--channels", "2,0", "--mode", "mean", "--hop", 160, "in.wav", "out.wav")
            sound = program.read_wav("out.wav")
            with wave.open("out.wav") as stored:
                self.assertEqual((rate_hz, rate_hz + 77, rate_hz // 3),
                                 (stored.getframerate(), len(sound), sound.argmax()))
            program.write_wav("even.wav", np.full(rate_hz, 1001), rate_hz)
            self.enhance("--mode", "mono", "--gain", 20 * np.log10(0.7), "even.wav", "out.wav")
            self.assertEqual({701}, {*program.read_wav("out.wav")[rate_hz // 4:-rate_hz // 4]}, "rounded")
            raw = np.frombuffer(self.enhance("--channels", 2, "--mode", "mono", "in.wav", "-"), "<i2")
            self.assertEqual(round((rate_hz + 77) * 16000 / rate_hz), len(raw), "raw, at 16 kHz")
            self.assertAlmostEqual(rate_hz // 3 * 16000 / rate_hz, raw.argmax(), delta=1)

    @program.needs_rates
    def test_what_lies_above_8_khz_stays_unless_it_is_not_wanted(self):
        tones = [5000 * np.sin(2 * np.pi * hz / 48000 * np.arange(48000)) for hz in (2000, 12000)]
        program.write_wav("in.wav", np.repeat(sum(tones).round()[:, None], 2, axis=1), 48000)
        for words, kept in ([], 1.0), (["--no-full-band"], 0.0):
            self.enhance("--mode", "mono", *words, "in.wav", "out.wav")
            middle = program.read_wav("out.wav")[12000:36000]
            shares = [np.dot(middle, tone[12000:36000]) / 5000**2 / 12000 for tone in tones]
            np.testing.assert_allclose(shares, [1.0, kept], atol=0.01, err_msg=f"{words}, 2 and 12 kHz")

    def test_samples_at_full_scale_are_counted(self):
        sound = np.zeros((16000, 2), "i2")
        sound[10000:10010, 0] = [32767, -32768, 32766, -32767, 16384, -16384, 16383, -16383, 5, -5]
        program.write_wav("in.wav", sound)
        for gain, count in (0, 2), (20 * np.log10(2), 6):
            self.expect(0, f"clipped samples: {count} in, {count} out", "enhance", "--mode", "mono",
                        "--gain", gain, "in.wav", "out.wav")

    def test_mono_copies_one_channel(self):
        sound = recording()[:20001, 0]
        program.write_wav("in.wav", sound)
        self.expect(0, "mode mono", "enhance", "--mode", "mono", "in.wav", "out.wav")
        self.enhance("--mode", "mono", "in.wav", "copy.wav")
        np.testing.assert_array_equal(program.read_wav("copy.wav"), sound)
        self.enhance("--mode", "mono", "--gain", "-60", "in.wav", "low.wav")
        np.testing.assert_allclose(program.read_wav("low.wav"), sound / 1000.0, atol=0.51)
        table = self.expect(0, "", "enhance", "--mode", "mono", "--out-dir", "new", "in.wav").stdout
        self.assertIn(b" mono ", table)
        np.testing.assert_array_equal(program.read_wav("new/in.wav"), sound)
        self.expect(0, "needs two channels", "enhance", "--mode", "mean", "in.wav", "omlsa.wav")


class Messages(ProgramCase):
    def one_line(self, status, text, *words, **settings):
        said = self.expect(status, text, *words, **settings).stderr.decode()
        self.assertRegex(said, r"\Ase_bf: .*\n\Z", f"one line of {words}")

    @unittest.skipIf(program.HAS_RATES, "takes other rates")
    def test_a_build_without_rates_says_what_to_do(self):
        program.write_wav("48.wav", click(48000), 48000)
        self.one_line(1, "built without rates: streams run at 16000 Hz only; convert the sound",
                      "enhance", "48.wav", "out.wav", "--channels", "0")

    def test_mistakes_leave_nothing(self):
        program.write_wav("8000.wav", click(8000), 8000)
        for rate_hz in 7999, 192001:
            program.write_wav(f"{rate_hz}.wav", click(8000), rate_hz)
        os.symlink("/dev/full", "full.wav")
        before = sorted(os.listdir())
        lone = "--mic-distance needs --doa in mode "
        alone = "--max-attenuation is for mode refined at hop 320, not for mode "
        for status, text, words in [
                (1, "same file", "enhance in.wav in.wav"),
                (1, "7999.wav has a sampling rate of 7999 Hz; the enhancer takes 8000 to 192000 Hz",
                 "enhance 7999.wav out.wav"),
                (1, "192001 Hz", "plot 192001.wav"),
                (1, "no channel 3", "enhance 8000.wav out.wav --channels 3"),
                (1, "No space", "enhance in.wav full.wav"),
                (1, "would replace it", "enhance --out-dir . in.wav"),
                (2, lone + "mvdr", "enhance --mode mvdr --mic-distance 0.1 in.wav x.wav"),
                (2, lone + "omlsa", "enhance --hop 160 --mic-distance 0.1 --out-dir new in.wav"),
                (2, lone + "mean", "plot --mode mean --mic-distance 0.1 in.wav"),
                (2, "--doa needs --mic-distance", "enhance --doa 90 in.wav x.wav"),
                (2, "mode refined has hop 320 alone", "plot --mode refined --hop 160 in.wav"),
                (2, alone + "mono at hop 320", "enhance --mode mono --max-attenuation 0 in.wav x.wav"),
                (2, alone + "auto at hop 192", "enhance --hop 192 --max-attenuation 9 in.wav x.wav"),
                (2, "'60.1' is not a number from 0 to 60", "plot --max-attenuation 60.1 in.wav"),
                (1, "no verdict", "conform bf_omlsa")]:
            self.one_line(status, text, *words.split())
        reader, writer = os.pipe()
        os.close(reader)
        self.one_line(1, "closed the pipe", "enhance", "in.wav", "-", capture_output=False,
                      stdout=writer, stderr=subprocess.PIPE)
        os.close(writer)
        self.assertEqual(before, sorted(os.listdir()))

    def test_what_a_recording_lacks_is_told(self):
        long = np.tile(recording(), (6, 1))
        program.write_wav("equal.wav", long[:, [0, 0]])
        program.write_wav("copies.wav", np.stack([long[:, 0] // 3, -long[:, 0]], axis=1))
        program.write_wav("none.wav", long[:0], 44100 if program.HAS_RATES else 16000)
        for text, words in [("holds no sound", "none.wav x.flac"),
                            ("identical from 0.00 s", "equal.wav x.wav"),
                            ("the louder one, microphone 1, is used alone", "copies.wav x.wav"),
                            ("no effect in mode mean",
                             "--mode mean --mic-distance 0.1 --doa 90 in.wav x.wav")]:
            self.one_line(0, text, "enhance", "--quiet", *words.split())
        self.one_line(0, "within a frame", "enhance", "--quiet", "--raw-channels", 1, "-", "x.wav",
                      input=bytes(321))
        long[48000:96000, 0] = 0
        program.write_wav("dies.wav", long)
        told = self.expect(0, "e 0 is silent or 40 dB weaker from 3.00 s", "enhance", "--quiet",
                           "--mode", "mvdr", "dies.wav", "x.wav").stderr
        self.assertIn(b"resumes soon after ", told)


class Terminal(ProgramCase):
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


program.main()
