"""Many files: what is taken from folders, which results are made anew, and who gets a name."""
import os
import pathlib
import re
import resource
import signal
import subprocess
import time

import program
from program import ProgramCase

RECORD = "se_bf-results.txt"


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
    def test_a_tree_is_kept(self):
        """All that is sound is taken, whatever its name; the rest is passed over with the reason."""
        self.record("in/a/1.wav", "in/b/c/1.wav", "in/b/1.flac.wav", "in/mp.wav")
        subprocess.run(["sox", "in/mp.wav", "in/b/n.mp3"], check=True)
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
        said = self.expect(0, "", "enhance", "--quiet", "--out-dir", "in/o", "in/a").stderr
        said = self.expect(0, "1 .log, 1 .txt (no sound", "enhance", "--out-dir", "o",
                           "in").stderr.decode()
        self.assertEqual(sorted(results), tree("o"))
        for part in "in/o, in/old (results", "in/b/loop (links", "3 hidden", "1 special":
            self.assertIn(part, said)
        self.assertEqual(5, said.count("\n"), f"a line for each reason: {said!r}")
        self.expect(1, "same folder", "enhance", "--out-dir", "in", "in")
        self.expect(0, "", "enhance", "--quiet", "--out-dir", "p", "in/b/.hidden.wav", "in/old")
        self.assertEqual([".hidden.wav", "made.wav", RECORD], tree("p"), "named as IN")

    def test_one_name_has_one_maker(self):
        self.record("in/n.wav")
        subprocess.run(["sox", "in/n.wav", "in/n.mp3"], check=True)
        self.expect(1, "in/n.mp3 and in/n.wav would both become o/n.wav", "enhance", "--out-dir",
                    "o", "in")
        self.assertFalse(os.path.exists("o"))

    def test_no_name_steers_the_terminal(self):
        name = os.fsdecode(b"in/a\x1b[31m\t\xc2\x85b\\\n\xc3\xa9\x9b.wav")
        shown = "in/a?[31m???b\\?\u00e9?.wav"
        self.record("in/x.wav")
        os.rename("in/x.wav", name)
        for state in "enhanced", "skipped":
            self.assertEqual({shown: state}, self.batch(0, "", "in")[0])
        self.assertRegex(pathlib.Path("o", RECORD).read_text(),
                         r"\na\\x1b\[31m\\x09\\xc2\\x85b\\x5c\\x0a\u00e9\\x9b.wav\t")
        os.truncate(name, 50)
        self.batch(0, f"se_bf: {shown}: warning: {shown} is cut off", "in")


class Results(BatchCase):
    def test_what_is_done_is_what_the_record_says(self):
        self.record("a/1.wav", "b/1.wav", "a/2.wav")
        self.assertEqual({"a/1.wav": "enhanced", "a/2.wav": "enhanced"}, self.batch(0, "", "a")[0])
        first = self.result("1.wav")
        self.batch(1, f"o/1.wav was made from {self.work}/a/1.wav; the result of b/1.wav", "b")
        self.assertEqual(first, self.result("1.wav"))
        os.utime("a/1.wav", ns=(0, os.stat("a/1.wav").st_mtime_ns + 1))
        for words, states in (["a"], "enhanced skipped"), (["./a/../a"], "skipped skipped"), \
                (["--hop", "160", "a"], "enhanced enhanced"), (["a"], "enhanced enhanced"), \
                (["--overwrite", "a"], "enhanced enhanced"):
            self.assertEqual(states.split(), list(self.batch(0, "", *words)[0].values()), words)
        self.assertEqual(first, self.result("1.wav"))
        record = pathlib.Path("o", RECORD)
        record.write_text(record.read_text().replace("\t1.", "\t0."))
        self.assertEqual("2 enhanced, 0 skipped, 0 failed", self.batch(0, "", "a")[1], "version")

    def test_what_others_made_stays(self):
        """A file of unknown origin and a changed result are refused, and the others go on."""
        self.record("a/1.wav", "a/2.wav", "a/3.wav", "o/1.wav")
        self.assertEqual("2 enhanced, 0 skipped, 1 failed", self.batch(
            1, f"o/1.wav is there already, and o/{RECORD} does not say", "a")[1])
        os.utime("o/2.wav", ns=(0, 0))
        self.batch(1, f"o/2.wav was made from {self.work}/a/2.wav and has been changed", "a")
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
            rows = self.batch(0, "a/1.wav: warning: ", "a")[0]
            self.assertEqual({"a/1.wav": state + ", cut off"}, rows)
            self.assertIn("cut off", self.run_tool("enhance", "--quiet", "--out-dir", "o",
                                                   "a").stderr.decode())

    def test_the_record_outlives_a_killed_writer(self):
        self.record("a/1.wav", "a/2.wav")
        self.batch(0, "", "a/1.wav")
        with open(f"o/{RECORD}", "a", encoding="ascii") as record:
            record.write(f"2.wav\t1 2\t{self.work}/a/2")
        self.assertEqual(["skipped", "enhanced"], list(self.batch(0, "", "a")[0].values()))
        lines = pathlib.Path("o", RECORD).read_text().splitlines()
        self.assertEqual(["1.wav", "2.wav"], [line.split("\t")[0] for line in lines[2:]])
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

        def limit(count):
            return lambda: resource.setrlimit(resource.RLIMIT_NOFILE, (count, count))
        self.assertEqual("60 enhanced, 0 skipped, 0 failed",
                         self.batch(0, "", "a", "--jobs", 500, preexec_fn=limit(24))[1])
        if b"__asan_init" not in pathlib.Path(program.TOOL).read_bytes():  # needs descriptors itself
            self.assertEqual("0 enhanced, 0 skipped, 1 failed, 59 not enhanced",
                             self.batch(1, "Too many open files", "--overwrite", "a",
                                        preexec_fn=limit(4))[1])

    def test_an_interrupted_batch_says_so(self):
        self.record("1.wav")
        for name in "2.au", "3.au":  # hours of silence
            pathlib.Path(name).write_bytes(b".snd\0\0\0\x18\xff\xff\xff\xff\0\0\0\3\0\0\x3e\x80"
                                           b"\0\0\0\1")
            os.truncate(name, 1 << 30)
        run = subprocess.Popen([program.TOOL, "enhance", "--jobs", "1", "--out-dir", "o", "1.wav",
                                "2.au", "3.au"], stdout=subprocess.PIPE)
        while not [name for name in tree("o") if name.startswith(".") and name.endswith("au")]:
            time.sleep(0.01)
        run.send_signal(signal.SIGINT)
        table = run.communicate()[0].decode().splitlines()
        self.assertEqual(-signal.SIGINT, run.returncode)
        self.assertEqual(["2.au interrupted", "3.au not enhanced"],
                         [" ".join(row.split()) for row in table[2:4]])
        self.assertEqual("1 enhanced, 0 skipped, 0 failed, 1 interrupted, 1 not enhanced", table[4])
        self.assertEqual(["1.wav", RECORD], tree("o"), "nothing is left of it")


if __name__ == "__main__":
    program.main()
