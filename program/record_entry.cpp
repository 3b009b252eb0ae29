// One line of a record of results: what a result was made from.
#include "record_entry.h"

#include <stdio.h>
#include <stdlib.h>
#include <time.h>

#include <array>

#include "plain_text.h"

static const char *const WHOLE = "whole";
static const char *const CUT_OFF = "cut off";
static constexpr int DECIMAL = 10;
static constexpr size_t FIELDS = 7;
static constexpr size_t TIME_LEN = 64;  // characters of a time, at most

std::string record_stamp(const struct stat *status) {
  char date[TIME_LEN] = "";
  char text[TIME_LEN + TIME_LEN];
  struct tm utc = {};
  if (gmtime_r(&status->st_mtim.tv_sec, &utc) != nullptr) {
    strftime(date, sizeof date, "%Y-%m-%d %H:%M:%S", &utc);
  }
  snprintf(text, sizeof text, "%lld %s.%09ld", static_cast<long long>(status->st_size), date,
           static_cast<long>(status->st_mtim.tv_nsec));
  return text;
}

long long record_stamp_bytes(const std::string &stamp) {
  return strtoll(stamp.c_str(), nullptr, DECIMAL);
}

// Parts of a line between tabs, without its end; false when it is no entry.
static bool split(const std::string &text, size_t start, std::array<std::string, FIELDS> *parts) {
  const size_t end = text.find('\n', start);
  size_t at = start;
  for (size_t n = 0; n < FIELDS; ++n) {
    const size_t tab = n + 1 < FIELDS ? text.find('\t', at) : end;
    if (tab == std::string::npos || tab > end) {
      return false;
    }
    (*parts)[n] = text.substr(at, tab - at);
    at = tab + 1;
  }
  return true;
}

bool record_read(record_entry *entry, const std::string &text, size_t start) {
  std::array<std::string, FIELDS> parts;
  if (!split(text, start, &parts) || (parts[4] != WHOLE && parts[4] != CUT_OFF)) {
    return false;
  }
  *entry = {text_unescape(parts[0]),
            parts[1],
            text_unescape(parts[2]),
            parts[3],
            parts[4] == CUT_OFF,
            parts[5],
            parts[6]};
  return true;
}

std::string record_line(const record_entry *entry) {
  return text_escape(entry->result) + "\t" + entry->result_stamp + "\t" +
         text_escape(entry->input) + "\t" + entry->input_stamp + "\t" +
         (entry->cut_off ? CUT_OFF : WHOLE) + "\t" + entry->version + "\t" + entry->options + "\n";
}
