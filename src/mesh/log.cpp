#include "mesh/log.h"

#include <cstdarg>
#include <cstdio>

namespace velmora {

static void (*before_text)() = nullptr;
static void (*after_text)() = nullptr;

void log_line(const char* format, ...)
{
    if (before_text) before_text();
    std::va_list args;
    va_start(args, format);
    std::vfprintf(stderr, format, args);
    va_end(args);
    if (after_text) after_text();
}

void log_flush()
{
    std::fflush(stderr);
}

void log_surround(void (*before)(), void (*after)())
{
    before_text = before;
    after_text = after;
}

} // namespace velmora
