// Which sound files the places on the command line hold, and what is passed over in folders.
#include "batch_walk.h"

#include <sndfile.h>
#include <sys/stat.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <system_error>

#include "batch_record.h"
#include "plain_text.h"
#include "report.h"
#include "sound_format.h"

namespace fs = std::filesystem;

namespace {

constexpr size_t kMaxNamed = 8;  // kinds or folders in a line; of more there is a count

constexpr char kUtf16Mark[] = "\xff\xfe";

bool is_same(const std::string &a, const std::string &b) {
  std::error_code unknown;
  return fs::equivalent(a, b, unknown);
}

// Text in UTF-16 begins like a frame of MPEG audio, and the decoder would complain about it.
bool is_utf16(const std::string &path) {
  char start[sizeof kUtf16Mark] = "";
  std::FILE *file = std::fopen(path.c_str(), "rbe");
  const bool marked = file != nullptr && std::fgets(start, sizeof start, file) != nullptr &&
                      std::strcmp(start, kUtf16Mark) == 0;
  if (file != nullptr) {
    std::fclose(file);
  }
  return marked;
}

// Whether a file with an unknown extension holds sound.
bool opens(const std::string &path) {
  if (is_utf16(path)) {
    return false;
  }
  SF_INFO info = {};
  SNDFILE *file = sf_open(path.c_str(), SFM_READ, &info);
  if (file != nullptr) {
    sf_close(file);
  }
  return file != nullptr;
}

void take_file(batch_walk *walk, const std::string &path, const std::string &name) {
  if (sound_format_is_known(name) || opens(path)) {
    walk->files.push_back({path, name});
    return;
  }
  std::string kind = sound_extension(name);
  std::transform(kind.begin(), kind.end(), kind.begin(),
                 [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  ++walk->no_sound[kind.empty() ? "without extension" : kind];
}

std::vector<std::string> names_in(batch_walk *walk, const std::string &directory) {
  std::error_code error;
  std::vector<std::string> names;
  fs::directory_iterator entry(directory, error);
  while (!error && entry != fs::directory_iterator()) {
    names.push_back(entry->path().filename().string());
    entry.increment(error);
  }
  if (error) {
    walk->complete = report_failure("cannot list " + directory + ": " + error.message());
  }
  std::sort(names.begin(), names.end());
  return names;
}

void list_directory(batch_walk *walk, const std::string &directory, const std::string &prefix,
                    const std::string &out_dir);

// Returns false with errno set when the kind of the entry cannot be found out.
bool take_entry(batch_walk *walk, const std::string &path, const std::string &name,
                const std::string &out_dir) {
  struct stat itself = {};
  struct stat target = {};
  const bool link = lstat(path.c_str(), &itself) == 0 && S_ISLNK(itself.st_mode);
  const bool there = stat(path.c_str(), &target) == 0;
  if (!there && (!link || (errno != ENOENT && errno != ELOOP))) {
    return false;
  }
  if (there && S_ISREG(target.st_mode)) {
    take_file(walk, path, name);
  } else if (!there || !S_ISDIR(target.st_mode)) {
    ++walk->special;
  } else if (is_same(path, out_dir) || record_is_in(path)) {
    walk->results.push_back(path);
  } else if (link) {
    walk->links.push_back(path);
  } else {
    list_directory(walk, path, name + "/", out_dir);
  }
  return true;
}

void list_directory(batch_walk *walk, const std::string &directory, const std::string &prefix,
                    const std::string &out_dir) {
  const std::string base = directory.back() == '/' ? directory : directory + "/";
  const bool recorded = record_is_in(directory);
  size_t unknown = 0;
  std::string first;  // of them, and why
  for (const std::string &name : names_in(walk, directory)) {
    if (name[0] == '.') {
      ++walk->hidden;
    } else if ((!recorded || !record_is_name(name)) &&
               !take_entry(walk, base + name, prefix + name, out_dir) && ++unknown == 1) {
      first = base + name + ": " + std::strerror(errno);
    }
  }
  if (unknown > 0) {
    walk->complete = report_failure(
        "cannot read " + first +
        (unknown > 1 ? "; nor " + std::to_string(unknown - 1) + " more in this folder" : ""));
  }
}

bool list_place(batch_walk *walk, const std::string &place, const std::string &out_dir) {
  std::error_code unknown;
  if (place == "-") {
    return report_failure("standard input has no name for a result; leave out --out-dir");
  }
  if (!fs::is_directory(place, unknown)) {
    walk->files.push_back({place, fs::path(place).filename().string()});
    return true;
  }
  if (is_same(place, out_dir)) {
    return report_failure("the results of " + place +
                          " would go into the same folder; give --out-dir another one");
  }
  const size_t before = walk->files.size();
  const bool complete = walk->complete;
  walk->complete = true;
  list_directory(walk, place, "", out_dir);
  if (walk->complete && walk->files.size() == before) {
    walk_report(walk);
    return report_failure("there are no sound files in " + place);
  }
  walk->complete = walk->complete && complete;
  return true;
}

// A line about one reason, if any file was passed over for it.
void report_passed(const std::vector<std::string> &what, const std::string &why) {
  if (!what.empty()) {
    report_line("passed over: " + text_list(what, kMaxNamed) + " (" + why + ")");
  }
}

std::vector<std::string> counted(size_t count, const std::string &what) {
  return count == 0 ? std::vector<std::string>() : std::vector{std::to_string(count) + " " + what};
}

}  // namespace

bool walk_places(batch_walk *walk, const std::vector<std::string> &places,
                 const std::string &out_dir) {
  *walk = {};
  walk->complete = true;
  for (const std::string &place : places) {
    if (!list_place(walk, place, out_dir)) {
      return false;
    }
  }
  if (walk->files.empty()) {
    walk_report(walk);
  }
  return !walk->files.empty();
}

void walk_report(const batch_walk *walk) {
  std::vector<std::string> kinds;
  for (const auto &[kind, count] : walk->no_sound) {
    kinds.push_back(std::to_string(count) + " " + kind);
  }
  report_passed(kinds, "no sound that can be read");
  report_passed(walk->results, "results of se_bf; name such a folder to have it enhanced");
  report_passed(walk->links, "links to folders; name them to have them enhanced");
  report_passed(counted(walk->hidden, "hidden"), "names that begin with a dot");
  report_passed(counted(walk->special, "special"), "links to nothing, pipes or devices");
}
