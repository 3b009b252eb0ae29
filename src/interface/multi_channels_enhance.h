// The frame driver: cuts a call into analysis frames and runs the mode's path on each.
//
// Signal path of a frame: block buffer (channel mean in the mono modes) -> STFT analysis -> noise
// estimate -> [covariances -> weights -> beamformer] -> gain -> STFT synthesis -> block buffer.
// se_bf_do, which drives it, is declared in tm_se_bf.h.
#ifndef TM_SE_BF_INTERFACE_MULTI_CHANNELS_ENHANCE_H
#define TM_SE_BF_INTERFACE_MULTI_CHANNELS_ENHANCE_H

#include "interface/se_bf_instance.h"

// Runs the path of `mode` on the hop at the instance's `frame`, which in the mono modes is the
// channel mean already, and writes the output hop, L floats. Modes without a path pass channel 0
// through.
void se_bf_core_frm_proc(se_bf_inst *inst, int32_t mode, float *out);

#endif  // TM_SE_BF_INTERFACE_MULTI_CHANNELS_ENHANCE_H
