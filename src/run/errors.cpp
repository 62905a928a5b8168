#include "run/errors.h"

#include "mesh/log.h"
#include "run/options.h"

#include <cstdio>
#include <cstring>
#include <iterator>

namespace velmora {

static const char* const error_texts[] = {
    "error number 0.\n",
    "memory end\n",
    "input error\n",
    "output error\n",
    "stl-file output error\n",
    "stl-file input error\n",
    "movie-file output error\n",
    "movie-file input error\n",
    "wavefront-file output error\n",
    "wavefront-file input error\n",
    "cbx-file output error\n",
    "cbx-file input error\n",
    "leaf-file output error\n",
    "leaf-file input error\n",
    "illegal bounding box\n",
    "unknown error\n",
    "eos-file output error\n",
    "eos-file input error\n",
    "hpgl-file output error\n",
    "hpgl-file input error\n",
    "polygon cutting error\n",
    "polygon handling error\n",
    "vdafs-file intialization error\n",
    "vdafs-file output error\n",
    "unknown error(0)\n",
    "unknown error(1)\n",
};

constexpr std::int32_t k_unknown_error = 15;

bool report_error(std::int32_t number)
{
    const bool known = number >= 0 && number < static_cast<std::int32_t>(std::size(error_texts));
    log_line("%s", error_texts[known ? number : k_unknown_error]);
    return false;
}

bool fail_to(const char* text)
{
    log_line("%s: failed to %s.\n", the_options.program_name, text);
    return false;
}

// Null when the system has no text for `number`.
static const char* known_error_text(int number)
{
#if defined(__GLIBC__)
    return strerrordesc_np(number);
#else
    const char* text = std::strerror(number);
    return text && std::strncmp(text, "Unknown error", 13) != 0 ? text : nullptr;
#endif
}

const char* system_error_text(int number)
{
    const char* text = known_error_text(number);
    if (text) return text;
    static char unknown[64];
    std::snprintf(unknown, sizeof unknown, "unknown error code d=%d, x=%x", number,
                  static_cast<unsigned>(number));
    return unknown;
}

} // namespace velmora
