// How the tools show their help: at most 80 columns wide.
#ifndef IXFS_TOOLS_HELP_FORMAT_H
#define IXFS_TOOLS_HELP_FORMAT_H

#include <CLI/CLI.hpp>
#include <string>
#include <vector>

// Shows each option as its name, its type, and its description in a column of its own; subcommands
// likewise. What an option excludes or needs is left to the description. Description and footer are
// wrapped, too.
class HelpFormat : public CLI::Formatter
{
public:
    std::string make_description(const CLI::App* app) const override;
    std::string make_footer(const CLI::App* app) const override;
    std::string make_option(const CLI::Option* option, bool is_positional) const override;
    std::string make_option_opts(const CLI::Option* option) const override;
    std::string make_usage(const CLI::App* app, std::string name) const override;
    std::string make_positionals(const CLI::App* app) const override;
    std::string make_subcommand(const CLI::App* subcommand) const override;
    std::string make_group(std::string group, bool is_positional,
                           std::vector<const CLI::Option*> options) const override;
};

#endif
