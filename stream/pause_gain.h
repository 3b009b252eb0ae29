// One gain for all bins, which falls while little of the energy is speech, and bins that are
// treated more alike the further it has fallen.
//
// A gain per bin leaves scattered noise in pauses, which sounds like music. There the share of the
// energy that it keeps is small, and that is a sign that holds for the whole frame.
#ifndef TM_SE_BF_STREAM_PAUSE_GAIN_H
#define TM_SE_BF_STREAM_PAUSE_GAIN_H

struct pause_gain {
  float gain;  // 0.25 .. 1
};

void pause_gain_init(pause_gain *pause);

// One frame. power: of the mix, per bin; over_noise: the same in units of the noise's;
// squared_gain: of the bins, drawn towards their mean. Returns the gain, which opens at once and
// closes over five frames.
float pause_gain_frame(pause_gain *pause, const float *power, const float *over_noise,
                       float *squared_gain);

#endif  // TM_SE_BF_STREAM_PAUSE_GAIN_H
