// The command line: the options of the subcommands and their help.
#include "arguments.h"

#include <unistd.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cerrno>
#include <cstring>
#include <sstream>

#include "arguments_check.h"
#include "arguments_scene.h"
#include "conform.h"
#include "plain_text.h"
#include "process.h"
#include "report.h"
#include "sound_format.h"
#include "tm_se_bf_stream.h"

namespace {

constexpr int kUsageError = 2;
constexpr int kMaxJobs = 1024;

constexpr char kEnhanceHelp[] =
    R"(Enhance speech recorded with one or two microphones.
IN and OUT are sound files at any rate from 8 to 192 kHz. The extension of OUT names its format.
- is standard input or output: as IN a sound file, of which WAV is enhanced as it arrives; as
OUT raw signed 16-bit little-endian PCM, or the format that --format names:
  arecord -t wav -f S16_LE -r 16000 | se_bf enhance - - --format wav | aplay
With --raw-channels, IN - is raw PCM as well. Raw PCM is at 16 kHz unless --raw-rate says otherwise.
OUT has one channel, is as long as IN and aligned with it to the sample.
With --out-dir DIR every IN is a sound file or a directory, which is searched with all its
subdirectories. Results keep the tree and the names in DIR; formats that cannot be written
become WAV (n.mp3 becomes n.wav). DIR/se_bf-results.txt records what each result was made
from. What is done is skipped, and what has changed is made again. A file that was made from
another input, or when IN was longer, stays as it is.)";

constexpr char kPlotHelp[] =
    R"(Draw the spectrograms of a sound file before and after enhancement into a PNG file.
Prints the name of the picture. A pixel shows the loudest moment of its time.
The sound may have any length; an hour takes 231 MB in TMPDIR while the program runs, at 48 kHz
691 MB.
Needs Python 3 with NumPy and Matplotlib (packages python3-numpy python3-matplotlib).)";

constexpr char kConformHelp[] =
    R"(Run the self-test of the library that is loaded on this machine and judge the library.
Exit status 0: with type bf_mvdr and hop 192 every sample equals the stored reference, and
both figures of the report are 1.000000. 3: it agrees closely, but not to the bit (similarity
at least 0.999, power ratio within 1 %). 1: it does not conform.
The figures of the other types and hops are for comparison only: without bf_mvdr at hop 192
there is no verdict, and the exit status is 1.)";

std::string all_of(const std::vector<std::string> &names) {
  return text_list(names, names.size());
}

std::string check_name(const std::string &text, bool known, const std::string &names) {
  return known ? "" : "'" + text + "' is none of " + names;
}

std::string version_text() {
  return std::string("se_bf ") + se_bf_stream_version() + " (core " + se_bf_get_version() + ")";
}

void declare_places(CLI::App *command, enhance_options *options, batch_options *batch) {
  command->add_option("FILES", batch->places, "IN OUT; with --out-dir any number of IN")
      ->required()
      ->type_name("");
  CLI::Option *dir = command->add_option("--out-dir", batch->out_dir, "directory for the results");
  dir->type_name("DIR")->check([](const std::string &text) {
    return text.empty() ? std::string("the directory has no name") : std::string();
  });
  command
      ->add_option("--jobs", batch->jobs, "files at the same time; default: one for each processor")
      ->check(CLI::Range(1, kMaxJobs))
      ->needs(dir)
      ->type_name("N");
  command
      ->add_flag("--overwrite", batch->overwrite,
                 "make all results again, replace any file of their names")
      ->needs(dir);
  command
      ->add_option("--raw-channels", options->raw_channels,
                   "IN - is raw PCM with this number of channels; default: a sound file")
      ->check(CLI::IsMember({1, 2}))
      ->type_name("");
  command->add_option("--raw-rate", options->raw_rate_hz, "rate of raw PCM in Hz, as IN and as OUT")
      ->check(CLI::Range(SE_BF_STREAM_MIN_RATE, SE_BF_STREAM_MAX_RATE))
      ->excludes(dir)
      ->capture_default_str()
      ->type_name("HZ");
  const std::string names = all_of(sound_format_names());
  const auto known = [names](const std::string &text) {
    return check_name(text, sound_format_named(text) != nullptr, names);
  };
  command
      ->add_option("--format", options->format,
                   "format of OUT where no extension names it: " + names + "; default: raw")
      ->check(known)
      ->excludes(dir)
      ->type_name("");
}

