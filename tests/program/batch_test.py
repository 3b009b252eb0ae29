"""Many files: what is taken from folders, which results are made anew, and which input gets a name."""
import os
import pathlib
import re
import signal
import subprocess
from resource import RLIMIT_NOFILE

import program
from program import RECORD, ProgramCase, limited


def tree(folder):
    """Names of all files below a folder."""
    return sorted(str(p.relative_to(folder)) for p in pathlib.Path(folder).rglob("*")
                  if not p.is_dir())


class BatchCase(ProgramCase):
    def record(self, *names):
        for n, name in enumerate(names):
            pathlib.Path(name).parent.mkdir(parents=True, exist_ok=True)
            program.write_wav(name, program.recording()[100 * n:100 * n + 6000])

    def batch(self, status, text, *words, **settings):
        """Enhances into the folder o; returns what the table says of each file, and its sums."""
        result = self.expect(status, text, "enhance", "--out-dir", "o", *words, **settings)
        rows = [re.split(" {2,}", row)[:2] for row in result.stdout.decode().splitlines()]
        return dict(row for row in rows[1:-1]), rows[-1][0] if rows else ""

    def result(self, name):
        return pathlib.Path("o", name).read_bytes()


class Folders(BatchCase):
    @program.needs_rates
    def test_a_tree_is_kept(self):
        """All that is sound is taken, whatever its name; the rest is passed over with the reason."""
        self.record("in/a/1.wav", "in/b/c/1.wav", "in/b/1.flac.wav", "in/mp.wav")
        pathlib.Path("in/b/n.mp3").write_bytes(20 * program.mpeg_frame(1, 32))
        subprocess.run(["sox", "in/mp.wav", "in/b/s.sph"], check=True)
        os.rename("in/mp.wav", "in/unknown.bin")
        pathlib.Path("in/text.txt").write_text("no sound")
        pathlib.Path("in/utf16.log").write_bytes(b"\xff\xfeh\0i\0")
        for name in "in/.se_bf-AbCdEf.wav", "in/b/.hidden.wav", "in/.d/x.wav":
            self.record(name)
        os.symlink("..", "in/b/loop")
        os.symlink("../a/1.wav", "in/b/link.wav")
        os.symlink("nowhere", "in/broken.wav")
        self.record("in/old/made.wav")
        pathlib.Path("in/old", RECORD).write_text("# se_bf results\n")
        results = ["a/1.wav", "b/1.flac.wav", "b/c/1.wav", "b/link.wav", "b/n.wav", "b/s.wav",
                   RECORD, "unknown.wav"]
        self.enhance("--out-dir", "in/o", "in/a")
        said = self.expect(0, "1 .log, 1 .txt (no sound", "enhance", "--out-dir", "o",
                           "in").stderr.decode()
        self.assertEqual(sorted(results), tree("o"))
        for part in "in/o, in/old (results", "in/b/loop (links", "3 hidden", "1 special":
            self.assertIn(part, said)
        self.assertEqual(5, said.count("\n"), f"a line for each reason: {said!r}")
        self.expect(1, "same folder", "enhance", "--out-dir", "in", "in")
        self.enhance("--out-dir", "p", "in/b/.hidden.wav", "in/old")
        self.assertEqual([".hidden.wav", "made.wav", RECORD], tree("p"), "named as IN")

    def test_one_name_has_one_maker(self):
        self.record("in/n.wav")
        pathlib.Path("in/n.mp3").write_bytes(20 * program.mpeg_frame(1, 32))
        self.expect(1, "in/n.mp3 and in/n.wav would both become o/n.wav", "enhance", "--out-dir",
                    "o", "in")
        self.record("in/x/y.wav/1.wav", "y.wav")
        self.expect(1, "o/y.wav would be the result of y.wav and the folder", "enhance", "--out-dir",
                    "o", "in/x", "y.wav")
        self.assertFalse(os.path.exists("o"))
        self.assertEqual("2 enhanced, 0 skipped, 0 failed",
                         self.batch(0, "", "in/x", "./in/x", "in/n.wav", "in/x/../n.wav")[1])
        self.record(f"a/{RECORD}/1.wav", "a/1.wav")
        self.assertEqual("1 enhanced, 0 skipped, 1 failed",
                         self.batch(1, f"the result of a/{RECORD}/1.wav cannot be", "a")[1])

    def test_what_cannot_be_looked_at_is_an_error(self):
        self.record("in/a/1.wav", "in/a/2.wav", "in/b/1.wav")
        os.chmod("in/a", 0o444)
        self.addCleanup(os.chmod, "in/a", 0o755)
        for places, results in (["in"], ["b/1.wav", RECORD]), (["in/a", "in/b"], [
                "1.wav", "b/1.wav", RECORD]), (["in/a"], ["1.wav", "b/1.wav", RECORD]):
            result = subprocess.run([*program.without_rights(), program.TOOL, "enhance", "--out-dir",
                                     "o", *places], capture_output=True, check=False)
            self.assertEqual((1, b"se_bf: cannot read in/a/1.wav: Permission denied; nor 1 more in "
                              b"this folder\n"), (result.returncode, result.stderr), places)
            self.assertEqual(results, tree("o"))

    def test_no_name_steers_the_terminal(self):
        name = os.fsdecode(b"in/a\x1b[31m\t\xc2\x85b\\\n\xc3\xa9\x9b.\xe2\x80\xae.wav")
        shown = "in/a?[31m???b\\?\u00e9?.???.wav"
        self.record("in/x.wav")
        os.rename("in/x.wav", name)
        for state in "enhanced", "skipped":
            self.assertEqual({shown: state}, self.batch(0, "", "in")[0])
        self.assertRegex(pathlib.Path("o", RECORD).read_text(),
                         r"\na\\x1b\[31m\\x09\\xc2\\x85b\\x5c\\x0a\u00e9\\x9b.\\xe2\\x80\\xae.wav\t")
        os.truncate(name, 50)
        self.batch(0, f"se_bf: warning: {shown} is cut off", "in", "--overwrite")


