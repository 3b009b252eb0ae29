// The record of a folder of results: a text file that says what each of them was made from.
#include "batch_record.h"

#include <errno.h>
#include <fcntl.h>
#include <string.h>
#include <sys/file.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <utility>

#include "output_file.h"
#include "plain_text.h"
#include "process.h"
#include "report.h"

static const char *const NAME = "se_bf-results.txt";
static constexpr char MARK[] = "# se_bf results";  // every record begins with it
static const char *const HEADING =
    "# se_bf results: what each file in this folder was made from, for se_bf enhance --out-dir\n"
    "# result\tits size and time\tinput\tits size and time\tinput is\tversion\toptions\n";
static constexpr mode_t ALL_READ_WRITE = 0666;
static constexpr size_t TAIL_BYTES = 65536;  // longer than any line
// So many lines that do not count, and as many as do, are too many.
static constexpr size_t LINES_TO_DROP = 500;

static bool fail(const std::string &text) {
  report_line(text);
  return false;
}

static std::string path_in(const std::string &directory) {
  return (std::filesystem::path(directory) / NAME).string();
}

bool record_is_name(const std::string &name) {
  return name == NAME;
}

bool record_is_in(const std::string &directory) {
  const std::string path = path_in(directory);
  struct stat status = {};
  if (lstat(path.c_str(), &status) != 0 || !S_ISREG(status.st_mode)) {
    return false;
  }
  const int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW);
  char start[sizeof MARK] = "";
  const bool ours =
      fd != -1 && read(fd, start, strlen(MARK)) >= 0 && (*start == '\0' || !strcmp(start, MARK));
  if (fd != -1) {
    close(fd);
  }
  return ours;
}

static void index_lines(batch_record *record) {
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

bool record_load(batch_record *record, std::string directory) {
  *record = {};
  record->directory = std::move(directory);
  record->path = path_in(record->directory);
  struct stat status = {};
  if (lstat(record->path.c_str(), &status) != 0) {
    return true;
  }
  if (!S_ISREG(status.st_mode)) {
    return fail(record->path + " is not a file; remove it, a record of the results has that name");
  }
  record->stamp = record_stamp(&status);
  const int fd = open(record->path.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW);
  const bool good = fd != -1 && process_read_all(fd, &record->text);
  const int error = errno;
  if (fd != -1) {
    close(fd);
  }
  if (!good) {
    return fail("cannot read " + record->path + ": " + strerror(error));
  }
  if (!record->text.empty() && record->text.rfind(MARK, 0) != 0) {
    return fail(record->path + " is no record of results; move it elsewhere, its name is needed");
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
  // A line is written before its result takes the name: a killed writer leaves the one before true.
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

// Waits for the lock; false with errno set.
static bool wait_for_lock(int fd) {
  while (flock(fd, LOCK_EX) != 0) {
    if (errno != EINTR || process_stopped()) {
      return false;
    }
  }
  return true;
}

// Whoever shortens a record puts a new file in its place: a lock on the old one is void.
static bool is_current(int fd, const std::string &path) {
  struct stat held = {};
  struct stat named = {};
  return fstat(fd, &held) == 0 && lstat(path.c_str(), &named) == 0 && held.st_dev == named.st_dev &&
         held.st_ino == named.st_ino;
}

int record_lock(const std::string &path) {
  for (;;) {
    const int fd =
        open(path.c_str(), O_RDWR | O_CREAT | O_APPEND | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK,
             ALL_READ_WRITE);
    if (fd == -1 || !wait_for_lock(fd)) {
      if (!process_stopped()) {
        report_line("cannot lock " + path + ": " + strerror(errno));
      }
      if (fd != -1) {
        close(fd);
      }
      return -1;
    }
    if (is_current(fd, path)) {
      return fd;
    }
    close(fd);
  }
}

bool record_is_usable(const batch_record *record) {
  const int fd = record->stamp.empty() ? -1 : record_lock(record->path);
  if (fd != -1) {
    close(fd);
  }
  return record->stamp.empty() || fd != -1;
}

// Removes the end of a line whose writer was killed. Returns the size of what is left, -1 with
// errno set.
static off_t trim(int fd) {
  struct stat status = {};
  std::string tail(TAIL_BYTES, '\0');
  if (fstat(fd, &status) != 0) {
    return -1;
  }
  const off_t start = std::max<off_t>(status.st_size - static_cast<off_t>(TAIL_BYTES), 0);
  const ssize_t count = pread(fd, &tail[0], TAIL_BYTES, start);
  if (count < 0) {
    return -1;
  }
  tail.resize(static_cast<size_t>(count));
  const size_t end = tail.rfind('\n');
  const off_t size = start + static_cast<off_t>(end == std::string::npos ? 0 : end + 1);
  return size == status.st_size || ftruncate(fd, size) == 0 ? size : -1;
}

bool record_add(int fd, const std::string &path, const record_entry *entry) {
  const off_t size = trim(fd);
  const std::string lines = (size == 0 ? HEADING : "") + record_line(entry);
  if (size >= 0 && process_write(fd, lines.data(), lines.size())) {
    return true;
  }
  const int error = errno;
  const bool restored = size < 0 || ftruncate(fd, size) == 0;
  return fail("writing " + path + " failed: " + strerror(error) +
              (restored ? "" : "; its last line is incomplete"));
}

// The lines that count, in the order of the names.
static std::string lines_that_count(const batch_record *record) {
  std::string text = HEADING;
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

void record_shorten(batch_record *record) {
  if (record->line_count < 2 * record->lines.size() + LINES_TO_DROP) {
    return;
  }
  const int fd = record_lock(record->path);
  output_file file;
  if (fd != -1 && record_load(record, record->directory) &&
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
