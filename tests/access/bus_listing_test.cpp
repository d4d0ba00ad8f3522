// Looking for the camera in the kernel's text listing.
#include "BusListing.h"

#include <fcntl.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <functional>
#include <future>

#include "tests/support/PluginTest.h"
#include "tests/support/TvFiles.h"

namespace test {
namespace {

using namespace std::chrono_literals;

constexpr char kListing[] = "/proc/bus/usb/devices";
constexpr char kCopy[] = "/dtv/ait_usb_devices";

std::string Block(const std::string& port, const std::string& vendor, const std::string& product) {
    return "T:  Bus=01 Lev=01 Prnt=01 Port=" + port +
           " Cnt=01 Dev#=  2 Spd=480  MxCh= 0\n"
           "D:  Ver= 2.00 Cls=ef(misc ) Sub=02 Prot=01 MxPS=64 #Cfgs=  1\n"
           "P:  Vendor=" +
           vendor + " ProdID=" + product +
           " Rev= 1.00\n"
           "S:  Product=Thing\n"
           "I:* If#= 0 Alt= 0 #EPs= 1 Cls=0e(video) Sub=01 Prot=00 Driver=(none)\n";
}

class BusListing : public PluginTest {
  protected:
    BusListing() { RemoveTvFiles(); }
    ~BusListing() override { std::filesystem::remove(kListing); }

