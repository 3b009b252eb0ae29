// The subcommand `se_bf conform`: runs the library's self-test and judges its report.
#include "conform.h"

#include <errno.h>
#include <math.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/wait.h>
#include <unistd.h>

#include "process.h"
#include "report.h"
#include "tm_se_bf.h"

const char *const CONFORM_TYPES[] = {"bf_mean", "bf_omlsa", "bf_mvdr", "bf_mono", nullptr};

// The stored reference is what this type gives at this hop; other figures are for comparison.
static const char *const JUDGED_TYPE = "bf_mvdr";
static constexpr int JUDGED_HOP = 192;
static constexpr double MIN_SIMILARITY = 0.999;
static constexpr double MAX_POWER_ERROR = 0.01;  // of the power ratio 1

// Runs the test in this process, which ends with it. The levels and the pool of the library belong
// to the process, so that every type needs one of its own.
[[noreturn]] static void run_child(const std::string &type, int hop, int report_fd) {
  if (dup2(report_fd, STDOUT_FILENO) == -1) {
    _exit(1);
  }
  se_bf_conformance_test(type.c_str(), hop);
  _exit(fflush(stdout) == 0 ? 0 : 1);
}

static bool fail(const std::string &text) {
  report_line(text);
  return false;
}

// Runs one type in a process of its own and returns its report in `text`.
static bool run_type(const std::string &type, int hop, std::string *text) {
  int ends[2];
  if (pipe(ends) != 0) {
    return fail(std::string("cannot make a pipe: ") + strerror(errno));
  }
  const pid_t child = fork();
  if (child == 0) {
    close(ends[0]);
    run_child(type, hop, ends[1]);
  }
  close(ends[1]);
  if (child == -1) {
    close(ends[0]);
    return fail(std::string("cannot start a process: ") + strerror(errno));
  }
  const bool read_all = process_read_all(ends[0], text);
  close(ends[0]);
  int status = 0;
  while (waitpid(child, &status, 0) == -1 && errno == EINTR) {
  }
  const bool good = read_all && WIFEXITED(status) && WEXITSTATUS(status) == 0;
  return good || fail("the self-test of type " + type + " ended before its report");
}

static bool print_report(const std::string &text) {
  return process_write(STDOUT_FILENO, text.data(), text.size()) ||
         fail(std::string("writing the report failed: ") + strerror(errno));
}

// Reads the number that follows `label` in the last line of the report; NaN without one.
static double figure(const std::string &report, const char *label) {
  const size_t at = report.rfind(label);
  if (at == std::string::npos) {
    return nan("");
  }
  const char *number = report.c_str() + at + strlen(label);
  char *end = nullptr;
  const double value = strtod(number, &end);
  return end == number ? nan("") : value;
}

static bool judge(const std::string &report) {
  const double similarity = figure(report, "similarity=");
  const double power = figure(report, "pwr_sim=");
  const std::string figures =
      "similarity " + report_number(similarity, 6) + ", power ratio " + report_number(power, 6);
  if (similarity >= MIN_SIMILARITY && fabs(power - 1.0) <= MAX_POWER_ERROR) {
    return print_report("verdict: this installation conforms (" + figures + ")\n");
  }
  return fail("this installation does not conform: type bf_mvdr at hop 192 gives " + figures +
              ", required are 0.999 and 0.99 to 1.01; build the library without unsafe floating-"
              "point optimisation");
}

int conform_run(const conform_options *options) {
  process_catch_signals();
  std::string judged;
  for (size_t i = 0; CONFORM_TYPES[i] != nullptr; ++i) {
    const std::string type = CONFORM_TYPES[i];
    std::string report;
    if (!options->type.empty() && options->type != type) {
      continue;
    }
    if (process_stopped() || !run_type(type, options->hop, &report) || !print_report(report)) {
      return 1;
    }
    if (type == JUDGED_TYPE && options->hop == JUDGED_HOP) {
      judged = report;
    }
  }
  if (judged.empty()) {
    report_line(
        "no verdict: the stored reference belongs to type bf_mvdr at hop 192; run "
        "se_bf conform without arguments");
    return 1;
  }
  return judge(judged) ? 0 : 1;
}
