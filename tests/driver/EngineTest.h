// Base of the tests of the two streaming engines on the virtual bus.
//
// The engines without their threads are driven by the test itself: a payload is pushed, one event
// round delivers it, and everything happens on the test's thread, in order.
#pragma once

#include <string>
#include <utility>
#include <vector>

#include "LibusbWrap.h"
#include "tests/driver/Allocations.h"
#include "tests/driver/LibusbCalls.h"
#include "tests/support/BusTest.h"
#include "tests/support/ControlSequence.h"
#include "tests/support/LockProbe.h"

namespace test {

using Bytes = std::vector<uint8_t>;

/// `count` bytes that differ from their neighbours and from those of another seed.
inline Bytes Pattern(size_t count, uint8_t seed = 1) {
    Bytes bytes(count);
    for (size_t i = 0; i < count; ++i) {
        bytes[i] = static_cast<uint8_t>(seed + i * 7);
    }
    return bytes;
}

/// Flags of a payload header (UVC 1.00, 2.4.3.3).
constexpr uint8_t kFid = 0x01;
constexpr uint8_t kEof = 0x02;
constexpr uint8_t kErr = 0x40;

/// A payload with a header of 12 bytes.
inline Bytes Payload(uint8_t flags, const Bytes& data = {}, uint8_t headerLength = 12) {
    constexpr size_t kHeader = 12;
    Bytes bytes(kHeader + data.size());
    bytes[0] = headerLength;
    bytes[1] = flags;
    std::copy(data.begin(), data.end(), bytes.begin() + kHeader);
    return bytes;
}

constexpr int kVendor = 0x114D;
constexpr int kProduct = 0x2066;

class EngineTest : public BusTest {
  protected:
    /// The bus does not print its complaints: the tests read them.
    static nlohmann::json QuietCamera() {
        nlohmann::json configuration = RunningCamera();
        configuration["bus"]["quiet"] = true;
        return configuration;
    }

    EngineTest() : BusTest(QuietCamera()) {
        LibusbCalls::instance().reset();
        fail_allocation(0);
        virtcam::bus::script_stream(true);
    }
    ~EngineTest() override {
        fail_allocation(0);
        LibusbCalls::instance().reset();
    }

    LibusbCalls& usb() { return LibusbCalls::instance(); }

    void ForgetLog() { log().reset(); }

    /// Forgets what was observed so far.
    void Forget() {
        ForgetLog();
        virtcam::bus::clear_logs();
        clock().reset();
        LibusbCalls::instance().reset();
    }

    /// Names of the calls since the logs were cleared, with the first number where there is one.
    static std::vector<std::string> Calls() {
        std::vector<std::string> all;
        for (const auto& record : virtcam::bus::call_log()) {
            std::string text = record.name;
            if (record.argument) {
                text += " " + std::to_string(*record.argument);
            }
            all.push_back(text);
        }
        return all;
    }
    static size_t CountCalls(const std::string& name) {
        size_t count = 0;
        for (const auto& record : virtcam::bus::call_log()) {
            count += record.name == name ? 1 : 0;
        }
        return count;
    }

    /// Sleeps of exactly this length since the last reset of the clock.
    size_t Sleeps(std::chrono::microseconds length) { return clock().count(length); }

    static nlohmann::json FailCall(const char* call, int result, int nth = 1) {
        return {{"on", {{"call", call}}}, {"nth", nth}, {"do", {{"return", result}}}};
    }
    static nlohmann::json FailCallOn(const char* call, int argument, int result) {
        return {{"on", {{"call", call}, {"argument", argument}}}, {"do", {{"return", result}}}};
    }
};

}  // namespace test
