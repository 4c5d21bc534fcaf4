// The lines that operations on files log, for tests of what is built on them.
#ifndef IXFS_TESTS_FILE_LINES_H
#define IXFS_TESTS_FILE_LINES_H

#include "log_recorder.h"

#include <string>

inline Line exists_line(const std::string& path)
{
    return {IXFS_LOG_INF, "_ixfs_file_exists()",
            "INF - SUCCESS ACE_OS::access(" + path + ") indicates that the file exists\n"};
}

inline Line removed_file_line(const std::string& path)
{
    return {IXFS_LOG_INF, "_ixfs_folder_delete()", "INF - Removed file: " + path + "\n"};
}

inline Line removed_folder_line(const std::string& path)
{
    return {IXFS_LOG_INF, "_ixfs_folder_delete()", "INF - Removed directory: " + path + "\n"};
}

inline Line found_folder_line(const std::string& path)
{
    return {IXFS_LOG_ERR, "_ixfs_folder_delete()",
            "INF - Found a directory, calling _ixfs_folder_delete(\"" + path + "\")\n"};
}

// What _ixfs_folder_create logs when of "<base>/<folder>" all but the last `missing` segments are
// there.
Lines folder_created_lines(const std::string& base, const std::string& folder, int missing);

inline Lines operator+(Lines left, const Lines& right)
{
    left.insert(left.end(), right.begin(), right.end());
    return left;
}

inline Lines operator+(Lines left, const Line& right)
{
    left.push_back(right);
    return left;
}

#endif
