// The fixture of the ixfs-prepare tests: a complete, valid command line that a test changes, a
// mount helper that it scripts, and an image of one disk for the helper to "mount".
#ifndef IXFS_TESTS_PREPARE_TEST_H
#define IXFS_TESTS_PREPARE_TEST_H

#include "program.h"
#include "scripted_helper.h"
#include "temp_dir.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <map>
#include <string>
#include <vector>

// Makes or replaces a file, or throws std::ios_base::failure.
void write_file(const std::filesystem::path& path, const std::string& bytes);

class PrepareTest : public testing::Test
{
protected:
    static constexpr int bad_usage = 2;

    PrepareTest();
    void TearDown() override;

    // The command line is "--<name>=<value>" for each of `options` and then `flags`. An empty value
    // becomes an argument of its own.
    std::vector<std::string> command() const;
    // What the program writes as JSON is validated when all tests have run.
    ProgramResult run(const Streams& streams = {}) const;

    // The same program, started by a shell with a redirection such as ">&-".
    ProgramResult run_redirected(const std::string& redirection) const;

    // Runs the program, which must refuse its arguments before it does anything, by a message that
    // holds `what`, and not "s3cret", as the tests spell what nobody may be told.
    void expect_refusal(const std::string& what, const Streams& streams = {}) const;

    // Runs the program with a helper that mounts nothing, so that it fails. Returns the arguments
    // of the one helper run.
    ScriptedHelper::Arguments run_up_to_helper() const;

    // Has the program read these bytes as the credential files or as standard input.
    void use_mount_credential(const std::string& bytes);
    void use_unmount_credential(const std::string& bytes);
    void use_standard_input();

    // Makes the helper succeed; there is an image where it "mounts", its configuration file in the
    // folder of the chosen schedule.
    void provide_image(const std::string& configuration = "<vm/>\n");

    // Adds a disk to the folder where the image's first one is.
    static void provide_disk(const std::string& name);

    // A file of the view that a preparation has made in the image.
    std::string read_view_file(const std::string& name) const;

    static const std::string disk;      // the image's disk as the caller names it
    static const std::string view_disk; // as the program names it in the view

    ScriptedHelper helper;
    TempDir folder;
    std::map<std::string, std::string> options;
    std::vector<std::string> flags;
};

#endif
