// Messages for the user on standard error: one line each, and a progress bar on terminals.
#include "report.h"

#include <stdio.h>
#include <sys/ioctl.h>
#include <time.h>
#include <unistd.h>

#include "plain_text.h"

static constexpr double REDRAW_S = 0.1;  // between two drawings of the bar
static constexpr size_t BAR_CELLS = 40;
static constexpr size_t LEAST_CELLS = 4;  // a shorter bar tells less than the percentage alone
static constexpr size_t SHARE_LEN = 5;    // characters of "100 %"
static constexpr double NANOSECOND_S = 1e-9;
static constexpr double PER_CENT = 100.0;
static constexpr size_t NUMBER_TEXT_LEN = 64;  // characters of a formatted number, at most
static const char *const ERASE_LINE = "\r\033[K";

struct progress_bar {
  bool on;           // wanted, and standard error is a terminal
  bool drawn;        // a bar stands in the current line
  double drawn_at;   // read_clock() of the last drawing
  std::string task;  // that is shown beside it, with a space behind; may be empty
};

static progress_bar g_bar = {false, false, 0.0, ""};

static double read_clock(clockid_t clock) {
  timespec now = {};
  clock_gettime(clock, &now);
  return static_cast<double>(now.tv_sec) + NANOSECOND_S * static_cast<double>(now.tv_nsec);
}

static void erase_bar() {
  if (g_bar.drawn) {
    fputs(ERASE_LINE, stderr);
    g_bar.drawn = false;
  }
}

void report_line(const std::string &text) {
  const std::string line = "se_bf: " + text_harmless(text) + "\n";
  erase_bar();
  fputs(line.c_str(), stderr);
}

void report_progress_on() {
  g_bar.on = isatty(STDERR_FILENO) == 1;
}

void report_progress_task(const std::string &task) {
  g_bar.task = task + " ";
}

// Characters that fit on one line of the terminal without a break behind the last; unlimited if the
// terminal does not report its width.
static size_t line_room() {
  winsize size = {};
  const bool known = ioctl(STDERR_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 0;
  return known ? static_cast<size_t>(size.ws_col) - 1 : SIZE_MAX;
}

// The bar, as long as `room` allows; if there is too little room, the percentage.
static std::string bar_text(double share, size_t room) {
  const std::string number = report_number(share * PER_CENT, 0) + " %";
  const size_t around = g_bar.task.size() + sizeof "[] " - 1 + SHARE_LEN;
  const size_t left = room > around ? room - around : 0;
  const size_t cells = left < BAR_CELLS ? left : BAR_CELLS;
  if (cells < LEAST_CELLS) {
    return g_bar.task.size() + SHARE_LEN > room ? number : g_bar.task + number;
  }
  const size_t full = static_cast<size_t>(share * static_cast<double>(cells));
  return g_bar.task + "[" + std::string(full, '#') + std::string(cells - full, '.') + "] " + number;
}

void report_progress(double seconds, double total) {
  const double now = read_clock(CLOCK_MONOTONIC);
  if (!g_bar.on || (g_bar.drawn && now - g_bar.drawn_at < REDRAW_S)) {
    return;
  }
  const size_t room = line_room();
  std::string text = total > 0.0 ? bar_text(seconds < total ? seconds / total : 1.0, room)
                                 : g_bar.task + report_number(seconds, 1) + " s";
  if (text.size() > room) {
    text.resize(room);
  }
  fputs((ERASE_LINE + text).c_str(), stderr);
  fflush(stderr);
  g_bar.drawn = true;
  g_bar.drawn_at = now;
}

void report_progress_off() {
  erase_bar();
  g_bar.on = false;
  g_bar.task.clear();
}

std::string report_number(double value, int decimals) {
  char text[NUMBER_TEXT_LEN];
  snprintf(text, sizeof text, "%.*f", decimals, value);
  return text;
}

double report_processor_time() {
  return read_clock(CLOCK_PROCESS_CPUTIME_ID);
}
