#include "run/log.h"

#include "run/ui.h"

#include <cstdarg>
#include <cstdio>

namespace velmora {

void log_line(const char* format, ...)
{
    ui_before_log();
    std::va_list args;
    va_start(args, format);
    std::vfprintf(stderr, format, args);
    va_end(args);
    ui_after_log();
}

void log_flush()
{
    std::fflush(stderr);
}

} // namespace velmora
