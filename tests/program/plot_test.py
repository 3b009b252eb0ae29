"""`se_bf plot`: right and complete pictures of sound of any length, and one line on each failure."""
import os
import pathlib
import pty
import signal
import subprocess
import sys
import time
import wave
from resource import RLIMIT_FSIZE

import matplotlib.image
import numpy as np

import program

sys.path.insert(0, str(program.TOP / "program/plot"))
import audio_io  # noqa: E402
import spectrograms  # noqa: E402

LONG_S = 600
CLICK_S, BURST_S, BURST_HZ = 150.0, 450.0, 6000.0
LIMIT_KB = 300000


def write_long(path, channels=1):
    """Silence with a click of one sample and a burst of 0.1 s."""
    sound = np.zeros(LONG_S * 16000, "<i2")
    sound[int(CLICK_S * 16000)] = 30000
    burst = 20000 * np.sin(2 * np.pi * BURST_HZ / 16000 * np.arange(1600))
    sound[int(BURST_S * 16000):][:1600] = burst
    with wave.open(path, "wb") as file:
        file.setparams((channels, 2, 16000, 0, "NONE", None))
        file.writeframes(np.repeat(sound, channels).tobytes())


def resident_kb(pid):
    """Memory of a process and its descendants."""
    try:
        status = pathlib.Path(f"/proc/{pid}/status").read_text()
        children = pathlib.Path(f"/proc/{pid}/task/{pid}/children").read_text().split()
    except OSError:
        return 0
    lines = [line.split() for line in status.splitlines() if line.startswith("VmRSS")]
    return sum(int(line[1]) for line in lines) + sum(map(resident_kb, children))


