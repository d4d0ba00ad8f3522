#include "FileContent.h"

namespace {
constexpr size_t kLargestText = size_t{1024} * 1024;
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
