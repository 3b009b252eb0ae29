// A block in the making, and one that is given back.
#include "block_path.h"

#include <cstring>

#include "sample_format.h"

void block_path_init(block_path *path, enhancer *sink, int32_t channels) {
  path->sink = sink;
  path->channels = channels;
  path->fill = 0;
  path->done = {};
}

int32_t block_path_room(const block_path *path) {
  return kStreamBlock - path->fill;
}

int16_t *block_path_input(block_path *path) {
  return path->block + path->fill * path->channels;
}

void block_path_words(const block_path *path, int32_t frames, int16_t *out) {
  std::memcpy(out, path->done.samples + path->fill, static_cast<size_t>(frames) * sizeof(int16_t));
}

void block_path_floats(const block_path *path, int32_t frames, float *out) {
  const float factor = path->done.lowered ? kRaise : 1.0f;
  floats_from_words(path->done.samples + path->fill, frames, factor, out);
}

void block_path_advance(block_path *path, int32_t frames) {
  path->fill += frames;
  if (path->fill == kStreamBlock) {
    path->fill = 0;
    enhancer_block(path->sink, path->block, &path->done);
  }
}
