#include "virtcam/model/counter_code.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstring>

namespace virtcam::model {
namespace {

constexpr int kColumns = 20;
constexpr int kRows = 2;
constexpr uint8_t kWhite = 220;
constexpr uint8_t kBlack = 32;
constexpr int kLeastContrast = 40;
constexpr size_t kSecondMark = 18;  // block at which the second "1 0" begins
constexpr int kLeastWidth = 160;
constexpr int kLeastHeight = 90;

using Blocks = std::array<bool, static_cast<size_t>(kColumns) * kRows>;

int row_height(int height) {
    return std::max(8, height / 24 / 2 * 2);
}

uint32_t check_bits(uint32_t counter) {
    uint32_t crc = 0;
    for (int bit = 31; bit >= 0; --bit) {
        const uint32_t carry = (crc >> 3 ^ counter >> bit) & 1;
        crc = (crc << 1 & 0xF) ^ (carry != 0 ? 0x3 : 0x0);
    }
    return crc;
}

Blocks encode(uint32_t counter) {
    Blocks blocks{};
    size_t at = 0;
    const auto push = [&](uint32_t value, int bits) {
        for (int bit = bits - 1; bit >= 0; --bit) {
            blocks[at++] = (value >> bit & 1) != 0;
        }
    };
    push(0b10, 2);
    push(counter >> 16, 16);
    push(0b10, 2);
    push(counter & 0xFFFF, 16);
    push(check_bits(counter), 4);
    return blocks;
}

struct Span {
    int from, to;
};

Span block_columns(int column, int width) {
    return {column * width / kColumns, (column + 1) * width / kColumns};
}

Span inner_half(Span span) {
    const int quarter = (span.to - span.from) / 4;
    return {span.from + quarter, span.to - quarter};
}

int block_average(const uint8_t* luma, int stride, Span columns, Span rows) {
    int sum = 0;
    for (int y = rows.from; y < rows.to; ++y) {
        for (int x = columns.from; x < columns.to; ++x) {
            sum += luma[static_cast<std::ptrdiff_t>(y) * stride + x];
        }
    }
    return sum / ((columns.to - columns.from) * (rows.to - rows.from));
}

}  // namespace

int counter_band_height(int height) {
    return kRows * row_height(height);
}

void draw_counter(uint8_t* luma, int width, int height, int stride, uint32_t counter) {
    const Blocks blocks = encode(counter);
    const int rows = row_height(height);
    for (int y = 0; y < counter_band_height(height); ++y) {
        uint8_t* row = luma + static_cast<std::ptrdiff_t>(y) * stride;
        for (int column = 0; column < kColumns; ++column) {
            const Span span = block_columns(column, width);
            const int block = y / rows * kColumns + column;
            const bool white = blocks[static_cast<size_t>(block)];
            std::memset(row + span.from, white ? kWhite : kBlack,
                        static_cast<size_t>(span.to - span.from));
        }
    }
}

std::optional<uint32_t> read_counter(const uint8_t* luma, int width, int height, int stride) {
    if (width < kLeastWidth || height < kLeastHeight || stride < width) {
        return std::nullopt;
    }
    const int rows = row_height(height);
    std::array<int, std::tuple_size_v<Blocks>> averages{};
    for (int i = 0; i < static_cast<int>(averages.size()); ++i) {
        const int row = i / kColumns * rows;
        averages[static_cast<size_t>(i)] =
            block_average(luma, stride, inner_half(block_columns(i % kColumns, width)),
                          inner_half({row, row + rows}));
    }
    const int white = (averages[0] + averages[kSecondMark]) / 2;
    const int black = (averages[1] + averages[kSecondMark + 1]) / 2;
    if (white - black < kLeastContrast) {
        return std::nullopt;
    }
    size_t at = 0;
    const auto next = [&](int count) {
        uint32_t value = 0;
        for (int i = 0; i < count; ++i) {
            value = value << 1 | (averages[at++] > (white + black) / 2 ? 1U : 0U);
        }
        return value;
    };
    const bool head = next(2) == 0b10;
    const uint32_t high = next(16);
    const bool tail = next(2) == 0b10;
    const uint32_t counter = high << 16 | next(16);
    if (!head || !tail || next(4) != check_bits(counter)) {
        return std::nullopt;
    }
    return counter;
}

}  // namespace virtcam::model
