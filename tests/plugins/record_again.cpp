// record_again PCM SILENCE: records from an ALSA PCM, prepares it again and records on. The second
// recording must begin like a first one, with SILENCE samples that are 0.
#include <alsa/asoundlib.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <vector>

int main(int argc, char **argv) {
  constexpr int64_t kFrames = 8000;
  const int64_t least = argc == 3 ? std::atoi(argv[2]) : 0;
  snd_pcm_t *pcm = nullptr;
  if (least == 0 || snd_pcm_open(&pcm, argv[1], SND_PCM_STREAM_CAPTURE, 0) < 0 ||
      snd_pcm_set_params(pcm, SND_PCM_FORMAT_S16, SND_PCM_ACCESS_MMAP_INTERLEAVED, 1, 16000, 0,
                         500000) < 0) {
    std::puts("expected a PCM that records");
    return EXIT_FAILURE;
  }
  std::vector<int16_t> heard(kFrames);
  for (const char *which : {"first", "second"}) {
    const int64_t frames = snd_pcm_mmap_readi(pcm, heard.data(), kFrames);
    const int64_t silent =
        std::find_if(heard.begin(), heard.end(), [](int16_t x) { return x != 0; }) - heard.begin();
    std::printf("%s: silent for %d samples\n", which, static_cast<int>(silent));
    if (frames != kFrames || silent < least || silent > least + 1000) {
      std::printf("expected %d and a little more\n", static_cast<int>(least));
      return EXIT_FAILURE;
    }
    snd_pcm_drop(pcm);
    snd_pcm_prepare(pcm);
  }
  return snd_pcm_close(pcm) == 0 ? EXIT_SUCCESS : EXIT_FAILURE;
}
