// "did you mean ...?"
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace camhost {

/// Letters to insert, delete, replace or swap to turn one word into the other.
size_t edit_distance(std::string_view a, std::string_view b);

/// The name nearest to `word`, or an empty text when none is near enough to be what was meant.
std::string nearest_name(std::string_view word, const std::vector<std::string>& names);

/// "; did you mean 'x'?" or an empty text.
std::string suggestion(std::string_view word, const std::vector<std::string>& names);

}  // namespace camhost
