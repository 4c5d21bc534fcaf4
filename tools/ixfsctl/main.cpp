// ixfsctl: what an operator wants to know and do on a host where libixfs works.
#include "command.h"
#include "console.h"
#include "options.h"
#include "standard_streams.h"
#include "usage_error.h"

#include <exception>
#include <string>

int main(int argc, char** argv)
{
    secure_standard_streams();
    try {
        return parse_options(argc, argv)();
    } catch (const UsageError& error) {
        complain(error.what() + std::string("\nRun with --help for more information."));
        return exit_bad_usage;
    } catch (const std::exception& error) {
        complain(error.what());
        return exit_failure;
    }
}
