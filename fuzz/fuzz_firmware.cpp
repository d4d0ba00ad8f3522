// Images of any content on every way of download, to a camera that answers as the input says. What a
// good camera took and acknowledged is the file, byte for byte.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "AitFirmware.h"
#include "fuzz/wild_camera.h"
#include "tests/support/TvFiles.h"

namespace {

constexpr size_t kPiece = 32;  // of the extension-unit path, which fills up the last one

enum Way { kExtensionUnit, kBulk, kBulkInLargePieces, kBulkWithCheckSum, kWays };

int download(AitDevHandle* device, Way way, fuzz::Tape& tape) {
    char path[] = "/mtd_exe/image";
    switch (way) {
        case kExtensionUnit:
            return UpdateFirmwareUvcPath(device, path, 4);
        case kBulk:
            return UpdateFirmwarePcsyncPath(device, path, 4);
        case kBulkInLargePieces:
            return UpdateFirmware(device, path, tape.byte());
        default:
            return UpdateAitFirmwareWithCheckSum(device, path, tape.number());
    }
}

void check_arrived(const std::vector<uint8_t>& arrived, std::vector<uint8_t> image, Way way) {
    if (way == kExtensionUnit) {
        image.resize((image.size() + kPiece - 1) / kPiece * kPiece);
    }
    if (arrived != image) {
        __builtin_trap();
    }
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    fuzz::prepare_television();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    fuzz::Tape tape(data, size);
    const auto way = static_cast<Way>(tape.byte() % kWays);
    const size_t repeats = 1 + tape.byte();  // images are larger than inputs
    const fuzz::Tape answers = tape.cut(tape.byte());
    std::vector<uint8_t> image(tape.rest() * repeats);
    for (size_t i = 0; i < image.size(); ++i) {
        image[i] = static_cast<uint8_t>(data[size - tape.rest() + i % tape.rest()] + i / 256);
    }
    test::WriteFile("/mtd_exe/image", std::string(image.begin(), image.end()));

    fuzz::WildCamera camera(sim::kBootCode, answers, {nullptr, 0});
    const sim::World world;
    const sim::Bus bus(&camera);
    AitDevHandle* device = OpenAitDevice(AITCAM_VENDOR_ID, sim::kBootCode, 2);
    const int result = download(device, way, tape);
    if (result == 0 && answers.empty()) {
        check_arrived(camera.firmware(), image, way);
    }
    CloseAitDevice(device);
    return 0;
}
