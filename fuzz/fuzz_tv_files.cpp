// The television's small files: chassis, mains frequency, the two version files, boot code. Any of
// them may be missing.
#include <stdio.h>

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <string>

#include "CameraFwLoader.h"
#include "Platform.h"
#include "fuzz/tape.h"
#include "tests/simulation/world.h"
#include "tests/support/TvFiles.h"

namespace {

constexpr char kBootCode[] = "/mtd_exe/lumo/VespinPlus_BC.bin";

/// Where boot code has its mark and version.
constexpr size_t kMarkAt = 0x2032;

void write_unless(bool missing, const char* path, fuzz::Tape tape, size_t zeros = 0) {
    if (missing) {
        std::filesystem::remove(path);
        return;
    }
    std::string content(zeros + tape.rest(), '\0');
    tape.bytes(reinterpret_cast<uint8_t*>(content.data()) + zeros, tape.rest());
    test::WriteFile(path, content);
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    return freopen("/dev/null", "w", stdout) == nullptr ? 1 : 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    fuzz::Tape tape(data, size);
    const uint8_t missing = tape.byte();
    write_unless((missing & 1) != 0, "/mtd_exe/.info", tape.cut(tape.byte()));
    write_unless((missing & 2) != 0, "/dtv/cm_frequency", tape.cut(tape.byte()));
    write_unless((missing & 4) != 0, kBootCode, tape.cut(tape.byte() % 8), kMarkAt);
    write_unless((missing & 8) != 0, "/mtd_exe/lumo/opxCamera.xml", tape.cut(tape.word()));
    write_unless((missing & 16) != 0, "/mtd_rwcommon/lumo/bin/opxCamera.xml", tape);

    const sim::World world;  // three seconds pass before boot code is burnt
    const PLATFORM platform = DetectPlatform().platform;
    const int frequency = ReadPowerFrequency();
    if (platform < UNKNOWN_PF || platform > SHADP || frequency < 0 || frequency > 2) {
        __builtin_trap();
    }
    CCameraFwLoader loader(0, 0, 0, nullptr);
    loader.UseDefaultVersion();
    char path[] = "/mtd_exe/lumo/VespinPlus_BC.bin";
    loader.UpdateBootCode(nullptr, path, missing);
    return 0;
}
