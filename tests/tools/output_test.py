"""Where the output goes on disk."""
import os
import pathlib
import subprocess
import time

import program
from program import ProgramCase


class Leftovers(ProgramCase):
    def test_only_those_of_dead_processes_go(self):
        """A killed run leaves a file, which the next run removes; a running one's stays."""
        program.write_wav("in.wav", program.recording())
        keep = {"in.wav", "out.wav", ".se_bf-my.old.wav", ".se_bf-settings"}
        for name in keep - {"in.wav", "out.wav"}:
            pathlib.Path(name).write_text("of the user")
        running = subprocess.Popen([program.TOOL, "enhance", "-", "killed.wav"],
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
