// Runs the script that draws spectrograms, in a process of its own.
#include "drawing.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <system_error>

#include "child_process.h"
#include "process.h"
#include "report.h"

namespace fs = std::filesystem;

namespace {

constexpr char kScripts[] = "share/tm_se_bf/plot";  // below the installation's prefix
constexpr char kProgressMark[] = "progress ";       // before the share that is done

// The script writes its messages to `text_fd`.
[[noreturn]] void become_script(const std::vector<std::string> &words,
                                const std::vector<drawing_sound> &sounds, int text_fd) {
  std::vector<char *> arguments;
  arguments.reserve(words.size() + 1);
  for (const std::string &word : words) {
    arguments.push_back(const_cast<char *>(word.c_str()));
  }
  arguments.push_back(nullptr);
  for (const drawing_sound &sound : sounds) {
    fcntl(sound.fd, F_SETFD, 0);
  }
  dup2(text_fd, STDOUT_FILENO);
  dup2(text_fd, STDERR_FILENO);
  execv(arguments[0], arguments.data());
  dprintf(STDERR_FILENO, "%s: %s\n", arguments[0], std::strerror(errno));
  _exit(1);
}

// Progress is shown, and the last other line is kept as the reason of a failure.
void take_lines(std::string *text, std::string *reason) {
  std::string line;
  while (child_take_line(text, &line)) {
    if (line.rfind(kProgressMark, 0) == 0) {
      report_progress(std::strtod(line.c_str() + std::strlen(kProgressMark), nullptr), 1.0);
    } else if (!line.empty()) {
      *reason = line;
    }
  }
}

// Reads from the script until it ends; asks it to end when a signal arrives.
void follow(const child_process *child, std::string *reason) {
  std::string text;
  bool told = false;
  do {
    take_lines(&text, reason);
    if (process_stopped() && !told) {
      kill(child->id, SIGTERM);
      told = true;
    }
  } while (child_listen(child, &text));
}

bool judge(int status, const std::string &reason) {
  if (WIFEXITED(status) && WEXITSTATUS(status) == 0) {
    return true;
  }
  if (process_stopped()) {
    return false;
  }
  if (WIFSIGNALED(status)) {
    return report_failure("the picture was not drawn: its program was killed by signal " +
                          std::to_string(WTERMSIG(status)) + " (" + strsignal(WTERMSIG(status)) +
                          "); if memory ran out, close other programs and try again");
  }
  return report_failure("the picture was not drawn: " + reason);
}

bool run_script(const std::vector<std::string> &words, const std::vector<drawing_sound> &sounds) {
  child_process child;
  if (!child_start(&child)) {
    return report_failure(std::string("cannot start a process: ") + std::strerror(errno));
  }
  if (child.id == 0) {
    become_script(words, sounds, child.fd);
  }
  std::string reason = "its program ended without a word";
  report_progress_task("drawing");
  report_progress_on();
  follow(&child, &reason);
  const int status = child_end(&child);
  report_progress_off();
  return judge(status, reason);
}

}  // namespace

bool drawing_find(std::string *directory) {
  std::error_code error;
  const char *chosen = std::getenv("SE_BF_PLOT_DIR");
  const fs::path program = fs::read_symlink("/proc/self/exe", error);
  *directory = chosen != nullptr ? std::string(chosen)
                                 : (program.parent_path().parent_path() / kScripts).string();
  return fs::exists(fs::path(*directory) / "python.sh", error) ||
         report_failure(
             "the plot scripts are not in " + *directory +
             "; install them with the program, or name their directory in SE_BF_PLOT_DIR");
}

bool drawing_run(const std::string &directory, const std::vector<drawing_sound> &sounds,
                 int rate_hz, const std::string &picture) {
  const fs::path scripts(directory);
  std::vector<std::string> words = {scripts / "python.sh", "--modules=numpy,matplotlib",
                                    scripts / "spectrograms.py", "--progress",
                                    "--raw-rate=" + std::to_string(rate_hz)};
  for (const drawing_sound &sound : sounds) {
    words.push_back("/dev/fd/" + std::to_string(sound.fd));
  }
  for (const drawing_sound &sound : sounds) {
    words.push_back("--title=" + sound.title);
  }
  words.push_back("--output=" + picture);
  return run_script(words, sounds);
}
