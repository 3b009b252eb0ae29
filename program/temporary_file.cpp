// Files without a name: their content vanishes when the program ends, however it ends.
#include "temporary_file.h"

#include <errno.h>
#include <fcntl.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include "report.h"

std::string temporary_file_directory() {
  const char *chosen = getenv("TMPDIR");
  return chosen != nullptr && *chosen != '\0' ? chosen : "/tmp";
}

int temporary_file_open() {
  const std::string directory = temporary_file_directory();
  std::string path = directory + "/se_bf-XXXXXX";
  const int fd = mkostemp(&path[0], O_CLOEXEC);
  if (fd == -1) {
    report_line("cannot make a temporary file in " + directory + ": " + strerror(errno) +
                "; name another directory in TMPDIR");
    return -1;
  }
  unlink(path.c_str());
  return fd;
}

bool temporary_file_failed(int error) {
  report_line("writing a temporary file in " + temporary_file_directory() + " failed: " +
              strerror(error) + "; free some space there, or name another directory in TMPDIR");
  return false;
}
