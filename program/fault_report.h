// Messages on microphone faults during enhancement.
#ifndef SE_BF_FAULT_REPORT_H
#define SE_BF_FAULT_REPORT_H

#include <string>

#include "tm_se_bf_stream.h"

struct fault_report {
  std::string input;  // name of the sound
  int rate_hz;        // of it
  bool beamformer;    // runs, so that it may resume
  bool plain;         // without shielding
  int events;         // reported so far
};

// A stream's on_event: prints a line on the event; `user` is its fault_report. After many
// lines it prints one that says so, and then none, because a loose contact would fill screens.
void fault_report_event(void *user, const se_bf_stream_event *event);

#endif  // SE_BF_FAULT_REPORT_H
