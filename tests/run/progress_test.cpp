// Progress, Stop, times, and the texts of errors.
#include "files/model_io.h"
#include "files/stl_fixture.h"
#include "mesh/log.h"
#include "mesh/memory.h"
#include "run/errors.h"
#include "run/options.h"
#include "run/progress.h"
#include "run/ui.h"

#include <cerrno>
#include <cstdlib>
#include <ctime>
#include <gtest/gtest.h>
#include <string>

namespace velmora {

namespace {

std::string shown;   ///< what a test's shell was told
int pumps = 0;       ///< how often it was asked for Stop
bool may_run = true; ///< what it answers

const ui_ops recording_ops = {
    [](const char*) { shown += "prepare "; },
    [] { shown += "reset "; },
    [](int, const char* text) { shown += std::string("status(") + text + ") "; },
    [] { shown += "show "; },
    [] { shown += "hide "; },
    [](int percent) { shown += std::to_string(percent) + " "; },
    [] { return ++pumps, may_run ? 1 : 0; },
    [](const char* text) { shown += std::string("message(") + text + ") "; },
    [] { shown += "<"; },
    [] { shown += ">"; },
};

class progress : public ::testing::Test {
  protected:
    progress()
    {
        unsetenv("KV_ALARM");
        reset_progress();
        set_option_defaults(&the_options);
        the_options.program_name = k_program_name;
        shown.clear();
        pumps = 0;
        may_run = true;
        ui_install(&recording_ops);
    }
    ~progress() override
    {
        ui_install(nullptr);
        unsetenv("KV_ALARM");
    }

