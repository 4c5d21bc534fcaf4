// Folders with many files, for those who delete them.
#ifndef IXFS_BENCH_FILE_TREE_H
#define IXFS_BENCH_FILE_TREE_H

// Makes a folder with so many empty files in it, or with so many folders of so many files each.
// Returns whether all are there.
bool make_files(const char* folder, int files);
bool make_folders(const char* folder, int folders, int files_of_each);

#endif
