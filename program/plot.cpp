// The subcommand `se_bf plot`: draws the sound before and after enhancement.
//
// Both are kept as raw PCM in files without a name, which vanish with the program however it ends.
#include "plot.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <system_error>
#include <vector>

#include "audio_source.h"
#include "drawing.h"
#include "enhance.h"
#include "plain_header.h"
#include "plain_text.h"
#include "process.h"
#include "report.h"
#include "sample_words.h"
#include "temporary_file.h"

namespace fs = std::filesystem;

namespace {

constexpr size_t kChunkFrames = 4096;

struct plot_job {
  const enhance_options *options;
  std::string picture;
  int own_stdout;  // where the picture's name goes; descriptor 1 is lent to the sound
  int before;      // file descriptors of the sound
  int after;
  int64_t samples;  // of each
  int rate_hz;
};

// Writes the first channel in use in 16 bits.
bool write_before(plot_job *job, audio_source *source) {
  const size_t channels = source->picks.size();
  const sound_input *input = &source->input;
  const double rate = input->rate_hz;
  std::vector<float> frames(kChunkFrames * channels);
  std::vector<int16_t> pcm(kChunkFrames);
  uint8_t bytes[kChunkFrames * kSampleBytes];
  size_t count = source_read(source, frames.data(), kChunkFrames);
  job->rate_hz = input->rate_hz;
  while (count > 0 && !process_stopped()) {
    for (size_t n = 0; n < count; ++n) {
      frames[n] = frames[n * channels];
    }
    samples_to_words(frames.data(), count, pcm.data());
    plain_put_words(pcm.data(), count, false, bytes);
    if (!process_write(job->before, bytes, count * kSampleBytes)) {
      return !process_stopped() && temporary_file_failed(errno);
    }
    job->samples += static_cast<int64_t>(count);
    report_progress(static_cast<double>(input->frames_read) / rate,
                    static_cast<double>(input->announced) / rate);
    count = source_read(source, frames.data(), kChunkFrames);
  }
  return !process_stopped();
}

bool read_sound(plot_job *job) {
  audio_source source = {};
  report_progress_task("reading");
  report_progress_on();
  const bool good = source_open(&source, job->options) && write_before(job, &source);
  report_progress_off();
  source_close(&source);
  return good && (job->samples > 0 || report_failure(job->options->in + " holds no sound to draw"));
}

// Enhances to descriptor 1, which stands for the file meanwhile: raw PCM. Its space is
// reserved first, so that a full disk shows before the work.
bool enhance_sound(plot_job *job) {
  enhance_figures figures = {};
  enhance_options enhancing = *job->options;
  const int error = posix_fallocate(job->after, 0, job->samples * static_cast<off_t>(kSampleBytes));
  if (error != 0) {
    return temporary_file_failed(error);
  }
  if (dup2(job->after, STDOUT_FILENO) == -1) {
    return report_failure(std::string("standard output is not usable: ") + std::strerror(errno));
  }
  enhancing.out = "-";
  enhancing.raw_own_rate = true;
  enhancing.quiet = true;  // but for the progress
  report_progress_task("enhancing");
  report_progress_on();
  return enhance_run(&enhancing, &figures) == 0;
}

// Checks before the work what would stop it at the end.
bool check_places(const plot_job *job) {
  const std::string &in = job->options->in;
  const fs::path picture = job->picture;
  const fs::path directory = picture.has_parent_path() ? picture.parent_path() : fs::path(".");
  std::error_code error;
  if (in == "-" || (fs::exists(in, error) && fs::is_other(in, error))) {
    return report_failure(
        "a picture needs a sound file, which is read twice; a pipe cannot be drawn");
  }
  // A second recording given by mistake must not be overwritten with a picture.
  if (picture.extension() != ".png") {
    return report_failure("the picture " + job->picture + " must be named *.png");
  }
  if (fs::equivalent(in, picture, error)) {
    return report_failure("IN and the picture are the same file: " + job->picture);
  }
  if (fs::is_directory(picture, error)) {
    return report_failure("the picture " + job->picture + " is a directory; name a file in it");
  }
  const bool there = fs::exists(picture, error);
  return access(there ? picture.c_str() : directory.c_str(), W_OK) == 0 ||
         report_failure("cannot write " + job->picture + ": " + std::strerror(errno));
}

bool print_name(const plot_job *job) {
  const bool seen = isatty(job->own_stdout) == 1;
  const std::string line = (seen ? text_harmless(job->picture) : job->picture) + "\n";
  return process_write(job->own_stdout, line.data(), line.size()) ||
         report_failure(std::string("writing the picture's name failed: ") + std::strerror(errno));
}

bool run(plot_job *job) {
  std::string scripts;
  if (!check_places(job) || !drawing_find(&scripts)) {
    return false;
  }
  job->before = temporary_file_open();
  job->after = job->before == -1 ? -1 : temporary_file_open();
  if (job->after == -1 || !read_sound(job) || !enhance_sound(job)) {
    return false;
  }
  const std::string name = fs::path(job->options->in).filename().string();
  const std::vector<drawing_sound> sounds = {{job->before, name}, {job->after, "enhanced"}};
  return drawing_run(scripts, sounds, job->rate_hz, job->picture) && print_name(job);
}

}  // namespace

int plot_run(const enhance_options *options, const std::string &picture) {
  plot_job job = {};
  job.options = options;
  job.picture = picture.empty() ? fs::path(options->in).stem().string() + ".png" : picture;
  job.own_stdout = fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, STDERR_FILENO + 1);
  if (job.own_stdout == -1) {
    report_line(std::string("standard output is not usable: ") + std::strerror(errno));
    return 1;
  }
  process_catch_signals();
  const bool good = run(&job);
  if (!good && process_stopped()) {
    process_die_of_signal();
  }
  return good ? 0 : 1;
}
