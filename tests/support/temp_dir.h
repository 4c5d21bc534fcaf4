// A folder of the test's own, gone with its object.
#ifndef IXFS_TESTS_TEMP_DIR_H
#define IXFS_TESTS_TEMP_DIR_H

#include <string>

class TempDir
{
public:
    TempDir();
    ~TempDir();
    TempDir(const TempDir&) = delete;
    TempDir& operator=(const TempDir&) = delete;

    const std::string& path() const { return path_; }
    std::string operator/(const std::string& name) const { return path_ + "/" + name; }

    // These throw where they fail. `name` is relative to the folder.
    void make_folder(const std::string& name) const; // with its parents
    void write(const std::string& name, const std::string& bytes) const;
    std::string read(const std::string& name) const;
    bool exists(const std::string& name) const;

private:
    std::string path_;
};

#endif
