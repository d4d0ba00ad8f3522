// Text files are read whole, whatever their length.
#include "FileContent.h"

#include <gtest/gtest.h>
#include <stdio.h>

#include <string>

namespace test {
namespace {

std::string Read(const std::string& content) {
    const FilePtr file(tmpfile());
    EXPECT_EQ(fwrite(content.data(), 1, content.size(), file.get()), content.size());
    rewind(file.get());
    return ReadText(file.get());
}

TEST(FileContent, TextOfEachLengthIsReadWhole) {
    for (const size_t length : {0, 1, 2, 4095, 4096, 4097, 8191, 8192, 8193, 100'000}) {
        const std::string content =
            std::string(length / 2, 'a') + std::string(length - length / 2, 'b');
        EXPECT_TRUE(Read(content) == content) << length << " bytes";
    }
}

TEST(FileContent, TextEndsAtOneMebibyte) {
    constexpr size_t kMost = 1024 * 1024;
    const std::string content(kMost, 'x');
    EXPECT_TRUE(Read(content) == content);
    EXPECT_TRUE(Read(content + "y") == content);
}

}  // namespace
}  // namespace test
