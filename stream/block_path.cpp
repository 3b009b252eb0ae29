// A block in the making, and one that is given back.
#include "block_path.h"

#include <cstring>

void block_path_init(block_path *path, enhancer *sink, int32_t channels) {
  path->sink = sink;
  path->channels = channels;
  path->fill = 0;
  std::memset(path->done, 0, sizeof path->done);
}

int32_t block_path_room(const block_path *path) {
  return kStreamBlock - path->fill;
}

int16_t *block_path_input(block_path *path) {
  return path->block + path->fill * path->channels;
}

const int16_t *block_path_output(const block_path *path) {
  return path->done + path->fill;
}

void block_path_advance(block_path *path, int32_t frames) {
  path->fill += frames;
  if (path->fill == kStreamBlock) {
    path->fill = 0;
    enhancer_block(path->sink, path->block, path->done);
  }
}
