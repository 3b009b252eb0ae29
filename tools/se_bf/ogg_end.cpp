// Where the whole pages of an Ogg file end, and whether the last one is marked as such.
#include "ogg_end.h"

#include <string.h>

static constexpr char MARK[] = "OggS";
static constexpr size_t MARK_BYTES = 4;
static constexpr size_t FLAGS_AT = 5;
static constexpr uint8_t LAST_PAGE = 4;          // of the flags
static constexpr size_t SEGMENTS_AT = 26;        // count of segments; their sizes follow
static constexpr size_t MAX_PAGE_BYTES = 65307;  // 27 + 255 segments of at most 255 bytes

// Size of the page at the start of `page`; 0 when there is none or it is not whole.
static size_t whole_page(const uint8_t *page, size_t left) {
  if (left <= SEGMENTS_AT || memcmp(page, MARK, MARK_BYTES) != 0) {
    return 0;
  }
  const size_t segments = page[SEGMENTS_AT];
  size_t size = SEGMENTS_AT + 1 + segments;
  for (size_t n = 0; n < segments && size <= left; ++n) {
    size += page[SEGMENTS_AT + 1 + n];
  }
  return size <= left ? size : 0;
}

bool ogg_find_end(const sound_bytes *bytes, int64_t *end, bool *marked) {
  uint8_t mark[MARK_BYTES];
  const bool ogg = !bytes->live && sound_bytes_peek(bytes, 0, mark, MARK_BYTES) == MARK_BYTES &&
                   memcmp(mark, MARK, MARK_BYTES) == 0;
  // The page before one that is not whole lies within the last two pages' bytes.
  std::vector<uint8_t> tail(2 * MAX_PAGE_BYTES);
  const int64_t longest = static_cast<int64_t>(tail.size());
  const int64_t from = bytes->held > longest ? bytes->held - longest : 0;
  const size_t size = ogg ? sound_bytes_peek(bytes, from, tail.data(), tail.size()) : 0;
  *end = bytes->held;
  *marked = true;
  for (size_t at = 0; at < size; ++at) {
    const size_t page = whole_page(tail.data() + at, size - at);
    if (page > 0) {
      *end = from + static_cast<int64_t>(at + page);
      *marked = (tail[at + FLAGS_AT] & LAST_PAGE) != 0;
      at += page - 1;
    }
  }
  return ogg;
}
