// Values of a rule from JSON. Each reader refuses what it cannot take with a sentence that names the
// member.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <limits>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace virtcam::faults {

/// Throws std::invalid_argument: "fault rule: " and the text.
[[noreturn]] void refuse(const std::string& text);

/// Refuses what is no object, or has a member that is not `known`.
void require_object(const nlohmann::json& value, const std::string& what,
                    std::initializer_list<std::string_view> known);

/// The whole of a text as "0x2065" or "8293"; nothing when it is no number or beyond 64 bits.
std::optional<int64_t> whole_number(const std::string& text);

/// A number, or a text as "0x2065"; within [low, high].
int64_t number(const nlohmann::json& value, const std::string& name, int64_t low, int64_t high);

/// A count of bytes, or an index.
size_t size(const nlohmann::json& value, const std::string& name);

/// A text of pairs of hexadecimal digits, blanks allowed.
std::vector<uint8_t> bytes(const nlohmann::json& value, const std::string& name);

/// Leaves `target` alone when `object` has no such member.
template <typename Integer>
void take(const nlohmann::json& object, const char* name, std::optional<Integer>& target) {
    if (const auto found = object.find(name); found != object.end()) {
        target = static_cast<Integer>(number(*found, name, std::numeric_limits<Integer>::min(),
                                             std::numeric_limits<Integer>::max()));
    }
}

template <typename Value, size_t kCount>
using Names = std::array<std::pair<std::string_view, Value>, kCount>;

/// One of `names`.
template <typename Value, size_t kCount>
Value named(const nlohmann::json& value, const std::string& what,
            const Names<Value, kCount>& names) {
    if (!value.is_string()) {
        refuse(what + " must be a text");
    }
    const auto& text = value.get_ref<const std::string&>();
    for (const auto& [name, result] : names) {
        if (name == text) {
            return result;
        }
    }
    refuse("unknown " + what + " \"" + text + "\"");
}

}  // namespace virtcam::faults
