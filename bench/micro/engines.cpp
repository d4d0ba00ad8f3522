#include "bench/micro/engines.h"

#include <unistd.h>

#include <stdexcept>

/// Stands before the C library's: a stop would wait for an event thread.
extern "C" int usleep(useconds_t) {
    return 0;
}

namespace bench {
namespace {

constexpr int kVendor = 0x114D, kProduct = 0x2066;
constexpr int kFormat = 4, kFrame = 5, kRate = 30;
constexpr int kSamplingRate = 16000;

void check(int result, const char* what) {
    if (result < 0) {
        throw std::runtime_error(std::string("the engine does not ") + what);
    }
}

}  // namespace

VideoEngine::VideoEngine(uint32_t payload) {
    set_payload_bytes(payload);
    check(Init(kVendor, kProduct), "open");
    check(UVC_EnableVideoStream(kFormat, kFrame, kRate), "start");
}

VideoEngine::~VideoEngine() {
    pause(Side::kPlugin);
    UVC_DisableVideoStream();
}

AudioEngine::AudioEngine() {
    set_sound(32, false);
    check(Init(kVendor, kProduct), "open");
    check(UAC_EnableAudioStream(kSamplingRate), "start");
}

AudioEngine::~AudioEngine() {
    set_sound(0, true);
    UAC_DisableAudioStream();
}

}  // namespace bench
