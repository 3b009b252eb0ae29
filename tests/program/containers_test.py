"""Sound files of every kind: whole, cut off, damaged, and longer than their format can state."""
import os
import pathlib
import signal
import struct
import subprocess
import wave

import numpy as np

import program
from program import ProgramCase

RATE_HZ = 16000
WRITTEN = ".wav .flac .ogg .opus .aiff .au .caf .w64 .rf64".split()
LOSSY = ".ogg", ".opus"
BORDER = 1024  # samples before the end of the sound that still change when more follows


def svx(pcm):
    header = b"VHDR" + struct.pack(">IIIIHBBI", 20, len(pcm), 0, 0, RATE_HZ, 1, 0, 65535)
    body = b"16SV" + header + b"BODY" + struct.pack(">I", 2 * len(pcm)) + pcm.astype(">i2").tobytes()
    return b"FORM" + struct.pack(">I", len(body)) + body


BY_SOX = ".sph", ".voc", ".avr"


class Containers(ProgramCase):
    def setUp(self):
        super().setUp()
        self.sound = np.tile(program.recording(), (3, 1))[:, 0]
        program.write_wav("in.wav", self.sound)

    def enhanced(self, status, text, path):
        self.enhance(path, "out.wav", status=status, told=text)
        return program.read_wav("out.wav").astype(int)

    def cut(self, path, size):
        """A copy of the file with its first bytes only."""
        cut = "cut-" + path
        pathlib.Path(cut).write_bytes(pathlib.Path(path).read_bytes()[:size])
        return cut

    def test_what_a_cut_file_holds_is_enhanced_with_a_warning(self):
        for extension in [*WRITTEN, *BY_SOX, ".svx"]:
            path = "a" + extension
            if extension == ".svx":
                pathlib.Path(path).write_bytes(svx(self.sound))
            elif extension in BY_SOX:
                subprocess.run(["sox", "in.wav", path], check=True)
            else:
                self.enhance("in.wav", path)
            whole = self.enhanced(0, "", path)
            self.assertEqual(len(self.sound), len(whole), f"samples of {path}")
            part = self.enhanced(0, "cut off", self.cut(path, os.stat(path).st_size // 2))
            self.assertLess(len(self.sound) * 0.25, len(part), f"samples of half of {path}")
            self.assertLess(len(part), len(self.sound) * 0.6, f"samples of half of {path}")
            if extension not in LOSSY:
                kept = len(part) - BORDER
                self.assertEqual([], [*np.flatnonzero(part[:kept] != whole[:kept])][:3], path)

    def test_only_usual_sizes_stand_for_unknown(self):
        """Recorders part their files near 2 GiB, and other chunks follow the sound."""
        data = pathlib.Path("in.wav").read_bytes()
        whole = self.enhanced(0, "", "in.wav")
        own = struct.unpack("<I", data[4:8])[0]
        for around, size, told in [(0, 0, ""), (36, 0, ""), (2**32 - 1, 2**32 - 1, ""),
                                   (0x7ffff024, 0x7ffff000, ""), (own, 0x7ff80000, "cut off"),
                                   (own, 0x7f000050, ""), (own, 0x7fffff00, "")]:
            pathlib.Path("open.wav").write_bytes(
                data[:4] + struct.pack("<I", around) + data[8:40] + struct.pack("<I", size) + data[44:])
            np.testing.assert_array_equal(whole, self.enhanced(0, told, "open.wav"), f"{around} {size}")
        wide = struct.pack("<4sI8sI28x", b"RF64", 2**32 - 1, b"WAVEds64", 28)
        pathlib.Path("open.wav").write_bytes(wide + data[12:40] + b"\xff" * 4 + data[44:])
        np.testing.assert_array_equal(whole, self.enhanced(0, "", "open.wav"), "RF64")
        self.enhance("in.wav", "a.w64")
        data = pathlib.Path("a.w64").read_bytes()
        at = data.index(b"data") + 16  # behind the name of 16 bytes
        pathlib.Path("a.w64").write_bytes(data[:at] + struct.pack("<Q", 0x7ff80000) + data[at + 8:])
        self.enhanced(0, "cut off", "a.w64")

    def test_a_header_without_an_end_is_refused_at_once(self):
        path = "a.svx"
        pathlib.Path(path).write_bytes(svx(self.sound)[:40] + b"ANNO\0\0ee" + 999 * b"e")
        self.expect(1, "cannot read a.svx as sound", "enhance", path, "out.wav", timeout=10)

    @program.needs_rates
    def test_mpeg_without_a_length_is_read_to_its_end(self):
        frames = [program.mpeg_frame(14, 320)] * 20 + [program.mpeg_frame(1, 32)] * 200
        for order in frames, frames[::-1]:
            pathlib.Path("a.mp3").write_bytes(b"".join(order))
            self.assertEqual(220 * 1152, len(self.enhanced(0, "", "a.mp3")))
            part = self.enhanced(0, "cut off", self.cut("a.mp3", os.stat("a.mp3").st_size - 50))
            self.assertEqual(219 * 1152, len(part))

    @program.needs_rates
    def test_mpeg_behind_something_else_is_found(self):
        """A recording of a broadcast begins within a frame; tags may be longer than a first look."""
        stream = program.mpeg_frame(14, 320) * 9 + program.mpeg_frame(1, 32) * 200
        tag = b"ID3\3\0\0\0\2\0\0".ljust(10 + (2 << 14), b"\0")
        for front in bytes(417), program.mpeg_frame(1, 32)[50:], tag, 2 * tag:
            pathlib.Path("a.mp3").write_bytes(front + stream)
            self.assertEqual(209 * 1152, len(self.enhanced(0, "", "a.mp3")), front[:4])
        self.enhance("-", "b.wav", input=2 * tag + stream)
        self.assertEqual(209 * 1152, len(program.read_wav("b.wav")))

    def test_a_second_recording_in_a_file_is_told(self):
        self.enhance("in.wav", "a.ogg")
        one = pathlib.Path("a.ogg").read_bytes()
        pathlib.Path("two.ogg").write_bytes(2 * one)
        self.enhanced(0, "only the first is enhanced", "two.ogg")
        data = pathlib.Path("in.wav").read_bytes()
        pathlib.Path("two.wav").write_bytes(data + data[36:])
        self.enhanced(0, "cut off or damaged", "two.wav")

    def test_sound_before_damage_is_kept_with_a_failure(self):
        self.enhance("in.wav", "a.flac")
        whole = self.enhanced(0, "", "a.flac")
        data = bytearray(pathlib.Path("a.flac").read_bytes())
        middle = len(data) // 2
        data[middle:middle + 3000] = bytes(3000)
        pathlib.Path("bad.flac").write_bytes(data)
        part = self.enhanced(1, "only the sound before is enhanced", "bad.flac")
        kept = len(part) - BORDER
        self.assertLess(len(whole) * 0.25, kept)
        np.testing.assert_array_equal(whole[:kept], part[:kept])

    @program.needs_rates
    def test_opus_takes_any_rate(self):
        for rate, stored in (44100, 48000), (11025, 12000), (96000, 48000), (16000, 16000):
            click = np.zeros(rate + 78, "i2")
            click[rate // 3:][:rate // 1000] = 20000
            program.write_wav("click.wav", click, rate)
            for words in ["--mode", "mono", "click.wav", "a.opus"], ["a.opus", "back.wav"]:
                self.run_tool("enhance", "--quiet", *words)
            with wave.open("back.wav") as back:
                self.assertEqual((stored, round((rate + 78) * stored / rate)),
                                 (back.getframerate(), back.getnframes()), f"{rate} Hz")


class Long(ProgramCase):
    """More than 4 GiB of sound, announced by a file without contents."""

    def setUp(self):
        super().setUp()
        program.write_long_au("long.au", 5 << 30)

    def test_formats_that_cannot_hold_it_refuse(self):
        for out in "x.aiff", "x.au":
            self.expect(1, "cannot hold 46.6 h of sound, only 37.3 h; use one of .wav .flac",
                        "enhance", "long.au", out)
        self.assertEqual(["in.wav", "long.au"], sorted(os.listdir()))

    def test_wav_takes_sizes_of_64_bits_where_it_must(self):
        frames = 5 * 2**29
        with subprocess.Popen([program.TOOL, "enhance", "long.au", "x.wav"],
                              stderr=subprocess.DEVNULL) as running:
            def header_so_far():
                self.assertIsNone(running.poll(), "it ended early")
                return [path for path in pathlib.Path().glob(".se_bf-*") if path.stat().st_size >= 80]
            with open(program.wait_for(header_so_far)[0], "rb") as file:
                header = file.read(80)
            running.send_signal(signal.SIGTERM)
        self.assertEqual((b"RF64", b"WAVEds64", 28, 72 + 2 * frames, 2 * frames, frames, b"data"),
                         struct.unpack("<4s4x8sIQQQ28x4s4x", header))

    def test_wav_of_unknown_length_is_wav_when_it_fits(self):
        self.enhance("--raw-channels", "1", "-", "x.wav", input=bytes(2 * 1000))
        self.assertEqual(1000, len(program.read_wav("x.wav")))


program.main()
