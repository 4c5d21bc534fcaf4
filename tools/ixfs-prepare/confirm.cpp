#include "confirm.h"

#include "standard_streams.h"
#include "usage_error.h"

#include <array>
#include <cerrno>
#include <fcntl.h>
#include <strings.h>
#include <unistd.h>

namespace
{

// The terminal, for reading and writing.
class Terminal
{
public:
    Terminal() : descriptor_(open("/dev/tty", O_RDWR | O_CLOEXEC))
    {
        // A program without a controlling terminal may still have got one as its standard input.
        if (descriptor_ == -1 && isatty(STDIN_FILENO) == 1)
            descriptor_ = open("/proc/self/fd/0", O_RDWR | O_NOCTTY | O_CLOEXEC);
    }
    ~Terminal()
    {
        if (is_open())
            close(descriptor_);
    }
    Terminal(const Terminal&) = delete;
    Terminal& operator=(const Terminal&) = delete;

    bool is_open() const { return descriptor_ != -1; }
    void write(const std::string& text) const { write_all(descriptor_, text); }

    // What was typed, without the newline.
    std::string read_line() const
    {
        std::array<char, 256> bytes{};
        ssize_t count = 0;
        do
            count = read(descriptor_, bytes.data(), bytes.size());
        while (count == -1 && errno == EINTR);
        std::string line(bytes.data(), count > 0 ? static_cast<std::size_t>(count) : 0);
        if (!line.empty() && line.back() == '\n')
            line.pop_back();
        return line;
    }

private:
    int descriptor_;
};

} // namespace

bool confirm(const std::string& question)
{
    const Terminal terminal;
    if (!terminal.is_open())
        throw UsageError("there is no terminal to ask on: " + question + "\nGive --yes to agree.");
    terminal.write(question + " [y/N] ");
    const std::string answer = terminal.read_line();
    return strcasecmp(answer.c_str(), "y") == 0 || strcasecmp(answer.c_str(), "yes") == 0;
}
