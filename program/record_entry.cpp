// One line of a record of results: what a result was made from.
#include "record_entry.h"

#include <array>
#include <cstdio>
#include <cstdlib>
#include <ctime>

#include "plain_text.h"

namespace {

constexpr char kWhole[] = "whole";
constexpr char kCutOff[] = "cut off";
constexpr int kDecimal = 10;
constexpr size_t kFields = 7;
constexpr size_t kTimeLen = 64;  // characters of a time, at most

// Parts of a line between tabs, without its end; false when it is no entry.
bool split(const std::string &text, size_t start, std::array<std::string, kFields> *parts) {
  const size_t end = text.find('\n', start);
  size_t at = start;
  for (size_t n = 0; n < kFields; ++n) {
    const size_t tab = n + 1 < kFields ? text.find('\t', at) : end;
    if (tab == std::string::npos || tab > end) {
      return false;
    }
    (*parts)[n] = text.substr(at, tab - at);
    at = tab + 1;
  }
  return true;
}

}  // namespace

std::string record_stamp(const struct stat *status) {
  char date[kTimeLen] = "";
  char text[kTimeLen + kTimeLen];
  struct tm utc = {};
  if (gmtime_r(&status->st_mtim.tv_sec, &utc) != nullptr) {
    std::strftime(date, sizeof date, "%Y-%m-%d %H:%M:%S", &utc);
  }
  std::snprintf(text, sizeof text, "%lld %s.%09ld", static_cast<long long>(status->st_size), date,
                static_cast<long>(status->st_mtim.tv_nsec));
  return text;
}

long long record_stamp_bytes(const std::string &stamp) {
  return std::strtoll(stamp.c_str(), nullptr, kDecimal);
}

bool record_read(record_entry *entry, const std::string &text, size_t start) {
  std::array<std::string, kFields> parts;
  if (!split(text, start, &parts) || (parts[4] != kWhole && parts[4] != kCutOff)) {
    return false;
  }
  *entry = {text_unescape(parts[0]),
            parts[1],
            text_unescape(parts[2]),
            parts[3],
            parts[4] == kCutOff,
            parts[5],
            parts[6]};
  return true;
}

std::string record_line(const record_entry *entry) {
  return text_escape(entry->result) + "\t" + entry->result_stamp + "\t" +
         text_escape(entry->input) + "\t" + entry->input_stamp + "\t" +
         (entry->cut_off ? kCutOff : kWhole) + "\t" + entry->version + "\t" + entry->options + "\n";
}
