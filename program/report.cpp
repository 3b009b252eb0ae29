// Messages for the user on standard error: one line each, and a progress bar on terminals.
#include "report.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <cstdio>
#include <ctime>

#include "plain_text.h"

namespace {

constexpr double kRedrawS = 0.1;  // between two drawings of the bar
constexpr size_t kBarCells = 40;
constexpr size_t kLeastCells = 4;  // a shorter bar tells less than the percentage alone
constexpr size_t kShareLen = 5;    // characters of "100 %"
constexpr double kNanosecondS = 1e-9;
constexpr double kPerCent = 100.0;
constexpr size_t kNumberTextLen = 64;  // characters of a formatted number, at most
constexpr char kEraseLine[] = "\r\033[K";

struct progress_bar {
  bool on;           // wanted, and standard error is a terminal
  bool drawn;        // a bar stands in the current line
  double drawn_at;   // read_clock() of the last drawing
  std::string task;  // that is shown beside it, with a space behind; may be empty
};

progress_bar g_bar = {false, false, 0.0, ""};

double read_clock(clockid_t clock) {
  timespec now = {};
  clock_gettime(clock, &now);
  return static_cast<double>(now.tv_sec) + kNanosecondS * static_cast<double>(now.tv_nsec);
}

void erase_bar() {
  if (g_bar.drawn) {
    std::fputs(kEraseLine, stderr);
    g_bar.drawn = false;
  }
}

// Characters that fit on one line of the terminal without a break behind the last; unlimited if the
// terminal does not report its width.
size_t line_room() {
  winsize size = {};
  const bool known = ioctl(STDERR_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 0;
  return known ? static_cast<size_t>(size.ws_col) - 1 : SIZE_MAX;
}

// The bar, as long as `room` allows; if there is too little room, the percentage.
std::string bar_text(double share, size_t room) {
  const std::string number = report_number(share * kPerCent, 0) + " %";
  const size_t around = g_bar.task.size() + sizeof "[] " - 1 + kShareLen;
  const size_t left = room > around ? room - around : 0;
  const size_t cells = left < kBarCells ? left : kBarCells;
  if (cells < kLeastCells) {
    return g_bar.task.size() + kShareLen > room ? number : g_bar.task + number;
  }
  const size_t full = static_cast<size_t>(share * static_cast<double>(cells));
  return g_bar.task + "[" + std::string(full, '#') + std::string(cells - full, '.') + "] " + number;
}

}  // namespace

void report_line(const std::string &text) {
  const std::string line = "se_bf: " + text_harmless(text) + "\n";
  erase_bar();
  std::fputs(line.c_str(), stderr);
}

bool report_failure(const std::string &text) {
  report_line(text);
  return false;
}

void report_progress_on() {
  g_bar.on = isatty(STDERR_FILENO) == 1;
}

void report_progress_task(const std::string &task) {
  g_bar.task = task + " ";
}

void report_progress(double seconds, double total) {
  const double now = read_clock(CLOCK_MONOTONIC);
  if (!g_bar.on || (g_bar.drawn && now - g_bar.drawn_at < kRedrawS)) {
    return;
  }
  const size_t room = line_room();
  std::string text = total > 0.0 ? bar_text(seconds < total ? seconds / total : 1.0, room)
                                 : g_bar.task + report_number(seconds, 1) + " s";
  if (text.size() > room) {
    text.resize(room);
  }
  std::fputs((kEraseLine + text).c_str(), stderr);
  std::fflush(stderr);
  g_bar.drawn = true;
  g_bar.drawn_at = now;
}

void report_progress_off() {
  erase_bar();
  g_bar.on = false;
  g_bar.task.clear();
}

std::string report_number(double value, int decimals) {
  char text[kNumberTextLen];
  std::snprintf(text, sizeof text, "%.*f", decimals, value);
  return text;
}

double report_processor_time() {
  return read_clock(CLOCK_PROCESS_CPUTIME_ID);
}
