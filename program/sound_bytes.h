// The bytes of a sound file, on disk or as a pipe delivers them, as libsndfile reads them.
//
// A header is read with a length of our choice: bytes that are not there count as zeros then, so
// that libsndfile tells what a longer file would hold. The sound ends where the bytes do.
#ifndef SE_BF_SOUND_BYTES_H
#define SE_BF_SOUND_BYTES_H

#include <sndfile.h>

#include <cstddef>
#include <cstdint>
#include <vector>

// Length of a file without end, in bytes.
constexpr int64_t kSoundBytesFar = INT64_C(1) << 50;

struct sound_bytes {
  int fd = -1;                // of a file on disk (read with pread) or of a pipe
  bool live = false;          // a pipe: every byte is taken once
  int64_t start = 0;          // of the sound file within the file on disk
  int64_t held = 0;           // bytes that are there, on disk
  std::vector<uint8_t> head;  // of a pipe: the bytes taken before the sound is read
  int64_t open_size_at = 0;   // place of a size of 4 bytes that counts as unknown; 0: none
  int error = 0;              // errno of a read that failed
  size_t unit = 0;            // bytes of a frame; 0: the encoding has no fixed size
  int64_t sound_at = 0;       // where the sound begins
  // What libsndfile sees.
  bool opening = false;  // it reads the header
  int64_t length = 0;    // it was told
  int64_t position = 0;  // of the byte that it reads next
  int64_t shift = 0;     // of that byte among ours, behind `position`
  size_t zeros = 0;      // given for bytes that are not there
};

// Takes a pipe's bytes into `head` until it holds `count` or the pipe ends. Returns false with
// `error` set; EINTR when a signal asked for the end.
bool sound_bytes_gather(sound_bytes *bytes, size_t count);

// Copies up to `count` bytes from `at` on to `out` and returns how many are there; of a pipe only
// those in `head`.
size_t sound_bytes_peek(const sound_bytes *bytes, int64_t at, void *out, size_t count);

// Opens the sound as if the file had `length` bytes; null when libsndfile cannot read it. `info` is
// as sf_open takes it.
SNDFILE *sound_bytes_open(sound_bytes *bytes, int64_t length, SF_INFO *info);

// Frames that the header tells of if the file had `length` bytes; -1 when it cannot be read.
int64_t sound_bytes_frames(const sound_bytes *bytes, int64_t length);

// Lets the sound go on behind what its header can tell of: from here on libsndfile reads again as
// from the start of the sound. Returns false at the end of a file on disk, or without a fixed size
// of frames.
bool sound_bytes_go_on(sound_bytes *bytes, SNDFILE *file);

// Bytes of a stored sample in `format`; 0 when it has no fixed size.
size_t sound_sample_bytes(int format);

#endif  // SE_BF_SOUND_BYTES_H
