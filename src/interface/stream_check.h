// Decides which configurations and calls se_bf_do can stream; the others get a message and silence.
//
// Hops of 106 and less would never finish a block, and other hops overrun or underfill the output
// store. A call length that is not a multiple of the block would run past the caller's buffers. An
// instance that does not fit in the pool has null members. All of these are found once, at
// initialisation.
#ifndef TM_SE_BF_INTERFACE_STREAM_CHECK_H
#define TM_SE_BF_INTERFACE_STREAM_CHECK_H

#include <cstdint>

#include "interface/instance_record.h"

// Mistakes in calls that a host may make many times a second.
enum call_mistake : uint32_t {
  DO_WITHOUT_INSTANCE = 1,
  DO_WITHOUT_BUFFER = 2,
  CHANGE_MODE_WITHOUT_INSTANCE = 4,
};

// Says on standard error what is wrong with a call, once until stream_check_new_instance.
void stream_check_mistake(core_state *core, call_mistake mistake);

// Called when an instance was made: from now on every mistake is reported again, once.
void stream_check_new_instance(core_state *core);

// Checks an instance that has just been initialised. Returns SE_BF_STREAM_READY, or
// SE_BF_STREAM_REFUSED after saying on standard error what is wrong and what to do. A hop of 159
// samples passes with a warning, and so does a samples_per_call below 1.
int32_t stream_check_config(const se_bf_inst *inst);

// Whether the call can run. If not, says why on standard error, once per instance, and writes
// silence for samples_per_call samples.
bool stream_check_call(se_bf_inst *inst, int16_t *out);

// Stops an instance whose output store is full, with one message. Only a hop of 159 gets here.
void stream_check_stop(se_bf_inst *inst);

#endif  // TM_SE_BF_INTERFACE_STREAM_CHECK_H
