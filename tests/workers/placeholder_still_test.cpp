// The placeholder still: one delivery, after which the worker is gone.
#include "DummyStillCapture.h"

#include <unistd.h>

#include "tests/support/Fakes.h"
#include "tests/support/PluginTest.h"
#include "tests/support/TvFiles.h"

namespace test {
namespace {

using namespace std::chrono_literals;
using ::testing::NiceMock;

constexpr char kPath[] = "/mtd_rwcommon/lumo/bin/dummy.jpg";

class PlaceholderStill : public PluginTest {
  protected:
    /// A worker that tells when it has been destroyed.
    class Still : public CDummyStillCapture {
      public:
        Still(ICameraSubject* subject, std::atomic<bool>* gone)
            : CDummyStillCapture(nullptr, subject), gone_(gone) {}
        ~Still() override { *gone_ = true; }

      private:
        std::atomic<bool>* gone_;
    };

    PlaceholderStill() {
        RemoveTvFiles();
        ON_CALL(subject_, OnFrameArrival).WillByDefault([&](const CCameraData* data) {
            const auto* bytes = static_cast<const char*>(data->m_pData);
            pictures_.emplace_back(bytes, data->m_size);
            EXPECT_EQ(data->m_cts, 0u);
            EXPECT_EQ(data->m_type, CAM_STREAM_JPEG);
            return true;
        });
    }
    void Run() {
        std::atomic<bool> gone{false};
        (new Still(&subject_, &gone))->Start("still");
        const auto limit = std::chrono::steady_clock::now() + 20s;
        while (!gone && std::chrono::steady_clock::now() < limit) {
            std::this_thread::yield();
        }
        ASSERT_TRUE(gone);
    }
    NiceMock<FakeSubject> subject_;
    std::vector<std::string> pictures_;
};

TEST_F(PlaceholderStill, SendsTheFile) {
    EXPECT_STREQ(dummy_jpg_path_name, kPath);
    EXPECT_EQ(sizeof dummy_jpg_path_name, 33u);
    WriteFile(kPath, ImageOf(2000));
    Run();
    EXPECT_EQ(pictures_, (std::vector<std::string>{ImageOf(2000)}));
    EXPECT_LOG_COUNT(4, "CDummyStillCapture::Run() JPEG Size=2000\r\n", 1);
}

TEST_F(PlaceholderStill, SendsAnEmptyFile) {
    WriteFile(kPath, "");
    Run();
    EXPECT_EQ(pictures_, (std::vector<std::string>{""}));
    EXPECT_LOG(4, "CDummyStillCapture::Run() JPEG Size=0\r\n");
}

TEST_F(PlaceholderStill, SaysThatThereIsNoFile) {
    Run();
    EXPECT_TRUE(pictures_.empty());
    EXPECT_EQ(log().texts(4),
              (std::vector<std::string>{"CDummyStillCapture::Run() No dummy image file.\r\n"}));
}

TEST_F(PlaceholderStill, RefusesWhatDoesNotFitIntoMemory) {
    WriteFile(kPath, ImageOf(100));
    system_calls().calloc = 1;
    Run();
    EXPECT_TRUE(pictures_.empty());
    EXPECT_LOG(4, "file /mtd_rwcommon/lumo/bin/dummy.jpg size is incorrect. \r\n");
}

TEST_F(PlaceholderStill, WhatIsNoRegularFileIsMissing) {
    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    std::filesystem::create_directories("/mtd_rwcommon/lumo/bin");
    std::filesystem::create_symlink("/proc/self/fd/" + std::to_string(ends[0]), kPath);
    Run();
    EXPECT_TRUE(pictures_.empty());
    EXPECT_EQ(log().texts(4),
              (std::vector<std::string>{"CDummyStillCapture::Run() No dummy image file.\r\n"}));
    close(ends[0]);
    close(ends[1]);
}

TEST_F(PlaceholderStill, AFileThatEndsBeforeItsSizeIsPaddedWithZeros) {
    const std::filesystem::path path = "/sys/kernel/profiling";  // says 4096 bytes and holds two
    if (access(path.c_str(), R_OK) != 0 || std::filesystem::file_size(path) != 4096) {
        GTEST_SKIP() << path << " is not what this test needs";
    }
    std::filesystem::create_directories("/mtd_rwcommon/lumo/bin");
    std::filesystem::create_symlink(path, kPath);
    Run();
    std::string picture = ReadFile(path);
    const std::string read = std::to_string(picture.size());
    picture.resize(4096);
    EXPECT_EQ(pictures_, (std::vector<std::string>{picture}));
    EXPECT_EQ(log().texts(3), (std::vector<std::string>{"file /mtd_rwcommon/lumo/bin/dummy.jpg: " +
                                                        read + " of 4096 bytes read.\r\n"}));
}

}  // namespace
}  // namespace test
