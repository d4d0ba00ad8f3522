#include "tests/support/broken_encoder.h"

#include <dlfcn.h>
#include <wels/codec_api.h>

#include <cstdlib>

namespace test {

std::atomic<bool> encoder_is_broken{std::getenv("BROKEN_ENCODER") != nullptr};

}  // namespace test

extern "C" int WelsCreateSVCEncoder(ISVCEncoder** encoder) {
    constexpr int kFailed = 1;
    static auto* const real =
        reinterpret_cast<int (*)(ISVCEncoder**)>(dlsym(RTLD_NEXT, "WelsCreateSVCEncoder"));
    return test::encoder_is_broken ? kFailed : real(encoder);
}