class Plot(program.ProgramCase):
    def setUp(self):
        super().setUp()
        os.mkdir("temporary")
        self.env = {**os.environ, "TMPDIR": str(self.work / "temporary")}

    def fails(self, text, *words, **settings):
        """Expects one line and nothing left behind."""
        result = self.expect(1, text, "plot", *words, **{"env": self.env, **settings})
        self.assertEqual(1, result.stderr.count(b"\n"), result.stderr.decode())
        self.assertEqual([], os.listdir("temporary"))

    def upper_axes(self, path):
        """Brightness of the upper spectrogram, which is black but for its marks: rows from the lowest
        frequency up."""
        picture = matplotlib.image.imread(path)[:, :, :3].sum(axis=2)
        black = picture[:picture.shape[0] // 2] < 0.5
        rows = np.flatnonzero(np.mean(black, axis=1) > 0.7)
        columns = np.flatnonzero(np.mean(black[:, :890], axis=0) > 0.7)  # left of the colour bar
        return picture[rows[0]:rows[-1] + 1, columns[0]:columns[-1] + 1][::-1]

    def test_a_long_recording_is_drawn_rightly_in_little_memory(self):
        write_long("long.wav", channels=2)
        peak = 0
        with subprocess.Popen([program.TOOL, "plot", "--channels", "1", "long.wav"],
                              stdout=subprocess.PIPE, env=self.env) as running:
            while running.poll() is None:
                peak = max(peak, resident_kb(running.pid))
                time.sleep(0.02)
            self.assertEqual((0, b"long.png\n"), (running.returncode, running.stdout.read()))
        self.assertLess(peak, LIMIT_KB, "kB of memory at most, of all processes")
        axes = self.upper_axes("long.png")
        row, column = np.unravel_index(np.argmax(axes), axes.shape)
        self.assertAlmostEqual(BURST_HZ / 8000, row / len(axes), delta=0.015)
        self.assertAlmostEqual(BURST_S / LONG_S, column / axes.shape[1], delta=0.005)
        click = np.argmax(np.mean(axes[:, :axes.shape[1] // 2], axis=0))
        self.assertAlmostEqual(CLICK_S / LONG_S, click / axes.shape[1], delta=0.005)
        self.assertGreater(np.min(axes[5:-5, click]), 0.5, "brightness of the click")

    def test_levels_and_sample_widths(self):
        write_long("long.wav")
        levels = spectrograms.loudest_levels(audio_io.open_sound("long.wav"), 800)[0]
        self.assertEqual((800, 257), levels.shape)
        self.assertAlmostEqual(20 * np.log10(20000 / 32768), levels.max(), delta=0.1)
        for width in 8, 16, 24, 32:
            with wave.open("width.wav", "wb") as file:
                file.setparams((2, width // 8, 8000, 0, "NONE", None))
                half = 64 << (width - 8) if width > 8 else 192
                file.writeframes(half.to_bytes(width // 8, "little") * 2)
            self.assertEqual([0.5], audio_io.read_channel_0("width.wav")[1].tolist())

    @program.needs_rates
    def test_short_and_other_recordings(self):
        for name, count, rate_hz in [("one", 1, 16000), ("48", 9600, 48000)]:
            program.write_wav(f"{name}.wav", np.full(count, 99, "<i2"), rate_hz)
            self.expect(0, "", "plot", f"{name}.wav", "a$b^{.png", env=self.env)
            self.assertEqual(b"\x89PNG", pathlib.Path("a$b^{.png").read_bytes()[:4])
        program.write_wav("none.wav", np.zeros(0, "<i2"))
        self.fails("holds no sound", "none.wav")

    def test_failures_are_one_line(self):
        pathlib.Path("text.wav").write_text("no sound at all")
        self.fails("cannot write no/x.png: No such file", "in.wav", "no/x.png")
        self.fails("cannot read text.wav", "text.wav")
        os.mkfifo("pipe.wav")
        self.fails("a pipe cannot be drawn", "pipe.wav")
        os.symlink("/dev/full", "full.png")
        self.fails("cannot write full.png: No space left", "in.wav", "full.png")
        os.link("in.wav", "in.png")
        self.fails("are the same file", "in.wav", "in.png")
        os.remove("in.png")
        pathlib.Path("old.png").write_text("as it was")
        script = [str(program.TOP / "program/plot/spectrograms.py"), "in.wav", "--output=old.png"]
        files = sorted(os.listdir())
        result = subprocess.run([sys.executable, *script], capture_output=True, check=False,
                                restore_signals=False, **program.limited(RLIMIT_FSIZE, 4096))
        self.assertIn(b"cannot write old.png: File too large", result.stderr)
        self.assertEqual(("as it was", files),
                         (pathlib.Path("old.png").read_text(), sorted(os.listdir())))
        self.fails("name another directory in TMPDIR", "in.wav",
                   env={**self.env, "TMPDIR": str(self.work / "in.wav")})
        # A limit stands for a disk that is full: sixty thousand bytes, and two files of 64000.
        self.fails("free some space there, or name another directory in TMPDIR", "in.wav",
                   restore_signals=False, **program.limited(RLIMIT_FSIZE, 60000))
        for missing in "numpy", "matplotlib":
            os.makedirs(f"lacking/{missing}")
            pathlib.Path(f"lacking/{missing}/__init__.py").write_text("import not_installed")
            self.fails("install the packages python3-numpy python3-matplotlib", "in.wav",
                       env={**self.env, "PYTHONPATH": str(self.work / "lacking")})
        scripts = self.work / "scripts"
        scripts.mkdir()
        for script, text in [("kill -9 $$", "was killed by signal 9 (Killed)"),
                             ("printf 'progress 0.5\\nreason\\n'; exit 1", "not drawn: reason"),
                             ("exit 1", "ended without a word")]:
            (scripts / "python.sh").write_text("#!/bin/sh\n" + script)
            (scripts / "python.sh").chmod(0o755)
            self.fails(text, "in.wav", env={**self.env, "SE_BF_PLOT_DIR": str(scripts)})

    @program.needs_rates
    def test_both_sounds_have_the_rate_of_the_file(self):
        program.write_wav("48.wav", np.full(9601, 99, "<i2"), 48000)
        pathlib.Path("python.sh").write_text(r"""#!/bin/sh
for word; do case $word in
  --raw-rate*) told=$word;;
  /dev/fd/*) told="$told $(stat -Lc %s "$word") $(tail -c 4000 "$word" | od -An -td2 -N2)";;
esac; done
echo $told; exit 1""")
        os.chmod("python.sh", 0o755)
        self.fails("not drawn: --raw-rate=48000 19202 99 19202 99", "48.wav", "--mode", "mono",
                   env={**self.env, "SE_BF_PLOT_DIR": str(self.work)})

    def test_progress_and_signals(self):
        """On a terminal each step shows; a signal ends the program, and nothing is left."""
        write_long("long.wav")
        for number, step in [(signal.SIGINT, b"reading"), (signal.SIGTERM, b"enhancing"),
                             (signal.SIGTERM, b"drawing"), (signal.SIGKILL, b"drawing")]:
            ours, theirs = pty.openpty()
            with subprocess.Popen([program.TOOL, "plot", "long.wav"], stderr=theirs,
                                  stdout=subprocess.PIPE, env=self.env) as running:
                os.close(theirs)
                text = b""
                while step + b" [" not in text:
                    text += os.read(ours, 4096)
                running.send_signal(number)
                self.assertEqual(b"", running.stdout.read(), f"no picture after {text!r}")
            os.close(ours)
            self.assertEqual(-number, running.returncode, f"signal {number} while {step.decode()}")
            self.assertEqual([], os.listdir("temporary"))
            self.assertFalse(os.path.exists("long.png"))


program.main()
