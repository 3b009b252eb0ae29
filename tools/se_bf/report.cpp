// Messages for the user on standard error: one line each, and a progress bar on terminals.
#include "report.h"

#include <stdio.h>
#include <time.h>
#include <unistd.h>

#include "plain_text.h"

static constexpr double REDRAW_S = 0.1;  // between two drawings of the bar
static constexpr int BAR_CELLS = 40;
static constexpr double NANOSECOND_S = 1e-9;
static constexpr double PER_CENT = 100.0;
static constexpr size_t NUMBER_TEXT_LEN = 64;  // characters of a formatted number, at most
static const char *const ERASE_LINE = "\r\033[K";

struct progress_bar {
  bool on;          // wanted, and standard error is a terminal
  bool drawn;       // a bar stands in the current line
  double drawn_at;  // read_clock() of the last drawing
};

static progress_bar g_bar = {false, false, 0.0};

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

static std::string bar_text(double seconds, double total) {
  const double share = seconds < total ? seconds / total : 1.0;
  const int full = static_cast<int>(share * BAR_CELLS);
  std::string text = "[";
  text.append(static_cast<size_t>(full), '#');
  text.append(static_cast<size_t>(BAR_CELLS - full), '.');
  return text + "] " + report_number(share * PER_CENT, 0) + " %";
}

void report_progress(double seconds, double total) {
  const double now = read_clock(CLOCK_MONOTONIC);
  if (!g_bar.on || (g_bar.drawn && now - g_bar.drawn_at < REDRAW_S)) {
    return;
  }
  const std::string text =
      total > 0.0 ? bar_text(seconds, total) : report_number(seconds, 1) + " s";
  fputs((ERASE_LINE + text).c_str(), stderr);
  fflush(stderr);
  g_bar.drawn = true;
  g_bar.drawn_at = now;
}

void report_progress_off() {
  erase_bar();
  g_bar.on = false;
}

std::string report_number(double value, int decimals) {
  char text[NUMBER_TEXT_LEN];
  snprintf(text, sizeof text, "%.*f", decimals, value);
  return text;
}

double report_processor_time() {
  return read_clock(CLOCK_PROCESS_CPUTIME_ID);
}
