// Gain of the second step, from the speech and noise powers that the first gain tells apart
// (Plapous, Marro and Scalart, "Improved signal-to-noise ratio estimation for speech enhancement",
// 2006), and a weak gain against late reverberation (Lebart, Boucher and Denbigh, "A new method
// based on spectral subtraction for speech dereverberation", 2001).
//
// The first gain follows a decision-directed SNR, which is late by a frame and leaves part of the
// noise. What it removes is noise: averaged, that is a noise estimate. What it keeps is speech: its
// power in the current frame needs little smoothing.
#ifndef TM_SE_BF_STREAM_SECOND_GAIN_H
#define TM_SE_BF_STREAM_SECOND_GAIN_H

#include "bin_vector.h"

// Frames of late reverberation that are kept. The oldest is 3 frames, 60 ms, back: what is earlier
// helps the ear.
constexpr int32_t kLateFrames = 4;

struct second_gain {
  float noise_power[kRefinedBins];        // average of (1 - g^2) P
  float noise_share[kRefinedBins];        // average of 1 - g^2
  float speech[kRefinedBins];             // power that the first gain keeps
  float kept[kRefinedBins];               // power that this gain keeps
  float late[kLateFrames][kRefinedBins];  // slow average of `kept`, a ring
  int32_t newest;                         // its newest row
};

// One frame; `s` is zero-filled at first. power: of the mix; first: the first gain, 0 .. 1; squared
// gain: G^2, 0 .. 1; over_noise: power in units of the noise's.
void second_gain_frame(second_gain *s, const float *power, const float *first, float *squared_gain,
                       float *over_noise);

#endif  // TM_SE_BF_STREAM_SECOND_GAIN_H
