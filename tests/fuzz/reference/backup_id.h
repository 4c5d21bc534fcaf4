// A backup id: a client, an underscore, a time.
#ifndef IXFS_FUZZ_REFERENCE_BACKUP_ID_H
#define IXFS_FUZZ_REFERENCE_BACKUP_ID_H

#include <limits>
#include <optional>
#include <string>

namespace reference
{

struct BackupId {
    std::optional<std::string> client; // none without an underscore
    std::optional<long> time;          // none in a malformed id
};

// Reads the number that a text begins with: blanks, a sign, digits.
inline std::optional<long> leading_number(const std::string& text)
{
    std::size_t i = 0;
    while (i < text.size() && (text[i] == ' ' || (text[i] >= '\t' && text[i] <= '\r')))
        ++i;
    bool negative = false;
    if (i < text.size() && (text[i] == '-' || text[i] == '+'))
        negative = text[i++] == '-';
    if (i == text.size() || text[i] < '0' || text[i] > '9')
        return std::nullopt;

    constexpr long lowest = std::numeric_limits<long>::min();
    long number = 0; // kept negative, since there is one negative number more
    for (; i < text.size() && text[i] >= '0' && text[i] <= '9'; ++i) {
        const long digit = text[i] - '0';
        if (number < lowest / 10 || number * 10 < lowest + digit)
            return std::nullopt;
        number = number * 10 - digit;
    }
    if (negative)
        return number;
    return number == lowest ? std::nullopt : std::optional<long>(-number);
}

inline BackupId parse_backup_id(const std::string& id)
{
    std::size_t underscore = id.size();
    while (underscore > 0 && id[underscore - 1] != '_')
        --underscore;
    if (underscore == 0)
        return {};
    BackupId parsed;
    parsed.client = id.substr(0, underscore - 1);
    if (!parsed.client->empty())
        parsed.time = leading_number(id.substr(underscore));
    return parsed;
}

} // namespace reference

#endif
