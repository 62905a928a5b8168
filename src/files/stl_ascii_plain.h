// files/stl_ascii_plain.h - words and numbers in their usual spelling, straight from memory.
//
// All that is usual in a facet is told here in a few comparisons, and nothing else is: whatever is
// odd (a word in two parts, Ctrl-Z, a number of many digits, an error of any kind) is refused, and
// is then up to the tokenizer, which knows it all. What is accepted has the tokenizer's outcome.
//
// A text lies in memory with a Ctrl-Z as the byte behind its end and k_plain_slack bytes in all
// that may be looked at there. Ctrl-Z is neither blank, digit nor letter: it stops every loop, and
// no word or number is accepted that touches it. A refusal leaves `at` at the byte that was in the
// way. When that is the end, all in front of it was in order, and the tokenizer would ask for more
// bytes before it could know better; so the caller may as well do that at once.
#pragma once

#include "files/stl_ascii.h"

#include <cstddef>

namespace velmora {

constexpr std::size_t k_plain_slack = 8; ///< bytes behind the end that can be read

struct stl_plain_text {
    const unsigned char* at;  ///< next byte
    const unsigned char* end; ///< behind the last one, where a Ctrl-Z stands
};

/// Some keywords, then some numbers.
struct stl_plain_line {
    int words;
    stl_token_kind keywords[3];
    int numbers; ///< 0 to 3
};

/// Takes a line, whose words and numbers may have any blanks between them. A keyword may be in any
/// case and has a blank behind it, a number has at most 19 digits. What ends the last one is left.
[[nodiscard]] bool plain_line(stl_plain_text* text, const stl_plain_line& line, float* vec);

} // namespace velmora
