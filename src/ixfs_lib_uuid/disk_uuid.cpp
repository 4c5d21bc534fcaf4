#include "ixfs_uuid.h"

#include <boost/uuid/random_generator.hpp>
#include <boost/uuid/uuid_io.hpp>

#include <algorithm>

namespace
{

std::string random_hexadecimal_digits()
{
    // Seeded anew at each call: disks are few, and so threads share no generator.
    boost::uuids::random_generator generate;
    std::string digits = to_string(generate());
    digits.erase(std::remove(digits.begin(), digits.end(), '-'), digits.end());
    return digits;
}

} // namespace

std::string getVmdkUuid()
{
    std::string uuid = random_hexadecimal_digits();
    const std::size_t middle = uuid.size() / 2;
    for (std::size_t position = uuid.size() - 2; position > 0; position -= 2) // from the end on
        uuid.insert(position, 1, position == middle ? '-' : ' ');
    return uuid;
}
