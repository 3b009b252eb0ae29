"""Where the output goes on disk, also where the disk is full, fails or knows no locks."""
import errno
import fcntl
import os
import pathlib
import struct
import subprocess
import unittest
from resource import RLIMIT_FSIZE

import program
from program import RECORD, ProgramCase

NO_ID = 0xFFFFFFFF
ACCESS_LIST = struct.pack("<I" + "HHI" * 5, 2, 1, 6, NO_ID, 2, 4, 12345, 4, 0, NO_ID, 16, 4, NO_ID,
                          32, 0, NO_ID)  # user 12345 may read, its group and others may not
# Fails as the environment says: LOCK is an errno, UNSAFE the end of a path that cannot be stored.
SYSTEM = r"""
#define _GNU_SOURCE
#include <errno.h>
#include <limits.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/syscall.h>
#include <unistd.h>
int flock(int fd, int operation) {
  if (getenv("LOCK") == NULL) return (int)syscall(SYS_flock, fd, operation);
  errno = atoi(getenv("LOCK"));
  return -1;
}
int fsync(int fd) {
  char link[64], path[PATH_MAX] = "", *end = getenv("UNSAFE");
  snprintf(link, sizeof link, "/proc/self/fd/%d", fd);
  if (readlink(link, path, sizeof path - 1) < 0) return -1;
  if (end == NULL || strlen(path) < strlen(end) || strcmp(path + strlen(path) - strlen(end), end))
    return (int)syscall(SYS_fsync, fd);
  errno = EIO;
  return -1;
}
"""


class Names(ProgramCase):
    def test_a_replaced_file_hands_on_its_rights(self):
        os.umask(0o027)
        self.enhance("in.wav", "out.wav")
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
        self.enhance("in.wav", "out.wav")
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
            self.enhance("in.wav", "new.wav")
            self.assertEqual(["link.wav", "made.wav"], sorted(os.listdir("sub")))
            self.assertEqual(["sub/link.wav", "made.wav"],
                             [os.readlink(link) for link in ("new.wav", "sub/link.wav")])
        self.expect(1, "Too many levels", "enhance", "in.wav", "loop.wav")
        self.expect(1, "there is no directory no/", "enhance", "in.wav", "lost.wav")
        with open("in.wav", "rb") as sound:
            self.expect(1, "are the same file", "enhance", "-", "in.wav", stdin=sound)

    def test_a_directory_that_takes_no_file_is_told(self):
        self.enhance("in.wav", "out.wav")
        os.chmod(".", 0o555)
        self.addCleanup(os.chmod, self.work, 0o755)
        result = subprocess.run([*program.without_rights(), program.TOOL, "enhance", "in.wav",
                                 "out.wav"], capture_output=True, check=False)
        self.assertIn(b"its directory takes no new file", result.stderr)

    def test_no_format_loses_its_end_in_silence(self):
        """A limit of the file's size acts as a disk that is full just before the end."""
        for name in "a.wav", "a.flac", "a.ogg", "a.opus", "a.caf", "a.rf64":
            self.enhance("in.wav", name)
            size = os.stat(name).st_size
            before = sorted(os.listdir())
            for limit, status, told in (size, 0, ""), (size - 1, 1, "File too large"), (
                    4096, 1, "File too large"):
                self.enhance("in.wav", name, status=status, told=told,
                             **program.limited(RLIMIT_FSIZE, limit))
                self.assertEqual(before, sorted(os.listdir()), "no file of it is left")
                self.assertEqual(size, os.stat(name).st_size, "the file there was stays")

    def test_what_leads_to_standard_output_is_standard_output(self):
        os.symlink("/dev/stdout", "link.wav")
        whole = self.enhance("in.wav", "-")
        self.assertEqual(64000, len(whole))
        for name in "/dev/stdout", "/dev/fd/1", "/proc/thread-self/fd/1", "link.wav":
            self.assertEqual(whole, self.enhance("in.wav", name), f"{name} is a pipe")
            with open("file", "wb") as file:
                self.enhance("in.wav", name, capture_output=False, stdout=file,
                             stderr=subprocess.PIPE)
            self.assertEqual(whole, pathlib.Path("file").read_bytes(), f"{name} is a file")
            self.enhance("in.wav", name, status=1, told="Bad file descriptor",
                         preexec_fn=lambda: os.close(1))
        self.expect(1, "carries the messages", "enhance", "in.wav", "/dev/stderr")
        pipe = 'exec "$0" enhance --quiet in.wav /dev/fd/3 3>&1 >/dev/null'
        self.assertEqual(whole, subprocess.run(["sh", "-c", pipe, program.TOOL],
                                               stdout=subprocess.PIPE, check=True).stdout)
        grow = 'cp in.wav grown; exec "$0" enhance --raw-channels 2 - - <grown >>grown'
        told = subprocess.run(["sh", "-c", grow, program.TOOL], capture_output=True, check=False,
                              timeout=program.LIMIT_S)
        self.assertIn(b"the same file", told.stderr)


