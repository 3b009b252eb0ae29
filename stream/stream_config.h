// Settings of a stream: their defaults, their ranges, and what they mean for the enhancer.
#ifndef TM_SE_BF_STREAM_STREAM_CONFIG_H
#define TM_SE_BF_STREAM_STREAM_CONFIG_H

#include "lane.h"
#include "tm_se_bf_stream.h"

// Says which field is out of range, in a static text; null when none is. Null is refused as well.
const char *stream_config_fault(const se_bf_stream_config *config);

// The settings with the fields that a config of an earlier version lacks at 0, their defaults.
// `config` has been checked.
se_bf_stream_config stream_config_complete(const se_bf_stream_config *config);

// What the enhancer is to do. `config` has been checked and completed.
lane_setting stream_config_setting(const se_bf_stream_config *config);

// Whether what a running stream cannot change is the same: rate, channels, and the hop that counts.
bool stream_config_fits(const se_bf_stream_config *now, const se_bf_stream_config *wanted);

#endif  // TM_SE_BF_STREAM_STREAM_CONFIG_H
