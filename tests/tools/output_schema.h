// What a tool writes as JSON must be as its schema says.
#ifndef IXFS_TESTS_OUTPUT_SCHEMA_H
#define IXFS_TESTS_OUTPUT_SCHEMA_H

#include "program.h"

#include <string>
#include <vector>

// Has an output validated when all tests have run: a validator takes long to start. The test
// program then fails for one that is not as docs/ixfs-prepare.schema.json says.
void expect_as_schema_says(const std::string& output);

// The same for each line of an output that is many.
void expect_lines_as_schema_says(const std::string& output);

// Validates outputs at once.
ProgramResult check_against_schema(const std::vector<std::string>& outputs);

#endif
