// Many files: which there are, where their results go, and which are done already.
#include "batch_plan.h"

#include <sndfile.h>

#include <algorithm>
#include <filesystem>
#include <map>
#include <system_error>

#include "report.h"
#include "sound_format.h"

namespace fs = std::filesystem;

static bool fail(const std::string &text) {
  report_line(text);
  return false;
}

static bool list_directory(const std::string &directory, const std::string &out_dir,
                           std::vector<std::string> *paths) {
  std::error_code error;
  std::vector<std::string> found;
  size_t left_out = 0;
  fs::directory_iterator entry(directory, error);
  while (!error && entry != fs::directory_iterator()) {
    std::error_code unknown;  // such a file cannot be enhanced either
    const bool nested = entry->is_directory(unknown) && !fs::equivalent(*entry, out_dir, unknown);
    left_out += nested ? 1 : 0;
    if (sound_format_of(entry->path().string()) != nullptr && entry->is_regular_file(unknown)) {
      found.push_back(entry->path().string());
    }
    entry.increment(error);
  }
  if (error) {
    return fail("cannot list " + directory + ": " + error.message());
  }
  if (left_out > 0) {
    report_line("directories in " + directory + " are not searched (there are " +
                std::to_string(left_out) + "); name them as IN, too");
  }
  if (found.empty()) {
    return fail("there are no sound files in " + directory + "; their names end with one of" +
                sound_format_list());
  }
  std::sort(found.begin(), found.end());
  paths->insert(paths->end(), found.begin(), found.end());
  return true;
}

static bool list_places(const batch_options *options, std::vector<std::string> *paths) {
  for (const std::string &place : options->places) {
    std::error_code error;
    if (place == "-") {
      return fail("standard input has no name for a result; leave out --out-dir");
    }
    if (!fs::is_directory(place, error)) {
      paths->push_back(place);
    } else if (!list_directory(place, options->out_dir, paths)) {
      return false;
    }
  }
  return true;
}

// The same name in the other directory; a format that cannot be written becomes WAV.
static std::string result_of(const std::string &in, const std::string &directory) {
  fs::path name = fs::path(in).filename();
  if (sound_format_of(name.string()) == nullptr) {
    name.replace_extension(".wav");
  }
  return (fs::path(directory) / name).string();
}

static double announced_duration(const std::string &path) {
  SF_INFO info = {};
  std::error_code error;
  if (!fs::is_regular_file(path, error)) {
    return 0.0;
  }
  SNDFILE *file = sf_open(path.c_str(), SFM_READ, &info);
  if (file == nullptr) {
    return 0.0;
  }
  sf_close(file);
  return static_cast<double>(info.frames) / info.samplerate;
}

// Results appear under their names only when whole.
static bool is_done(const std::string &in, const std::string &out) {
  std::error_code error;
  const fs::file_time_type made = fs::last_write_time(out, error);
  if (error) {
    return false;
  }
  const fs::file_time_type recorded = fs::last_write_time(in, error);
  return !error && made >= recorded;
}

static bool check_results(const std::vector<batch_file> &files) {
  std::map<std::string, std::string> makers;
  for (const batch_file &file : files) {
    std::error_code error;
    if (fs::equivalent(file.in, file.out, error)) {
      return fail("the result of " + file.in +
                  " would replace it; give --out-dir another directory");
    }
    const auto [maker, fresh] = makers.emplace(file.out, file.in);
    if (!fresh) {
      return fail(maker->second + " and " + file.in + " would both become " + file.out +
                  "; enhance them into different directories");
    }
  }
  return true;
}

// One by one, so that the reason belongs to the directory that could not be made.
static bool make_directories(const fs::path &directory) {
  fs::path made;
  for (const fs::path &name : directory) {
    std::error_code reason;
    std::error_code unknown;
    made /= name;
    fs::create_directory(made, reason);
    if (!fs::is_directory(made, unknown)) {
      return fail("cannot make the directory " + made.string() + ": " + reason.message());
    }
  }
  return true;
}

bool batch_list(const batch_options *options, std::vector<batch_file> *files) {
  std::vector<std::string> paths;
  if (!list_places(options, &paths)) {
    return false;
  }
  if (!make_directories(options->out_dir)) {
    return false;
  }
  for (const std::string &path : paths) {
    const std::string out = result_of(path, options->out_dir);
    const bool skipped = !options->overwrite && is_done(path, out);
    files->push_back(
        {path, out, announced_duration(path), skipped ? BATCH_SKIPPED : BATCH_WAITING, -1, -1, ""});
  }
  return check_results(*files);
}
