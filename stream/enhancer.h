// The enhancement of a stream at 16 kHz, block by block: the setting at work, and the change to
// another one without a gap.
//
// A new setting gets a lane beside the running one. It hears the remembered second of sound at
// kCatchUpBlocks times the speed, so that no block of the stream costs a second's work; when it has
// caught up, one block fades from the old lane to the new one. What the caller asks for meanwhile
// waits, so that a setting that keeps moving is followed. A lane that has lost a microphone to a
// fault is renewed in the same way.
#ifndef TM_SE_BF_STREAM_ENHANCER_H
#define TM_SE_BF_STREAM_ENHANCER_H

#include <cstdint>

#include "fault_monitor.h"
#include "history.h"
#include "lane.h"

// Blocks that a new lane hears in the time of one: it catches up with a second in half a second,
// and such a block costs up to four times that of one lane.
constexpr int32_t kCatchUpBlocks = 3;

enum lane_change : int32_t {
  CHANGE_NONE,
  CHANGE_SETTING,  // the caller asked for it
  CHANGE_RENEWAL   // after a fault has healed
};

enum change_stage : int32_t {
  STAGE_CREATE,
  STAGE_INIT,
  STAGE_HEAR  // the lane hears what is remembered
};

// A block of output. Where the core needs headroom its samples are kHeadroom lower than those of
// the core would be. Floats are raised when they are given out; words stay, since they would
// saturate.
struct enhanced_block {
  int16_t samples[kStreamBlock];
  bool lowered;   // floats are to be raised by kRaise
  int32_t alone;  // channel that stands for both, which are copies; or kBothChannels
};

// Receives events with times at 16 kHz.
typedef void (*enhancer_event_fn)(void *user, const se_bf_stream_event *event);

struct enhancer {
  enhancer_event_fn on_event;
  void *user;
  int32_t delay;  // samples by which the output is late, for life
  int64_t time;   // first sample of the current block
  bool words;     // the output is given out as words
  copy_watch copies;
  fault_monitor monitor;
  int32_t running;       // index of the lane that is heard
  lane_setting wanted;   // what the caller asked for last
  lane_change change;    // what the other lane is prepared for
  change_stage stage;    // how far that has come
  int32_t backlog;       // remembered blocks that it has not heard yet
  int32_t clean_blocks;  // blocks without a fault that it has heard since the last one with a fault
  int64_t clean_since;   // first sample of them
  int16_t before[kStreamMaxChannels * kStreamBlock];  // the block before, where a copy may want it
  enhanced_block fresh;                               // output of the other lane
  lane lanes[2];
  history past;
};

// Makes both lanes. False when the core cannot be made. `e` is zero-filled.
bool enhancer_open(enhancer *e, const lane_setting *setting, enhancer_event_fn on_event,
                   void *user);

// Processes kStreamBlock samples per channel, interleaved, into a block of output; `block` stays as
// it is.
void enhancer_block(enhancer *e, int16_t *block, enhanced_block *out);

// Asks for a setting with the same channels and hop; false when its delay is longer than that of
// the enhancer. The limit of the attenuation changes at once.
bool enhancer_change(enhancer *e, const lane_setting *setting);

// Forgets all sound; the setting is that of the last change.
void enhancer_reset(enhancer *e);

#endif  // TM_SE_BF_STREAM_ENHANCER_H
