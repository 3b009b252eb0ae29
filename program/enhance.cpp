// The subcommand `se_bf enhance`: enhances a recording or a stream.
#include "enhance.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstring>

#include "audio_sink.h"
#include "audio_source.h"
#include "fault_report.h"
#include "link_path.h"
#include "process.h"
#include "report.h"
#include "sample_words.h"
#include "tm_se_bf_stream.h"

namespace {

constexpr size_t kChunkFrames = 4096;                  // taken through the stream at a time
constexpr float kLeastConfidence = 0.15f;              // as the header of the streams says
constexpr double kMicrosecondsPerMetre = 1e6 / 343.0;  // of sound
constexpr double kDelayStepUs = 7.8;                   // an eighth of a sample, the search's step
constexpr float kDecibelBase = 10.0f;
constexpr float kDecibelsPerDecade = 20.0f;  // of an amplitude

struct enhance_job {
  const enhance_options *options;
  int32_t mode;  // that runs
  audio_source source;
  audio_sink sink;
  se_bf_stream *engine;
  enhance_figures *figures;
  const output_naming *naming;
  int64_t samples_in;  // per channel
  fault_report faults;
  double started_at;  // report_processor_time()
  se_bf_stream_direction_info talker;
  bool searched;     // what became of the search for the talker is in `talker`
  bool interrupted;  // a signal ended the input
  bool kept;         // the output is complete
};

// One channel has neither a mean nor a beamformer.
void choose_mode(enhance_job *job) {
  const int32_t asked = scene_mode_chosen(job->options->mode, job->options->hop);
  const bool single = job->source.picks.size() == 1;
  const bool combines = asked == SE_BF_MODE_MEAN || asked == SE_BF_MODE_MVDR;
  const bool directed = asked == SE_BF_STREAM_REFINED || asked == SE_BF_MODE_MVDR;
  job->mode = single && combines ? static_cast<int32_t>(SE_BF_MODE_OMLSA) : asked;
  const std::string name = scene_mode_name(job->mode);
  if (asked != job->mode) {
    report_line("warning: one channel is enhanced in mode " + name + "; mode " +
                scene_mode_name(asked) + " needs two channels");
  } else if ((single || !directed) && job->options->mic_distance_m > 0.0f) {
    report_line("warning: --mic-distance and --doa have no effect " +
                (single ? "on the one channel of " + job->source.input.name : "in mode " + name) +
                "; only the modes refined and mvdr have a direction, with two channels");
  }
}

bool open_stream(enhance_job *job) {
  const enhance_options *options = job->options;
  const sound_input *in = &job->source.input;
  se_bf_stream_config config;
  const char *error = nullptr;
  choose_mode(job);
  se_bf_stream_config_init(&config);
  config.rate = in->rate_hz;
  config.channels = static_cast<int32_t>(job->source.picks.size());
  config.mode = job->mode;
  config.hop = options->hop;
  config.mic_distance = options->mic_distance_m;
  config.doa = options->doa_deg;
  config.max_attenuation_db = options->max_attenuation_db;
  // A plain stream would suppress noise in the one channel that mode mono copies.
  config.plain = options->plain && (config.channels == 2 || job->mode != SE_BF_MODE_MONO) ? 1 : 0;
  // Output at 16 kHz holds nothing above 8 kHz.
  config.full_band = options->full_band && job->sink.writer.rate_hz > kRateHz ? 1 : 0;
  job->faults = {in->name, in->rate_hz, job->mode == SE_BF_MODE_MVDR, options->plain, 0};
  config.on_event = fault_report_event;
  config.user = &job->faults;
  job->engine = se_bf_stream_open(&config, &error);
  return job->engine != nullptr ||
         report_failure("cannot enhance " + in->name + ": " + std::string(error));
}

bool write_out(enhance_job *job, const float *samples, size_t count) {
  return sink_write(&job->sink, samples, count, job->source.input.frames_read);
}

void show_progress(const enhance_job *job) {
  const sound_input *in = &job->source.input;
  const double rate = static_cast<double>(in->rate_hz);
  const double done = static_cast<double>(in->frames_read) / rate;
  job->figures->progress_s = static_cast<float>(done);
  report_progress(done, static_cast<double>(in->announced) / rate);
}

// True when a signal ends the input instead of the work: a recording that arrives through a pipe
// would be lost.
bool keeps_interrupted(const enhance_job *job) {
  return job->naming == nullptr && job->source.input.bytes.live && job->sink.writer.seekable;
}

// Takes everything from the source through the stream to the sink.
bool stream(enhance_job *job) {
  const size_t channels = job->source.picks.size();
  const float gain = std::pow(kDecibelBase, job->options->gain_db / kDecibelsPerDecade);
  std::vector<float> in(kChunkFrames * channels);
  const size_t latency = static_cast<size_t>(se_bf_stream_latency(job->engine));
  std::vector<float> out(std::max(kChunkFrames, latency));
  size_t frames = source_read(&job->source, in.data(), kChunkFrames);
  const bool keep = keeps_interrupted(job);
  while (frames > 0 && (keep || !process_stopped()) && !sink_is_full(&job->sink)) {
    job->samples_in += static_cast<int64_t>(frames);
    job->figures->clipped_in += samples_amplify(in.data(), frames * channels, gain);
    const size_t made = se_bf_stream_push_f32(job->engine, in.data(), frames, out.data());
    if (!write_out(job, out.data(), made)) {
      return false;
    }
    show_progress(job);
    frames = source_read(&job->source, in.data(), kChunkFrames);
  }
  job->interrupted = process_stopped();
  if (job->interrupted && !keep) {
    return false;
  }
  // Before the end of the stream, which forgets the talker.
  job->searched = se_bf_stream_direction(job->engine, &job->talker) == 0 &&
                  (job->options->mic_distance_m == 0.0f || std::isnan(job->options->doa_deg));
  // Sound that was read before a failure is kept.
  const sound_input *input = &job->source.input;
  if (input->frames_read == 0 && !input->failure.empty()) {
    return report_failure(input_verdict(input));
  }
  return write_out(job, out.data(), se_bf_stream_finish_f32(job->engine, out.data()));
}

void keep_figures(enhance_job *job) {
  enhance_figures *figures = job->figures;
  figures->duration_s = static_cast<double>(job->samples_in) / job->source.input.rate_hz;
  figures->clipped_out = job->sink.full_scale;
  figures->computing_s = report_processor_time() - job->started_at;
  figures->mode = job->mode;
}

// Where the talker was at the end.
std::string describe_talker(const se_bf_stream_direction_info *talker, float mic_distance_m) {
  if (talker->alone >= 0) {
    return "not looked for, microphone " + std::to_string(talker->alone) + " is used alone";
  }
  if (talker->confidence < kLeastConfidence) {
    return "not found";
  }
  const std::string found = "delay " + report_number(static_cast<double>(talker->delay_us), 0) +
                            " us, confidence " +
                            report_number(static_cast<double>(talker->confidence), 2);
  const double longest_us =
      static_cast<double>(mic_distance_m) * kMicrosecondsPerMetre + kDelayStepUs;
  if (mic_distance_m > 0.0f && std::abs(static_cast<double>(talker->delay_us)) > longest_us) {
    return found + ", more than --mic-distance allows";
  }
  return std::isnan(talker->degrees)
             ? found
             : report_number(static_cast<double>(talker->degrees), 0) + " degrees (" + found + ")";
}

void summarise(const enhance_job *job) {
  const enhance_figures *figures = job->figures;
  const double duration = figures->duration_s;
  const double factor = duration > 0.0 ? figures->computing_s / duration : 0.0;
  report_line(
      report_number(duration, 2) + " s enhanced in " + report_number(figures->computing_s, 2) +
      " s of computing (real-time factor " + report_number(factor, 4) + "), mode " +
      scene_mode_name(job->mode) + ", hop " + std::to_string(job->options->hop) +
      ", clipped samples: " + std::to_string(figures->clipped_in) + " in, " +
      std::to_string(figures->clipped_out) + " out" +
      (job->searched ? ", talker: " + describe_talker(&job->talker, job->options->mic_distance_m)
                     : ""));
}

// Faults of the input that did not stop the work.
void warn_of_input(const enhance_job *job) {
  const audio_source *src = &job->source;
  const std::string verdict =
      job->interrupted ? "interrupted after " + report_number(job->figures->duration_s, 2) +
                             " s; " + job->sink.place.name + " holds the sound up to there"
                       : input_verdict(&src->input);
  if (src->not_finite > 0) {
    report_line("warning: " + std::to_string(src->not_finite) + " samples of " + src->input.name +
                " are no finite numbers and count as 0");
  }
  if (!verdict.empty()) {
    report_line(verdict);
  }
}

bool open_sink(enhance_job *job, int standard_fd) {
  const enhance_options *options = job->options;
  const sound_input *in = &job->source.input;
  const int raw_rate_hz = options->raw_own_rate ? in->rate_hz : options->raw_rate_hz;
  const sink_request request = {options->out, options->format, options->in, in->rate_hz,
                                raw_rate_hz,  in->most,        standard_fd};
  return sink_open(&job->sink, &request);
}

bool run(enhance_job *job, int raw_out) {
  const enhance_options *options = job->options;
  const sound_input *in = &job->source.input;
  if (!source_open(&job->source, options) || !open_sink(job, raw_out) || !open_stream(job)) {
    return false;
  }
  job->sink.place.naming = job->naming;
  if (job->naming == nullptr && !job->sink.place.in_place) {
    output_file_remove_stale(link_folder(job->sink.place.path));
  }
  if (!options->quiet) {
    report_progress_on();
  }
  job->started_at = report_processor_time();
  bool good = stream(job);
  job->figures->cut_off = input_is_cut(in) || !in->failure.empty();
  good = good && sink_finish(&job->sink, in->frames_read);
  report_progress_off();
  keep_figures(job);
  if (!good) {
    return false;
  }
  job->kept = true;
  warn_of_input(job);
  if (sink_is_full(&job->sink)) {
    report_line(sink_full_text(&job->sink));
  }
  if (!options->quiet) {
    summarise(job);
  }
  return in->failure.empty() && !sink_is_full(&job->sink);
}

}  // namespace

int enhance_run(const enhance_options *options, enhance_figures *figures,
                const output_naming *naming) {
  // Descriptor 1 belongs to the audio.
  const int raw_out = process_claim_stdout();
  if (raw_out == -1) {
    report_line(std::string("standard output is not usable: ") + std::strerror(errno));
    return 1;
  }
  process_catch_signals();
  enhance_job job = {};
  job.options = options;
  job.figures = figures;
  job.naming = naming;
  const bool good = run(&job, raw_out);
  se_bf_stream_close(job.engine);
  source_close(&job.source);
  if (!job.kept) {
    sink_abort(&job.sink);
  }
  if ((job.interrupted || !good) && process_stopped()) {
    process_die_of_signal();
  }
  return good ? 0 : 1;
}
