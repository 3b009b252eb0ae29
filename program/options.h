// What the user asked for on the command line.
#ifndef SE_BF_OPTIONS_H
#define SE_BF_OPTIONS_H

#include <string>
#include <vector>

#include "bit_check.h"
#include "scene.h"

struct enhance_options {
  std::string in;                    // path, or "-" for standard input
  std::string out;                   // path, or "-" for standard output
  std::string format;                // name, of output that has no extension; empty: raw PCM
  int32_t mode = SE_BF_STREAM_AUTO;  // SE_BF_STREAM_* or SE_BF_MODE_*
  float mic_distance_m = 0.0f;       // 0: unknown
  float doa_deg = 0.0f;              // NaN: searched, with a known distance
  int hop = kStreamDefaultHop;       // samples
  float max_attenuation_db = 0.0f;   // 0: no limit
  float gain_db = 0.0f;              // applied to the input
  std::vector<size_t> channels;      // zero-based picks; empty: all
  int raw_rate_hz = kRateHz;         // of raw PCM, in and out
  size_t raw_channels = 0;           // of raw PCM on standard input; 0: it carries a sound file
  bool plain = false;                // no shielding
  bool full_band = true;             // keeps what lies above 8 kHz
  bool raw_own_rate = false;         // raw output has the rate of the input, not raw_rate_hz
  bool quiet = false;                // neither progress bar nor summary
};

// The options that the sound of a result depends on, as one line: equal lines mean equal sound.
std::string options_of_sound(const enhance_options *options);

struct batch_options {
  std::vector<std::string> places;  // IN and OUT, or sound files and directories of them
  std::string out_dir;              // where results go; empty: IN and OUT were given
  int jobs = 0;                     // worker processes at a time; 0: as many as processors
  bool overwrite = false;           // results that are there are made anew
};

struct conform_options {
  std::string type;        // one of conform_types; empty: all of them
  int hop = kBitCheckHop;  // samples
};

#endif  // SE_BF_OPTIONS_H
