#include "shell/command_line.h"

#include "mesh/memory.h"

#include <cstddef>
#include <cstring>

namespace velmora {

namespace {

char program_word[] = "velmora";

/// What is left of a command line when there is no memory for it.
char* lone_program[] = {program_word, nullptr};

/// Takes words apart, one character at a time; where they go is up to `argv`.
struct word_splitter {
    char** argv;    ///< null while counting
    char* text;     ///< next free character; null while counting
    char* word;     ///< start of the word in `text`; blanks may stand there before its first letter
    int words;      ///< ended so far
    bool in_word;   ///< a letter of this word was met
    bool in_quotes; ///< between two double quotes
};

} // namespace

static void store(char c, word_splitter* s)
{
    if (s->text) *s->text++ = c;
}

// What was stored without a letter behind it was no word.
static void end_word(word_splitter* s)
{
    if (s->in_word) {
        ++s->words;
        store('\0', s);
        if (s->argv) s->argv[s->words] = s->word;
        s->word = s->text;
    }
    s->text = s->word;
    s->in_word = false;
}

static void take_char(char c, word_splitter* s)
{
    if (c == '"') {
        if (s->in_quotes) end_word(s);
        s->in_quotes = !s->in_quotes;
    } else if (c != ' ') {
        s->in_word = true;
        store(c, s);
    } else if (s->in_quotes) {
        store(c, s);
    } else {
        end_word(s);
    }
}

static int walk_line(const char* line, char** argv, char* text)
{
    word_splitter s = {argv, text, text, 0, false, false};
    for (const char* c = line; *c != '\0'; ++c)
        take_char(*c, &s);
    end_word(&s);
    return s.words;
}

// The vector and its texts are one block. A word takes no more room than the line gave it: the
// character that ends it pays for the zero, the end of the line for the last one.
void split_command_line(const char* line, int* argc, char*** argv)
{
    if (!line) line = "";
    const int words = walk_line(line, nullptr, nullptr);
    const std::size_t entries = static_cast<std::size_t>(words) + 2;
    void* block = heap_alloc(entries * sizeof(char*) + std::strlen(line) + 1);
    if (!block) {
        *argc = 1;
        *argv = lone_program;
        return;
    }
    char** vector = static_cast<char**>(block);
    walk_line(line, vector, static_cast<char*>(block) + entries * sizeof(char*));
    vector[0] = program_word;
    vector[words + 1] = nullptr;
    *argc = words + 1;
    *argv = vector;
}

void free_command_line(char** argv)
{
    if (argv != lone_program) heap_free(argv);
}

} // namespace velmora
