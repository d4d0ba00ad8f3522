#include "virtcam/model/y4m_source.h"

#include <charconv>
#include <sstream>
#include <stdexcept>

namespace virtcam::model {
namespace {

constexpr size_t kMaxLine = 256;

/// A header line of at most kMaxLine bytes; an over-long or missing one reads as empty.
std::string read_line(std::istream& in) {
    std::string line;
    for (int letter = in.get(); letter != '\n'; letter = in.get()) {
        if (letter == std::char_traits<char>::eof() || line.size() == kMaxLine) {
            return {};
        }
        line.push_back(static_cast<char>(letter));
    }
    return line;
}

int parse_side(const std::string& digits) {
    int value = 0;
    const char* end = digits.data() + digits.size();
    const auto result = std::from_chars(digits.data(), end, value);
    const bool fits = result.ec == std::errc{} && result.ptr == end && value >= 16 &&
                      value <= Y4mSource::kMaxSide && value % 2 == 0;
    return fits ? value : 0;
}

bool read_plane(std::istream& in, std::vector<uint8_t>& plane) {
    const auto size = static_cast<std::streamsize>(plane.size());
    return static_cast<bool>(in.read(reinterpret_cast<char*>(plane.data()), size));
}

bool is_eight_bit_420(const std::string& colour_space) {
    return colour_space == "420" || colour_space == "420jpeg" || colour_space == "420mpeg2" ||
           colour_space == "420paldv";
}

}  // namespace

Y4mSource::Y4mSource(const std::string& path) : file_(path, std::ios::binary) {
    const auto refuse = [&](const char* why) {
        throw std::runtime_error("picture source " + path + ": " + why);
    };
    if (!file_) {
        refuse("cannot be opened");
    }
    std::istringstream header(read_line(file_));
    std::string token;
    header >> token;
    if (token != "YUV4MPEG2") {
        refuse("is not a YUV4MPEG2 file");
    }
    int width = 0;
    int height = 0;
    std::string colour_space = "420";
    while (header >> token) {
        const std::string value = token.substr(1);
        switch (token[0]) {
            case 'W':
                width = parse_side(value);
                break;
            case 'H':
                height = parse_side(value);
                break;
            case 'C':
                colour_space = value;
                break;
            default:
                break;
        }
    }
    if (width == 0 || height == 0) {
        refuse("width and height must be even, from 16 to 4096");
    }
    if (!is_eight_bit_420(colour_space)) {
        refuse("only 4:2:0 with 8 bits is supported");
    }
    picture_.resize(width, height);
    first_ = file_.tellg();
    if (!read_picture()) {
        refuse("has no complete picture");
    }
    next_tick_ = 1;
}

Region Y4mSource::base_view() const {
    return {0, 0, static_cast<double>(picture_.width), static_cast<double>(picture_.height)};
}

const Picture& Y4mSource::at(uint64_t tick) {
    // Skipped ticks skip pictures. A long gap cannot become a long loop: sixteen pictures at most.
    if (tick >= next_tick_ + 16) {
        next_tick_ = tick;
    }
    for (; next_tick_ <= tick; ++next_tick_) {
        if (!read_picture()) {
            file_.clear();
            file_.seekg(first_);
            if (!read_picture()) {
                break;  // the file was cut short meanwhile: the last picture stays
            }
        }
    }
    return picture_;
}

bool Y4mSource::read_picture() {
    return read_line(file_).rfind("FRAME", 0) == 0 && read_plane(file_, picture_.y) &&
           read_plane(file_, picture_.u) && read_plane(file_, picture_.v);
}

}  // namespace virtcam::model
