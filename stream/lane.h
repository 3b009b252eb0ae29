// One setting at work: the core or the refined path behind a shield, or a delayed copy.
#ifndef TM_SE_BF_STREAM_LANE_H
#define TM_SE_BF_STREAM_LANE_H

#include <cstdint>

#include "core_instance.h"
#include "fault_monitor.h"
#include "refined_path.h"
#include "shield.h"

// What a lane is to do.
struct lane_setting {
  core_setting core;
  bool plain;                // no shielding
  bool refined;              // the refined path instead of the core's
  bool find_direction;       // refined: search the talker although the spacing is known
  float max_attenuation_db;  // refined: limit of the attenuation; 0: none
};

struct lane {
  lane_setting setting;
  int32_t delay;  // samples by which a copy is late
  bool copies;    // channel 0 as it is; the core does not run
  bool watched;   // the core compares the microphones
  bool shielded;  // silence is bridged and faults are healed
  bool lowered;   // the output is kHeadroom below what is meant, as the core's input was
  bool single;    // a fault has ended beamforming, or the use of both microphones, for good
  int32_t alone;  // microphone that is used alone from then on, or kBothChannels
  shield gate;
  core_instance core;
  refined_path *refined;  // lies in the pool of `core` instead of an instance, or null
  int16_t scratch[kStreamMaxChannels * kStreamBlock];  // input as the core gets it
};

// What became of a block.
struct lane_result {
  bool processed;   // false: held back by the shield, the output is silence
  mic_fault fault;  // what takes something from the mode at work, or what a shield makes good
};

// Samples until the last trace of a sound has left the core.
int32_t lane_signal_path(const lane_setting *setting);

// Whether nobody could tell one setting from the other, but for the limit of the attenuation.
bool lane_settings_equal(const lane_setting *a, const lane_setting *b);

// Start the lane afresh, in two steps; delay: by which a copy is late, at most a block. The second
// is false when the core cannot be made.
void lane_create(lane *l, const lane_setting *setting, int32_t delay);
bool lane_init(lane *l);

// Processes a block of kStreamBlock samples per channel into kStreamBlock samples; `block` stays as
// it is. before: the block before, with which a delayed copy starts.
lane_result lane_block(lane *l, int16_t *block, const block_facts *facts, const int16_t *before,
                       int16_t *out);

// Sets the limit of the attenuation where the lane is refined, from the next block on.
void lane_set_limit(lane *l, float max_attenuation_db);

// Lets a lane that has just been made begin with what another has found out about talker and
// microphones, where both are refined.
void lane_carry(lane *l, const lane *from);

// Tells where the talker is; false when the lane does not know.
bool lane_direction(const lane *l, se_bf_stream_direction_info *info);

#endif  // TM_SE_BF_STREAM_LANE_H
