#include "FileContent.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {
constexpr size_t kLargestText = size_t{1024} * 1024;
}

FilePtr OpenFile(const char* path) {
    const int descriptor = open(path, O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    struct stat status;
    if (descriptor < 0 || fstat(descriptor, &status) != 0 || !S_ISREG(status.st_mode)) {
        if (descriptor >= 0) {
            close(descriptor);
        }
        return nullptr;
    }
    FilePtr file(fdopen(descriptor, "rb"));
    if (file == nullptr) {
        close(descriptor);
    }
    return file;
}

long FileSize(FILE* file) {
    if (fseek(file, 0, SEEK_END) != 0) {
        return -1;
    }
    const long size = ftell(file);
    rewind(file);
    return size;
}

std::string ReadText(FILE* file) {
    std::string text;
    char piece[4096];
    size_t count;
    while (text.size() < kLargestText && (count = fread(piece, 1, sizeof piece, file)) > 0) {
        text.append(piece, count);
    }
    return text;
}
