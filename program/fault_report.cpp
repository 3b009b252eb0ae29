// Messages on microphone faults during enhancement.
#include "fault_report.h"

#include "report.h"
#include "scene.h"

namespace {

constexpr int kMaxEvents = 20;  // reported per run

std::string seconds(int64_t samples) {
  return report_number(static_cast<double>(samples) / kRateHz, 2) + " s";
}

std::string describe(const fault_report *report, const host_event *event) {
  const std::string since = seconds(event->since);
  switch (event->kind) {
    case HOST_EVENT_DEAD:
      return "warning: microphone " + std::to_string(event->mic) +
             " is silent or 40 dB weaker from " + since + " on; the other one is used alone";
    case HOST_EVENT_IDENTICAL:
      return "warning: the two channels of " + report->input + " are identical from " + since +
             " on; noise is suppressed as with one microphone";
    case HOST_EVENT_SILENT:
      return "warning: both microphones are silent from " + since +
             " on, which counts as a fault with --plain";
    case HOST_EVENT_EQUAL_LEVELS:
      return "both microphones had exactly the same level at " + since +
             ", which counts as a fault";
    default:
      break;
  }
  std::string healed = "both microphones work again since " + since;
  if (!report->beamformer) {
    return healed;
  }
  return healed + (event->beamforming ? "; beamforming resumed at " + seconds(event->time)
                   : report->plain    ? "; there is no beamforming any more because of --plain"
                                      : "; beamforming did not resume");
}

}  // namespace

void fault_report_event(void *user, const host_event *event) {
  fault_report *report = static_cast<fault_report *>(user);
  ++report->events;
  if (report->events < kMaxEvents) {
    report_line(describe(report, event));
  } else if (report->events == kMaxEvents) {
    report_line("warning: the microphones keep failing; no more of it is reported");
  }
}
