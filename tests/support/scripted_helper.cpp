#include "scripted_helper.h"

#include "interpose.h"

#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>

namespace fs = std::filesystem;

namespace
{

const fs::path helper = "/usr/varnis/stowline/bin/ixfs";
const fs::path mount_base = "/usr/varnis/var/ixfs";

// Notes its arguments, one a line with an empty line behind the last, and gives the first answer
// that is left; the last one stays.
constexpr char script[] = R"sh(#!/bin/sh
cd '@STATE@' || exit 1
{ [ $# -eq 0 ] || printf '%s\n' "$@"; echo; } >> runs
. ./commands
number=$(cat next)
[ -e "answer.$number" ] && cat "answer.$number"
[ -e "answer.$((number + 1))" ] && echo $((number + 1)) > next
exit 0
)sh";

// Whether the product's folder is the one that in_namespace furnished. In mountinfo a line names
// the mount point fifth, and the source second behind a lone "-".
bool in_private_namespace()
{
    std::ifstream mounts("/proc/self/mountinfo");
    for (std::string line; std::getline(mounts, line);) {
        if (line.find(" /usr/varnis ") != std::string::npos &&
            line.find(" - tmpfs in_namespace ") != std::string::npos)
            return true;
    }
    return false;
}

std::string with_state(std::string text, const std::string& state)
{
    const std::string mark = "@STATE@";
    return text.replace(text.find(mark), mark.size(), state);
}

} // namespace

ScriptedHelper::ScriptedHelper(const std::vector<Answer>& first_answers)
{
    if (!in_private_namespace())
        throw std::logic_error("a helper is only put into a private namespace: run the test under "
                               "tests/support/in_namespace");
    state_.write("commands", "");
    state_.write("runs", "");
    answers(first_answers);
    fs::create_directories(mount_base);
    fs::create_directories(helper.parent_path());
    fs::remove(helper);
    std::ofstream file(helper);
    file.exceptions(std::ios::failbit | std::ios::badbit);
    file << with_state(script, state_.path()) << std::flush;
    fs::permissions(helper, fs::perms(0755));
}

ScriptedHelper::~ScriptedHelper()
{
    std::error_code error;
    fs::remove(helper, error);
}

void ScriptedHelper::answers(const std::vector<Answer>& answers)
{
    std::size_t number = 0;
    for (const Answer& answer : answers) {
        std::string text;
        for (const std::string& line : answer)
            text += line + "\n";
        state_.write("answer." + std::to_string(number++), text);
    }
    for (; state_.exists("answer." + std::to_string(number)); ++number)
        fs::remove(state_ / ("answer." + std::to_string(number)));
    state_.write("next", "0\n");
}

void ScriptedHelper::does(const std::string& commands)
{
    state_.write("commands", commands + "\n");
}

std::vector<ScriptedHelper::Arguments> ScriptedHelper::runs() const
{
    const interpose::RealCalls of_the_test;
    std::vector<Arguments> runs;
    Arguments run;
    std::istringstream recorded(state_.read("runs"));
    for (std::string line; std::getline(recorded, line);) {
        if (!line.empty()) {
            run.push_back(line);
            continue;
        }
        runs.push_back(run);
        run.clear();
    }
    return runs;
}
