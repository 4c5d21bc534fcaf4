#include "log_text.h"

#include <ixfs.h>

#include <cstddef>

std::string_view severity_name(int severity)
{
    switch (severity) {
    case IXFS_LOG_ERR:
        return "ERR";
    case IXFS_LOG_WRN:
        return "WRN";
    default:
        return "INF";
    }
}

std::string mask_credential(std::string_view text)
{
    constexpr std::string_view option = "-cred";
    constexpr const char* blanks = " \t\r\n";
    std::string masked(text);
    for (std::size_t at = masked.find(option); at != std::string::npos;
         at = masked.find(option, at)) {
        at += option.size();
        const std::size_t begin = masked.find_first_not_of(blanks, at);
        if (begin == at || begin == std::string::npos)
            continue;
        const std::size_t end = masked.find_first_of(blanks, begin);
        masked.replace(begin, end == std::string::npos ? end : end - begin, "***");
    }
    return masked;
}

std::string escape_control_characters(std::string_view text)
{
    constexpr std::string_view digits = "0123456789abcdef";
    std::string escaped;
    escaped.reserve(text.size());
    for (const char character : text) {
        const auto byte = static_cast<unsigned char>(character);
        if ((byte < 0x20 && byte != '\t') || byte == 0x7f)
            (escaped += "\\x").append({digits[byte >> 4], digits[byte & 0xf]});
        else
            escaped += character;
    }
    return escaped;
}

std::string shown_message(std::string_view message)
{
    if (!message.empty() && message.back() == '\n')
        message.remove_suffix(1);
    return escape_control_characters(mask_credential(message));
}
