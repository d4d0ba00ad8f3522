#include "virtcam/model/camera_config.h"

#include <map>
#include <nlohmann/json.hpp>
#include <stdexcept>
#include <string>

namespace virtcam::model {
namespace {

using nlohmann::json;

[[noreturn]] void refuse(const std::string& name, const std::string& wanted) {
    throw std::invalid_argument("camera configuration: \"" + name + "\" must be " + wanted);
}

template <typename Number>
void read_number(const json& value, const std::string& name, int64_t low, int64_t high,
                 Number& target) {
    if (!value.is_number_integer() || value.get<int64_t>() < low || value.get<int64_t>() > high) {
        refuse(name, "a whole number from " + std::to_string(low) + " to " + std::to_string(high));
    }
    target = static_cast<Number>(value.get<int64_t>());
}

void read_flag(const json& value, const std::string& name, bool& target) {
    if (!value.is_boolean()) {
        refuse(name, "true or false");
    }
    target = value.get<bool>();
}

template <typename Choice>
void read_choice(const json& value, const std::string& name, const char* first, Choice first_value,
                 const char* second, Choice second_value, Choice& target) {
    if (value == first) {
        target = first_value;
    } else if (value == second) {
        target = second_value;
    } else {
        refuse(name, std::string("\"") + first + "\" or \"" + second + "\"");
    }
}

void read_member(const std::string& name, const json& value, CameraConfig& config) {
    using Identity = CameraConfig::Identity;
    using BootCode = CameraConfig::BootCode;
    using Reader = void (*)(const json&, const std::string&, CameraConfig&);
    static const std::map<std::string, Reader> readers{
        {"vendor_id", [](auto& v, auto& n, auto& c) { read_number(v, n, 1, 0xFFFF, c.vendor_id); }},
        {"product_id",
         [](auto& v, auto& n, auto& c) { read_number(v, n, 1, 0xFFFF, c.product_id); }},
        {"identity",
         [](auto& v, auto& n, auto& c) {
             read_choice(v, n, "boot-code", Identity::kBootCode, "run-time", Identity::kRunTime,
                         c.identity);
         }},
        {"boot_code",
         [](auto& v, auto& n, auto& c) {
             read_choice(v, n, "newer", BootCode::kNewer, "older", BootCode::kOlder, c.boot_code);
         }},
        {"departure_ms",
         [](auto& v, auto& n, auto& c) { read_number(v, n, 0, 100, c.departure_ms); }},
        {"reenumerate_ms",
         [](auto& v, auto& n, auto& c) { read_number(v, n, 0, 600000, c.reenumerate_ms); }},
        {"returns", [](auto& v, auto& n, auto& c) { read_flag(v, n, c.returns); }},
        {"max_payload",
         [](auto& v, auto& n, auto& c) { read_number(v, n, 512, 65536, c.max_payload); }},
        {"header_only_eof", [](auto& v, auto& n, auto& c) { read_flag(v, n, c.header_only_eof); }},
        {"paced", [](auto& v, auto& n, auto& c) { read_flag(v, n, c.paced); }},
        {"audio_paced", [](auto& v, auto& n, auto& c) { read_flag(v, n, c.audio_paced); }},
        {"source",
         [](auto& v, auto& n, auto& c) {
             if (!v.is_string()) {
                 refuse(n, "a path");
             }
             c.source = v.template get<std::string>();
         }},
        {"tone_hz", [](auto& v, auto& n, auto& c) { read_number(v, n, 20, 8000, c.tone_hz); }},
        {"seed", [](auto& v, auto& n, auto& c) { read_number(v, n, 0, UINT32_MAX, c.seed); }},
        {"lux", [](auto& v, auto& n, auto& c) { read_number(v, n, 0, 0xFFFF, c.lux); }},
        {"self_test_result",
         [](auto& v, auto& n, auto& c) { read_number(v, n, 0, 255, c.self_test_result); }},
    };
    const auto reader = readers.find(name);
    if (reader == readers.end()) {
        throw std::invalid_argument("camera configuration: unknown member \"" + name + "\"");
    }
    reader->second(value, name, config);
}

}  // namespace

CameraConfig CameraConfig::from_json(const json& object) {
    if (!object.is_object()) {
        throw std::invalid_argument("camera configuration: not a JSON object");
    }
    CameraConfig config;
    for (const auto& [name, value] : object.items()) {
        read_member(name, value, config);
    }
    return config;
}

}  // namespace virtcam::model
