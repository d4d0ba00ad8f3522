#include "host/base/nearest_name.h"

#include <algorithm>

namespace camhost {

size_t edit_distance(std::string_view a, std::string_view b) {
    std::vector<std::vector<size_t>> cost(a.size() + 1, std::vector<size_t>(b.size() + 1));
    for (size_t i = 0; i <= a.size(); ++i) {
        cost[i][0] = i;
    }
    for (size_t j = 0; j <= b.size(); ++j) {
        cost[0][j] = j;
    }
    for (size_t i = 1; i <= a.size(); ++i) {
        for (size_t j = 1; j <= b.size(); ++j) {
            const size_t replace = cost[i - 1][j - 1] + (a[i - 1] == b[j - 1] ? 0 : 1);
            cost[i][j] = std::min({cost[i - 1][j] + 1, cost[i][j - 1] + 1, replace});
            if (i > 1 && j > 1 && a[i - 1] == b[j - 2] && a[i - 2] == b[j - 1]) {
                cost[i][j] = std::min(cost[i][j], cost[i - 2][j - 2] + 1);
            }
        }
    }
    return cost[a.size()][b.size()];
}

std::string nearest_name(std::string_view word, const std::vector<std::string>& names) {
    const std::string* best = nullptr;
    // More than a third of the letters wrong is another word, not a slip.
    size_t best_distance = std::max<size_t>(2, word.size() / 3) + 1;
    for (const std::string& name : names) {
        const bool begins_so = !word.empty() && name.starts_with(word);
        const size_t distance = begins_so ? 1 : edit_distance(word, name);
        if (distance < best_distance) {
            best_distance = distance;
            best = &name;
        }
    }
    return best != nullptr ? *best : std::string();
}

std::string suggestion(std::string_view word, const std::vector<std::string>& names) {
    const std::string nearest = nearest_name(word, names);
    return nearest.empty() ? std::string() : "; did you mean '" + nearest + "'?";
}

}  // namespace camhost
