#include "ixfs_uuid.h"

#include <boost/uuid/random_generator.hpp>

namespace
{

boost::uuids::uuid random_uuid()
{
    // Seeded anew at each call: disks are few, and so threads share no generator.
    boost::uuids::random_generator generate;
    return generate();
}

} // namespace

std::string getVmdkUuid()
{
    constexpr char digits[] = "0123456789abcdef";
    const boost::uuids::uuid bytes = random_uuid();
    std::string text(3 * bytes.size() - 1, ' '); // a blank behind each byte but the last
    std::size_t position = 0;
    for (const unsigned byte : bytes) {
        text[position] = digits[byte / 16];
        text[position + 1] = digits[byte % 16];
        position += 3;
    }
    text[text.size() / 2] = '-';
    return text;
}
