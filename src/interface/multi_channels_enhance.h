// The frame driver: cuts a call into analysis frames and runs the mode's path on each.
//
// Signal path of a frame: block buffer -> [channel mean] -> STFT analysis -> noise estimate ->
// [covariances -> weights -> beamformer] -> gain -> STFT synthesis -> block buffer.
// se_bf_do, which drives it, is declared in tm_se_bf.h.
#ifndef TM_SE_BF_INTERFACE_MULTI_CHANNELS_ENHANCE_H
#define TM_SE_BF_INTERFACE_MULTI_CHANNELS_ENHANCE_H

#include "interface/instance_record.h"

// Runs the path of `mode` on the instance's `frame`, [C][L], and writes the output hop of L floats
// to its start. Other modes leave the frame as it is, so that channel 0 passes through.
void se_bf_core_frm_proc(se_bf_inst *inst, int32_t mode);

// se_bf_do for a core of the caller's.
int32_t se_bf_instance_do(core_state *core, se_bf_inst *inst, int16_t *out, int16_t *in);

#endif  // TM_SE_BF_INTERFACE_MULTI_CHANNELS_ENHANCE_H
