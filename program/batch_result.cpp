// The name of a result: whether the result exists or may be made, and how it gets its name.
#include "batch_result.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <system_error>

#include "record_file.h"
#include "report.h"
#include "tm_se_bf_stream.h"

namespace {

result_verdict refuse(const std::string &text) {
  report_line(text);
  return RESULT_REFUSED;
}

result_verdict refuse_special(const result_place *place, bool link) {
  std::error_code unknown;
  if (!link) {
    return refuse(place->out + ", the result of " + place->in +
                  ", is there and is no file; remove it, or give another --out-dir");
  }
  return refuse(place->out + ", the result of " + place->in + ", is a link to " +
                std::filesystem::read_symlink(place->out, unknown).string() +
                "; nothing is written through it: remove it, or give another --out-dir");
}

// Whether the path means one recording. A pipe of the same name may carry any sound.
bool is_recording(const std::string &path) {
  struct stat status = {};
  char real[PATH_MAX];
  return stat(path.c_str(), &status) == 0 && S_ISREG(status.st_mode) &&
         realpath(path.c_str(), real) != nullptr;
}

result_verdict refuse_stranger(const result_place *place, const std::string &maker) {
  return refuse(
      place->out + " " + maker + "; " +
      (is_recording(place->in) ? "the result of " : "the result of what comes now through ") +
      place->in +
      " would have this name, too: --overwrite replaces it, another --out-dir keeps both");
}

// A result of the same recording, which is lost once it is replaced.
result_verdict refuse_anew(const result_place *place, const std::string &change) {
  return refuse(place->out + " " + change +
                "; --overwrite makes it anew, another --out-dir keeps both");
}

// A result of another run is in the record before it has its name.
record_answer find_now(batch_record *record, const result_place *place, const std::string &stamp,
                       record_entry *made) {
  const record_answer answer = record_find(record, place->name, stamp, made);
  return answer != RECORD_MADE && record_refresh(record)
             ? record_find(record, place->name, stamp, made)
             : answer;
}

bool is_same_input(const result_place *place, const record_entry *wanted,
                   const record_entry *made) {
  return made->input == wanted->input && is_recording(place->in);
}

// What has changed since the result was made from the same input.
result_verdict judge_change(const result_place *place, const record_entry *wanted,
                            const record_entry *made) {
  if (made->input_stamp != wanted->input_stamp) {
    const long long before = record_stamp_bytes(made->input_stamp);
    const long long now = record_stamp_bytes(wanted->input_stamp);
    return now >= before ? RESULT_INPUT_CHANGED
                         : refuse_anew(place, "was made from " + made->input +
                                                  " when it was longer (" + std::to_string(before) +
                                                  " bytes, now " + std::to_string(now) + ")");
  }
  return made->options != wanted->options   ? RESULT_OPTIONS_CHANGED
         : made->version != wanted->version ? RESULT_VERSION_CHANGED
                                            : RESULT_DONE;
}

// Whether the name may be taken: the file there is the one that was judged, or of the same input.
bool is_free(const result_claim *claim) {
  struct stat status = {};
  const result_place *place = claim->place;
  if (result_seen(place->out) == place->seen || lstat(place->out.c_str(), &status) != 0) {
    return true;
  }
  batch_record record;
  record_entry made;
  if (!record_load(&record, claim->record->directory)) {
    return false;
  }
  const bool known = record_find(&record, place->name, record_stamp(&status), &made) == RECORD_MADE;
  if (known && is_same_input(place, &claim->entry, &made)) {
    return true;
  }
  refuse_stranger(place, known ? "was made from " + made.input + " meanwhile, by another run"
                               : "has appeared there meanwhile");
  return false;
}

}  // namespace

std::string result_seen(const std::string &path) {
  struct stat status = {};
  if (lstat(path.c_str(), &status) != 0) {
    return "";
  }
  return std::to_string(status.st_dev) + " " + std::to_string(status.st_ino) + " " +
         record_stamp(&status);
}

bool result_expect(record_entry *entry, const result_place *place, const std::string &options) {
  struct stat status = {};
  char real[PATH_MAX];
  const bool there = stat(place->in.c_str(), &status) == 0;
  // A pipe of the shell (/dev/fd/63) has no other name.
  const bool named = realpath(place->in.c_str(), real) != nullptr;
  *entry = {place->name,
            "",
            named ? real : place->in,
            record_stamp(&status),
            false,
            se_bf_stream_version(),
            options};
  return there;
}

result_verdict result_judge(batch_record *record, const result_place *place,
                            const record_entry *wanted, bool overwrite, record_entry *made) {
  struct stat status = {};
  if (lstat(place->out.c_str(), &status) != 0) {
    return RESULT_WANTED;
  }
  if (!S_ISREG(status.st_mode)) {
    return refuse_special(place, S_ISLNK(status.st_mode));
  }
  if (overwrite) {
    return RESULT_WANTED;
  }
  switch (find_now(record, place, record_stamp(&status), made)) {
    case RECORD_UNKNOWN:
      return refuse_stranger(
          place, "is there already, and " + record->path + " does not say what it was made from");
    case RECORD_CHANGED:
      return is_same_input(place, wanted, made)
                 ? refuse_anew(place, "has been changed since it was made from " + made->input)
                 : refuse_stranger(
                       place, "was made from " + made->input + " and has been changed since then");
    default:
      break;
  }
  if (!is_same_input(place, wanted, made)) {
    return refuse_stranger(place, "was made from " + made->input);
  }
  return judge_change(place, wanted, made);
}

bool result_take_name(void *user, const std::string &temp, const std::string &path) {
  result_claim *claim = static_cast<result_claim *>(user);
  struct stat status = {};
  bool locked = false;
  const int lock = record_lock(claim->record->path, &locked);
  if (lock == -1) {
    errno = 0;
    return false;
  }
  bool told = !is_free(claim);
  bool good = !told && stat(temp.c_str(), &status) == 0;
  if (good) {
    claim->entry.result_stamp = record_stamp(&status);
    claim->entry.cut_off = *claim->cut_off;
    told = !record_add(lock, locked, claim->record->path, &claim->entry);
    good = !told && std::rename(temp.c_str(), path.c_str()) == 0;
  }
  const int error = errno;
  close(lock);
  errno = told ? 0 : error;
  return good;
}
