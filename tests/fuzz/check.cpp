#include "check.h"

#include <cstdio>
#include <cstdlib>

std::string shown(const std::string& text)
{
    std::string quoted = "\"";
    for (const char byte : text) {
        if (byte >= ' ' && byte <= '~' && byte != '"' && byte != '\\') {
            quoted += byte;
            continue;
        }
        char code[sizeof("\\xff")];
        std::snprintf(code, sizeof(code), "\\x%02x", static_cast<unsigned char>(byte));
        quoted += code;
    }
    return quoted + "\"";
}

void fail(const std::string& what)
{
    std::fprintf(stderr, "CHECK FAILED: %s\n", what.c_str());
    std::abort();
}
