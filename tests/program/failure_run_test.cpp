// What a run meets that is not its own fault: full disks, closed pipes, directories, files that end
// early, too little memory. Whatever it is, the log tells of it and the input is kept.
#include "program/model_run.h"

#include <algorithm>
#include <csignal>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <unistd.h>

namespace velmora {
namespace {

namespace fs = std::filesystem;

struct failure_run : model_run {
    static void expect_told_once(const program_result& r)
    {
        EXPECT_EQ(r.status, 0);
        EXPECT_EQ(count_of("output error\n", r.log), 1u) << r.log;
        EXPECT_FALSE(r.says("wrote output file"));
    }
};

/// The writing end of a pipe that nobody reads.
struct deserted_pipe {
    int ends[2];

    deserted_pipe()
    {
        if (pipe(ends) == 0) close(ends[0]);
    }
    ~deserted_pipe()
    {
        close(ends[1]);
    }
    std::string name() const
    {
        return "&" + std::to_string(ends[1]);
    }
};

TEST_F(failure_run, an_output_that_takes_nothing_is_told_once)
{
    for (const char* name : {"full.stl", "full.astl", "full.kvd"}) {
        SCOPED_TRACE(name);
        fs::create_symlink("/dev/full", dir.path / name);
        expect_told_once(dir.run(std::string("-f in.stl -o ") + name + k_as_is));
    }
    const deserted_pipe nobody;
    for (const std::string& to : {nobody.name(), std::string("/dev/full")})
        for (const char* form : {"-O b", "-O a", "-O m"})
            expect_told_once(dir.run(form + k_as_is + " < in.stl >" + to));
}

TEST_F(failure_run, a_log_or_a_removed_file_that_takes_nothing_ends_no_run)
{
    const deserted_pipe nobody;
    fs::create_symlink("/dev/full", dir.path / "full.stl");
    dir.run("-f in.stl -o usual.stl" + k_reduce);
    for (const std::string& more :
         {std::string("-e full.stl"), std::string("2>/dev/full"), "2>" + nobody.name()}) {
        EXPECT_EQ(dir.run("-f in.stl -o out.stl" + k_reduce + " " + more).status, 0);
        EXPECT_EQ(dir.read("out.stl"), dir.read("usual.stl"));
        fs::remove(dir.path / "out.stl");
    }
}

TEST_F(failure_run, what_cannot_be_read_is_told)
{
    for (const char* name : {"d.stl", "d.astl", "d.kvd"}) {
        SCOPED_TRACE(name);
        fs::create_directory(dir.path / name);
        const program_result r = dir.run(std::string("-f ") + name + " -o out.stl" + k_as_is);
        EXPECT_EQ(r.status, 0);
        EXPECT_TRUE(r.says("Is a directory") || r.says("error number 0.\n")) << r.log;
        EXPECT_FALSE(r.says("wrote output file"));
        EXPECT_EQ(dir.read("out.stl"), "");
    }
}

// From a pipe whose writer goes away early; the triangles that came are processed.
TEST_F(failure_run, an_input_that_ends_early_is_told)
{
    struct {
        const char* form;
        const char* input;
        const char* log_holds;
    } const cases[] = {{"-F b", "in.stl", "premature EOF"},
                       {"-F a", "in.astl", "input file error after 20 triangles.\n"},
                       {"-F m", "in.kvd", "error number 0.\n"}};
    for (const auto& c : cases) {
        SCOPED_TRACE(c.form);
        const std::string fifo = std::string("fifo-") + c.input;
        const program_result r =
            dir.shell("mkfifo " + fifo + "; " VELMORA_PROGRAM " -f " + fifo + " -o out.stl " +
                      c.form + k_as_is + " & head -c 3000 " + c.input + " > " + fifo + "; wait $!");
        EXPECT_EQ(r.status, 0);
        EXPECT_TRUE(r.says(c.log_holds)) << r.log;
    }
    const program_result whole =
        dir.shell("mkfifo whole.kvd; " VELMORA_PROGRAM " -f whole.kvd -o out.kvd" + k_as_is +
                  " & cat in.kvd > whole.kvd; wait $!");
    EXPECT_TRUE(whole.says("wrote output file")) << whole.log;
}

// Stopped while it waits for a slow reader: what was begun is written to its end, then the run
// ends.
TEST_F(failure_run, a_write_that_is_interrupted_goes_on)
{
    dir.write("many.stl", binary_stl(sheet_mesh(60, 60)));
    const program_result r =
        dir.shell("mkfifo pipe; { exec 3<pipe; while ! [ -e go ]; do sleep 0.05; done; "
                  "cat <&3 >got; } & { exec " VELMORA_PROGRAM
                  " -O a -q 4 -a 1 -r 1 -c 1 <many.stl >pipe; } & "
                  "run=$!; while ! grep -q 'reduced form' .log; do sleep 0.05; done; "
                  "sleep 0.2; kill -TERM $run; sleep 0.1; touch go; wait $run");
    EXPECT_EQ(r.status, 255);
    EXPECT_TRUE(r.says("program aborted by the user\n")) << r.log;
    EXPECT_TRUE(r.says("wrote output file")) << r.log;
    for (int i = 0; i < 100 && count_of("endfacet\n", dir.read("got")) < 7200; ++i)
        usleep(20000);
    EXPECT_EQ(count_of("endfacet\n", dir.read("got")), 7200u);
}

// The file ends at `limit`, as on a disk that is full; so does the log, which is shorter.
program_result run_with_full_disk(const run_folder& dir, const std::string& options, rlim_t limit)
{
    rlimit before;
    getrlimit(RLIMIT_FSIZE, &before);
    const rlimit full = {limit, before.rlim_max};
    const auto handler = std::signal(SIGXFSZ, SIG_IGN);
    setrlimit(RLIMIT_FSIZE, &full);
    const program_result r = dir.run(options);
    setrlimit(RLIMIT_FSIZE, &before);
    std::signal(SIGXFSZ, handler);
    return r;
}

TEST_F(failure_run, a_full_disk_is_told_once_whichever_byte_it_stops)
{
    dir.write("small.stl", binary_stl(box_mesh(2, 2, 2, 2)));
    struct {
        const char* name;
        const char* error;
    } const cases[] = {{"out.stl", "stl-file output error\n"},
                       {"out.astl", "stl-file output error\n"},
                       {"out.kvd", "output error\n"}};
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        const std::string options = std::string("-f small.stl -o ") + c.name + k_as_is;
        EXPECT_FALSE(dir.run(options).says("error"));
        const auto size = static_cast<rlim_t>(dir.read(c.name).size());
        for (const rlim_t missing : {1u, 15u, 29u, 30u, 600u, 1000u}) {
            const program_result r = run_with_full_disk(dir, options, size - missing);
            EXPECT_EQ(r.status, 0);
            EXPECT_EQ(count_of("output error\n", r.log), 1u) << missing << r.log;
            EXPECT_TRUE(r.says(c.error));
            EXPECT_FALSE(missing > 29 && r.says("wrote output file"));
        }
    }
}

TEST_F(failure_run, in_place_keeps_the_model_whatever_fails)
{
    const std::string in_place = "-f in.stl -o =";
    const program_result full = run_with_full_disk(dir, in_place + k_as_is, 4096);
    EXPECT_TRUE(full.says("stl-file output error\n"));
    EXPECT_EQ(dir.read("in.stl~"), model);

    dir.write("in.stl", model);
    EXPECT_EQ(dir.run(in_place + " -r 1 -c 1").status, 255) << "no mode";
    for (int again = 0; again < 2; ++again) {
        EXPECT_EQ(dir.read("in.stl"), "");
        EXPECT_EQ(dir.read("in.stl~"), model) << "not for an empty file's sake";
        const program_result r = dir.run(in_place + k_reduce);
        EXPECT_EQ(r.status, 255);
        EXPECT_TRUE(r.says("\"in.stl~\" (it would be lost, and the input is empty)\n")) << r.log;
    }
}

TEST_F(failure_run, in_place_takes_no_device_away)
{
    dir.shell("ln -s /dev/null sink.stl");
    const program_result r = dir.run("-f sink.stl -o =" + k_reduce);
    EXPECT_EQ(r.status, 255);
    EXPECT_TRUE(r.says("\"sink.stl\" (only a plain file can be replaced)\n")) << r.log;
    EXPECT_FALSE(dir.shell("test -L sink.stl~").status == 0);
}

// Fewer pages than the run wants, up to as many as it needs, but enough for the program itself: the
// system kills one whose static memory does not fit. Sanitizers reserve too much for this.
TEST_F(failure_run, a_limit_on_memory_is_told)
{
#ifdef __SANITIZE_ADDRESS__
    GTEST_SKIP();
#endif
    dir.write("large.stl", binary_stl(box_mesh(9, 9, 9, 60)));
    std::size_t failed = 0;
    bool enough = false;
    for (std::size_t limit = 12000; !enough && limit < 200000; limit += 4000) {
        SCOPED_TRACE(limit);
        const program_result r =
            dir.shell("ulimit -v " + std::to_string(limit) +
                      "; " VELMORA_PROGRAM " -f large.stl -o out.stl" + k_reduce);
        enough = r.says("wrote output file");
        if (enough || r.status == 127) continue; // too little to start at all
        ++failed;
        EXPECT_TRUE(r.status == 0 || r.status == 255) << r.status;
        EXPECT_TRUE(r.says("memory")) << r.log;
    }
    EXPECT_TRUE(enough);
    EXPECT_GE(failed, 3u);
}

} // namespace
} // namespace velmora
