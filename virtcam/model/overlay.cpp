#include "virtcam/model/overlay.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <string>

#include "virtcam/model/counter_code.h"

namespace virtcam::model {
namespace {

constexpr int kGlyphWidth = 5;
constexpr int kGlyphHeight = 7;
constexpr int kCellWidth = kGlyphWidth + 1;
constexpr size_t kDigits = 6;

// Digits 0 to 9, five bits a row, the leftmost pixel in bit 4.
constexpr std::array<std::array<uint8_t, kGlyphHeight>, 10> kGlyphs{{
    {0x0E, 0x11, 0x13, 0x15, 0x19, 0x11, 0x0E},
    {0x04, 0x0C, 0x04, 0x04, 0x04, 0x04, 0x0E},
    {0x0E, 0x11, 0x01, 0x02, 0x04, 0x08, 0x1F},
    {0x1F, 0x02, 0x04, 0x02, 0x01, 0x11, 0x0E},
    {0x02, 0x06, 0x0A, 0x12, 0x1F, 0x02, 0x02},
    {0x1F, 0x10, 0x1E, 0x01, 0x01, 0x11, 0x0E},
    {0x06, 0x08, 0x10, 0x1E, 0x11, 0x11, 0x0E},
    {0x1F, 0x01, 0x02, 0x04, 0x08, 0x08, 0x08},
    {0x0E, 0x11, 0x11, 0x0E, 0x11, 0x11, 0x0E},
    {0x0E, 0x11, 0x11, 0x0F, 0x01, 0x02, 0x0C},
}};

std::string digits_of(uint32_t counter) {
    std::string text = std::to_string(counter % 1000000);
    return std::string(kDigits - text.size(), '0') + text;
}

void draw_digits(Picture& picture, int top, int scale, const std::string& text) {
    const int rows = std::min((kGlyphHeight + 2) * scale, picture.height - top);
    const int columns =
        std::min((static_cast<int>(text.size()) * kCellWidth + 1) * scale, picture.width);
    for (int y = 0; y < rows; ++y) {
        uint8_t* row = picture.row_y(top + y);
        std::memset(row, 24, static_cast<size_t>(columns));
        const int glyph_row = y / scale - 1;
        if (glyph_row < 0 || glyph_row >= kGlyphHeight) {
            continue;
        }
        for (int x = scale; x < columns; ++x) {
            const int cell = x / scale - 1;
            const auto digit =
                static_cast<size_t>(text[static_cast<size_t>(cell / kCellWidth)] - '0');
            const uint8_t pattern = kGlyphs[digit][static_cast<size_t>(glyph_row)];
            const int bit = kGlyphWidth - 1 - cell % kCellWidth;
            if (bit >= 0 && (pattern >> bit & 1) != 0) {
                row[x] = 225;
            }
        }
    }
}

void neutral_chroma(Picture& picture, int rows, int columns) {
    for (int y = 0; y < std::min(rows / 2, picture.chroma_height()); ++y) {
        const auto count = static_cast<size_t>(std::min(columns / 2, picture.chroma_width()));
        std::memset(picture.row_u(y), 128, count);
        std::memset(picture.row_v(y), 128, count);
    }
}

}  // namespace

void draw_overlay(Picture& picture, uint32_t counter, bool luma_only) {
    const int band = counter_band_height(picture.height);
    draw_counter(picture.y.data(), picture.width, picture.height, picture.width, counter);
    const int scale = std::max(1, picture.height / 120);
    const std::string text = digits_of(counter);
    draw_digits(picture, band, scale, text);
    if (!luma_only) {
        neutral_chroma(picture, band, picture.width);
        neutral_chroma(picture, band + (kGlyphHeight + 2) * scale,
                       static_cast<int>(text.size() * kCellWidth + 1) * scale);
    }
}

}  // namespace virtcam::model
