#include "virtcam/faults/json_values.h"

#include <algorithm>
#include <stdexcept>

namespace virtcam::faults {

using nlohmann::json;

void refuse(const std::string& text) {
    throw std::invalid_argument("fault rule: " + text);
}

void require_object(const json& value, const std::string& what,
                    std::initializer_list<std::string_view> known) {
    if (!value.is_object()) {
        refuse(what + " must be an object");
    }
    for (const auto& item : value.items()) {
        if (std::find(known.begin(), known.end(), item.key()) == known.end()) {
            refuse("unknown member \"" + item.key() + "\" in " + what);
        }
    }
}

std::optional<int64_t> whole_number(const std::string& text) {
    try {
        size_t used = 0;
        const int64_t result = std::stoll(text, &used, 0);
        return used == text.size() ? std::optional(result) : std::nullopt;
    } catch (const std::exception&) {
        return std::nullopt;
    }
}

int64_t number(const json& value, const std::string& name, int64_t low, int64_t high) {
    int64_t result = 0;
    if (value.is_number_integer()) {
        result = value.get<int64_t>();
    } else if (value.is_string()) {
        const auto text = value.get<std::string>();
        const auto parsed = whole_number(text);
        if (!parsed) {
            refuse("\"" + name + "\" is not a number: \"" + text + "\"");
        }
        result = *parsed;
    } else {
        refuse("\"" + name + "\" must be a number");
    }
    if (result < low || result > high) {
        refuse("\"" + name + "\" must lie in " + std::to_string(low) + " to " +
               std::to_string(high));
    }
    return result;
}

size_t size(const json& value, const std::string& name) {
    constexpr int64_t kMost = 1 << 24;
    return static_cast<size_t>(number(value, name, 0, kMost));
}

std::vector<uint8_t> bytes(const json& value, const std::string& name) {
    if (!value.is_string()) {
        refuse("\"" + name + "\" must be a text of hexadecimal digits");
    }
    std::string digits = value.get<std::string>();
    std::erase(digits, ' ');
    if (digits.size() % 2 != 0 ||
        digits.find_first_not_of("0123456789abcdefABCDEF") != std::string::npos) {
        refuse("\"" + name + "\" must be a text of pairs of hexadecimal digits");
    }
    std::vector<uint8_t> result;
    for (size_t at = 0; at < digits.size(); at += 2) {
        result.push_back(static_cast<uint8_t>(std::stoul(digits.substr(at, 2), nullptr, 16)));
    }
    return result;
}

}  // namespace virtcam::faults