def is_locked(name):
    """Whether another process holds the file's lock. Before it does, the file counts as a leftover."""
    try:
        with open(name, "rb") as file:
            fcntl.flock(file, fcntl.LOCK_EX | fcntl.LOCK_NB)
    except BlockingIOError:
        return True
    except FileNotFoundError:  # its process has taken another name
        pass
    return False


class Leftovers(ProgramCase):
    def test_only_those_of_dead_processes_go(self):
        """A killed run leaves a file, which the next run removes; a running one's stays."""
        keep = {"in.wav", "out.wav", ".se_bf-my.old.wav", ".se_bf-settings"}
        for name in keep - {"in.wav", "out.wav"}:
            pathlib.Path(name).write_text("of the user")
        running = subprocess.Popen([program.TOOL, "enhance", "--raw-channels", "1", "-", "killed.wav"],
                                   stdin=subprocess.PIPE, stderr=subprocess.PIPE)
        self.addCleanup(running.communicate)
        running.stdin.write(bytes(2))
        running.stdin.flush()
        program.wait_for(lambda: any(map(is_locked, set(os.listdir()) - keep)))
        before = set(os.listdir())
        self.enhance("in.wav", "out.wav")
        self.assertEqual(before | {"out.wav"}, set(os.listdir()), "while its process runs")
        running.kill()
        running.wait()
        self.enhance("in.wav", "out.wav")
        self.assertEqual(keep, set(os.listdir()), "after its process was killed")


@unittest.skipIf(program.is_instrumented(), "no library comes before a sanitizer")
class Storage(ProgramCase):
    def setUp(self):
        super().setUp()
        os.makedirs("in/sub")
        for name in "1.wav", "2.wav", "in/sub/1.wav":
            os.link("in.wav", name)
        self.system = program.compile_library("system.so", SYSTEM)

    def enhance_there(self, status, text, *words, **changes):
        env = {**os.environ, **self.system, **{name: str(value) for name, value in changes.items()}}
        self.enhance(*words, status=status, told=text, env=env)

    def test_without_locks_results_are_recorded_all_the_same(self):
        for code in errno.ENOLCK, errno.ENOSYS, errno.EOPNOTSUPP, errno.EINVAL:
            folder = f"o{code}"
            self.enhance_there(0, "", "--out-dir", folder, "1.wav", "2.wav", LOCK=code)
            record = pathlib.Path(folder, RECORD)
            with record.open("a", encoding="ascii") as file:  # too many lines that do not count
                file.writelines("1.wav\t9" + line[6:] for line in 600 * [
                    record.read_text().splitlines(True)[2]])
            size = record.stat().st_size
            self.enhance_there(0, "", "--out-dir", folder, "1.wav", "2.wav", LOCK=code)
            self.assertEqual(size, record.stat().st_size, "nothing is taken away without a lock")

    def test_a_record_that_cannot_be_used_stops_all_before_it_begins(self):
        self.enhance_there(0, "", "--out-dir", "o", "1.wav")
        self.enhance_there(1, f"se_bf: cannot lock o/{RECORD}: Permission denied; the results here are "
                     "recorded by another user", "--out-dir", "o", "1.wav", "2.wav", LOCK=errno.EACCES)
        self.assertEqual(["1.wav", RECORD], sorted(os.listdir("o")))

    def test_what_cannot_be_stored_is_an_error(self):
        for unsafe in self.work.name, ".wav":
            self.enhance_there(1, "writing out.wav failed: Input/output", "1.wav", "out.wav",
                               UNSAFE=unsafe)
        for unsafe, there in ("/o", False), ("/" + RECORD, False), ("/o/sub", True):
            self.enhance_there(1, "failed: Input/output error", "--out-dir", "o", "in", UNSAFE=unsafe)
            self.assertEqual(there, os.path.exists("o/sub/1.wav"), f"result without {unsafe}")


program.main()
