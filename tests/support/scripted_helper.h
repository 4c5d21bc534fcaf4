// A mount helper that a test scripts, put where the library looks for the real one.
#ifndef IXFS_TESTS_SCRIPTED_HELPER_H
#define IXFS_TESTS_SCRIPTED_HELPER_H

#include "temp_dir.h"

#include <string>
#include <vector>

// Overwrites /usr/varnis/stowline/bin/ixfs, and makes the folder above the mount directories. So it
// throws std::logic_error unless the test runs in a namespace of its own, under
// tests/support/in_namespace.
//
//     ScriptedHelper helper({{"EXIT_STATUS=25"}, {"MOUNTPOINT=/mnt", "EXIT_STATUS=0"}});
class ScriptedHelper
{
public:
    using Answer = std::vector<std::string>; // the lines of one run's output
    using Arguments = std::vector<std::string>;

    // See answers().
    explicit ScriptedHelper(const std::vector<Answer>& first_answers = {});
    ~ScriptedHelper();

    // What the next runs answer, one after another, the last also all that follow. Without any, the
    // helper says nothing. It always exits with 0.
    void answers(const std::vector<Answer>& answers);

    // Shell commands that every run carries out before it answers, such as a mount.
    void does(const std::string& commands);

    // The arguments of each run so far, as the shell split them.
    std::vector<Arguments> runs() const;

private:
    TempDir state_; // answer.<n>, commands, runs
};

#endif
