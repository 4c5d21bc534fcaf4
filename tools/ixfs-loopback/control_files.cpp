#include "control_files.h"

#include "file_lock.h"

#include <cerrno>
#include <charconv>
#include <fcntl.h>
#include <fstream>
#include <stdexcept>
#include <string_view>
#include <sys/file.h>
#include <system_error>
#include <unistd.h>

namespace
{

[[noreturn]] void throw_errno(const std::filesystem::path& file)
{
    throw std::system_error(errno, std::generic_category(), file.string());
}

std::optional<std::string> first_line(const std::filesystem::path& file)
{
    std::ifstream stream(file);
    if (!stream)
        return std::nullopt;
    std::string line;
    std::getline(stream, line);
    return line;
}

template <typename Number>
Number parse_number(std::string_view text, const std::filesystem::path& file)
{
    Number number{};
    const char* const end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, number);
    if (error != std::errc() || stop != end)
        throw std::runtime_error(file.string() + ": not a number: " + std::string(text));
    return number;
}

template <typename Number>
Number number_in(const std::filesystem::path& file)
{
    const auto text = first_line(file);
    return text ? parse_number<Number>(*text, file) : Number{};
}

} // namespace

std::optional<std::string> ControlFiles::credential() const
{
    return first_line(directory_ / "credential");
}

std::chrono::duration<double> ControlFiles::hang() const
{
    return std::chrono::duration<double>(number_in<double>(directory_ / "hang"));
}

int ControlFiles::status() const
{
    return number_in<int>(directory_ / "status");
}

bool ControlFiles::leaves_out(const std::string& key) const
{
    std::ifstream keys(directory_ / "leave-out");
    for (std::string line; std::getline(keys, line);)
        if (line == key)
            return true;
    return false;
}

bool ControlFiles::keeps_mount() const
{
    return std::filesystem::exists(directory_ / "keep");
}

bool ControlFiles::take_busy() const
{
    const std::filesystem::path file = directory_ / "busy";
    const FileLock lock(file, O_RDWR, LOCK_EX);
    if (!lock.held())
        return false;
    const unsigned calls_left = number_in<unsigned>(file);
    if (calls_left == 0)
        return false;
    const std::string text = std::to_string(calls_left - 1) + "\n";
    if (pwrite(lock.descriptor(), text.data(), text.size(), 0) < 0 ||
        ftruncate(lock.descriptor(), static_cast<off_t>(text.size())) != 0)
        throw_errno(file);
    return true;
}

void append_line(const std::filesystem::path& file, const std::string& line)
{
    const FileLock opened(file, O_WRONLY | O_APPEND | O_CREAT, LOCK_EX);
    const std::string text = line + "\n";
    if (write(opened.descriptor(), text.data(), text.size()) < 0)
        throw_errno(file);
}
