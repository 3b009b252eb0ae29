// Where the last complete page of an Ogg file ends, and how.
#include "ogg_end.h"

#include <cstring>

namespace {

constexpr char kMark[] = "OggS";
constexpr size_t kMarkBytes = 4;
constexpr size_t kFlagsAt = 5;
constexpr uint8_t kFirstPage = 2;        // of the flags
constexpr uint8_t kLastPage = 4;         // of the flags
constexpr size_t kSegmentsAt = 26;       // count of segments; their sizes follow
constexpr size_t kMaxPageBytes = 65307;  // 27 + 255 segments of at most 255 bytes
constexpr size_t kHeadBytes = 282;       // 27 + sizes of 255 segments
constexpr int kMaxPages = 1000000;       // looked at: hours of sound

// Size of the page at the start of `page`; 0 if there is none or it is incomplete.
size_t whole_page(const uint8_t *page, size_t left) {
  if (left <= kSegmentsAt || std::memcmp(page, kMark, kMarkBytes) != 0) {
    return 0;
  }
  const size_t segments = page[kSegmentsAt];
  size_t size = kSegmentsAt + 1 + segments;
  for (size_t n = 0; n < segments && size <= left; ++n) {
    size += page[kSegmentsAt + 1 + n];
  }
  return size <= left ? size : 0;
}

// True when a stream begins behind the pages of another. The search ends at damaged pages.
bool is_chained(const sound_bytes *bytes) {
  uint8_t head[kHeadBytes];
  bool begun = false;  // a page of sound has come
  int64_t at = 0;
  for (int n = 0; n < kMaxPages; ++n) {
    const size_t got = sound_bytes_peek(bytes, at, head, sizeof head);
    if (got <= kSegmentsAt || std::memcmp(head, kMark, kMarkBytes) != 0) {
      return false;
    }
    const bool first = (head[kFlagsAt] & kFirstPage) != 0;
    if (first && begun) {
      return true;
    }
    begun = !first;
    const size_t sizes = kSegmentsAt + 1;
    at += static_cast<int64_t>(sizes + head[kSegmentsAt]);
    for (size_t k = sizes; k < got && k < sizes + head[kSegmentsAt]; ++k) {
      at += head[k];
    }
  }
  return false;
}

}  // namespace

ogg_end ogg_find_end(const sound_bytes *bytes) {
  uint8_t mark[kMarkBytes];
  ogg_end end = {bytes->held, true, false};
  if (bytes->live || sound_bytes_peek(bytes, 0, mark, kMarkBytes) != kMarkBytes ||
      std::memcmp(mark, kMark, kMarkBytes) != 0) {
    return end;
  }
  end.chained = is_chained(bytes);
  // The last complete page is within the size of two pages from the end.
  std::vector<uint8_t> tail(2 * kMaxPageBytes);
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
    end.marked = (tail[last + kFlagsAt] & kLastPage) != 0;
  }
  return end;
}
