// Where the last complete page of an Ogg file ends, and how.
#include "ogg_end.h"

#include <string.h>

static constexpr char MARK[] = "OggS";
static constexpr size_t MARK_BYTES = 4;
static constexpr size_t FLAGS_AT = 5;
static constexpr uint8_t FIRST_PAGE = 2;         // of the flags
static constexpr uint8_t LAST_PAGE = 4;          // of the flags
static constexpr size_t SEGMENTS_AT = 26;        // count of segments; their sizes follow
static constexpr size_t MAX_PAGE_BYTES = 65307;  // 27 + 255 segments of at most 255 bytes
static constexpr size_t HEAD_BYTES = 282;        // 27 + sizes of 255 segments
static constexpr int MAX_PAGES = 1000000;        // looked at: hours of sound

// Size of the page at the start of `page`; 0 if there is none or it is incomplete.
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

// True when a stream begins behind the pages of another. The search ends at damaged pages.
static bool is_chained(const sound_bytes *bytes) {
  uint8_t head[HEAD_BYTES];
  bool begun = false;  // a page of sound has come
  int64_t at = 0;
  for (int n = 0; n < MAX_PAGES; ++n) {
    const size_t got = sound_bytes_peek(bytes, at, head, sizeof head);
    if (got <= SEGMENTS_AT || memcmp(head, MARK, MARK_BYTES) != 0) {
      return false;
    }
    const bool first = (head[FLAGS_AT] & FIRST_PAGE) != 0;
    if (first && begun) {
      return true;
    }
    begun = !first;
    const size_t sizes = SEGMENTS_AT + 1;
    at += static_cast<int64_t>(sizes + head[SEGMENTS_AT]);
    for (size_t k = sizes; k < got && k < sizes + head[SEGMENTS_AT]; ++k) {
      at += head[k];
    }
  }
  return false;
}

ogg_end ogg_find_end(const sound_bytes *bytes) {
  uint8_t mark[MARK_BYTES];
  ogg_end end = {bytes->held, true, false};
  if (bytes->live || sound_bytes_peek(bytes, 0, mark, MARK_BYTES) != MARK_BYTES ||
      memcmp(mark, MARK, MARK_BYTES) != 0) {
    return end;
  }
  end.chained = is_chained(bytes);
  // The last complete page is within the size of two pages from the end.
  std::vector<uint8_t> tail(2 * MAX_PAGE_BYTES);
  const int64_t longest = static_cast<int64_t>(tail.size());
  const int64_t from = bytes->held > longest ? bytes->held - longest : 0;
  const size_t size = sound_bytes_peek(bytes, from, tail.data(), tail.size());
  size_t last = size;
  for (size_t at = 0; at < size; ++at) {
    const size_t page = whole_page(tail.data() + at, size - at);
    if (page > 0) {
      last = at;
      end.at = from + static_cast<int64_t>(at + page);
      at += page - 1;
    }
  }
  if (last < size) {
    end.marked = (tail[last + FLAGS_AT] & LAST_PAGE) != 0;
  }
  return end;
}
