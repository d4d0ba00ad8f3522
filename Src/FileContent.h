// Whole files, read with bounds: paths may name anything.
#pragma once

#include <stdio.h>

#include <memory>
#include <string>

struct FileCloser {
    void operator()(FILE* file) const { fclose(file); }
};
typedef std::unique_ptr<FILE, FileCloser> FilePtr;

/// Opens a regular file for reading; null for anything else, as if it were not there: opening a FIFO
/// would wait for somebody who writes.
FilePtr OpenFile(const char* path);

/// Size in bytes by seeking to the end, negative when it cannot be told; the position is the start
/// again.
long FileSize(FILE* file);

/// Content of a text file, at most 1 MiB of it. Throws std::bad_alloc.
std::string ReadText(FILE* file);
