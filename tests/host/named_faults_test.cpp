// What camhost makes of the plug-in's log and of the bus listing: faults in words.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdio>
#include <fstream>
#include <sstream>

#include "host/acceptance/plugin_log.h"
#include "host/session/absence.h"
#include "tests/host/temporary_folder.h"

namespace camhost::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

TEST(LoggedFaults, OfAGoodStreamAreNone) {
    const LoggedFaults faults = faults_in(
        "[TARLO 1.45/Debugging] [GetState:71] Get status=3\n\n"
        "[TARLO 1.45/Debugging] [FillVideoBuf_Bulk:97] Stop submit transfer.\r\n\n"
        "[TARLO 1.45/Debugging] [callback:153] LIBUSB_TRANSFER_CANCELLED!\n\n");
    EXPECT_THAT(faults.start, IsEmpty());
    EXPECT_THAT(faults.transfers, IsEmpty());
    EXPECT_THAT(faults.frames, IsEmpty());
    EXPECT_THAT(faults.sequence, IsEmpty());
    EXPECT_EQ(faults.broken_frames, 0U);
    EXPECT_EQ(faults.dropped_here, 0U);
}

TEST(LoggedFaults, NameTransfersAndPayloads) {
    EXPECT_THAT(
        faults_in("Audio Transfer Unknown Status=4\r\n"
                  "Audio Transfer Unknown Status=4\r\n"
                  "Audio Transfer Unknown Status=1\r\n")
            .transfers,
        ElementsAre("2 transfers end with a stall: the endpoint is halted", "1 transfer fails"));
    EXPECT_THAT(faults_in("LIBUSB_TRANSFER_OVERFLOW! EP = 81\n"
                          "LIBUSB_TRANSFER_TIMED_OUT! EP = 83\n")
                    .transfers,
                ElementsAre("1 transfer with babble on endpoint 0x81: more came than was asked for",
                            "1 time-out on endpoint 0x83"));
    EXPECT_THAT(faults_in("Fram size exceed MaxFrameSize!! 2097160\n").transfers,
                ElementsAre("a frame does not end: 1 payload behind its 2 MiB"));
}

TEST(LoggedFaults, HeaderOfAnotherLengthIsNotTheCamerasErrorBit) {
    EXPECT_THAT(
        faults_in("UVC Payload Header Length = 13\n"
                  "Dropping payload (error bit set).\n"
                  "Dropping payload (error bit set).\n")
            .transfers,
        ElementsAre("1 payload header of 13 bytes, not 12", "1 payload with the error bit set"));
}

std::string parser_error(const char* type, const char* size) {
    return std::string("Parser Error, offset+h->dwPlayloadSize > frame_size , Stream Type = ") +
           type + ",offse+h->dwPlayloadSize=" + size + "\r\n";
}

TEST(LoggedFaults, NameWhatAFrameLacks) {
    const LoggedFaults faults =
        faults_in(parser_error("0x2B", "-32") + parser_error("0x35", "6624") +
                  parser_error("0x75F3", "123456") + "Parser Error, offset >= frame_size \r\n" +
                  "Unknown Format ID 119 \r\n");
    EXPECT_THAT(
        faults.frames,
        ElementsAre("1 sub-stream header lies about the size (4294967264 bytes)",
                    "1 frame is shorter than the headers in it say (H.264 sub): a payload is lost "
                    "or cut",
                    "1 sub-stream of the unknown type 0x77",
                    "2 frames have other data where a sub-stream header is due: a payload is lost, "
                    "cut or there twice"));
    EXPECT_EQ(faults.broken_frames, 5U);
    EXPECT_EQ(faults.begun_frames, 1U);
}

TEST(LoggedFaults, CountGapsOfTheSequence) {
    EXPECT_THAT(faults_in("Main H264, FRAME LOST. 30\r\nMain H264, FRAME LOST. 44\r\n"
                          "Sub H264, FRAME LOST. 9\r\n")
                    .sequence,
                ElementsAre("2 sequence gaps on the main stream, the first before number 30",
                            "1 sequence gap on the sub stream, before number 9"));
    EXPECT_THAT(faults_in("Main H264, FRAME LOST. 1\r\n").sequence,
                ElementsAre("the sequence numbers of the main stream begin anew"));
}

TEST(LoggedFaults, NameTheRequestThatFailedAStart) {
    EXPECT_THAT(faults_in("UVC_query_ctrl Error:Probe UVC_SET_CUR\n").start,
                ElementsAre("SET_CUR of the probe is refused"));
    EXPECT_THAT(faults_in("Failed to SET sampling rate: (-9)\n").start,
                ElementsAre("SET_CUR of the sampling rate is refused"));
    EXPECT_EQ(
        faults_in("Dropped a UVC frame,Now trying to request a new frame buffer.\r\n").dropped_here,
        1U);
}

TEST(PluginLog, TellsWhatIsNewAndNothingWhereThereIsNoFile) {
    const TemporaryFolder folder;
    const auto file = folder.path() / "plugin.log";
    std::ofstream writer(file);
    writer << "one\n" << std::flush;
    PluginLog log(file);
    EXPECT_EQ(log.news(), "one\n");
    EXPECT_EQ(log.news(), "");
    writer << "two\n" << std::flush;
    EXPECT_EQ(log.news(), "two\n");
    EXPECT_EQ(PluginLog("/dev/null").news(), std::nullopt);
}

std::string absence(const FirmwareDownload& download, const std::string& products) {
    std::istringstream listing(products);
    return camhost::absence(download, listing);
}

std::string product(const std::string& id) {
    return "T:  Bus=01 Lev=00\nP:  Vendor=1d6b ProdID=0002 Rev= 6.01\n\n"
           "T:  Bus=01 Lev=01\nP:  Vendor=114d ProdID=" +
           id + " Rev= 1.00\n";
}

TEST(Absence, OfACameraThatWasSentNothing) {
    EXPECT_EQ(absence({}, "P:  Vendor=1d6b ProdID=0002 Rev= 6.01\n"), "no camera is on the bus");
    EXPECT_EQ(absence({}, product("2065")),
              "it is on the bus in its boot code and was sent no firmware");
    EXPECT_EQ(absence({}, product("2066")), "it is on the bus and cannot be used");
    EXPECT_EQ(absence({}, product("2077")), "it is on the bus with the unknown product ID 0x2077");
}

TEST(Absence, AfterADownload) {
    EXPECT_EQ(absence({512, 300'000}, ""),
              "the download of its firmware broke off after 512 of 300000 bytes");
    const FirmwareDownload whole{300'000, 300'000};
    EXPECT_EQ(absence(whole, ""), "it went off the bus after its firmware and did not come back");
    EXPECT_EQ(absence({300'000, 0}, ""),
              "it went off the bus after its firmware and did not come back")
        << "older boot code is not told the size";
    EXPECT_EQ(absence(whole, product("2065")),
              "after its firmware it is in its boot code again: nothing was burnt");
    EXPECT_EQ(absence(whole, product("2066")), "it is back after its firmware and cannot be used");
    EXPECT_EQ(absence(whole, product("2077")),
              "it is back after its firmware with the product ID 0x2077, not 0x2066");
}

TEST(Absence, IsNotToldWithoutAListing) {
    std::ifstream missing("/nonexistent/devices");
    EXPECT_EQ(camhost::absence({}, missing), "");
}

}  // namespace
}  // namespace camhost::test