    template <class act_fn> static std::string logged(const act_fn& act)
    {
        ::testing::internal::CaptureStderr();
        act();
        return ::testing::internal::GetCapturedStderr();
    }
};

} // namespace

TEST_F(progress, shows_a_value_once_and_looks_for_stop_each_time)
{
    EXPECT_EQ(update_progress(false, 10, run_progress_callback), 1);
    EXPECT_EQ(update_progress(true, 10, run_progress_callback), 1);
    EXPECT_EQ(update_progress(false, 0, run_progress_callback), 1);
    EXPECT_EQ(shown, "10 0 ");
    EXPECT_EQ(pumps, 3);
    ui_install(nullptr);
    EXPECT_EQ(update_progress(false, 50, run_progress_callback), 1) << "without a shell";
}

TEST_F(progress, prints_numbers_when_nobody_else_shows_them)
{
    ::testing::internal::CaptureStdout();
    EXPECT_EQ(update_progress(true, 7, nullptr), 1);
    EXPECT_EQ(update_progress(false, 8, nullptr), 1);
    EXPECT_EQ(update_progress(true, 100, nullptr), 1);
    EXPECT_EQ(::testing::internal::GetCapturedStdout(), "7% 100% \n");
    EXPECT_EQ(pumps, 0);
}

TEST_F(progress, says_once_that_the_user_stopped_the_run)
{
    char name[] = "velmora";
    init_alarm(name);
    name[0] = '#'; // the caller's buffer may go
    may_run = false;
    EXPECT_EQ(logged([] {
                  EXPECT_EQ(update_progress(false, 20, run_progress_callback), 0);
                  EXPECT_EQ(check_abort(), 0);
              }),
              "velmora: program aborted by the user\n");
    EXPECT_EQ(shown, "20 <>");
}

TEST_F(progress, keeps_silent_about_stop_with_an_alarm_set)
{
    struct {
        const char* text;
        std::int32_t seconds;
    } const cases[] = {
        {"", 0},
        {"60", 60},
        {"60 s", 60},
        {"60s", 0},
        {"soon", 0},
        {" -5", -5},
        {"99999999999", 0x7fffffff},
    };
    may_run = false;
    for (const auto& c : cases) {
        SCOPED_TRACE(c.text);
        reset_progress();
        setenv("KV_ALARM", c.text, 1);
        init_alarm("velmora");
        EXPECT_EQ(alarm_seconds(), c.seconds);
        EXPECT_EQ(logged([] { EXPECT_EQ(check_abort(), 0); }), "");
    }
}

TEST(cpu_timers, measure_work_and_add_it_up)
{
    cpu_timer a = {};
    cpu_timer b = {};
    timer_start(&a, &b);
    EXPECT_EQ(a.running, 1);
    const std::clock_t start = std::clock();
    while (std::clock() - start < CLOCKS_PER_SEC / 20) {}
    timer_stop(&a, nullptr);
    EXPECT_GE(a.user_s, 0.045f);
    EXPECT_LT(a.user_s, 5.0f);
    EXPECT_EQ(a.sys_s, 0.0f);
    EXPECT_EQ(b.user_s, 0.0f);

    const float once = a.user_s;
    timer_stop(nullptr, &b);
    timer_start(&a, nullptr);
    timer_stop(&a, nullptr);
    EXPECT_GE(a.user_s, once);
    EXPECT_GE(b.user_s, 0.045f);
}

TEST_F(progress, logs_times_below_verbosity_5)
{
    const cpu_timer two_minutes = {1, 120.0f, 0.0f, 0.0f, 0.0f};
    const cpu_timer more = {1, 130.0f, 0.0f, 0.0f, 0.0f};
    EXPECT_EQ(logged([&] { log_time("reduction", &two_minutes); }),
              "velmora(info): reduction time (u+s) 120.0+0.0=120.0\n");
    const std::string both = "velmora(info): reduction time (u+s) 130.0+0.0=130.0\n"
                             "velmora(info): (more than 2 minutes.)\n";
    for (const int verbosity : {-1, 0, 1, 4, 5, 7}) {
        the_options.verbosity = verbosity;
        const bool tells = verbosity != 0 && verbosity < 5;
        EXPECT_EQ(logged([&] { log_time("reduction", &more); }), tells ? both : "") << verbosity;
    }
}

TEST_F(progress, gives_the_log_of_every_room_its_place)
{
    heap_fail_nth(1);
    EXPECT_EQ(logged([] { EXPECT_EQ(mm_malloc(1), nullptr); }),
              "mm_malloc: no more memory available\n");
    heap_fail_nth(0);
    EXPECT_EQ(shown, "<>");

    std::FILE* file = file_with(binary_header(1) + binary_record(9.0e10f));
    stl_stream* stream = open_stl(file, stl_format_binary, stl_reading);
    const std::string log = logged([stream] {
        tr_soup soup = {};
        aabb box;
        std::int32_t err = 0;
        EXPECT_EQ(stl_load_model(&soup, &box, 9, stream, nullptr, &err), stage_ok);
        soup_free(&soup);
    });
    EXPECT_NE(log.find("stl-input: ignored 1 triangles"), std::string::npos);
    EXPECT_EQ(shown, "<><>");
    stl_close(stream);
    std::fclose(file);
}

TEST_F(progress, has_a_text_for_every_error_number)
{
    const std::pair<std::int32_t, const char*> cases[] = {
        {1, "memory end\n"},     {20, "polygon cutting error\n"}, {25, "unknown error(1)\n"},
        {26, "unknown error\n"}, {-1, "unknown error\n"},
    };
    for (const auto& [number, text] : cases)
        EXPECT_EQ(logged([n = number] { EXPECT_FALSE(report_error(n)); }), text);
}

TEST(system_errors, have_the_text_of_the_system_or_their_number)
{
    EXPECT_STREQ(system_error_text(ENOENT), "No such file or directory");
    EXPECT_STREQ(system_error_text(0), "Success");
    EXPECT_STREQ(system_error_text(200), "unknown error code d=200, x=c8");
    EXPECT_STREQ(system_error_text(-1), "unknown error code d=-1, x=ffffffff");
}

} // namespace velmora
