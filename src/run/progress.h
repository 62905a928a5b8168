// run/progress.h - how a run tells how far it is, learns of Stop, and measures its time.
//
// Stop is noticed at a progress call and nowhere else. These calls stand between stages, never
// inside one, so a stage is the longest that Stop has to wait.
#pragma once

#include <cstdint>

namespace velmora {

/// CPU seconds of one measurement. Zeroed by its owner before the start.
struct cpu_timer {
    std::int32_t running; ///< 1 after the start
    float user_s;         ///< seconds measured so far
    float sys_s;          ///< 0: the clock does not tell the system's share
    float user_start;     ///< clock at the start, seconds
    float sys_start;      ///< always 0
};

/// Takes a percentage; answers 1 to go on, 0 to stop.
using progress_fn = int (*)(std::int32_t percent);

/// Hands `percent` to `callback`. Without one the number goes to the standard output if `show`.
/// @return 1 to go on, 0 to stop
[[nodiscard]] int update_progress(bool show, std::int32_t percent, progress_fn callback);

/// The callback of a run: shows a percentage that changed, and looks for Stop each time.
[[nodiscard]] int run_progress_callback(std::int32_t percent);

/// 1 while the run may go on, else 0. The first 0 is logged, unless KV_ALARM is set.
[[nodiscard]] int check_abort();

/// Takes `name` for the message of check_abort and reads the environment variable KV_ALARM, whose
/// only effect is that there is no such message.
void init_alarm(const char* name);

/// Seconds between alarms, as KV_ALARM gave them; no alarm is ever raised.
std::int32_t alarm_seconds();

/// As if nothing had been shown, stopped or set up yet.
void reset_progress();

/// Start and stop of two timers by one look at the clock; either may be null.
void timer_start(cpu_timer* timer_a, cpu_timer* timer_b);
void timer_stop(cpu_timer* timer_a, cpu_timer* timer_b);

/// Logs the times of a stopped timer.
void log_time(const char* label, const cpu_timer* timer);

} // namespace velmora
