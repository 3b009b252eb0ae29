// Files without a name: their content vanishes when the program ends, however it ends.
#include "temporary_file.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "report.h"

std::string temporary_file_directory() {
  const char *chosen = std::getenv("TMPDIR");
  return chosen != nullptr && *chosen != '\0' ? chosen : "/tmp";
}

int temporary_file_open() {
  const std::string directory = temporary_file_directory();
  std::string path = directory + "/se_bf-XXXXXX";
  const int fd = mkostemp(&path[0], O_CLOEXEC);
  if (fd == -1) {
    report_line("cannot make a temporary file in " + directory + ": " + std::strerror(errno) +
                "; name another directory in TMPDIR");
    return -1;
  }
  unlink(path.c_str());
  return fd;
}

bool temporary_file_failed(int error) {
  return report_failure("writing a temporary file in " + temporary_file_directory() +
                        " failed: " + std::strerror(error) +
                        "; free some space there, or name another directory in TMPDIR");
}
