// What Tab offers in camhost shell.
#pragma once

#include <string>
#include <vector>

namespace camhost {

/// The words that may stand where the user types `word`, given the line before it: commands, then
/// names of properties, then PROPERTY=VALUE where the values have names. `commands` are the shell's
/// own. Those that do not begin with `word` are left out; a name that wants a value ends in '='.
std::vector<std::string> completions(const std::vector<std::string>& commands,
                                     const std::string& before, const std::string& word);

}  // namespace camhost
