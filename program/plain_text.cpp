// Names of files as text: harmless to a terminal, and on one line of a text file.
#include "plain_text.h"

#include <cstdint>
#include <cstdio>
#include <cstdlib>

namespace {

constexpr size_t kMaxSequence = 4;  // bytes of a character in UTF-8
constexpr unsigned kBitsFollowing = 6;
constexpr uint32_t kSmallest[] = {0, 0, 0x80, 0x800, 0x10000};  // of each length
constexpr uint32_t kLastC1 = 0x9f;
constexpr uint32_t kFirstSurrogate = 0xd800;
constexpr uint32_t kLastSurrogate = 0xdfff;
constexpr uint32_t kLastCharacter = 0x10ffff;
// Marks, embeddings and isolates of writing direction, and separators of lines and paragraphs: they
// reorder or break the line they stand in.
constexpr uint32_t kSteering[][2] = {
    {0x61c, 0x61c}, {0x200e, 0x200f}, {0x2028, 0x202e}, {0x2066, 0x2069}};
constexpr size_t kEscapeLen = 4;  // characters of \xHH
constexpr int kHexadecimal = 16;

uint32_t byte_at(const std::string &text, size_t at) {
  return at < text.size() ? static_cast<unsigned char>(text[at]) : 0;
}

bool is_steering(uint32_t code) {
  bool found = false;
  for (const uint32_t *range : kSteering) {
    found = found || (code >= range[0] && code <= range[1]);
  }
  return found;
}

bool is_following(uint32_t byte) {
  return (byte & 0xc0) == 0x80;
}

// Bytes of the printable character at `at`, 0 when there is none.
size_t printable_length(const std::string &text, size_t at) {
  const uint32_t first = byte_at(text, at);
  if (first < 0x80) {
    return first >= ' ' && first != 0x7f ? 1 : 0;
  }
  const size_t length = first < 0xc0   ? 0
                        : first < 0xe0 ? 2
                        : first < 0xf0 ? 3
                        : first < 0xf8 ? kMaxSequence
                                       : 0;
  uint32_t code = first & (0xffu >> (length + 1));
  for (size_t n = 1; n < length; ++n) {
    const uint32_t byte = byte_at(text, at + n);
    if (!is_following(byte)) {
      return 0;
    }
    code = code << kBitsFollowing | (byte & 0x3f);
  }
  const bool surrogate = code >= kFirstSurrogate && code <= kLastSurrogate;
  const bool good = code >= kSmallest[length] && code > kLastC1 && code <= kLastCharacter;
  return good && !surrogate && !is_steering(code) ? length : 0;
}

}  // namespace

std::string text_harmless(const std::string &text) {
  std::string harmless;
  for (size_t at = 0; at < text.size();) {
    const size_t length = printable_length(text, at);
    harmless += length > 0 ? text.substr(at, length) : "?";
    at += length > 0 ? length : 1;
  }
  return harmless;
}

size_t text_width(const std::string &text) {
  size_t width = 0;
  for (size_t at = 0; at < text.size(); ++at) {
    width += is_following(byte_at(text, at)) ? 0 : 1;
  }
  return width;
}

std::string text_list(const std::vector<std::string> &texts, size_t most) {
  std::string list;
  for (size_t i = 0; i < texts.size() && i < most; ++i) {
    list += (i > 0 ? ", " : "") + texts[i];
  }
  return texts.size() > most ? list + " and " + std::to_string(texts.size() - most) + " more"
                             : list;
}

std::string text_escape(const std::string &text) {
  std::string escaped;
  for (size_t at = 0; at < text.size();) {
    const size_t length = printable_length(text, at);
    if (length == 0 || text[at] == '\\' || (at == 0 && text[at] == '#')) {
      char code[kEscapeLen + 1];
      std::snprintf(code, sizeof code, "\\x%02x", static_cast<unsigned>(byte_at(text, at)));
      escaped += code;
      ++at;
    } else {
      escaped += text.substr(at, length);
      at += length;
    }
  }
  return escaped;
}

std::string text_unescape(const std::string &text) {
  std::string plain;
  for (size_t at = 0; at < text.size();) {
    if (text[at] == '\\' && at + kEscapeLen <= text.size()) {
      const std::string code = text.substr(at + 2, 2);
      plain += static_cast<char>(std::strtol(code.c_str(), nullptr, kHexadecimal));
      at += kEscapeLen;
    } else {
      plain += text[at];
      ++at;
    }
  }
  return plain;
}
