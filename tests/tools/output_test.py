"""Where the output goes on disk."""
import os
import pathlib
import resource
import struct
import subprocess
import time

import program
from program import ProgramCase


NO_ID = 0xFFFFFFFF
ACCESS_LIST = struct.pack("<I" + "HHI" * 5, 2, 1, 6, NO_ID, 2, 4, 12345, 4, 0, NO_ID, 16, 4, NO_ID,
                          32, 0, NO_ID)  # user 12345 may read, its group and others may not


class Names(ProgramCase):
    def setUp(self):
        super().setUp()
        program.write_wav("in.wav", program.recording())

    def test_a_replaced_file_hands_on_its_rights(self):
        os.umask(0o027)
        self.expect(0, "", "enhance", "--quiet", "in.wav", "out.wav")
        self.assertEqual(0o640, os.stat("out.wav").st_mode & 0o7777, "mode of a new file")
        attributes = {"user.note": b"kept", "system.posix_acl_access": ACCESS_LIST}
        try:
            for name, value in attributes.items():
                os.setxattr("out.wav", name, value)
        except OSError:
            attributes = {}
            os.chmod("out.wav", 0o604)
        if os.geteuid() == 0:
            os.chown("out.wav", 12, 34)
        os.link("out.wav", "other.wav")
        old = os.stat("out.wav")
        self.expect(0, "", "enhance", "--quiet", "in.wav", "out.wav")
        new = os.stat("out.wav")
        self.assertNotEqual(old.st_ino, new.st_ino)
        self.assertEqual([oct(old.st_mode), old.st_uid, old.st_gid],
                         [oct(new.st_mode), new.st_uid, new.st_gid])
        self.assertEqual(attributes, {name: os.getxattr("out.wav", name) for name in attributes})

    def test_links_are_followed_and_stay(self):
        os.mkdir("sub")
        for link, target in [("new.wav", "sub/link.wav"), ("sub/link.wav", "made.wav"),
                             ("loop.wav", "loop.wav"), ("lost.wav", "no/x.wav")]:
            os.symlink(target, link)
        for _ in "made", "replaced":
            self.expect(0, "", "enhance", "--quiet", "in.wav", "new.wav")
            self.assertEqual(["link.wav", "made.wav"], sorted(os.listdir("sub")))
            self.assertEqual(["sub/link.wav", "made.wav"],
                             [os.readlink(link) for link in ("new.wav", "sub/link.wav")])
        self.expect(1, "Too many levels", "enhance", "in.wav", "loop.wav")
        self.expect(1, "there is no directory no/", "enhance", "in.wav", "lost.wav")
        with open("in.wav", "rb") as sound:
            self.expect(1, "are the same file", "enhance", "-", "in.wav", stdin=sound)

    def test_a_directory_that_takes_no_file_is_told(self):
        self.expect(0, "", "enhance", "--quiet", "in.wav", "out.wav")
        os.chmod(".", 0o555)
        self.addCleanup(os.chmod, self.work, 0o755)
        root = ["setpriv", "--bounding-set=-dac_override"] if os.geteuid() == 0 else []
        result = subprocess.run([*root, program.TOOL, "enhance", "in.wav", "out.wav"],
                                capture_output=True, check=False)
        self.assertIn(b"its directory takes no new file", result.stderr)

    def test_no_format_loses_its_end_in_silence(self):
        """A limit of the file's size acts as a disk that is full just before the end."""
        for name in "a.wav", "a.flac", "a.ogg", "a.opus", "a.caf", "a.rf64":
            self.expect(0, "", "enhance", "--quiet", "in.wav", name)
            size = os.stat(name).st_size
            for limit, status, told in (size, 0, ""), (size - 1, 1, "File too large"), (
                    4096, 1, "File too large"):
                before = sorted(os.listdir())
                self.expect(status, told, "enhance", "--quiet", "in.wav", name, preexec_fn=lambda:
                            resource.setrlimit(resource.RLIMIT_FSIZE, (limit, limit)))
                self.assertEqual(before, sorted(os.listdir()), "no file of it is left")
                self.assertEqual(size, os.stat(name).st_size, "the file there was stays")

    def test_what_leads_to_standard_output_is_standard_output(self):
        os.symlink("/dev/stdout", "link.wav")
        whole = self.expect(0, "", "enhance", "--quiet", "in.wav", "-").stdout
        self.assertEqual(64000, len(whole))
        for name in "/dev/stdout", "/dev/fd/1", "/proc/thread-self/fd/1", "link.wav":
            words = ["enhance", "--quiet", "in.wav", name]
            self.assertEqual(whole, self.expect(0, "", *words).stdout, f"{name} is a pipe")
            with open("file", "wb") as file:
                self.run_tool(*words, capture_output=False, stdout=file)
            self.assertEqual(whole, pathlib.Path("file").read_bytes(), f"{name} is a file")
            self.expect(1, "Bad file descriptor", *words, preexec_fn=lambda: os.close(1))
        self.expect(1, "carries the messages", "enhance", "in.wav", "/dev/stderr")
        pipe = 'exec "$0" enhance --quiet in.wav /dev/fd/3 3>&1 >/dev/null'
        self.assertEqual(whole, subprocess.run(["sh", "-c", pipe, program.TOOL],
                                               stdout=subprocess.PIPE, check=True).stdout)
        grow = 'cp in.wav grown; exec "$0" enhance --raw-channels 2 - - <grown >>grown'
        told = subprocess.run(["sh", "-c", grow, program.TOOL], capture_output=True, check=False,
                              timeout=program.LIMIT_S)
        self.assertIn(b"the same file", told.stderr)


class Leftovers(ProgramCase):
    def test_only_those_of_dead_processes_go(self):
        """A killed run leaves a file, which the next run removes; a running one's stays."""
        program.write_wav("in.wav", program.recording())
        keep = {"in.wav", "out.wav", ".se_bf-my.old.wav", ".se_bf-settings"}
        for name in keep - {"in.wav", "out.wav"}:
            pathlib.Path(name).write_text("of the user")
        running = subprocess.Popen([program.TOOL, "enhance", "--raw-channels", "1", "-", "killed.wav"],
                                   stdin=subprocess.PIPE, stderr=subprocess.PIPE)
        self.addCleanup(running.communicate)
        while not [name for name in os.listdir() if name not in keep]:
            time.sleep(0.01)
        before = set(os.listdir())
        self.expect(0, "", "enhance", "--quiet", "in.wav", "out.wav")
        self.assertEqual(before | {"out.wav"}, set(os.listdir()), "while its process runs")
        running.kill()
        running.wait()
        self.expect(0, "", "enhance", "--quiet", "in.wav", "out.wav")
        self.assertEqual(keep, set(os.listdir()), "after its process was killed")


if __name__ == "__main__":
    program.main()
