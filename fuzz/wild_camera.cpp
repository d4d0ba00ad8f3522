#include "fuzz/wild_camera.h"

#include <stdio.h>
#include <stdlib.h>

#include <algorithm>
#include <iterator>
#include <string>

#include "Platform.h"
#include "tests/support/TvFiles.h"

namespace fuzz {

namespace {

constexpr int kErrors[] = {
    LIBUSB_ERROR_IO,          LIBUSB_ERROR_INVALID_PARAM, LIBUSB_ERROR_ACCESS,
    LIBUSB_ERROR_NO_DEVICE,   LIBUSB_ERROR_NOT_FOUND,     LIBUSB_ERROR_BUSY,
    LIBUSB_ERROR_TIMEOUT,     LIBUSB_ERROR_OVERFLOW,      LIBUSB_ERROR_PIPE,
    LIBUSB_ERROR_INTERRUPTED, LIBUSB_ERROR_NO_MEM,        LIBUSB_ERROR_NOT_SUPPORTED,
    LIBUSB_ERROR_OTHER};
constexpr libusb_transfer_status kEndings[] = {LIBUSB_TRANSFER_COMPLETED, LIBUSB_TRANSFER_ERROR,
                                               LIBUSB_TRANSFER_TIMED_OUT, LIBUSB_TRANSFER_STALL,
                                               LIBUSB_TRANSFER_OVERFLOW};
constexpr uint16_t kFormats[] = {0x2B, 0x35, 0x2C, 0x2D, 0x2A, 0x29, 0x2F};
constexpr const char* kInfos[] = {"T-XXXXX", "T-XXSXX", "T-XXPXX", "T-EXPXX", "T-XXX10",
                                  "T-XXX12", "T-XXX14", "T-XX14X", "T-GFSXX", "T-GFPXX"};

int error_of(Tape& tape) {
    return kErrors[tape.byte() % std::size(kErrors)];
}

std::string info_path(unsigned platform) {
    return "/mtd_exe/.info" + std::to_string(platform);
}

}  // namespace

WildCamera::WildCamera(uint16_t product, Tape answers, Tape stream)
    : Camera(product), answers_(answers), stream_(stream) {
    const uint16_t size = stream_.word();
    iso_packet_size_ = size == 0 ? 100 : size;
}

int WildCamera::call(const std::string& name, int) {
    const uint8_t choice = answers_.byte();
    if (choice < 0xF0) {
        return name == "libusb_kernel_driver_active" ? choice & 1 : 0;
    }
    return error_of(answers_);
}

/// What an answer may be instead of the good one.
sim::Answer WildCamera::spoil(sim::Answer good, unsigned char* data) {
    const uint8_t choice = answers_.byte();
    if ((choice & 1) != 0) {
        return {error_of(answers_)};
    }
    if ((choice & 2) != 0 && good.result > 0) {
        good.result = answers_.byte() % (good.result + 1);
    }
    if ((choice & 4) != 0 && data != nullptr) {
        answers_.bytes(data, static_cast<size_t>(good.result));
    }
    if ((choice & 8) != 0) {
        good.after = std::chrono::milliseconds(40) * answers_.byte();
    }
    if ((choice & 0xF0) == 0xF0) {
        sim::Bus::unplug();
    }
    return good;
}

sim::Answer WildCamera::control(const sim::Setup& setup, unsigned char* data) {
    const sim::Answer good = Camera::control(setup, data);
    return spoil(good, (setup.type & 0x80) != 0 ? data : nullptr);
}

sim::Answer WildCamera::bulk_out(const unsigned char* data, int length) {
    return spoil(Camera::bulk_out(data, length), nullptr);
}

sim::Ending WildCamera::submitted(const libusb_transfer& transfer) {
    sim::Ending ending = Camera::submitted(transfer);
    const uint8_t choice = stream_.byte();
    if (choice >= 0xE0) {
        ending.status = kEndings[stream_.byte() % std::size(kEndings)];
    } else if (choice >= 0xD8) {
        ending.at = sim::kForever;
    }
    return ending;
}

void WildCamera::fill(libusb_transfer& transfer) {
    Camera::fill(transfer);
    if (stream_.byte() < 0x80) {
        return;
    }
    if (transfer.type == LIBUSB_TRANSFER_TYPE_BULK) {
        spoil_payload(transfer);
    } else {
        spoil_packets(transfer);
    }
}

void WildCamera::spoil_payload(libusb_transfer& transfer) {
    const uint8_t choice = stream_.byte();
    if ((choice & 1) != 0) {
        transfer.buffer[0] = stream_.byte();
    }
    if ((choice & 2) != 0) {
        transfer.buffer[1] = stream_.byte();
    }
    if ((choice & 4) != 0) {
        // As long as a kernel may say, and longer.
        transfer.actual_length = stream_.word();
    }
}

void WildCamera::spoil_packets(libusb_transfer& transfer) {
    for (int i = 0; i < transfer.num_iso_packets; ++i) {
        libusb_iso_packet_descriptor& packet = transfer.iso_packet_desc[i];
        packet.actual_length = stream_.word();
        packet.status = kEndings[stream_.byte() % std::size(kEndings)];
    }
}

std::vector<uint8_t> WildCamera::next_frame() {
    const uint8_t count = stream_.byte();
    if (count == 0) {
        return Camera::next_frame();
    }
    std::vector<uint8_t> frame;
    for (int i = 0; i < count % 8; ++i) {
        append_sub_stream(frame);
    }
    return frame;
}

void WildCamera::append_sub_stream(std::vector<uint8_t>& frame) {
    const uint8_t choice = stream_.byte();
    const uint16_t format = kFormats[stream_.byte() % std::size(kFormats)];
    std::vector<uint8_t> data(stream_.byte() * ((choice & 8) != 0 ? 64u : 1u));
    stream_.bytes(data.data(), std::min<size_t>(data.size(), 32));
    if ((choice & 4) == 0 && data.size() > 4) {
        constexpr uint8_t kPFrame[] = {0, 0, 0, 1, 0x41};
        std::copy(std::begin(kPFrame), std::end(kPFrame), data.begin());
    }
    const uint32_t sequence = (choice & 1) != 0 ? stream_.byte() : ++sequence_;
    const size_t header = frame.size();
    append(frame, format, sequence, data.data(), static_cast<uint32_t>(data.size()));
    if ((choice & 2) != 0) {  // one field says anything
        stream_.bytes(frame.data() + header + stream_.byte() % 29, 4);
    }
}

void prepare_television() {
    test::RemoveTvFiles();
    for (unsigned platform = 0; platform < std::size(kInfos); ++platform) {
        test::WriteFile(info_path(platform), kInfos[platform]);
    }
    test::WriteFile("/dtv/cm_frequency", "1\n");
    test::WriteFile("/mtd_rwcommon/lumo/bin/Tarlo_Ext_FW.bin", test::ImageOf(1000));
    if (freopen("/dev/null", "w", stdout) == nullptr) {
        abort();
    }
}

void choose_platform(unsigned platform) {
    snprintf(info_file_path_name, sizeof info_file_path_name, "%s",
             info_path(platform % std::size(kInfos)).c_str());
}

}  // namespace fuzz
