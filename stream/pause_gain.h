// One gain for all bins, which falls while little of the energy is speech.
//
// A gain per bin leaves scattered noise in pauses. There the share of the energy that it keeps is
// small, and that is a sign that holds for the whole frame.
#ifndef TM_SE_BF_STREAM_PAUSE_GAIN_H
#define TM_SE_BF_STREAM_PAUSE_GAIN_H

struct pause_gain {
  float gain;  // 0.25 .. 1
};

void pause_gain_init(pause_gain *pause);

// One frame. power: of the mix, per bin; squared_gain: of the bins. Returns the gain, which opens
// at once and closes over five frames.
float pause_gain_frame(pause_gain *pause, const float *power, const float *squared_gain);

#endif  // TM_SE_BF_STREAM_PAUSE_GAIN_H
