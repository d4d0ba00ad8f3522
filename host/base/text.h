// Small text helpers that the whole program shares.
#pragma once

#include <chrono>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace camhost {

/// printf() into a string.
[[gnu::format(printf, 1, 2)]] std::string format(const char* pattern, ...);

/// The text with ASCII letters in lower case.
std::string lower(std::string_view text);

/// "a, b and c"; empty for an empty list.
std::string join(const std::vector<std::string>& words);

/// Parts between the separators, empty parts included.
std::vector<std::string> split(std::string_view text, char separator);

/// The words between blanks; none is empty.
std::vector<std::string> words_of(std::string_view line);

/// A whole signed number, decimal or with 0x, that fills the text; false when it is anything else
/// or outside 32 bits (values of unsigned 32-bit words are taken too and keep their bits).
bool parse_int(std::string_view text, int32_t* value);

/// A duration as "3s", "500ms" or "3" (seconds), at least 0 and at most a day; false otherwise.
bool parse_duration(std::string_view text, std::chrono::milliseconds* duration);

/// A picture size as "640x480", each side 1 to 32767; false otherwise.
bool parse_size(std::string_view text, int16_t* width, int16_t* height);

}  // namespace camhost
