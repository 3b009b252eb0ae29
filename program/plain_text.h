// Names of files as text: harmless to a terminal, and on one line of a text file.
#ifndef SE_BF_PLAIN_TEXT_H
#define SE_BF_PLAIN_TEXT_H

#include <cstddef>
#include <string>
#include <vector>

// The text with '?' for every byte that may steer a terminal: control characters (C0, DEL, C1),
// those of writing direction, separators of lines, and what is no UTF-8.
std::string text_harmless(const std::string &text);

// The characters of harmless text, for columns.
size_t text_width(const std::string &text);

// The first `most` of the texts with commas between, and how many more there are.
std::string text_list(const std::vector<std::string> &texts, size_t most);

// The text with the same characters, backslashes, a leading '#' and what is no UTF-8 written as
// \xHH.
std::string text_escape(const std::string &text);

// The text that text_escape was given.
std::string text_unescape(const std::string &text);

#endif  // SE_BF_PLAIN_TEXT_H
