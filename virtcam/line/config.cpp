#include "virtcam/line/config.h"

#include <algorithm>
#include <fstream>
#include <initializer_list>
#include <stdexcept>
#include <string_view>

#include "virtcam/faults/json_values.h"

namespace virtcam::line {
namespace {

using nlohmann::json;

void check_members(const json& object, const std::string& what,
                   std::initializer_list<std::string_view> known) {
    if (!object.is_object()) {
        throw std::invalid_argument(what + " must be an object");
    }
    for (const auto& item : object.items()) {
        if (std::find(known.begin(), known.end(), item.key()) == known.end()) {
            throw std::invalid_argument("unknown member \"" + item.key() + "\" in " + what);
        }
    }
}

uint16_t parse_id(const json& object, const char* name) {
    const json& value = object.at(name);
    const std::string text = value.is_string() ? value.get<std::string>() : value.dump();
    const auto number = faults::whole_number(text);
    if (!number) {
        throw std::invalid_argument(std::string("\"") + name + "\" is not a number: \"" + text +
                                    '"');
    }
    if (*number < 0 || *number > 0xFFFF) {
        throw std::invalid_argument(std::string("\"") + name + "\" must lie in 0 to 0xFFFF");
    }
    return static_cast<uint16_t>(*number);
}

bool parse_drivers(const json& value) {
    if (value == "none") {
        return false;
    }
    if (value == "standard") {
        return true;
    }
    throw std::invalid_argument("\"kernel_drivers\" must be \"none\" or \"standard\"");
}

void parse_bus(const json& bus, Config& config) {
    check_members(bus, "\"bus\"",
                  {"listing", "kernel_drivers", "present", "iso_paced", "quiet", "other_devices",
                   "expected_complaints"});
    config.listing = bus.value("listing", config.listing);
    config.present = bus.value("present", config.present);
    config.iso_paced = bus.value("iso_paced", config.iso_paced);
    config.quiet = bus.value("quiet", config.quiet);
    config.expected_complaints = bus.value("expected_complaints", config.expected_complaints);
    if (bus.contains("kernel_drivers")) {
        config.kernel_drivers = parse_drivers(bus["kernel_drivers"]);
    }
    for (const json& device : bus.value("other_devices", json::array())) {
        check_members(device, "\"other_devices\"", {"vendor", "product", "name"});
        config.other_devices.push_back({parse_id(device, "vendor"), parse_id(device, "product"),
                                        device.value("name", "Device")});
    }
}

void append_rules(const json& root, const char* name, json& rules) {
    const json list = root.value(name, json::array());
    if (!list.is_array()) {
        throw std::invalid_argument(std::string("\"") + name + "\" must be a list");
    }
    rules.insert(rules.end(), list.begin(), list.end());
}

}  // namespace

Config Config::from_json(const json& root) {
    try {
        if (root.is_null()) {
            return {};
        }
        check_members(root, "the configuration", {"camera", "bus", "faults", "events"});
        Config config;
        if (root.contains("camera")) {
            config.camera = model::CameraConfig::from_json(root["camera"]);
        }
        config.iso_paced = config.camera.audio_paced;
        if (root.contains("bus")) {
            parse_bus(root["bus"], config);
        }
        append_rules(root, "faults", config.rules);
        append_rules(root, "events", config.rules);
        return config;
    } catch (const json::exception& error) {
        throw std::invalid_argument(error.what());
    } catch (const std::out_of_range& error) {
        throw std::invalid_argument(std::string("number out of range: ") + error.what());
    }
}

Config Config::from_file(const std::string& path) {
    if (path.empty()) {
        return {};
    }
    std::ifstream file(path);
    if (!file) {
        throw std::invalid_argument("cannot read \"" + path + "\"");
    }
    const json root = json::parse(file, nullptr, /*allow_exceptions=*/false);
    if (root.is_discarded()) {
        throw std::invalid_argument("\"" + path + "\" is not JSON");
    }
    return from_json(root);
}

}  // namespace virtcam::line
