// Runs the script that draws spectrograms, in a process of its own.
#include "drawing.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <system_error>

#include "audio_source.h"
#include "process.h"
#include "report.h"

namespace fs = std::filesystem;

namespace {

constexpr char kScripts[] = "share/tm_se_bf/plot";  // below the installation's prefix
constexpr char kProgressMark[] = "progress ";       // before the share that is done
constexpr size_t kReadBytes = 4096;

bool fail(const std::string &text) {
  report_line(text);
  return false;
}

// The script writes its messages to `text_fd`. It does not outlive this program.
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
  prctl(PR_SET_PDEATHSIG, SIGTERM);
  dup2(text_fd, STDOUT_FILENO);
  dup2(text_fd, STDERR_FILENO);
  execv(arguments[0], arguments.data());
  dprintf(STDERR_FILENO, "%s: %s\n", arguments[0], std::strerror(errno));
  _exit(1);
}

// Takes complete lines from `text`: progress is shown, and the last other line is kept as the
// reason of a failure.
void take_lines(std::string *text, std::string *reason) {
  size_t end = text->find('\n');
  while (end != std::string::npos) {
    const std::string line = text->substr(0, end);
    if (line.rfind(kProgressMark, 0) == 0) {
      report_progress(std::strtod(line.c_str() + std::strlen(kProgressMark), nullptr), 1.0);
    } else if (!line.empty()) {
      *reason = line;
    }
    text->erase(0, end + 1);
    end = text->find('\n');
  }
}

// Reads from the script until it ends; asks it to end when a signal arrives.
void follow(pid_t child, int fd, std::string *reason) {
  char piece[kReadBytes];
  std::string text;
  bool told = false;
  for (;;) {
    if (process_stopped() && !told) {
      kill(child, SIGTERM);
      told = true;
    }
    const ssize_t count = read(fd, piece, sizeof piece);
    if (count > 0) {
      text.append(piece, static_cast<size_t>(count));
      take_lines(&text, reason);
    } else if (count == 0 || errno != EINTR) {
      return;
    }
  }
}

bool judge(int status, const std::string &reason) {
  if (WIFEXITED(status) && WEXITSTATUS(status) == 0) {
    return true;
  }
  if (process_stopped()) {
    return false;
  }
  if (WIFSIGNALED(status)) {
    return fail("the picture was not drawn: its program was killed by signal " +
                std::to_string(WTERMSIG(status)) + " (" + strsignal(WTERMSIG(status)) +
                "); if memory ran out, close other programs and try again");
  }
  return fail("the picture was not drawn: " + reason);
}

bool run_script(const std::vector<std::string> &words, const std::vector<drawing_sound> &sounds) {
  int ends[2];
  if (pipe2(ends, O_CLOEXEC) != 0) {
    return fail(std::string("cannot make a pipe: ") + std::strerror(errno));
  }
  const pid_t child = fork();
  if (child == 0) {
    become_script(words, sounds, ends[1]);
  }
  close(ends[1]);
  if (child == -1) {
    close(ends[0]);
    return fail(std::string("cannot start a process: ") + std::strerror(errno));
  }
  int status = 0;
  std::string reason = "its program ended without a word";
  report_progress_task("drawing");
  report_progress_on();
  follow(child, ends[0], &reason);
  close(ends[0]);
  while (waitpid(child, &status, 0) == -1 && errno == EINTR) {
  }
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
         fail("the plot scripts are not in " + *directory +
              "; install them with the program, or name their directory in SE_BF_PLOT_DIR");
}

bool drawing_run(const std::string &directory, const std::vector<drawing_sound> &sounds,
                 const std::string &picture) {
  const fs::path scripts(directory);
  std::vector<std::string> words = {scripts / "python.sh", "--modules=numpy,matplotlib",
                                    scripts / "spectrograms.py", "--progress",
                                    "--raw-rate=" + std::to_string(kEnhanceRateHz)};
  for (const drawing_sound &sound : sounds) {
    words.push_back("/dev/fd/" + std::to_string(sound.fd));
  }
  for (const drawing_sound &sound : sounds) {
    words.push_back("--title=" + sound.title);
  }
  words.push_back("--output=" + picture);
  return run_script(words, sounds);
}
