#include "started_program.h"

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <fstream>
#include <stdexcept>
#include <system_error>

#include <fcntl.h>
#include <poll.h>
#include <pty.h>
#include <sys/ioctl.h>
#include <sys/wait.h>
#include <unistd.h>

namespace
{

void require(bool fulfilled, const char* what)
{
    if (!fulfilled)
        throw std::system_error(errno, std::generic_category(), what);
}

// The reading end, which is the test's, and the writing end.
struct ErrorsLine {
    int reading = -1;
    int writing = -1;
};

ErrorsLine open_errors(const ProgramSetup& setup)
{
    int ends[2];
    if (setup.on_terminal) {
        winsize size{};
        size.ws_row = 25;
        size.ws_col = static_cast<unsigned short>(setup.columns);
        require(openpty(&ends[0], &ends[1], nullptr, nullptr, &size) == 0, "openpty");
    } else {
        require(pipe(ends) == 0, "pipe");
    }
    for (const int end : ends)
        fcntl(end, F_SETFD, FD_CLOEXEC);
    return {ends[0], ends[1]};
}

[[noreturn]] void become(const std::vector<std::string>& command, const ProgramSetup& setup,
                         const TempDir& folder, int errors)
{
    const auto file = [&](const char* name, int flags) {
        return open((folder / name).c_str(), flags);
    };
    if (setup.on_terminal) {
        setsid();
        ioctl(errors, TIOCSCTTY, 0);
    }
    dup2(setup.on_terminal ? errors : file("input", O_RDONLY), STDIN_FILENO);
    dup2(file("output", O_WRONLY | O_APPEND), STDOUT_FILENO);
    dup2(errors, STDERR_FILENO);
    for (const int signal : setup.ignored_signals)
        std::signal(signal, SIG_IGN);
    for (const std::string& variable : setup.environment)
        putenv(const_cast<char*>(variable.c_str()));
    std::vector<char*> arguments;
    for (const std::string& word : command)
        arguments.push_back(const_cast<char*>(word.c_str()));
    arguments.push_back(nullptr);
    execv(arguments[0], arguments.data());
    _exit(127);
}

} // namespace

StartedProgram::StartedProgram(const std::vector<std::string>& command, const ProgramSetup& setup)
{
    folder_.write("input", setup.input);
    folder_.write("output", "");
    const ErrorsLine line = open_errors(setup);
    errors_source_ = line.reading;
    pid_ = fork();
    require(pid_ != -1, "fork");
    if (pid_ == 0)
        become(command, setup, folder_, line.writing);
    close(line.writing);
}

StartedProgram::~StartedProgram()
{
    if (pid_ != -1) {
        kill(pid_, SIGKILL);
        waitpid(pid_, nullptr, 0);
    }
    close(errors_source_);
}

void StartedProgram::send(int signal) const
{
    require(kill(pid_, signal) == 0, "kill");
}

void StartedProgram::type(const std::string& keys) const
{
    require(write(errors_source_, keys.data(), keys.size()) == static_cast<ssize_t>(keys.size()),
            "write");
}

void StartedProgram::wait_for(const std::string& text)
{
    while (errors_.find(text) == std::string::npos) {
        if (!read_errors())
            throw std::runtime_error("never said: " + text + "\nbut: " + errors_);
    }
}

// Returns false at the end. The end of a terminal is an error.
bool StartedProgram::read_errors()
{
    constexpr int minute = 60'000;
    pollfd source{errors_source_, POLLIN, 0};
    if (poll(&source, 1, minute) != 1)
        throw std::runtime_error("says nothing more than: " + errors_);
    char block[4096];
    const ssize_t size = read(errors_source_, block, sizeof(block));
    if (size > 0)
        errors_.append(block, static_cast<std::size_t>(size));
    return size > 0;
}

void StartedProgram::read_what_is_there()
{
    pollfd source{errors_source_, POLLIN, 0};
    while (poll(&source, 1, 0) == 1 && read_errors())
        continue;
}

void StartedProgram::wait_until_errors_are_full() const
{
    const std::string path = "/proc/self/fd/" + std::to_string(errors_source_);
    pollfd writing{open(path.c_str(), O_WRONLY | O_NONBLOCK | O_CLOEXEC), POLLOUT, 0};
    const bool full = comes_true([&] { return poll(&writing, 1, 0) == 0; });
    close(writing.fd);
    if (!full)
        throw std::runtime_error("does not say so much");
}

ProgramResult StartedProgram::wait()
{
    while (read_errors())
        continue;
    int status = 0;
    require(waitpid(pid_, &status, 0) == pid_, "waitpid");
    pid_ = -1;
    return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, output(), errors_};
}

bool has_ended(pid_t process)
{
    std::ifstream file("/proc/" + std::to_string(process) + "/stat");
    std::string number;
    std::string name;
    char state = 'X';
    file >> number >> name >> state;
    return state == 'Z' || state == 'X';
}

std::vector<pid_t> children_of(pid_t process)
{
    const std::string number = std::to_string(process);
    std::ifstream file("/proc/" + number + "/task/" + number + "/children");
    std::vector<pid_t> children;
    for (pid_t child = 0; file >> child;)
        children.push_back(child);
    return children;
}
