// One library instance behind a block interface, with the shielding against silence and faults.
#ifndef SE_BF_HOST_ENGINE_H
#define SE_BF_HOST_ENGINE_H

#include "host_monitor.h"
#include "se_bf_host.h"
#include "tm_se_bf.h"

struct host_engine {
  host_config config;
  se_bf_inst *inst;       // null once the library refused to make an instance
  bool watched;           // the library's fault detector sees the input
  bool shielded;          // silence is bridged and faults are healed
  bool started;           // both microphones have carried sound
  bool single;            // a fault made the instance analyse one channel for its life
  int32_t start_wait;     // blocks with sound held back so far
  int32_t silent_blocks;  // blocks of digital silence handed over in a row
  int32_t flush_blocks;   // blocks of digital silence that empty the signal path
  int64_t time;           // first sample of the current block
  host_monitor monitor;
  int32_t history_next;   // slot of `history` that is written next
  int32_t history_count;  // slots filled
  int16_t history[HOST_HISTORY_BLOCKS][HOST_MAX_CHANNELS * HOST_BLOCK];  // blocks handed over
  int16_t scratch[HOST_MAX_CHANNELS * HOST_BLOCK];  // private copy that the library may change
};

// FFT length that belongs to a hop.
int32_t host_fft_len(int32_t hop);

// Makes the instance; false when the library refuses. `config` has been checked.
bool host_engine_open(host_engine *e, const host_config *config);

// Processes HOST_BLOCK samples per channel into HOST_BLOCK samples, late by host_signal_delay.
void host_engine_block(host_engine *e, const int16_t *block, int16_t *out);

void host_engine_close(host_engine *e);

#endif  // SE_BF_HOST_ENGINE_H