void declare_enhance(CLI::App *command, enhance_options *options, batch_options *batch) {
  declare_places(command, options, batch);
  arguments_declare_scene(command, options);
  command->add_flag("--quiet", options->quiet, "no progress bar and no summary");
  // Scripts may have it from the time when the library printed notes.
  command->add_flag("--verbose")->group("");
  command->set_version_flag("--version", version_text());
}

void declare_plot(CLI::App *command, enhance_options *options, std::string *picture) {
  command->add_option("IN", options->in, "sound file")->required()->type_name("");
  command->add_option("PICTURE", *picture, "PNG file; default: named after IN, here")
      ->type_name("");
  arguments_declare_scene(command, options);
}

void declare_conform(CLI::App *command, conform_options *options) {
  const std::vector<std::string> types = conform_types();
  const auto known = [types](const std::string &text) {
    const bool found = std::find(types.begin(), types.end(), text) != types.end();
    return check_name(text, found, all_of(types));
  };
  command->add_option("TYPE", options->type, all_of(types) + "; without it all of them run")
      ->check(known)
      ->type_name("");
  arguments_declare_hop(command, &options->hop);
}

// Reports a mistake in the arguments, and which help to read.
int fail_usage(const CLI::App *app, const std::string &mistake) {
  std::string command = "se_bf";
  for (const CLI::App *parsed : app->get_subcommands()) {
    command += " " + parsed->get_name();
  }
  report_line(mistake + " (see " + command + " --help)");
  return kUsageError;
}

// Prints help or version. Returns 0, or 1 after one line on standard error.
int print_wish(const CLI::App *app, const CLI::Success &wish) {
  std::ostringstream text;
  app->exit(wish, text, text);
  const std::string words = text.str();
  if (!process_write(STDOUT_FILENO, words.data(), words.size())) {
    report_line(std::string("writing to standard output failed: ") + std::strerror(errno));
    return 1;
  }
  return 0;
}

// The parser reports help, version and mistakes by exceptions, which end here.
int parse(CLI::App *app, int argc, char **argv, bool *done) {
  *done = true;
  try {
    app->parse(argc, argv);
  } catch (const CLI::Success &wish) {
    return print_wish(app, wish);
  } catch (const CLI::ParseError &mistake) {
    const bool unknown = app->get_subcommands().empty() && argc > 1 && argv[1][0] != '-';
    return fail_usage(app, unknown ? "'" + std::string(argv[1]) +
                                         "' is no command; there are enhance, plot and conform"
                                   : mistake.what());
  }
  *done = false;
  return 0;
}

}  // namespace

int arguments_read(int argc, char **argv, arguments *args) {
  CLI::App app("Speech enhancement with one or two microphones.", "se_bf");
  app.set_version_flag("--version", version_text());
  app.require_subcommand(1);
  CLI::App *enhance = app.add_subcommand("enhance", kEnhanceHelp);
  CLI::App *plot = app.add_subcommand("plot", kPlotHelp);
  CLI::App *conform = app.add_subcommand("conform", kConformHelp);
  declare_enhance(enhance, &args->enhance, &args->batch);
  declare_plot(plot, &args->enhance, &args->picture);
  declare_conform(conform, &args->conform);
  bool done = false;
  const int status = parse(&app, argc, argv, &done);
  if (done) {
    return status;
  }
  if (conform->parsed()) {
    args->command = COMMAND_CONFORM;
    return 0;
  }
  std::string wrong = enhance->parsed() ? check_places(&args->batch, &args->enhance) : "";
  wrong = wrong.empty() ? check_pairs(enhance->parsed() ? enhance : plot, &args->enhance) : wrong;
  if (!wrong.empty()) {
    return fail_usage(&app, wrong);
  }
  args->command = enhance->parsed() ? COMMAND_ENHANCE : COMMAND_PLOT;
  return 0;
}
