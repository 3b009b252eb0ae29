// The table at the end of a batch: what became of each file.
#include "batch_table.h"

#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "plain_text.h"
#include "process.h"
#include "report.h"
#include "scene.h"

namespace {

constexpr size_t kNameWidth = 40;  // longer names push their row to the right
constexpr size_t kResultWidth = 17;
constexpr size_t kFiguresLen = 256;  // characters of the figures of a row, at most

// By state. No file is running at the end.
constexpr const char *kStateNames[] = {"not enhanced", "not enhanced", "enhanced",   "made anew",
                                       "skipped",      "failed",       "interrupted"};

std::string fill(const std::string &text, size_t width) {
  const size_t used = text_width(text);
  return used < width ? text + std::string(width - used, ' ') : text;
}

std::string figures_text(const enhance_figures *figures) {
  char text[kFiguresLen];
  const double duration = figures->duration_s;
  std::snprintf(text, sizeof text, " %9.2f  %-7s %9.4f %8lld %8lld", duration,
                scene_mode_name(figures->mode).c_str(),
                duration > 0.0 ? figures->computing_s / duration : 0.0,
                static_cast<long long>(figures->clipped_in),
                static_cast<long long>(figures->clipped_out));
  return text;
}

std::string row(const batch_file *file, const enhance_figures *figures) {
  const bool done = file->state == BATCH_DONE || file->state == BATCH_ANEW;
  const bool cut_off = done ? figures->cut_off : file->cut_off;
  const std::string result = std::string(kStateNames[file->state]) + (cut_off ? ", cut off" : "");
  return fill(text_harmless(file->place.in), kNameWidth) + "  " +
         (done ? fill(result, kResultWidth) + figures_text(figures) : result) + "\n";
}

std::string count_text(const std::vector<batch_file> &files, batch_state state) {
  return std::to_string(table_count(files, state)) + " " + kStateNames[state];
}

std::string sums(const std::vector<batch_file> &files) {
  std::string text = count_text(files, BATCH_DONE);
  for (const batch_state state :
       {BATCH_ANEW, BATCH_SKIPPED, BATCH_FAILED, BATCH_INTERRUPTED, BATCH_WAITING}) {
    const bool always = state == BATCH_SKIPPED || state == BATCH_FAILED;
    text += always || table_count(files, state) > 0 ? ", " + count_text(files, state) : "";
  }
  return text + "\n";
}

}  // namespace

size_t table_count(const std::vector<batch_file> &files, batch_state state) {
  size_t count = 0;
  for (const batch_file &file : files) {
    count += file.state == state ? 1 : 0;
  }
  return count;
}

bool table_print(const std::vector<batch_file> &files, const enhance_figures *figures) {
  char heading[kFiguresLen];
  std::snprintf(heading, sizeof heading, " %9s  %-7s %9s %8s %8s\n", "seconds", "mode", "real-time",
                "clip in", "clip out");
  std::string table = fill("file", kNameWidth) + "  " + fill("result", kResultWidth) + heading;
  for (size_t i = 0; i < files.size(); ++i) {
    table += row(&files[i], &figures[i]);
  }
  table += sums(files);
  if (!process_write(STDOUT_FILENO, table.data(), table.size())) {
    return report_failure(std::string("writing the table failed: ") + std::strerror(errno));
  }
  return true;
}
