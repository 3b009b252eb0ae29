// Many files: which files there are, where their results go, and which are done already.
#include "batch_plan.h"

#include <sndfile.h>
#include <sys/stat.h>

#include <filesystem>
#include <map>
#include <system_error>
#include <unordered_map>
#include <utility>

#include "output_file.h"
#include "report.h"
#include "sound_format.h"

namespace fs = std::filesystem;

namespace {

using file_id = std::pair<dev_t, ino_t>;

void refuse(batch_file *file, const std::string &text) {
  report_line(text);
  file->state = BATCH_FAILED;
}

// The same name; a format that cannot be written becomes WAV.
std::string result_name(const std::string &name) {
  return sound_format_of(name) != nullptr ? name
                                          : fs::path(name).replace_extension(".wav").string();
}

// Whether two paths lead to one name of a file.
bool is_same_path(const std::string &a, const std::string &b) {
  std::error_code unknown;
  const fs::path real = fs::canonical(a, unknown);
  return !unknown && real == fs::canonical(b, unknown);
}

// Every worker is a copy of this process, so that memory no longer needed is released.
bool place_results(batch_plan *plan, const std::string &out_dir) {
  std::unordered_map<std::string, size_t> makers;
  for (walk_file &file : plan->walk.files) {
    const std::string name = result_name(file.name);
    const std::string out = (fs::path(out_dir) / name).string();
    const auto [maker, fresh] = makers.emplace(name, plan->files.size());
    if (fresh) {
      plan->files.push_back(
          {{std::move(file.path), name, out, ""}, 0.0, BATCH_WAITING, RESULT_WANTED, false});
    } else if (!is_same_path(plan->files[maker->second].place.in, file.path)) {
      return report_failure(plan->files[maker->second].place.in + " and " + file.path +
                            " would both become " + out +
                            "; enhance them into different directories");
    }
  }
  plan->walk.files = {};
  return true;
}

// No result may have the name of a folder that others need, such as d/n.wav for n.wav and
// n.wav/1.wav.
bool check_folders(const batch_plan *plan) {
  std::unordered_map<std::string, const batch_file *> folders;
  for (const batch_file &file : plan->files) {
    fs::path folder = fs::path(file.place.name).parent_path();
    while (!folder.empty() && folders.emplace(folder.string(), &file).second) {
      folder = folder.parent_path();
    }
  }
  for (const batch_file &file : plan->files) {
    const auto folder = folders.find(file.place.name);
    if (folder != folders.end()) {
      return report_failure(file.place.out + " would be the result of " + file.place.in +
                            " and the folder of the result of " + folder->second->place.in +
                            "; enhance them into different directories");
    }
  }
  return true;
}

// The record cannot be a folder of results.
void refuse_name_of_record(batch_plan *plan) {
  for (batch_file &file : plan->files) {
    const fs::path name(file.place.name);
    if (record_is_name(name.begin()->string())) {
      refuse(&file, "the result of " + file.place.in + " cannot be " + file.place.out +
                        ", a record of the results has that name; rename its folder");
    }
  }
}

// No result may replace a recording. A link is judged as a link.
void refuse_inputs(batch_plan *plan) {
  std::map<file_id, std::string> inputs;
  struct stat status = {};
  for (const batch_file &file : plan->files) {
    if (stat(file.place.in.c_str(), &status) == 0) {
      inputs.emplace(file_id(status.st_dev, status.st_ino), file.place.in);
    }
  }
  for (batch_file &file : plan->files) {
    const bool there = lstat(file.place.out.c_str(), &status) == 0;
    const auto input = there ? inputs.find(file_id(status.st_dev, status.st_ino)) : inputs.end();
    if (input != inputs.end()) {
      const bool itself = input->second == file.place.in;
      refuse(&file, "the result of " + file.place.in + ", " + file.place.out + ", would replace " +
                        (itself ? "it" : input->second) + "; give --out-dir another directory");
    }
  }
}

// The first directory on the way from the folder of the results to one of them that is a link;
// empty: none.
std::string link_above(const fs::path &out_dir, const fs::path &name) {
  fs::path directory = out_dir;
  for (const fs::path &step : name.parent_path()) {
    std::error_code unknown;
    directory /= step;
    if (fs::is_symlink(directory, unknown)) {
      return directory.string();
    }
  }
  return "";
}

void refuse_linked_folders(batch_plan *plan, const std::string &out_dir) {
  std::unordered_map<std::string, std::string> known;
  for (batch_file &file : plan->files) {
    const std::string folder = fs::path(file.place.name).parent_path().string();
    const auto [found, fresh] = known.emplace(folder, "");
    if (fresh) {
      found->second = link_above(out_dir, file.place.name);
    }
    if (!found->second.empty() && file.state == BATCH_WAITING) {
      refuse(&file, found->second + ", where the result of " + file.place.in +
                        " would go, is a link; remove it, or give another --out-dir");
    }
  }
}

void judge(batch_plan *plan, batch_file *file, const std::string &sound, bool overwrite) {
  record_entry wanted;
  record_entry made;
  file->place.seen = result_seen(file->place.out);
  if (!result_expect(&wanted, &file->place, sound)) {
    return;  // its worker tells what is wrong
  }
  file->verdict = result_judge(&plan->record, &file->place, &wanted, overwrite, &made);
  switch (file->verdict) {
    case RESULT_REFUSED:
      file->state = BATCH_FAILED;
      break;
    case RESULT_DONE:
      file->state = BATCH_SKIPPED;
      file->cut_off = made.cut_off;
      break;
    default:
      break;
  }
}

double announced_duration(const std::string &path) {
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

// One by one, so that the error names the directory that could not be made.
bool make_directories(const fs::path &directory) {
  fs::path made;
  for (const fs::path &name : directory) {
    std::error_code reason;
    std::error_code unknown;
    made /= name;
    fs::create_directory(made, reason);
    if (!fs::is_directory(made, unknown)) {
      return report_failure("cannot make the directory " + made.string() + ": " + reason.message());
    }
  }
  return true;
}

bool prepare_folders(const batch_plan *plan, const std::string &out_dir) {
  std::map<std::string, bool> folders = {{out_dir, false}};  // whether a file waits for it
  bool waiting = false;
  for (const batch_file &file : plan->files) {
    const bool waits = file.state == BATCH_WAITING;
    if (waits || link_above(out_dir, file.place.name).empty()) {
      folders[fs::path(file.place.out).parent_path().string()] |= waits;
    }
    waiting = waiting || waits;
  }
  for (const auto &[folder, waits] : folders) {
    if (waits && !make_directories(folder)) {
      return false;
    }
    output_file_remove_stale(folder);
  }
  return !waiting || record_is_usable(&plan->record);
}

}  // namespace

bool batch_list(batch_plan *plan, const enhance_options *scene, const batch_options *options) {
  if (!walk_places(&plan->walk, options->places, options->out_dir) ||
      !place_results(plan, options->out_dir) || !check_folders(plan) ||
      !record_load(&plan->record, options->out_dir)) {
    return false;
  }
  refuse_name_of_record(plan);
  record_shorten(&plan->record);
  refuse_inputs(plan);
  refuse_linked_folders(plan, options->out_dir);
  const std::string sound = options_of_sound(scene);
  for (batch_file &file : plan->files) {
    if (file.state == BATCH_WAITING) {
      judge(plan, &file, sound, options->overwrite);
    }
    file.duration_s = file.state == BATCH_WAITING ? announced_duration(file.place.in) : 0.0;
  }
  plan->record.text = {};
  plan->record.lines = {};
  return prepare_folders(plan, options->out_dir);
}
