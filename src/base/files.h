// What the workflows ask of the file system: what stands at a path, and how much room there is.
#pragma once

#include <cstdint>

// Whether something stands at the cancel marker's path. A null path never cancels.
bool isCancelled(const char* marker_path);

// Whether stat succeeds on the path; a directory counts. False for null.
bool fileExists(const char* path);

// Whether the path is, or a link leads to, a regular file. False for null.
bool isRegularFile(const char* path);

// Whether two paths name one file, by device and inode, or one place where no file is yet. False when either is
// null.
bool isSameFile(const char* path1, const char* path2);

// Whether the file may be written; a file that is not there yet is judged by its directory. Null asks for
// the current directory.
bool isWritable(const char* path);

// Removes a regular file or a symbolic link and returns 0. Anything else (a directory, a device, null) is
// left alone and -1 returned: a path given by mistake must not lose its owner anything.
int remove_file(const char* path);

// The path's directory ("." for null), in storage of the calling thread that the next call reuses.
char* nq360_dirname(const char* path);

// Size in bytes, all ones when stat fails. `is_dir` may be null and is set only on success.
uint64_t nq360_filesize(const char* path, bool* is_dir);

// Bytes free to an unprivileged user on the volume of the path; see NQ360_freesize.
uint64_t nq360_freesize(const char* path);

// Whether the path's volume has room for so many bytes and 50 MiB besides.
bool has_room(const char* output_path, uint64_t bytes);

// 0 when the output's volume has room for both inputs (null: none) and more than 50 MiB besides, else -1.
int check_freesize(const char* input1, const char* input2, const char* output_path);
