// The record of a folder of results: a text file that says what each of them was made from.
#include "batch_record.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <utility>

#include "output_file.h"
#include "plain_text.h"
#include "process.h"
#include "record_file.h"
#include "report.h"

namespace {

constexpr char kName[] = "se_bf-results.txt";
// The record is shortened when it has more than this number of lines that do not count, and more of
// them than lines that count.
constexpr size_t kLinesToDrop = 500;

std::string path_in(const std::string &directory) {
  return (std::filesystem::path(directory) / kName).string();
}

void index_lines(batch_record *record) {
  const std::string &text = record->text;
  record->lines.clear();
  record->line_count = 0;
  size_t end = text.find('\n');
  for (size_t start = 0; end != std::string::npos; start = end + 1, end = text.find('\n', start)) {
    const size_t tab = text.find('\t', start);
    if (tab < end && text[start] != '#') {
      record->lines[text.substr(start, tab - start)].push_back(start);
      ++record->line_count;
    }
  }
}

// The lines that count, in the order of the names.
std::string lines_that_count(const batch_record *record) {
  std::string text = kRecordHeading;
  std::vector<std::string> results;
  results.reserve(record->lines.size());
  for (const auto &named : record->lines) {
    results.push_back(text_unescape(named.first));
  }
  std::sort(results.begin(), results.end());
  for (const std::string &result : results) {
    struct stat status = {};
    const bool there = lstat((record->directory + "/" + result).c_str(), &status) == 0;
    record_entry entry;
    if (record_find(record, result, there ? record_stamp(&status) : "", &entry) != RECORD_UNKNOWN) {
      text += record_line(&entry);
    }
  }
  return text;
}

}  // namespace

bool record_is_name(const std::string &name) {
  return name == kName;
}

bool record_is_in(const std::string &directory) {
  const std::string path = path_in(directory);
  struct stat status = {};
  if (lstat(path.c_str(), &status) != 0 || !S_ISREG(status.st_mode)) {
    return false;
  }
  const int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW);
  char start[sizeof kRecordMark] = "";
  const bool ours = fd != -1 && read(fd, start, std::strlen(kRecordMark)) >= 0 &&
                    (*start == '\0' || !std::strcmp(start, kRecordMark));
  if (fd != -1) {
    close(fd);
  }
  return ours;
}

bool record_load(batch_record *record, std::string directory) {
  *record = {};
  record->directory = std::move(directory);
  record->path = path_in(record->directory);
  struct stat status = {};
  if (lstat(record->path.c_str(), &status) != 0) {
    return true;
  }
  if (!S_ISREG(status.st_mode)) {
    return report_failure(record->path +
                          " is not a file; remove it, a record of the results has that name");
  }
  record->stamp = record_stamp(&status);
  const int fd = open(record->path.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW);
  const bool good = fd != -1 && process_read_all(fd, &record->text);
  const int error = errno;
  if (fd != -1) {
    close(fd);
  }
  if (!good) {
    return report_failure("cannot read " + record->path + ": " + record_advice(error));
  }
  if (!record->text.empty() && record->text.rfind(kRecordMark, 0) != 0) {
    return report_failure(record->path +
                          " is no record of results; move it elsewhere, its name is needed");
  }
  index_lines(record);
  return true;
}

bool record_refresh(batch_record *record) {
  struct stat status = {};
  return lstat(record->path.c_str(), &status) == 0 && record_stamp(&status) != record->stamp &&
         record_load(record, record->directory);
}

record_answer record_find(const batch_record *record, const std::string &result,
                          const std::string &stamp, record_entry *entry) {
  record_answer answer = RECORD_UNKNOWN;
  const auto known = record->lines.find(text_escape(result));
  if (known == record->lines.end()) {
    return answer;
  }
  // A line is written before its result gets the name: after a kill the earlier line is still true.
  for (const size_t start : known->second) {
    record_entry line;
    const bool good = record_read(&line, record->text, start);
    if (good && (answer != RECORD_MADE || line.result_stamp == stamp)) {
      answer = line.result_stamp == stamp ? RECORD_MADE : RECORD_CHANGED;
      *entry = line;
    }
  }
  return answer;
}

bool record_is_usable(const batch_record *record) {
  bool locked = false;
  const int fd = record->stamp.empty() ? -1 : record_lock(record->path, &locked);
  if (fd != -1) {
    close(fd);
  }
  return record->stamp.empty() || fd != -1;
}

void record_shorten(batch_record *record) {
  if (record->line_count < 2 * record->lines.size() + kLinesToDrop) {
    return;
  }
  bool locked = false;
  const int fd = record_lock(record->path, &locked);
  output_file file;
  if (locked && record_load(record, record->directory) &&
      output_file_find(&file, record->path, "-") && output_file_open(&file, "")) {
    const std::string text = lines_that_count(record);
    if (process_write(file.fd, text.data(), text.size()) && output_file_commit(&file)) {
      record_load(record, record->directory);
    }
    output_file_abort(&file);
  }
  if (fd != -1) {
    close(fd);
  }
}