    /// Writes a listing of a size that no earlier one of this process had.
    void List(std::string text) {
        static size_t size = 4096;
        size += 64;
        text += "\n# ";
        text.resize(std::max(size, text.size()), 'x');
        std::ofstream(kListing) << text << "\n";
    }
    int Search(const std::string& text) {
        List(text);
        return t_SearchAITUsbCamera();
    }
};

TEST_F(BusListing, AcceptsTwentyProductsOfTheVendor) {
    for (int product = 0x2050; product <= 0x2080; ++product) {
        EXPECT_EQ(IsAITCamera(0x114D, product), product >= 0x205C && product <= 0x206F) << product;
        EXPECT_FALSE(IsAITCamera(0x114E, product));
        EXPECT_FALSE(IsAITCamera(0x114C, product));
    }
}

TEST_F(BusListing, MarksTwoProducts) {
    for (int product = 0x205C; product <= 0x206F; ++product) {
        m_bAITCAM = product != 0x205D && product != 0x2062;
        EXPECT_TRUE(IsAITCamera(0x114D, product));
        EXPECT_EQ(m_bAITCAM, product == 0x205D || product == 0x2062) << product;
    }
    m_bAITCAM = true;
    EXPECT_FALSE(IsAITCamera(0x114D, 0x2070));
    EXPECT_TRUE(m_bAITCAM);
}

TEST_F(BusListing, ALineOf256BytesDoesNotEndItsBlock) {
    for (const size_t length : {254, 255, 256}) {
        std::string topology = "T:  Bus=01 Lev=01 Prnt=01 Port=03 Cnt=01";
        topology.resize(length, ' ');
        EXPECT_EQ(Search(topology + "\nP:  Vendor=114d ProdID=2066 Rev= 1.00\n"), 0x2066) << length;
    }
}

/// Whether `search` ends while a FIFO that nobody writes to stands at `path`.
bool EndsDespiteAFifo(const char* path, const std::function<void()>& search) {
    std::filesystem::remove(path);
    EXPECT_EQ(mkfifo(path, 0600), 0);
    std::future<void> done = std::async(std::launch::async, search);
    const bool ended = done.wait_for(5s) == std::future_status::ready;
    while (done.wait_for(10ms) != std::future_status::ready) {
        close(open(path, O_RDWR | O_NONBLOCK));  // a writer that leaves: the reader sees the end
    }
    std::filesystem::remove(path);
    return ended;
}

TEST_F(BusListing, AFifoInPlaceOfTheListingIsNoListing) {
    EXPECT_TRUE(EndsDespiteAFifo(kListing, [] { EXPECT_EQ(t_SearchAITUsbCamera(), 0); }));
}

TEST_F(BusListing, AFifoInPlaceOfTheCopyIsRemoved) {
    List(Block("03", "114d", "2066") + "\n");
    EXPECT_TRUE(EndsDespiteAFifo(kCopy, [] { EXPECT_EQ(t_SearchAITUsbCamera(), 0x2066); }));
}

TEST_F(BusListing, FindsTheCameraBehindAnotherDevice) {
    EXPECT_EQ(Search(Block("00", "046d", "c31c") + "\n" + Block("03", "114d", "2066") + "\n"),
              0x2066);
    const auto lines = log().lines();
    ASSERT_EQ(lines.size(), 5u) << log_listing();  // the copy was made and opened, too
    EXPECT_EQ(lines[0].level, 4u);
    EXPECT_EQ(lines[0].text.rfind("Access Time (Sec.) : ", 0), 0u);
    EXPECT_EQ(lines[1].text, "/proc/bus/usb/devices is changed!");
    EXPECT_LOG(4, "found usb device vid[0x46d], pid[0xc31c], port number[0]\n");
    EXPECT_LOG(4, "found usb device vid[0x114d], pid[0x2066], port number[3]\n");
    EXPECT_EQ(log().count_containing("TV camera found"), 1u);
    EXPECT_FALSE(std::filesystem::exists(kCopy));
}

TEST_F(BusListing, SaysWhenTheCameraWasFound) {
    clock().set_wall_clock({{1234, 56}});
    EXPECT_EQ(Search(Block("01", "114d", "2065")), 0x2065);
    EXPECT_LOG(3, "\033[02;31m[1234.000056]\033[0m TV camera found");
}

TEST_F(BusListing, PortIsReadInHexadecimal) {
    EXPECT_EQ(Search(Block("10", "114d", "2066")), 0x2066);
    EXPECT_LOG(4, "found usb device vid[0x114d], pid[0x2066], port number[16]\n");
}

TEST_F(BusListing, NoCameraGivesZero) {
    EXPECT_EQ(Search(Block("00", "114d", "2070") + "\n" + Block("01", "0000", "2066")), 0);
    EXPECT_EQ(Search(""), 0);
    EXPECT_EQ(Search("\n\n\n"), 0);
}

TEST_F(BusListing, TheRestOfAnotherDevicesBlockIsIgnored) {
    EXPECT_EQ(Search(Block("00", "046d", "c31c") + "P:  Vendor=114d ProdID=2066 Rev= 1.00\n"), 0);
    EXPECT_EQ(log().count_containing("found usb device"), 1u);
}

TEST_F(BusListing, ABlockWithoutItsTopologyLineIsNeverComplete) {
    EXPECT_EQ(Search(Block("05", "046d", "c31c") + "\nP:  Vendor=114d ProdID=2066 Rev= 1.00\n"), 0);
    EXPECT_EQ(log().count_containing("found usb device"), 1u);
}

TEST_F(BusListing, TheBlankLineForgetsVendorAndProduct) {
    EXPECT_EQ(Search("P:  Vendor=114d ProdID=2066 Rev= 1.00\n\nT:  Bus=01 Port=01\n"), 0);
    EXPECT_EQ(Search("T:  Bus=01 Port=01\n\nP:  Vendor=114d ProdID=2066 Rev= 1.00\n"), 0);
    EXPECT_EQ(Search("P:  Vendor=114d ProdID=2066 Rev= 1.00\nT:  Bus=01 Port=01\n"), 0x2066);
}

TEST_F(BusListing, OnlyLinesOfTheirKindCount) {
    EXPECT_EQ(Search("T:  Port=01\nX:  Vendor=114d ProdID=2066\n"), 0);
    EXPECT_EQ(Search("X:  Port=01\nP:  Vendor=114d ProdID=2066\n"), 0);
    EXPECT_EQ(Search("T:  Port=01\nP:  Vendor=114d\n"), 0);
    EXPECT_EQ(Search("T:  Port=01\nP:  ProdID=2066\n"), 0);
    EXPECT_EQ(Search("T:  Port=01\nP:  Vendor=114d\nP:  ProdID=2066\n"), 0x2066);
    EXPECT_EQ(Search("T:  Port=01\nPX  Vendor=114d ProdID=2066\n"), 0);
    EXPECT_EQ(Search("TX  Port=01\nP:  Vendor=114d ProdID=2066\n"), 0);
}

TEST_F(BusListing, NumbersHaveTheirFixedWidth) {
    EXPECT_EQ(Search("T:  Port=012\nP:  Vendor=114dF ProdID=2066F\n"), 0x2066);
    EXPECT_LOG(4, "found usb device vid[0x114d], pid[0x2066], port number[1]\n");
}

TEST_F(BusListing, TheFirstOfTwoCamerasWins) {
    EXPECT_EQ(Search(Block("01", "114d", "2065") + "\n" + Block("02", "114d", "2066")), 0x2065);
}

TEST_F(BusListing, CopyAndRemovalAreSyncedToDisc) {
    // At a real path: a shell looks programs up by itself.
    const std::string folder = testing::TempDir() + "sync." + std::to_string(getpid());
    std::filesystem::create_directories(folder);
    WriteFile(folder + "/sync", "#!/bin/sh\necho synced >> /dtv/synced\n");
    std::filesystem::permissions(folder + "/sync", std::filesystem::perms::owner_all);
    const std::string path = getenv("PATH");
    setenv("PATH", (folder + ":" + path).c_str(), 1);
    Search(Block("01", "114d", "2066"));
    setenv("PATH", path.c_str(), 1);
    std::filesystem::remove_all(folder);
    EXPECT_EQ(ReadFile("/dtv/synced"), "synced\nsynced\n");
}

TEST_F(BusListing, HostileContentIsReadWithBounds) {
    EXPECT_EQ(Search("P:  Vendor="), 0);
    EXPECT_EQ(Search("T:  Port=1\nP:  Vendor=114d ProdID=20"), 0);
    EXPECT_EQ(Search(std::string(100000, 'P')), 0);
    EXPECT_EQ(Search(std::string("T:  Port=01\n\0\0\0P:  Vendor=114d ProdID=2066\n", 44)), 0);
    EXPECT_EQ(Search("T:  Port=zz\nP:  Vendor=114d ProdID=2066\n"), 0x2066);
}

TEST_F(BusListing, AnUnchangedListingIsNotLookedAtAgain) {
    EXPECT_EQ(Search(Block("01", "114d", "2066")), 0x2066);
    log().reset();
    EXPECT_EQ(t_SearchAITUsbCamera(), 0);
    ASSERT_EQ(log().lines().size(), 1u);
    EXPECT_EQ(log().count_containing("Access Time (Sec.) : "), 1u);
}

TEST_F(BusListing, AChangeOfSizeOrTimeIsReported) {
    List("a");
    EXPECT_TRUE(IsProcDeviceChanged());
    EXPECT_LOG_COUNT(4, "/proc/bus/usb/devices is changed!", 1);
    EXPECT_FALSE(IsProcDeviceChanged());
    EXPECT_LOG_COUNT(4, "/proc/bus/usb/devices is changed!", 1);
    List("b");
    struct stat status;
    ASSERT_EQ(stat(kListing, &status), 0);
    EXPECT_TRUE(IsProcDeviceChanged());
    log().reset();
    EXPECT_FALSE(IsProcDeviceChanged());
    const std::string time = std::to_string(status.st_ctime);
    const std::string size = std::to_string(status.st_size);
    EXPECT_LOG(4, "Access Time (Sec.) : " + time + "/" + time + "\t LogSize : " + size + "/" +
                      size + "\t(Current/Previous)");
}

TEST_F(BusListing, AChangeOfTimeAloneIsReported) {
    // A file of the same size as one whose status changed long ago.
    const std::filesystem::path old = "/usr/bin/true";
    struct stat was;
    ASSERT_EQ(stat(old.c_str(), &was), 0);
    WriteFile("/dtv/fresh", std::string(std::filesystem::file_size(old), 'x'));
    std::filesystem::create_symlink("/dtv/fresh", kListing);
    EXPECT_TRUE(IsProcDeviceChanged());
    EXPECT_FALSE(IsProcDeviceChanged());
    struct stat fresh;
    ASSERT_EQ(stat(kListing, &fresh), 0);
    std::filesystem::remove(kListing);
    std::filesystem::create_symlink(old, kListing);
    log().reset();
    EXPECT_TRUE(IsProcDeviceChanged());
    const std::string size = std::to_string(was.st_size);
    EXPECT_EQ(log().texts(4),
              (std::vector<std::string>{"Access Time (Sec.) : " + std::to_string(was.st_ctime) +
                                            "/" + std::to_string(fresh.st_ctime) + "\t LogSize : " +
                                            size + "/" + size + "\t(Current/Previous)",
                                        "/proc/bus/usb/devices is changed!"}));
    EXPECT_FALSE(IsProcDeviceChanged());  // both were stored
}

TEST_F(BusListing, WhatCannotBeSeenLeavesAMarkInPlaceOfNoSize) {
    const auto previousSize = [&] {
        std::filesystem::remove(kListing);
        List("a");
        log().reset();
        EXPECT_TRUE(IsProcDeviceChanged());
        const std::string line = log().texts(4).at(0);
        const size_t slash = line.rfind('/', line.rfind('('));
        return line.substr(slash + 1, line.rfind('\t') - slash - 1);
    };
    EXPECT_FALSE(IsProcDeviceChanged());                   // no listing: no size
    std::filesystem::create_symlink("devices", kListing);  // a loop: ELOOP
    EXPECT_TRUE(IsProcDeviceChanged());
    EXPECT_EQ(previousSize(), "-1");
    const std::string size = std::to_string(std::filesystem::file_size(kListing));
    std::filesystem::remove(kListing);
    std::filesystem::create_symlink("devices", kListing);
    EXPECT_TRUE(IsProcDeviceChanged());
    EXPECT_EQ(previousSize(), size);  // a size that is known stays
}

TEST_F(BusListing, AMissingListingIsNoChangeAndForgetsTheSize) {
    List("a");
    EXPECT_TRUE(IsProcDeviceChanged());
    std::filesystem::rename(kListing, "/proc/bus/usb/aside");
    log().reset();
    EXPECT_FALSE(IsProcDeviceChanged());
    ASSERT_EQ(log().lines().size(), 1u);
    EXPECT_LOG(3, "errno(ENOENT) - /proc/bus/usb/devices does not exist!!!");
    EXPECT_EQ(t_SearchAITUsbCamera(), 0);
    std::filesystem::rename("/proc/bus/usb/aside", kListing);
    EXPECT_TRUE(IsProcDeviceChanged());  // the size is compared with 0
}

TEST_F(BusListing, AListingThatCannotBeSeenCountsAsChanged) {
    const std::filesystem::path folder = "/proc/bus/usb";
    std::filesystem::create_symlink("devices", folder / "devices");  // a loop: ELOOP
    EXPECT_TRUE(IsProcDeviceChanged());
    EXPECT_LOG_COUNT(4, "/proc/bus/usb/devices is changed!", 1);
    EXPECT_TRUE(IsProcDeviceChanged());
    log().reset();
    EXPECT_EQ(t_SearchAITUsbCamera(), 0);
    EXPECT_EQ(log().texts(1),
              (std::vector<std::string>{"cannot open /dtv/ait_usb_devices file\n",
                                        "cannot open /proc/bus/usb/devices file\n"}));
}

TEST_F(BusListing, ReadsTheListingItselfWhenTheCopyCannotBeMade) {
    List(Block("01", "114d", "2066"));
    const std::string path = getenv("PATH");
    setenv("PATH", "/nowhere", 1);  // no cp
    EXPECT_EQ(t_SearchAITUsbCamera(), 0x2066);
    setenv("PATH", path.c_str(), 1);
    EXPECT_LOG(1, "cannot open /dtv/ait_usb_devices file\n");
    EXPECT_NO_LOG(1, "cannot open /proc/bus/usb/devices file\n");
}

TEST_F(BusListing, WhatOneLoaderReadIsNewToAnother) {
    unsigned int first = ListingsSeen();
    unsigned int second = first;
    List(Block("01", "114d", "2066"));
    EXPECT_EQ(t_SearchAITUsbCamera(&first), 0x2066);
    EXPECT_EQ(t_SearchAITUsbCamera(&second), 0x2066);
    EXPECT_EQ(t_SearchAITUsbCamera(&second), 0);  // no change since, for either
    EXPECT_EQ(t_SearchAITUsbCamera(&first), 0);
    unsigned int late = ListingsSeen();
    EXPECT_EQ(t_SearchAITUsbCamera(&late), 0);
}

/// Each of two loaders sees every listing, whichever of them looks first.
TEST_F(BusListing, TwoLoadersThatLookAtOnceBothFindTheCamera) {
    constexpr int kListings = 20;
    for (int i = 0; i < kListings; ++i) {
        auto look = [seen = ListingsSeen()]() mutable { return t_SearchAITUsbCamera(&seen); };
        List(Block("01", "114d", "2066"));
        std::future<int> other = std::async(std::launch::async, look);
        EXPECT_EQ(look(), 0x2066) << i;
        EXPECT_EQ(other.get(), 0x2066) << i;
    }
}

TEST(CamString, CopiesWhatFollowsThePattern) {
    char source[] = "P:  Vendor=114d ProdID=2066";
    char dest[8] = {};
    EXPECT_TRUE(GetCamString(dest, source, "Vendor=", 4));
    EXPECT_STREQ(dest, "114d");
    EXPECT_FALSE(GetCamString(dest, source, "Port=", 2));
    EXPECT_FALSE(GetCamString(dest, source, "Vendor=", 0));
    EXPECT_FALSE(GetCamString(dest, source, "Vendor=", -1));
    EXPECT_STREQ(dest, "114d");
}

TEST(CamString, AddsNoTerminatorAndStopsAtTheEnd) {
    char source[] = "Port=0";
    char dest[8] = "abcdefg";
    EXPECT_TRUE(GetCamString(dest, source, "Port=", 2));
    EXPECT_STREQ(dest, "0bcdefg");
    char longer[] = "Port=12345";
    EXPECT_TRUE(GetCamString(dest, longer, "Port=", 2));
    EXPECT_STREQ(dest, "12cdefg");
}

}  // namespace
}  // namespace test
