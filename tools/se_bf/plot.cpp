// The subcommand `se_bf plot`: makes the two WAV files and has the plot script draw them.
#include "plot.h"

#include <errno.h>
#include <sndfile.h>
#include <stdlib.h>
#include <string.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <system_error>

#include "audio_source.h"
#include "enhance.h"
#include "process.h"
#include "report.h"

namespace fs = std::filesystem;

static constexpr size_t CHUNK_FRAMES = 4096;
static const char *const SCRIPTS = "share/tm_se_bf/plot";  // below the installation's prefix

static bool fail(const std::string &text) {
  report_line(text);
  return false;
}

// Where the scripts are installed, told from where the program is.
static bool find_scripts(fs::path *directory) {
  std::error_code error;
  const char *chosen = getenv("SE_BF_PLOT_DIR");
  const fs::path program = fs::read_symlink("/proc/self/exe", error);
  *directory = chosen != nullptr ? fs::path(chosen) : program.parent_path().parent_path() / SCRIPTS;
  return fs::exists(*directory / "python.sh", error) ||
         fail("the plot scripts are not in " + directory->string() +
              "; install them with the program, or name their directory in SE_BF_PLOT_DIR");
}

// Writes the first channel in use as the enhancer gets it: at 16 kHz, in a format that any script
// reads.
static bool write_before(const enhance_options *options, const std::string &path) {
  audio_source source = {};
  SF_INFO info = {};
  info.samplerate = ENHANCE_RATE_HZ;
  info.channels = 1;
  info.format = SF_FORMAT_WAV | SF_FORMAT_PCM_16;
  if (!source_open(&source, options)) {
    source_close(&source);
    return false;
  }
  const size_t channels = source.picks.size();
  std::vector<float> frames(CHUNK_FRAMES * channels);
  SNDFILE *file = sf_open(path.c_str(), SFM_WRITE, &info);
  bool good = file != nullptr;
  long count = good ? source_read(&source, frames.data(), CHUNK_FRAMES) : 0;
  while (good && count > 0) {
    for (long n = 0; n < count; ++n) {
      frames[static_cast<size_t>(n)] = frames[static_cast<size_t>(n) * channels];
    }
    good = sf_writef_float(file, frames.data(), count) == count;
    count = good ? source_read(&source, frames.data(), CHUNK_FRAMES) : 0;
  }
  source_close(&source);
  const bool closed = file != nullptr && sf_close(file) == 0;
  if (!good || !closed) {
    return fail("writing to " + path + " failed; is there space on the disk?");
  }
  return count == 0;
}

// The last line of what the script said, which is the reason of its failure.
static std::string last_line(std::string text) {
  text.erase(text.find_last_not_of(" \n") + 1);
  const size_t newline = text.rfind('\n');
  return newline == std::string::npos ? text : text.substr(newline + 1);
}

// Runs a program whose messages go to `text`. Returns true when it ended with status 0.
static bool run_program(const std::vector<std::string> &words, std::string *text) {
  int ends[2];
  if (pipe(ends) != 0) {
    *text = strerror(errno);
    return false;
  }
  std::vector<char *> arguments;
  arguments.reserve(words.size() + 1);
  for (const std::string &word : words) {
    arguments.push_back(const_cast<char *>(word.c_str()));
  }
  arguments.push_back(nullptr);
  const pid_t child = fork();
  if (child == 0) {
    dup2(ends[1], STDERR_FILENO);
    execv(arguments[0], arguments.data());
    dprintf(STDERR_FILENO, "%s: %s\n", arguments[0], strerror(errno));
    _exit(1);
  }
  close(ends[1]);
  process_read_all(ends[0], text);
  close(ends[0]);
  int status = 1;
  while (child != -1 && waitpid(child, &status, 0) == -1 && errno == EINTR) {
  }
  return child != -1 && WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

static bool draw(const fs::path &scripts, const fs::path &work, const std::string &name,
                 const std::string &picture) {
  std::string text;
  const bool drawn = run_program(
      {scripts / "python.sh", scripts / "spectrograms.py", work / "before.wav", work / "after.wav",
       "--output=" + picture, "--title=" + name, "--title=enhanced"},
      &text);
  return drawn || fail("the picture was not drawn: " +
                       (text.empty() ? "its program was killed; try again" : last_line(text)));
}

static bool plot_in(const enhance_options *options, const fs::path &work,
                    const std::string &picture) {
  fs::path scripts;
  if (options->in == "-") {
    return fail("a picture needs a sound file; standard input cannot be drawn");
  }
  // A second recording given by mistake must not be overwritten with a picture.
  if (fs::path(picture).extension() != ".png") {
    return fail("the picture " + picture + " must be named *.png");
  }
  std::error_code error;
  if (fs::equivalent(options->in, picture, error)) {
    return fail("IN and the picture are the same file: " + picture);
  }
  if (!find_scripts(&scripts) || !write_before(options, work / "before.wav")) {
    return false;
  }
  enhance_figures figures = {};
  enhance_options enhancing = *options;
  enhancing.out = work / "after.wav";
  enhancing.quiet = true;
  return enhance_run(&enhancing, &figures) == 0 &&
         draw(scripts, work, fs::path(options->in).filename().string(), picture);
}

int plot_run(const enhance_options *options, const std::string &picture) {
  std::error_code error;
  const fs::path parent = fs::temp_directory_path(error);
  std::string work = (parent / "se_bf-XXXXXX").string();
  const std::string output =
      picture.empty() ? fs::path(options->in).stem().string() + ".png" : picture;
  if (error || mkdtemp(&work[0]) == nullptr) {
    report_line(std::string("cannot make a directory for temporary files: ") + strerror(errno));
    return 1;
  }
  const bool good = plot_in(options, work, output);
  fs::remove_all(work, error);
  return good ? 0 : 1;
}
