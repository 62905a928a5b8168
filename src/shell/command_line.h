// shell/command_line.h - words from a command line that comes as one text.
//
// A blank ends a word, unless it stands in double quotes. Quotes delimit: a closing one ends its
// word even when letters follow at once. Backslashes mean nothing. Blanks in quotes belong to a
// word that has a letter in the same quotes; quotes without a letter make no word.
#pragma once

namespace velmora {

/// Splits `line` (without the program's path; null counts as empty). argv[0] is always "velmora",
/// argc is the number of words plus 1, and a null entry stands behind the last. When memory runs
/// out there are no words.
void split_command_line(const char* line, int* argc, char*** argv);

/// Gives back what split_command_line made; null is allowed.
void free_command_line(char** argv);

} // namespace velmora