class Results(BatchCase):
    def test_what_is_done_is_what_the_record_says(self):
        self.record("a/1.wav", "b/1.wav", "a/2.wav")
        self.assertEqual({"a/1.wav": "enhanced", "a/2.wav": "enhanced"}, self.batch(0, "", "a")[0])
        first = self.result("1.wav")
        self.batch(1, f"o/1.wav was made from {self.work}/a/1.wav; the result of b/1.wav", "b")
        self.assertEqual(first, self.result("1.wav"))
        os.utime("a/1.wav", ns=(0, os.stat("a/1.wav").st_mtime_ns + 1))
        options = "(made with other options before)"
        for words, states, told in [
                (["a"], "made anew,skipped", "making anew: o/1.wav (the input has changed)"),
                (["./a/../a"], "skipped,skipped", ""),
                (["--hop", "160", "a"], "made anew,made anew", "anew: o/1.wav, o/2.wav " + options),
                (["a"], "made anew,made anew", options),
                (["--overwrite", "a"], "enhanced,enhanced", "")]:
            self.assertEqual(states.split(","), list(self.batch(0, told, *words)[0].values()), words)
        self.assertEqual(first, self.result("1.wav"))
        record = pathlib.Path("o", RECORD)
        record.write_text(re.sub(r"\t\d+\.\d+\.\d+\t", "\t1.3.5\t", record.read_text()))
        self.assertEqual("0 enhanced, 2 made anew, 0 skipped, 0 failed",
                         self.batch(0, "(made by another version before)", "a")[1])
        os.truncate("a/1.wav", 20044)
        self.batch(1, "when it was longer (24044 bytes, now 20044); --overwrite", "a")
        self.assertEqual(first, self.result("1.wav"))
        self.record("a/sub/1.wav")
        self.batch(1, "longer", "a")
        self.record("o/.se_bf-AbCdEf.wav", "o/sub/.se_bf-AbCdEf.wav")
        self.assertEqual("0 enhanced, 2 skipped, 1 failed", self.batch(1, "longer", "a")[1])
        self.assertEqual(["1.wav", "2.wav", RECORD, "sub/1.wav"], tree("o"), "no leftovers stay")

    def test_every_option_of_the_sound_counts(self):
        self.record("1.wav")
        self.batch(0, "", "1.wav")
        words, scene = [], []
        for word in "--gain=-6", "--mode=mvdr", "--channels=1,0", "--hop=160", "--plain", \
                "--no-full-band", "0.1 90", "0.1 80", "0.2 80":
            if word[0] == "-":
                words.append(word)
            else:
                scene = [f"{name}={n}" for name, n in zip(("--mic-distance", "--doa"), word.split())]
            for told, state in ("made with other options before", "made anew"), ("", "skipped"):
                self.assertEqual({"1.wav": state}, self.batch(0, told, *words, *scene, "1.wav")[0])
        self.batch(0, "", "--overwrite", "1.wav")
        for words, told, state in (["--gain=-0", "--mode=refined"], "", "skipped"), (
                ["--max-attenuation=6"], "other options", "made anew"), (
                ["--mic-distance=0.1"], "other options", "made anew"):
            self.assertEqual({"1.wav": state}, self.batch(0, told, *words, "1.wav")[0], words)

    def test_what_comes_through_a_pipe_is_never_the_same(self):
        self.record("a.wav", "b.wav", "old/gone.wav")
        os.mkfifo("p.wav")
        with open("old/gone.wav", "rb") as gone:
            os.unlink("old/gone.wav")
            nameless = f"/dev/fd/{gone.fileno()}"
            for name in "p.wav", nameless:
                for source, words, status, text in ("a", [], 0, ""), (
                        "b", [], 1, f"result of what comes now through {name} would"), (
                        "b", ["--overwrite"], 0, ""):
                    sender = subprocess.Popen(["sh", "-c", f"exec cat {source}.wav >p.wav"])
                    self.addCleanup(sender.wait)
                    self.addCleanup(sender.kill)
                    os.lseek(gone.fileno(), 0, os.SEEK_SET)
                    self.batch(status, text, *words, name, pass_fds=[gone.fileno()])
                    sender.kill()

    def test_what_others_made_stays(self):
        """A file of unknown origin and a changed result are refused, and the others go on."""
        self.record("a/1.wav", "a/2.wav", "a/3.wav", "o/1.wav")
        self.assertEqual("2 enhanced, 0 skipped, 1 failed", self.batch(
            1, f"o/1.wav is there already, and o/{RECORD} does not say", "a")[1])
        os.utime("o/2.wav", ns=(0, 0))
        self.batch(1, f"o/2.wav has been changed since it was made from {self.work}/a/2.wav; --ov", "a")
        self.assertEqual("3 enhanced, 0 skipped, 0 failed", self.batch(0, "", "a", "--overwrite")[1])

    def test_no_link_is_written_through(self):
        self.record("1.wav", "2.wav", "3.wav", "b/kept.wav")
        kept = pathlib.Path("b/kept.wav").read_bytes()
        os.mkdir("o")
        os.symlink("../b/kept.wav", "o/1.wav")
        os.symlink("nowhere.wav", "o/2.wav")
        os.link("b/kept.wav", "o/3.wav")
        os.symlink("../b", "o/sub")
        self.record("in/sub/kept.wav")
        self.batch(1, "o/sub, where the result of in/sub/kept.wav would go, is a link",
                   "--overwrite", "in")
        for word, text in ("1.wav", "o/1.wav, the result of 1.wav, is a link to ../b/kept.wav"), \
                ("2.wav", "is a link to nowhere.wav"), ("3.wav", "would replace b/kept.wav"):
            rows = self.batch(1, text, "--overwrite", word, "b/kept.wav")[0]
            self.assertEqual({word: "failed", "b/kept.wav": "enhanced"}, rows)
        self.assertEqual(kept, pathlib.Path("b/kept.wav").read_bytes())
        self.assertEqual(["1.wav", "2.wav", "3.wav", "kept.wav", RECORD, "sub"],
                         sorted(os.listdir("o")))

    def test_a_cut_off_input_is_told_again(self):
        self.record("a/1.wav")
        os.truncate("a/1.wav", 10044)
        for state in "enhanced", "skipped":
            rows = self.batch(0, "se_bf: warning: a/1.wav is cut off", "a")[0]
            self.assertEqual({"a/1.wav": state + ", cut off"}, rows)
            self.assertIn("cut off", self.run_tool("enhance", "--quiet", "--out-dir", "o",
                                                   "a").stderr.decode())

    def test_the_record_outlives_a_killed_writer(self):
        self.record("a/1.wav", "a/2.wav")
        self.batch(0, "", "a/1.wav")
        with open(f"o/{RECORD}", "a", encoding="ascii") as record:
            record.write(70000 * "9" + f"2.wav\t1 2\t{self.work}/a/2")
        for states in "skipped enhanced", "skipped skipped":
            self.assertEqual(states.split(), list(self.batch(0, "", "a")[0].values()))
        lines = pathlib.Path("o", RECORD).read_text().splitlines()
        self.assertEqual("999", lines.pop(3)[:3], "what does not look like a line")
        # A line without its result, whose writer was killed, leaves the one before true. Many such
        # lines are dropped.
        with open(f"o/{RECORD}", "a", encoding="ascii") as record:
            record.writelines(lines[3].replace("\t", "\t9", 1) + "\n" for _ in range(600))
        self.assertEqual(["skipped", "skipped"], list(self.batch(0, "", "a")[0].values()))
        self.assertEqual(lines, pathlib.Path("o", RECORD).read_text().splitlines())


