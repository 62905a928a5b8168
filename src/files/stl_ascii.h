// files/stl_ascii.h - the text form of STL: characters, tokens, and the order of keywords in a
// facet.
//
// Line breaks and indentation mean nothing inside a facet; a keyword may be written in any case,
// and those that begin with "end" may be written apart. Text is read byte by byte with one byte of
// push-back; a line of a facet in its usual spelling is taken from the buffer whole, with the same
// outcome.
#pragma once

#include "files/stl_stream.h"

namespace velmora {

/// The first nine are the keywords, sorted.
enum stl_token_kind : int {
    stl_tok_endfacet = 0,
    stl_tok_endloop = 1,
    stl_tok_endsolid = 2,
    stl_tok_facet = 3,
    stl_tok_loop = 4,
    stl_tok_normal = 5,
    stl_tok_outer = 6,
    stl_tok_solid = 7,
    stl_tok_vertex = 8,
    stl_tok_word = 9,    ///< any other word
    stl_tok_number = 10, ///< stl_token::number has its value
    stl_tok_end = 11,    ///< end of input
};

struct stl_token {
    int kind;     ///< stl_token_kind
    float number; ///< value of a number
};

/// Takes the next token; false when the text has none (error 5 or 6). A number without a digit is a
/// number, and leaves error 4 pending.
[[nodiscard]] bool stl_next_token(stl_stream* s, stl_token* token);

/// Reads "solid" and the name behind it into `id`, which has room for 80 characters and a zero
/// byte.
[[nodiscard]] bool stl_read_solid_line(stl_stream* s, char* id);

/// Reads one facet. False with stl_flag_header_read cleared when "endsolid" stood in its place,
/// otherwise false with an error.
[[nodiscard]] bool stl_read_facet(stl_stream* s, stl_tri* tri);

} // namespace velmora
