// Finds the delay of the talker between two microphones.
//
// Speech adds to the cross-spectrum of the noise. What it adds, with its magnitude taken away
// (Knapp and Carter, "The generalized correlation method for estimation of time delay", 1976) and
// weighted by its coherence and by how often the bin has speech, is compared with the phase of
// every delay; the best one is followed smoothly. Subtracting the noise keeps the delay of a loud
// fan from winning.
//
// Twice a second there is a new result. So that no frame costs much more than another, the frames
// before it search all delays in coarse steps; its own frame searches the surroundings of what they
// found in fine steps, with all that has been heard by then.
#ifndef TM_SE_BF_STREAM_TALKER_DIRECTION_H
#define TM_SE_BF_STREAM_TALKER_DIRECTION_H

#include <cstdint>

#include "bin_vector.h"
#include "noise/mcra_p.h"
#include "support/core_state.h"

// Bins 1 .. 176, up to 5.5 kHz, are followed.
constexpr int32_t kDirectionBins = 176;

// Averages over frames of w |X0|^2, w |X1|^2 and w X0 conj(X1), and of the weight w itself.
struct direction_average {
  float weight[kDirectionBins];
  float power0[kDirectionBins];
  float power1[kDirectionBins];
  float cross_re[kDirectionBins];
  float cross_im[kDirectionBins];
};

#pragma pack(push, 4)
struct talker_direction {
  mcra_state *presence;      // speech presence per bin
  int32_t frame;             // frames heard
  float delay;               // of channel 1 against channel 0, in samples
  float target;              // result of the last search that found something
  bool found;                // some search has found something
  float confidence;          // peak of the last search, 0 .. 1
  float next_delay;          // next candidate of the search under way
  float best_delay;          // best one so far
  float best_sum;            // its sum
  float weight_sum;          // largest sum possible
  direction_average speech;  // weighted by the presence and the share of speech
  direction_average noise;   // weighted by the absence of speech
  float power[kDirectionBins];
  float ringing[kDirectionBins];    // decaying peak of the power
  float phasor_re[kDirectionBins];  // weighted phasors, turned to the next candidate
  float phasor_im[kDirectionBins];
  bin_spectrum coarse_turn;  // turn from one coarse candidate to the next
  bin_spectrum fine_turn;    // and from one fine one to the next
};
#pragma pack(pop)

// Prepares a zero-filled record; what it needs beside comes from the pool. False when that is
// exhausted.
bool talker_direction_init(talker_direction *d, core_state *core);

// Hears one frame of both channels; afterwards `delay` is up to date.
void talker_direction_frame(talker_direction *d, const bin_spectrum *x0, const bin_spectrum *x1);

#endif  // TM_SE_BF_STREAM_TALKER_DIRECTION_H
