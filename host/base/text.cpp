#include "host/base/text.h"

#include <cctype>
#include <cerrno>
#include <cmath>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <limits>

namespace camhost {

std::string format(const char* pattern, ...) {
    va_list arguments;
    va_start(arguments, pattern);
    va_list again;
    va_copy(again, arguments);
    const int length = std::vsnprintf(nullptr, 0, pattern, arguments);
    va_end(arguments);
    std::string text(length > 0 ? static_cast<size_t>(length) : 0, '\0');
    std::vsnprintf(text.data(), text.size() + 1, pattern, again);
    va_end(again);
    return text;
}

std::string lower(std::string_view text) {
    std::string result(text);
    for (char& letter : result) {
        letter = static_cast<char>(std::tolower(static_cast<unsigned char>(letter)));
    }
    return result;
}

std::string join(const std::vector<std::string>& words) {
    std::string result;
    for (size_t i = 0; i < words.size(); ++i) {
        if (i > 0) {
            result += i + 1 == words.size() ? " and " : ", ";
        }
        result += words[i];
    }
    return result;
}

std::vector<std::string> split(std::string_view text, char separator) {
    std::vector<std::string> parts;
    size_t begin = 0;
    while (true) {
        const size_t end = text.find(separator, begin);
        parts.emplace_back(text.substr(begin, end - begin));
        if (end == std::string_view::npos) {
            return parts;
        }
        begin = end + 1;
    }
}

std::vector<std::string> words_of(std::string_view line) {
    auto words = split(line, ' ');
    std::erase(words, "");
    return words;
}

bool parse_int(std::string_view text, int32_t* value) {
    const std::string copy(text);
    if (copy.empty() || std::isspace(static_cast<unsigned char>(copy.front())) != 0) {
        return false;
    }
    const bool hexadecimal = lower(copy).find("0x") != std::string::npos;
    char* end = nullptr;
    errno = 0;
    const long long number = std::strtoll(copy.c_str(), &end, hexadecimal ? 16 : 10);
    if (errno != 0 || *end != '\0' || number < std::numeric_limits<int32_t>::min() ||
        number > std::numeric_limits<uint32_t>::max()) {
        return false;
    }
    *value = static_cast<int32_t>(static_cast<uint32_t>(number));
    return true;
}

bool parse_duration(std::string_view text, std::chrono::milliseconds* duration) {
    std::string digits(text);
    double factor = 1000;
    if (digits.ends_with("ms")) {
        digits.resize(digits.size() - 2);
        factor = 1;
    } else if (digits.ends_with("s")) {
        digits.pop_back();
    }
    if (digits.empty() ||
        (std::isdigit(static_cast<unsigned char>(digits.front())) == 0 && digits.front() != '.')) {
        return false;
    }
    char* end = nullptr;
    const double number = std::strtod(digits.c_str(), &end);
    constexpr double kDayMs = 24.0 * 3600 * 1000;
    if (*end != '\0' || !std::isfinite(number) || number * factor > kDayMs) {
        return false;
    }
    *duration = std::chrono::milliseconds(std::llround(number * factor));
    return true;
}

bool parse_size(std::string_view text, int16_t* width, int16_t* height) {
    const auto sides = split(lower(text), 'x');
    int32_t w = 0;
    int32_t h = 0;
    constexpr int32_t kLongest = std::numeric_limits<int16_t>::max();
    if (sides.size() != 2 || !parse_int(sides[0], &w) || !parse_int(sides[1], &h) || w < 1 ||
        h < 1 || w > kLongest || h > kLongest) {
        return false;
    }
    *width = static_cast<int16_t>(w);
    *height = static_cast<int16_t>(h);
    return true;
}

}  // namespace camhost
