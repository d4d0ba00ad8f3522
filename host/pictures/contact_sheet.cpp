#include "host/pictures/contact_sheet.h"

#include <algorithm>

#include "host/pictures/bitmap_font.h"

namespace camhost {

namespace {

constexpr Size kPictureBox{320, 240};
constexpr int kMargin = 8;
constexpr int kLabelHeight = 2 * kCharacterCell.height + 4;
constexpr Size kCell{kPictureBox.width + kMargin, kPictureBox.height + kLabelHeight + kMargin};
constexpr int kColumns = 4;
constexpr uint8_t kBackground = 40;

void paste(RgbPicture* sheet, const RgbPicture& picture, int left, int top) {
    for (int y = 0; y < picture.size.height; ++y) {
        const uint8_t* row = picture.pixel(0, y);
        std::copy(row, row + 3 * static_cast<ptrdiff_t>(picture.size.width),
                  sheet->pixel(left, top + y));
    }
}

}  // namespace

RgbPicture make_contact_sheet(const std::vector<ContactSheetTile>& tiles) {
    const int count = static_cast<int>(tiles.size());
    const int columns = std::clamp(count, 1, kColumns);
    const int rows = (count + columns - 1) / columns;
    RgbPicture sheet({kMargin + columns * kCell.width, kMargin + rows * kCell.height}, kBackground);
    for (int i = 0; i < count; ++i) {
        const int left = kMargin + i % columns * kCell.width;
        const int top = kMargin + i / columns * kCell.height;
        const ContactSheetTile& tile = tiles[static_cast<size_t>(i)];
        const RgbPicture small = tile.picture.empty() ? RgbPicture(kPictureBox, 0)
                                                      : shrink_to_fit(tile.picture, kPictureBox);
        paste(&sheet, small, left + (kPictureBox.width - small.size.width) / 2,
              top + (kPictureBox.height - small.size.height) / 2);
        draw_text(&sheet, left, top + kPictureBox.height + 4, 2, tile.label);
    }
    return sheet;
}

}  // namespace camhost
