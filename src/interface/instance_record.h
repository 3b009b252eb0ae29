// The instance record: sizes of one stream, and the objects that process it.
#ifndef TM_SE_BF_INTERFACE_INSTANCE_RECORD_H
#define TM_SE_BF_INTERFACE_INSTANCE_RECORD_H

#include <cstdint>

#include "interface/cache_buffer.h"
#include "noise/mcra_p.h"
#include "noise/omlsa.h"
#include "spatial/mvdr_mask.h"
#include "spectral/fftwrap_fixpoint.h"
#include "spectral/stft.h"
#include "support/se_maths.h"
#include "tm_se_bf.h"

// Samples of an output block, and samples per channel that the driver takes from the caller at a
// time.
constexpr int16_t kBlockLen = 320;

// Whether se_bf_do can stream with the instance.
enum se_bf_stream_state : int32_t {
  SE_BF_STREAM_UNINITIALISED = 0,
  SE_BF_STREAM_READY,
  SE_BF_STREAM_REFUSED,
};

#pragma pack(push, 4)
struct se_bf_inst {
  int16_t mode;              // current mode
  int16_t num_ch_in;         // C, 1 or 2
  int16_t hop_len;           // L
  int16_t block_len;         // kBlockLen
  int16_t num_bins;          // K = N/2 + 1
  int16_t update_interval;   // frames between weight updates
  int32_t samples_per_call;  // T
  fft_setup *fft;            // transform of length N
  stft_buf *stft;            // analysis and synthesis state
  catch_buf *cache;          // block buffer
  float *frame;              // [C][L] planar input frame; after processing, starts with the output
  float *spectrum;           // [C][N] packed spectra
  se_complex *steering;      // [K][C] steering vectors
  float *bin_buf;            // [K] scratch: power, then gain
  mcra_state *mcra;          // noise estimator
  omlsa_state *omlsa;        // gain estimator
  mvdr_evd_state *mvdr;      // covariances and weights
  int32_t stream_state;      // a se_bf_stream_state
  int32_t refusal_reported;  // 1 once se_bf_do has said why it is silent
  se_bf_inst *older;         // instance made before this one in the same pool, or null
  core_state *core;          // the pool that it lies in, and what it shares with others there
};
#pragma pack(pop)

#endif  // TM_SE_BF_INTERFACE_INSTANCE_RECORD_H
