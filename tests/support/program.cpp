#include "program.h"

#include "temp_dir.h"

#include <cerrno>
#include <istream>
#include <system_error>

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

namespace
{

void require(bool fulfilled, int error, const char* what)
{
    if (!fulfilled)
        throw std::system_error(error, std::generic_category(), what);
}

class Redirections
{
public:
    Redirections() { posix_spawn_file_actions_init(&actions_); }
    ~Redirections() { posix_spawn_file_actions_destroy(&actions_); }
    Redirections(const Redirections&) = delete;
    Redirections& operator=(const Redirections&) = delete;

    void to_file(int descriptor, const std::string& path, int flags)
    {
        posix_spawn_file_actions_addopen(&actions_, descriptor, path.c_str(), flags, 0600);
    }
    void to_descriptor(int descriptor, int other)
    {
        posix_spawn_file_actions_adddup2(&actions_, other, descriptor);
    }
    const posix_spawn_file_actions_t* get() const { return &actions_; }

private:
    posix_spawn_file_actions_t actions_;
};

int run_to_end(const std::vector<std::string>& command, const Redirections& redirections)
{
    std::vector<char*> arguments;
    arguments.reserve(command.size() + 1);
    for (const std::string& word : command)
        arguments.push_back(const_cast<char*>(word.c_str()));
    arguments.push_back(nullptr);
    pid_t child = 0;
    const int error =
        posix_spawn(&child, arguments[0], redirections.get(), nullptr, arguments.data(), environ);
    require(error == 0, error, arguments[0]);
    int status = 0;
    while (waitpid(child, &status, 0) == -1)
        require(errno == EINTR, errno, "waitpid");
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

} // namespace

ProgramResult run_program(const std::vector<std::string>& command, const Streams& streams)
{
    const TempDir folder;
    folder.write("input", streams.input);
    folder.write("output", "");
    folder.write("errors", "");

    Redirections redirections;
    redirections.to_file(STDIN_FILENO, folder / "input", O_RDONLY);
    redirections.to_file(STDOUT_FILENO, folder / "output", O_WRONLY | O_APPEND);
    redirections.to_file(STDERR_FILENO, folder / "errors", O_WRONLY | O_APPEND);
    if (streams.output != -1)
        redirections.to_descriptor(STDOUT_FILENO, streams.output);
    if (streams.errors != -1)
        redirections.to_descriptor(STDERR_FILENO, streams.errors);

    const int exit_status = run_to_end(command, redirections);
    return {exit_status, folder.read("output"), folder.read("errors")};
}

std::vector<std::string> lines_of(std::istream&& text)
{
    std::vector<std::string> lines;
    for (std::string line; std::getline(text, line);)
        lines.push_back(line);
    return lines;
}

BrokenPipe::BrokenPipe()
{
    int ends[2];
    require(pipe2(ends, O_CLOEXEC) == 0, errno, "pipe2");
    close(ends[0]);
    descriptor_ = ends[1];
}

BrokenPipe::~BrokenPipe()
{
    close(descriptor_);
}
