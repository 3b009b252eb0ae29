// Messages on microphone faults during enhancement.
#include "fault_report.h"

#include "report.h"

namespace {

constexpr int kMaxEvents = 20;  // reported per run

std::string seconds(const fault_report *report, int64_t samples) {
  return report_number(static_cast<double>(samples) / report->rate_hz, 2) + " s";
}

std::string describe(const fault_report *report, const se_bf_stream_event *event) {
  const std::string since = seconds(report, event->since);
  switch (event->kind) {
    case SE_BF_STREAM_DEAD:
      return "warning: microphone " + std::to_string(event->mic) +
             " is silent or 40 dB weaker from " + since + " on; the other one is used alone";
    case SE_BF_STREAM_IDENTICAL:
      return "warning: the two channels of " + report->input + " are identical from " + since +
             " on; they count as one microphone";
    case SE_BF_STREAM_COPIES:
      return "warning: the two channels of " + report->input +
             " carry the same sound but for a factor from " + since +
             " on; the louder one, microphone " + std::to_string(event->mic) + ", is used alone";
    case SE_BF_STREAM_SILENT:
      return "warning: both microphones are silent from " + since +
             " on, which counts as a fault with --plain";
    case SE_BF_STREAM_EQUAL_LEVELS:
      return "both microphones had exactly the same level at " + since +
             ", which counts as a fault with --plain";
    default:
      break;
  }
  std::string healed = "both microphones work again since " + since;
  if (!report->beamformer) {
    return healed;
  }
  return healed + (event->beamforming == 1
                       ? "; beamforming resumes soon after " + seconds(report, event->time)
                   : report->plain ? "; there is no beamforming any more because of --plain"
                                   : "; beamforming did not resume");
}

}  // namespace

void fault_report_event(void *user, const se_bf_stream_event *event) {
  fault_report *report = static_cast<fault_report *>(user);
  ++report->events;
  if (report->events < kMaxEvents) {
    report_line(describe(report, event));
  } else if (report->events == kMaxEvents) {
    report_line("warning: the microphones keep failing; no more of it is reported");
  }
}
