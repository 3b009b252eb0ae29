// The subcommand `se_bf conform`: runs the library's self-test and judges the library by its report
// and by its own comparison of the samples.
#include "conform.h"

#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "bit_check.h"
#include "child_process.h"
#include "process.h"
#include "report.h"
#include "scene.h"
#include "tm_se_bf.h"

namespace {

constexpr double kMinSimilarity = 0.999;
constexpr double kMaxPowerError = 0.01;  // of the power ratio 1
constexpr int kDecimals = 6;             // of the figures in the report
constexpr char kEqual[] = "1.000000";    // both of them for an equal output
constexpr int kAgreesClosely = 3;        // exit status
constexpr char kAdvice[] =
    "; build the library as its CMake files do, without unsafe floating-point optimisation";

struct agreement {
  double similarity;
  double power;  // ratio to the reference
};

// Runs the test in this process, which ends with it. The levels and the pool of the library belong
// to the process, so that every type needs one of its own.
[[noreturn]] void run_self_test(const std::string &type, int hop, int answer_fd) {
  if (dup2(answer_fd, STDOUT_FILENO) == -1) {
    _exit(1);
  }
  se_bf_conformance_test(type.c_str(), hop);
  _exit(std::fflush(stdout) == 0 ? 0 : 1);
}

// Compares the samples in this process, which ends with it; the answer is a bit_check_result.
[[noreturn]] void run_bit_check(int answer_fd) {
  bit_check_result result;
  if (process_claim_stdout() == -1) {
    _exit(1);
  }
  bit_check_run(&result);
  _exit(process_write(answer_fd, &result, sizeof result) ? 0 : 1);
}

// Runs one type, or the comparison of samples for no type, in a process of its own and returns its
// answer.
bool run_apart(const std::string &type, int hop, std::string *answer) {
  child_process child;
  if (!child_start(&child)) {
    return report_failure(std::string("cannot start a process: ") + std::strerror(errno));
  }
  if (child.id == 0) {
    type.empty() ? run_bit_check(child.fd) : run_self_test(type, hop, child.fd);
  }
  const bool read_all = process_read_all(child.fd, answer);
  const int status = child_end(&child);
  const bool good = read_all && WIFEXITED(status) && WEXITSTATUS(status) == 0;
  return good || report_failure(type.empty()
                                    ? "the library ended the comparison of samples early"
                                    : "the self-test of type " + type + " ended before its report");
}

bool print_report(const std::string &text) {
  return process_write(STDOUT_FILENO, text.data(), text.size()) ||
         report_failure(std::string("writing the report failed: ") + std::strerror(errno));
}

// Reads the number that follows `label` in the last line of the report; NaN without one.
double figure(const std::string &report, const char *label) {
  const size_t at = report.rfind(label);
  if (at == std::string::npos) {
    return std::nan("");
  }
  const char *number = report.c_str() + at + std::strlen(label);
  char *end = nullptr;
  const double value = std::strtod(number, &end);
  return end == number ? std::nan("") : value;
}

std::string type_of(const std::string &mode) {
  return "bf_" + mode;
}

// What the stored reference is the output of; other figures are for comparison.
std::string judged_type() {
  return type_of(scene_mode_name(kBitCheckMode));
}

std::string judged_run() {
  return "type " + judged_type() + " at hop " + std::to_string(kBitCheckHop);
}

bool is_close(const agreement *a) {
  return a->similarity >= kMinSimilarity && std::fabs(a->power - 1.0) <= kMaxPowerError;
}

std::string describe(const agreement *a) {
  return "similarity " + report_number(a->similarity, kDecimals) + ", power ratio " +
         report_number(a->power, kDecimals);
}

std::string describe_difference(const bit_check_result *check) {
  const std::string all = std::to_string(check->compared);
  if (check->differing == 0) {
    return "all " + all + " samples equal the reference, but the library's own report denies it";
  }
  return std::to_string(check->differing) + " of " + all + " samples differ, the first at " +
         report_number(static_cast<double>(check->first) / kRateHz, 4) + " s (sample " +
         std::to_string(check->first) + "), by at most " + std::to_string(check->largest);
}

// Prints the verdict and returns the exit status. The report alone is not enough: its figures are
// rounded, and the library itself writes it.
int judge(const std::string &report, const bit_check_result *check) {
  const agreement told = {figure(report, "similarity="), figure(report, "pwr_sim=")};
  const agreement measured = {check->similarity, check->power};
  if (!check->complete) {
    report_line("this installation does not conform: se_bf_do or se_bf_init gives other counts" +
                std::string(kAdvice));
    return 1;
  }
  if (!is_close(&told) || !is_close(&measured)) {
    report_line("this installation does not conform: " + judged_run() + " gives " +
                describe(&told) + " by its own report and " + describe(&measured) +
                " as measured, required are " + report_number(kMinSimilarity, 3) + " and " +
                report_number(1.0 - kMaxPowerError, 2) + " to " +
                report_number(1.0 + kMaxPowerError, 2) + kAdvice);
    return 1;
  }
  const bool says_equal = report_number(told.similarity, kDecimals) == kEqual &&
                          report_number(told.power, kDecimals) == kEqual;
  if (!says_equal || check->differing > 0) {
    report_line("this installation agrees closely but not to the bit: " +
                describe_difference(check) + " (" + describe(&told) + ")" + kAdvice);
    return kAgreesClosely;
  }
  return print_report("verdict: this installation conforms: all " +
                      std::to_string(check->compared) + " samples equal the reference (" +
                      describe(&told) + ")\n")
             ? 0
             : 1;
}

int compare_and_judge(const std::string &report) {
  bit_check_result check;
  std::string answer;
  if (!run_apart("", kBitCheckHop, &answer) || answer.size() != sizeof check) {
    return 1;
  }
  std::memcpy(&check, answer.data(), sizeof check);
  return judge(report, &check);
}

}  // namespace

std::vector<std::string> conform_types() {
  std::vector<std::string> types;
  for (const scene_mode &mode : kModes) {
    if (mode.value >= SE_BF_MODE_MEAN) {  // of the core
      types.push_back(type_of(mode.name));
    }
  }
  return types;
}

int conform_run(const conform_options *options) {
  process_catch_signals();
  std::string judged;
  if (options->type.empty() && !print_report("judged is " + judged_run() +
                                             " alone; other figures are for comparison and may "
                                             "differ from 1\n")) {
    return 1;
  }
  for (const std::string &type : conform_types()) {
    std::string report;
    if (!options->type.empty() && options->type != type) {
      continue;
    }
    if (process_stopped() || !run_apart(type, options->hop, &report) || !print_report(report)) {
      return 1;
    }
    if (type == judged_type() && options->hop == kBitCheckHop) {
      judged = report;
    }
  }
  if (judged.empty()) {
    report_line("no verdict: the stored reference belongs to " + judged_run() +
                "; run se_bf conform without arguments");
    return 1;
  }
  return compare_and_judge(judged);
}
