// Decides which configurations and calls can be streamed.
#include "interface/stream_check.h"

namespace {

// Hops that stream without loss: every block yields at most two frames and the store never runs
// dry.
constexpr int32_t kSupportedHops[] = {160, 192, 320};

// Repeats a sample every 79 blocks, and fills the output store after about 53 s.
constexpr int32_t kLossyHop = 159;

const char *mistake_text(call_mistake mistake) {
  switch (mistake) {
    case DO_WITHOUT_INSTANCE:
      return "se_bf_do: no such instance; call se_bf_create and se_bf_init first";
    case DO_WITHOUT_BUFFER:
      return "se_bf_do: pass both an output and an input buffer; nothing was done";
    default:
      return "se_bf_change_mode: no such instance; call se_bf_create and se_bf_init first";
  }
}

bool supported_hop(int32_t hop_len) {
  for (const int32_t supported : kSupportedHops) {
    if (hop_len == supported) {
      return true;
    }
  }
  return false;
}

bool complete(const se_bf_inst *inst) {
  const void *const members[] = {inst->fft,      inst->stft,    inst->frame, inst->spectrum,
                                 inst->steering, inst->bin_buf, inst->cache, inst->mcra,
                                 inst->omlsa,    inst->mvdr};
  for (const void *member : members) {
    if (member == nullptr) {
      return false;
    }
  }
  return inst->cache->stage != nullptr && inst->cache->out_store != nullptr;
}

}  // namespace

void stream_check_mistake(core_state *core, call_mistake mistake) {
  if ((core->told_mistakes & mistake) == 0) {
    core->told_mistakes |= mistake;
    tamrin_warning_in(core, mistake_text(mistake));
  }
}

void stream_check_new_instance(core_state *core) {
  core->told_mistakes = 0;
}

int32_t stream_check_config(const se_bf_inst *inst) {
  if (inst->hop_len == kLossyHop) {
    tamrin_warning_in(
        inst->core,
        "se_bf_init: hop_len 159 repeats samples and stops with silence after about 53 s of audio; "
        "use 160, 192 or 320");
  } else if (!supported_hop(inst->hop_len)) {
    tamrin_warning_int_in(
        inst->core,
        "se_bf_init: use hop_len 160, 192 or 320 (0 selects 192); se_bf_do writes silence with",
        inst->hop_len);
    return SE_BF_STREAM_REFUSED;
  }
  if (inst->samples_per_call < 1 || inst->samples_per_call % kBlockLen != 0) {
    tamrin_warning_int_in(
        inst->core,
        "se_bf_init: use a positive multiple of 320 for samples_per_call; se_bf_do writes silence "
        "with",
        inst->samples_per_call);
    // A call without samples is not refused: it has no output, and only lets the fault levels
    // decay.
    return inst->samples_per_call < 1 ? SE_BF_STREAM_READY : SE_BF_STREAM_REFUSED;
  }
  if (!complete(inst)) {
    tamrin_warning_in(
        inst->core,
        "se_bf_init: the memory pool cannot hold this instance, se_bf_do writes silence; destroy "
        "other "
        "instances first and initialise only once");
    return SE_BF_STREAM_REFUSED;
  }
  return SE_BF_STREAM_READY;
}

bool stream_check_call(se_bf_inst *inst, int16_t *out) {
  if (inst->stream_state == SE_BF_STREAM_READY) {
    return true;
  }
  if (inst->refusal_reported == 0) {
    inst->refusal_reported = 1;
    tamrin_warning_in(inst->core, "se_bf_do: silence is written until se_bf_init has been called");
  }
  for (int32_t i = 0; i < inst->samples_per_call; ++i) {
    out[i] = 0;
  }
  return false;
}

void stream_check_stop(se_bf_inst *inst) {
  inst->stream_state = SE_BF_STREAM_REFUSED;
  inst->refusal_reported = 1;
  tamrin_warning_int_in(
      inst->core, "se_bf_do: the output store is full, silence from here on; use hop_len 160, not",
      inst->hop_len);
}
