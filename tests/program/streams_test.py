"""Sound in pipes: as it comes, with a header or without."""
import fcntl
import os
import pathlib
import select
import signal
import struct
import subprocess
import termios
from resource import RLIMIT_FSIZE

import numpy as np

import program
from program import ProgramCase

FORMATS = "wav flac ogg opus aiff au caf w64 rf64".split()
LOSSY = "ogg", "opus"
OPEN_SIZE = 2**32 - 1
DELAY = 512  # samples: a block and the delay of the signal


def wav_header(size):
    return struct.pack("<4sI8sIHHIIHH4sI", b"RIFF", OPEN_SIZE, b"WAVEfmt ", 16, 1, 2, 16000, 64000, 4,
                       16, b"data", size)


def au_header(size):
    return struct.pack(">4sIIIII", b".snd", 24, size, 3, 16000, 2)


class Streams(ProgramCase):
    def setUp(self):
        super().setUp()
        self.sound = np.tile(program.recording(), (2, 1))
        program.write_wav("in.wav", self.sound)
        self.enhance("in.wav", "out.wav")
        self.whole = pathlib.Path("out.wav").read_bytes()

    def piped(self, data, *words, text=""):
        return self.enhance(*words, input=data, told=text)

    def test_every_format_comes_and_goes_through_pipes(self):
        for name in FORMATS:
            self.enhance("in.wav", f"a.{name}")
            data = pathlib.Path(f"a.{name}").read_bytes()
            whole = self.enhance(f"a.{name}", "-")
            self.assertEqual(2 * len(self.sound), len(whole), name)
            if name not in LOSSY:
                self.assertEqual(self.enhance("out.wav", "-"), whole, f"{name} holds what WAV does")
            for place in "-", "/dev/stdin":
                self.assertEqual(whole, self.piped(data, place, "-"), f"{name} from {place}")
            with open(f"a.{name}", "rb") as file:
                self.assertEqual(whole, self.enhance("-", "-", stdin=file), f"{name} from a file")
            self.piped(data[:len(data) // 2], "-", "-", text="cut off")

            words = ["in.wav", "-", "--format", name]
            sent = self.enhance(*words)
            if name not in ("flac", *LOSSY):
                self.assertEqual(data, sent, f"{name}: a pipe has the bytes of a file")
            self.assertEqual(whole, self.piped(sent, "-", "-"), name)
            with open("redirected", "wb") as out:
                out.write(b"before")
                out.flush()
                self.enhance(*words, capture_output=False, stdout=out, stderr=subprocess.PIPE)
                out.write(b"behind")
            found = pathlib.Path("redirected").read_bytes()
            self.assertEqual((b"before", b"behind"), (found[:6], found[-6:]), name)
            self.assertEqual(whole, self.piped(found[6:-6], "-", "-"), name)
        self.assertEqual(self.whole[44:], self.enhance("in.wav", "-", "--format", "raw"))

    def test_what_is_piped_and_named_must_be_clear(self):
        raw = self.sound.tobytes()
        for status, text, words, data in [
                (1, "--raw-channels 1 or 2", "- -", raw), (1, "nothing came through", "- -", b""),
                (1, "nothing came through", "--raw-channels 2 - -", b""),
                (2, "neither IN nor OUT", "--raw-rate 48000 in.wav x.wav", b""),
                (2, "--raw-rate: Value 7999 not in range", "--raw-rate 7999 - -", raw),
                (1, "leave out --raw-channels", "--raw-channels 2 - -", wav_header(len(raw)) + raw),
                (2, "--format flac is not what", "in.wav x.wav --format flac", b""),
                (2, "none of wav, flac", "in.wav - --format mp4", b"")]:
            self.expect(status, text, "enhance", *words.split(), input=data)
        self.assertEqual(self.whole[44:], self.piped(raw, "--raw-channels", "2", "-", "-"))

    @program.needs_rates
    def test_raw_sound_has_the_rate_that_is_told(self):
        program.write_wav("high.wav", self.sound, 48000)
        high = self.piped(b"", "high.wav", "-", "--format", "wav")[44:]
        told = ["--raw-rate", "48000", "-"]
        self.assertEqual(high, self.piped(b"", "high.wav", *told))
        self.assertEqual(high, self.piped(self.sound.tobytes(), "--raw-channels", "2", "-", *told))
        self.assertEqual(3 * 2 * len(self.sound), len(self.piped(b"", "in.wav", *told)))

    def test_the_first_piece_tells_the_format(self):
        """Readers that take one look need more than a header, which may come in pieces, too."""
        for name in "wav", "au", "flac", "ogg", "opus":
            with subprocess.Popen([program.TOOL, "enhance", "--quiet", "in.wav", "-", "--format", name],
                                  stdout=subprocess.PIPE) as running:
                first = os.read(running.stdout.fileno(), 65536)
                self.assertLessEqual(4096, len(first), f"bytes of {name} in the first piece")
                running.stdout.read()
        program.write_wav("short.wav", self.sound[:9])
        self.assertEqual(44 + 18, len(self.piped(b"", "short.wav", "-", "--format", "wav")))
        self.assertEqual(18, len(self.piped(self.piped(b"", "short.wav", "-", "--format", "flac"),
                                            "-", "-")))

    def test_names_and_formats_agree(self):
        self.enhance("in.wav", "plain", "--format", "wav")
        self.assertEqual(self.whole, pathlib.Path("plain").read_bytes())
        os.mkfifo("pipe.wav")
        with subprocess.Popen(["cp", "pipe.wav", "copy.wav"]):
            self.enhance("in.wav", "pipe.wav")
        self.assertEqual(self.whole, pathlib.Path("copy.wav").read_bytes(), "a named pipe has WAV")

    def test_what_cannot_be_kept_meanwhile_is_told(self):
        """FLAC is read, and AIFF written, by way of a temporary file."""
        self.enhance("in.wav", "a.flac")
        flac = pathlib.Path("a.flac").read_bytes()
        nowhere = {**os.environ, "TMPDIR": str(self.work / "in.wav")}
        limit = program.limited(RLIMIT_FSIZE, 4096)
        for words, data in (["-", "-"], flac), (["in.wav", "-", "--format", "aiff"], b""):
            for settings, told in ({"env": nowhere}, "name another directory in TMPDIR"), (
                    limit, "free some space there"):
                self.expect(1, told, "enhance", *words, input=data, **settings)

    def test_a_length_that_is_not_known_stays_open(self):
        raw = self.sound.tobytes()
        for data, words in (raw, ["--raw-channels", "2"]), (wav_header(OPEN_SIZE) + raw, []), (
                au_header(OPEN_SIZE) + self.sound.astype(">i2").tobytes(), []):
            made = self.piped(data, *words, "-", "-", "--format", "wav")
            self.assertEqual(struct.pack("<I", OPEN_SIZE), made[40:44])
            self.assertEqual(self.whole[44:], made[44:])
            self.assertEqual(len(raw) // 2, len(self.piped(made, "-", "-")))

    def test_sound_passes_as_it_comes(self):
        """Nothing more follows, and all but the delay must come out."""
        for frames in 15 * 2048, 15 * 2048 + 320:  # just fills buffers of libsndfile, and not
            raw = self.sound[:frames].tobytes()
            swapped = self.sound[:frames].astype(">i2").tobytes()
            for start, words in [(raw, ["--raw-channels", "2"]), (wav_header(OPEN_SIZE) + raw, []),
                                 (wav_header(2 * len(raw)) + raw, ["--format", "wav"]),
                                 (au_header(OPEN_SIZE) + swapped, ["--format", "au"])]:
                with subprocess.Popen([program.TOOL, "enhance", "--quiet", "-", "-", *words],
                                      stdin=subprocess.PIPE, stdout=subprocess.PIPE) as running:
                    running.stdin.write(start)
                    running.stdin.flush()
                    got = b""
                    while len(got) < 2 * (frames - DELAY):
                        ready = select.select([running.stdout], [], [], 10)[0]
                        if not ready:
                            running.kill()
                        self.assertTrue(ready, f"{words}: {len(got)} bytes of {2 * frames} came")
                        got += os.read(running.stdout.fileno(), 65536)
                    running.kill()

    def test_an_interrupted_recording_is_kept(self):
        """All that had come through the pipe is in the file, whose header tells its length."""
        frames = 4 * 4096
        start = wav_header(OPEN_SIZE) + self.sound[:frames].tobytes()
        redirected = self.enterContext(open("redirected.wav", "wb"))
        for name, out in ("named.wav", subprocess.DEVNULL), ("-", redirected):
            with subprocess.Popen([program.TOOL, "enhance", "--quiet", "--format", "wav", "-", name],
                                  stdin=subprocess.PIPE, stdout=out,
                                  stderr=subprocess.PIPE) as running:
                running.stdin.write(start)
                running.stdin.flush()
                waiting = bytearray(4)
                while fcntl.ioctl(running.stdin, termios.FIONREAD, waiting) or any(waiting):
                    self.assertIsNone(running.poll(), "it waits for more")
                running.send_signal(signal.SIGINT)
                said = running.stderr.read().decode()
                self.assertEqual(-signal.SIGINT, running.wait())
            self.assertIn("interrupted after 1.02 s", said)
            made = program.read_wav("named.wav" if name != "-" else "redirected.wav")
            self.assertEqual(frames, len(made))
            sure = np.frombuffer(self.whole[44:], "<i2")[:frames - DELAY]
            np.testing.assert_array_equal(sure, made[:len(sure)])


program.main()
