// Deleting a folder with all below it: see _ixfs_folder_delete.
//
// Every step is relative to an open directory, and a folder is entered only as a folder. So nothing
// outside is reached, also when somebody puts a link in a folder's place meanwhile.
#ifndef IXFS_FOLDER_DELETE_H
#define IXFS_FOLDER_DELETE_H

#include "log.h"
#include "open_file.h"

#include <string>

// For the log of a deletion.
inline constexpr char folder_delete_tag[] = "_ixfs_folder_delete()";

// The last name of a path, and the directory that it stands in, open. On the way there symbolic
// links are followed. For a path that ends in no name, such as "/" or "a/..", the name is the whole
// path.
class PathEnd
{
public:
    // Throws std::bad_alloc.
    explicit PathEnd(const char* path);

    // If the directory cannot be opened, errno says why.
    bool is_reached() const { return parent_ != nowhere; }
    int parent() const { return parent_; }
    const char* name() const { return name_.c_str(); }

private:
    static constexpr int nowhere = -1;

    OpenFile opened_;
    int parent_ = nowhere; // or AT_FDCWD
    std::string name_;
};

// Opens the folder `name` of an open directory to be read. A symbolic link is no folder (ENOTDIR).
OpenFile open_folder(int parent, const char* name);

// Deletes the folder `name` of the open directory `parent`. `path` is what messages call it.
// Returns whether the folder is gone. If memory is short, it fails without a line.
bool delete_folder(const Log& log, int parent, const char* name, const char* path) noexcept;

// The same for a folder that open_folder has opened and that was looked at. Whatever `name` stands
// for by now, what is emptied is that folder.
bool delete_folder(const Log& log, int parent, const char* name, OpenFile folder,
                   const char* path) noexcept;

// The line for a folder that could not be opened.
void log_not_opened(const Log& log, const char* path, int error);

#endif
