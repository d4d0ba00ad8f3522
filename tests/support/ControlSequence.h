// Control transfers as the camera saw them, in a form that compares and prints.
#pragma once

#include <cstdint>
#include <iomanip>
#include <ostream>
#include <vector>

#include "virtcam/bus/control.h"

namespace test {

struct Request {
    uint8_t type;
    uint8_t request;
    uint16_t value;
    uint16_t index;
    std::vector<uint8_t> data;  ///< as sent; empty for a read
    uint16_t length;
    unsigned timeout_ms;

    bool operator==(const Request&) const = default;
};

typedef std::vector<Request> Sequence;

/// How long the plug-in waits for a control transfer unless it says otherwise.
constexpr unsigned kUsualTimeoutMs = 5000;

inline std::ostream& operator<<(std::ostream& out, const Request& r) {
    const auto flags = out.flags();
    out << std::hex << std::setfill('0') << std::setw(2) << int{r.type} << " " << std::setw(2)
        << int{r.request} << " value " << std::setw(4) << r.value << " index " << std::setw(4)
        << r.index << std::dec << " length " << r.length << " in " << r.timeout_ms << " ms ["
        << std::hex;
    for (const uint8_t byte : r.data) {
        out << " " << std::setw(2) << int{byte};
    }
    out.flags(flags);
    return out << " ]\n";
}

/// A write of a block.
inline Request Write(uint8_t type, uint8_t request, uint16_t value, uint16_t index,
                     std::vector<uint8_t> data, unsigned timeout_ms = kUsualTimeoutMs) {
    const auto length = static_cast<uint16_t>(data.size());
    return {type, request, value, index, std::move(data), length, timeout_ms};
}

inline Request Read(uint8_t type, uint8_t request, uint16_t value, uint16_t index, uint16_t length,
                    unsigned timeout_ms = kUsualTimeoutMs) {
    return {type, request, value, index, {}, length, timeout_ms};
}

/// A block padded with zeros.
inline std::vector<uint8_t> Block(size_t size, std::vector<uint8_t> head) {
    head.resize(size);
    return head;
}

/// The requests since the logs were cleared.
inline Sequence Requests() {
    Sequence requests;
    for (const auto& record : virtcam::bus::control_log()) {
        const virtcam::model::Setup& setup = record.setup;
        requests.push_back({setup.request_type, setup.request, setup.value, setup.index,
                            setup.device_to_host() ? std::vector<uint8_t>{} : record.data,
                            setup.length, record.timeout_ms});
    }
    return requests;
}

/// What the camera answered to the reads among them.
inline std::vector<std::vector<uint8_t>> Answers() {
    std::vector<std::vector<uint8_t>> answers;
    for (const auto& record : virtcam::bus::control_log()) {
        if (record.setup.device_to_host()) {
            answers.push_back(record.data);
        }
    }
    return answers;
}

}  // namespace test