class Processes(BatchCase):
    def test_one_of_many_gets_the_name(self):
        """Runs at the same time: each result is recorded, and one maker wins each name."""
        self.record(*(f"{n}/{m}.wav" for n in range(8) for m in (n, "same")))
        runs = [subprocess.Popen([program.TOOL, "enhance", "--quiet", "--out-dir", "o", str(n)],
                                 stderr=subprocess.PIPE) for n in range(8)]
        ended = [(run.communicate()[1].decode(), run.returncode) for run in runs]
        self.assertEqual([0] + 7 * [1], sorted(status for _, status in ended), ended)
        winner = [status for _, status in ended].index(0)
        for n, (said, status) in enumerate(ended):
            self.assertEqual(status, said.count(f"o/same.wav was made from {self.work}/{winner}/"))
            self.assertEqual(status, said.count(f"result of {n}/same.wav would"))
        self.assertEqual(sorted([f"{n}.wav" for n in range(8)] + ["same.wav", RECORD]), tree("o"))
        self.assertEqual("0 enhanced, 8 skipped, 0 failed",
                         self.batch(0, "", *(f"{n}/{n}.wav" for n in range(8)))[1])

    def test_scarce_descriptors_make_it_wait(self):
        self.record(*(f"a/{n}.wav" for n in range(60)))

        self.assertEqual("60 enhanced, 0 skipped, 0 failed",
                         self.batch(0, "", "a", "--jobs", 500, **limited(RLIMIT_NOFILE, 24))[1])
        if program.is_instrumented():  # needs descriptors itself
            return
        for count in 4, 6, 8:
            said = self.expect(1, "raise the limits (ulimit -n", "enhance", "--overwrite", "--out-dir",
                               "o", "a", **limited(RLIMIT_NOFILE, count))
            self.assertEqual(1, said.stderr.count(b"\n"), f"lines with {count} descriptors")
            self.assertIn(b"\n0 enhanced, 0 skipped, 1 failed, 59 not enhanced\n", said.stdout)

    def start_long_batch(self, *words, jobs="1"):
        """A batch that has begun with 2.au, hours of silence."""
        program.write_long_au("2.au")
        program.write_long_au("3.au")
        run = subprocess.Popen([program.TOOL, "enhance", "--jobs", jobs, "--out-dir", "o", *words,
                                "2.au", "3.au"], stdout=subprocess.PIPE, stderr=subprocess.DEVNULL)
        program.wait_for(lambda: [name for name in tree("o") if re.fullmatch(r"\..*au", name)])
        return run

    def test_no_worker_outlives_its_batch(self):
        run = self.start_long_batch()
        run.kill()
        run.communicate(timeout=program.LIMIT_S)  # the worker has ended, too
        self.assertEqual([], tree("o"), "the worker takes its file away")

    def test_a_killed_worker_is_a_failure(self):
        run = self.start_long_batch(jobs="2")
        children = pathlib.Path(f"/proc/{run.pid}/task/{run.pid}/children")
        program.wait_for(lambda: len(children.read_text().split()) == 2)
        for worker in children.read_text().split():
            os.kill(int(worker), signal.SIGKILL)
        self.assertIn(b"\n0 enhanced, 0 skipped, 2 failed\n", run.communicate()[0])
        self.assertEqual(1, run.returncode)

    def test_an_interrupted_batch_says_so(self):
        self.record("1.wav")
        for number in signal.SIGINT, signal.SIGTERM:
            run = self.start_long_batch("--overwrite", "1.wav")
            run.send_signal(number)
            table = run.communicate()[0].decode().splitlines()
            self.assertEqual(-number, run.returncode)
            self.assertEqual(["2.au interrupted", "3.au not enhanced"],
                             [" ".join(row.split()) for row in table[2:4]])
            self.assertEqual("1 enhanced, 0 skipped, 0 failed, 1 interrupted, 1 not enhanced", table[4])
            self.assertEqual(["1.wav", RECORD], tree("o"), "nothing is left of it")


program.main()
