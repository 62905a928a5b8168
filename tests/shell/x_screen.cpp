#include "shell/x_screen.h"

#include "shell/dialog_ids.h"

#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <fstream>
#include <iterator>
#include <sstream>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

namespace velmora {

namespace {

using std::chrono::milliseconds;

constexpr milliseconds k_patience{60000}; ///< a test that waits longer has failed
constexpr milliseconds k_step{20};
constexpr milliseconds k_still{400}; ///< a clock of 10 ms must stand for so long

/// Asks until the answer is yes; false when that takes too long.
template <class question_fn> bool wait_for(const question_fn& question)
{
    const auto end = std::chrono::steady_clock::now() + k_patience;
    while (!question()) {
        if (std::chrono::steady_clock::now() > end) return false;
        std::this_thread::sleep_for(k_step);
    }
    return true;
}

std::string output_of(const std::string& command)
{
    std::string output;
    FILE* pipe = popen(command.c_str(), "r");
    if (!pipe) return output;
    for (int c; (c = std::fgetc(pipe)) != EOF;)
        output += static_cast<char>(c);
    pclose(pipe);
    while (output.ends_with("\n"))
        output.pop_back();
    return output;
}

/// The middle of a control, in parts of the dialog's size.
struct place {
    double x;
    double y;
};

place place_of(int wanted)
{
    place middle = {};
    double whole_x = 1;
    double whole_y = 1;
    const auto row = [&](int id, int x, int y, int width, int height) {
        if (id == wanted) middle = {(x + width / 2.0) / whole_x, (y + height / 2.0) / whole_y};
    };
#define DIALOG(width, height, points, font)                                                        \
    whole_x = width;                                                                               \
    whole_y = height;
#define BUTTON(text, id, x, y, width, height) row(id, x, y, width, height);
#define BAR BUTTON
#define LINE BUTTON
#include "shell/dialog_template.inc"
    return middle;
}

} // namespace

bool x_screen::is_possible()
{
    return std::system("command -v Xvfb xdotool >/dev/null") == 0;
}

x_screen& x_screen::shared()
{
    static x_screen screen;
    return screen;
}

x_screen::x_screen()
{
    int number[2];
    if (pipe(number) != 0) std::abort();
    server_ = fork();
    if (server_ == 0) {
        const int nowhere = ::open("/dev/null", O_RDWR);
        for (const int stream : {0, 1, 2})
            dup2(nowhere, stream);
        const std::string out = std::to_string(number[1]);
        execlp("Xvfb", "Xvfb", "-displayfd", out.c_str(), "-screen", "0", "640x480x24", "-nolisten",
               "tcp", "-noreset", nullptr);
        _exit(127);
    }
    close(number[1]);
    display_ = ":";
    for (char c; read(number[0], &c, 1) == 1 && c != '\n';)
        display_ += c;
    close(number[0]);
}

x_screen::~x_screen()
{
    pull_the_plug();
}

void x_screen::pull_the_plug()
{
    if (server_ < 0) return;
    kill(server_, SIGKILL);
    waitpid(server_, nullptr, 0);
    server_ = -1;
    for (const std::string& left :
         {"/tmp/.X" + display_.substr(1) + "-lock", "/tmp/.X11-unix/X" + display_.substr(1)})
        std::remove(left.c_str());
}

std::string x_screen::tool(const std::string& arguments)
{
    return output_of("DISPLAY=" + display_ + " timeout 10 xdotool " + arguments + " 2>/dev/null");
}

std::string x_screen::window(const std::string& title)
{
    std::string found;
    wait_for([&] {
        found = tool("search --onlyvisible --name '^" + title + "$'");
        return !found.empty();
    });
    return found.substr(0, found.find('\n'));
}

bool x_screen::shows(const std::string& title)
{
    return !window(title).empty();
}

void x_screen::click(const std::string& title, int id)
{
    const std::string shown = window(title);
    int x = 0;
    int y = 0;
    int width = 0;
    int height = 0;
    std::sscanf(tool("getwindowgeometry --shell " + shown).c_str(),
                "WINDOW=%*d\nX=%d\nY=%d\nWIDTH=%d\nHEIGHT=%d", &x, &y, &width, &height);
    const place middle = place_of(id);
    tool("mousemove --window " + shown + " " + std::to_string(int(middle.x * width)) + " " +
         std::to_string(int(middle.y * height)) + " click 1");
}

void x_screen::press(const std::string& title, const std::string& key)
{
    const std::string shown = window(title);
    tool("mousemove --window " + shown + " 5 5 windowfocus " + shown + " key " + key);
}

window_run::window_run(const std::filesystem::path& folder, const std::vector<std::string>& command,
                       const std::string& display)
{
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0) std::abort();
    std::vector<char*> argv;
    for (const std::string& word : command)
        argv.push_back(const_cast<char*>(word.c_str()));
    argv.push_back(nullptr);
    process_ = fork();
    if (process_ == 0) {
        if (chdir(folder.c_str()) != 0) _exit(127);
        dup2(ends[0], 0);
        dup2(::open(".out", O_WRONLY | O_CREAT | O_TRUNC, 0666), 1);
        dup2(::open(".log", O_WRONLY | O_CREAT | O_TRUNC, 0666), 2);
        if (display.empty()) unsetenv("DISPLAY");
        if (!display.empty()) setenv("DISPLAY", display.c_str(), 1);
        setenv("ASAN_OPTIONS", "detect_leaks=0", 1); // the font libraries keep what they have
        execvp(argv[0], argv.data());
        _exit(127);
    }
    close(ends[0]);
    input_ = ends[1];
}

window_run::~window_run()
{
    close(input_);
    if (has_ended()) return;
    kill(process_, SIGKILL);
    waitpid(process_, nullptr, 0);
}

void window_run::feed(const std::string& bytes)
{
    const auto before = std::signal(SIGPIPE, SIG_IGN); // a run may end before it has read all
    std::FILE* const pipe = fdopen(input_, "wb");
    std::fwrite(bytes.data(), 1, bytes.size(), pipe);
    std::fclose(pipe);
    std::signal(SIGPIPE, before);
    input_ = -1;
}

long window_run::cpu_ticks() const
{
    std::ifstream file("/proc/" + std::to_string(process_) + "/stat");
    std::string text;
    std::getline(file, text);
    std::istringstream rest(text.substr(text.rfind(')') + 1));
    const std::vector<std::string> words(std::istream_iterator<std::string>(rest), {});
    return std::stol(words.at(11)) + std::stol(words.at(12)); // as user and in the system
}

bool window_run::stands_still()
{
    return wait_for([this] {
               if (has_ended()) return true;
               const long before = cpu_ticks();
               std::this_thread::sleep_for(k_still);
               return !has_ended() && cpu_ticks() == before;
           }) &&
           !has_ended();
}

bool window_run::has_ended()
{
    if (process_ < 0) return true;
    int status = 0;
    if (waitpid(process_, &status, WNOHANG) != process_) return false;
    status_ = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    process_ = -1;
    return true;
}

int window_run::status()
{
    return wait_for([this] { return has_ended(); }) ? status_ : -1;
}

} // namespace velmora
