"""File systems that know no locks, refuse them, or cannot store what was written."""
import errno
import os
import pathlib
import subprocess
import unittest

import program

RECORD = "se_bf-results.txt"
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


@unittest.skipIf(b"__asan_init" in open(program.sys.argv[1], "rb").read(),
                 "no library comes before a sanitizer")
class Storage(program.ProgramCase):
    def setUp(self):
        super().setUp()
        os.makedirs("in/sub")
        for name in "1.wav", "2.wav", "in/sub/1.wav":
            program.write_wav(name, program.recording())
        subprocess.run([os.environ.get("CC", "cc"), "-shared", "-fPIC", "-w", "-x", "c", "-", "-o",
                        "system.so"], input=SYSTEM.encode(), check=True)

    def enhance(self, status, text, *words, **changes):
        env = {**os.environ, "LD_PRELOAD": str(self.work / "system.so"),
               **{name: str(value) for name, value in changes.items()}}
        self.expect(status, text, "enhance", "--quiet", *words, env=env)

    def test_without_locks_results_are_recorded_all_the_same(self):
        for code in errno.ENOLCK, errno.ENOSYS, errno.EOPNOTSUPP, errno.EINVAL:
            folder = f"o{code}"
            self.enhance(0, "", "--out-dir", folder, "1.wav", "2.wav", LOCK=code)
            record = pathlib.Path(folder, RECORD)
            with record.open("a", encoding="ascii") as file:  # too many lines that do not count
                file.writelines("1.wav\t9" + line[6:] for line in 600 * [
                    record.read_text().splitlines(True)[2]])
            size = record.stat().st_size
            self.enhance(0, "", "--out-dir", folder, "1.wav", "2.wav", LOCK=code)
            self.assertEqual(size, record.stat().st_size, "nothing is taken away without a lock")

    def test_a_record_that_cannot_be_used_stops_all_before_it_begins(self):
        self.enhance(0, "", "--out-dir", "o", "1.wav")
        self.enhance(1, f"se_bf: cannot lock o/{RECORD}: Permission denied; the results here are "
                     "recorded by another user", "--out-dir", "o", "1.wav", "2.wav", LOCK=errno.EACCES)
        self.assertEqual(["1.wav", RECORD], sorted(os.listdir("o")))

    def test_what_cannot_be_stored_is_an_error(self):
        self.enhance(1, "writing out.wav failed: Input/output", "1.wav", "out.wav",
                     UNSAFE=self.work.name)
        for unsafe, there in ("/o", False), ("/" + RECORD, False), ("/o/sub", True):
            self.enhance(1, "failed: Input/output error", "--out-dir", "o", "in", UNSAFE=unsafe)
            self.assertEqual(there, os.path.exists("o/sub/1.wav"), f"result without {unsafe}")


program.main()
