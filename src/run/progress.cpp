#include "run/progress.h"

#include "mesh/log.h"
#include "run/options.h"
#include "run/ui.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <limits>

namespace velmora {

namespace {

constexpr const char* k_alarm_variable = "KV_ALARM";
constexpr double k_s_per_ms = 0.001;
constexpr double k_minutes_from_s = 120.0; ///< above this the minutes are logged, too

struct progress_state {
    std::int32_t last_percent;
    bool abort_reported;
    bool has_abort_name;
    char abort_name[64];
    std::int32_t alarm_period;
};

constexpr progress_state k_fresh = {-1, false, false, "", 0};

progress_state state = k_fresh;

} // namespace

void reset_progress()
{
    state = k_fresh;
}

int update_progress(bool show, std::int32_t percent, progress_fn callback)
{
    if (callback) return callback(percent) == 0 ? 0 : 1;
    if (!show) return 1;
    std::printf("%1d%% ", percent);
    if (percent == 100) std::printf("\n");
    std::fflush(stdout);
    return 1;
}

int run_progress_callback(std::int32_t percent)
{
    if (percent != state.last_percent) ui_set_progress(percent);
    state.last_percent = percent;
    return check_abort();
}

int check_abort()
{
    if (ui_pump()) return 1;
    if (state.abort_reported) return 0;
    if (state.has_abort_name) log_line("%s: program aborted by the user\n", state.abort_name);
    state.abort_reported = true;
    return 0;
}

// Digits count when nothing or a blank follows them.
static std::int32_t alarm_period_of(const char* text)
{
    using limits = std::numeric_limits<std::int32_t>;
    char* end = nullptr;
    const long period = std::strtol(text, &end, 10);
    if (*end != '\0' && *end != ' ') return 0;
    return static_cast<std::int32_t>(
        std::clamp(period, static_cast<long>(limits::min()), static_cast<long>(limits::max())));
}

void init_alarm(const char* name)
{
    const char* alarm = std::getenv(k_alarm_variable);
    state.alarm_period = alarm ? alarm_period_of(alarm) : 0;
    if (alarm) return;
    state.has_abort_name = true;
    std::snprintf(state.abort_name, sizeof state.abort_name, "%s", name);
}

std::int32_t alarm_seconds()
{
    return state.alarm_period;
}

// The clock's ticks differ in length from system to system; milliseconds do not.
static float clock_seconds()
{
    const double ms = static_cast<double>(std::clock()) * (1000.0 / CLOCKS_PER_SEC);
    return static_cast<float>(ms * k_s_per_ms);
}

static void start_one(cpu_timer* timer, float now)
{
    if (!timer) return;
    timer->running = 1;
    timer->user_start = now;
    timer->sys_start = 0.0f;
}

static void stop_one(cpu_timer* timer, float now)
{
    if (!timer) return;
    timer->user_s += now - timer->user_start;
    timer->sys_s += 0.0f - timer->sys_start;
}

void timer_start(cpu_timer* timer_a, cpu_timer* timer_b)
{
    const float now = clock_seconds();
    start_one(timer_a, now);
    start_one(timer_b, now);
}

void timer_stop(cpu_timer* timer_a, cpu_timer* timer_b)
{
    const float now = clock_seconds();
    stop_one(timer_a, now);
    stop_one(timer_b, now);
}

void log_time(const char* label, const cpu_timer* timer)
{
    if (!logs_up_to(the_options, 4)) return;
    const double sum = static_cast<double>(timer->user_s + timer->sys_s);
    log_line("%s(info): %s time (u+s) %.1f+%.1f=%.1f\n", the_options.program_name, label,
             static_cast<double>(timer->user_s), static_cast<double>(timer->sys_s), sum);
    if (sum > k_minutes_from_s) {
        log_line("%s(info): (more than %d minutes.)\n", the_options.program_name,
                 static_cast<int>(sum / 60.0));
    }
    log_flush();
}

} // namespace velmora
