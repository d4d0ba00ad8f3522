// One picture that shows a picture of each stream side by side.
#pragma once

#include <filesystem>
#include <string>
#include <vector>

#include "host/pictures/picture.h"

namespace camhost {

struct ContactSheetTile {
    std::string label;
    RgbPicture picture;
};

/// The tiles in rows of at most four, each with its label below. Empty pictures show as a dark
/// field. At least one tile.
RgbPicture make_contact_sheet(const std::vector<ContactSheetTile>& tiles);

}  // namespace camhost
