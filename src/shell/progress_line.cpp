#include "shell/progress_line.h"

#include <algorithm>
#include <cstring>

namespace velmora {

namespace {

constexpr int k_bar_max = 32;  ///< characters of the bar, its brackets included
constexpr int k_bar_min = 7;   ///< a shorter bar says nothing
constexpr int k_label_len = 5; ///< "100 %", shorter numbers right aligned
constexpr int k_line_max = 100;
constexpr int k_gap = 2; ///< blanks between the status and the bar

static_assert(k_line_max < static_cast<int>(k_progress_line_size));

/// How many characters each part gets; 0 leaves it out, with its gap.
struct line_layout {
    int status;
    int bar;
    int label;
};

} // namespace

static line_layout lay_out(int status_len, int columns)
{
    int room = std::min(columns, k_line_max) - k_label_len;
    if (room < 0) return {0, 0, 0};
    --room; // the blank before the label
    if (room < k_bar_min) return {0, 0, k_label_len};

    const int wish = status_len > 0 ? status_len + k_gap : 0;
    const int bar = std::clamp(room - wish, k_bar_min, k_bar_max);
    const int status = std::min(status_len, room - bar - k_gap);
    return {std::max(status, 0), bar, k_label_len};
}

static char* put_bar(char* to, int size, int percent)
{
    const int inner = size - 2;
    const int done = inner * percent / 100;
    *to++ = '[';
    for (int i = 0; i < inner; ++i)
        *to++ = i < done ? '#' : '.';
    *to++ = ']';
    return to;
}

static char* put_label(char* to, int percent)
{
    *to++ = percent >= 100 ? '1' : ' ';
    *to++ = percent >= 10 ? static_cast<char>('0' + percent / 10 % 10) : ' ';
    *to++ = static_cast<char>('0' + percent % 10);
    *to++ = ' ';
    *to++ = '%';
    return to;
}

std::size_t format_progress_line(char (&out)[k_progress_line_size], const char* status, int percent,
                                 int columns)
{
    percent = std::clamp(percent, 0, 100);
    const int status_len = static_cast<int>(std::min<std::size_t>(std::strlen(status), k_line_max));
    const line_layout parts = lay_out(status_len, columns);

    char* to = out;
    if (parts.status > 0) {
        std::memcpy(to, status, static_cast<std::size_t>(parts.status));
        to += parts.status;
        for (int i = 0; i < k_gap; ++i)
            *to++ = ' ';
    }
    if (parts.bar > 0) {
        to = put_bar(to, parts.bar, percent);
        *to++ = ' ';
    }
    if (parts.label > 0) to = put_label(to, percent);
    *to = '\0';
    return static_cast<std::size_t>(to - out);
}

} // namespace velmora
