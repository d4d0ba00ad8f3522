#include "host/commands/shell_completion.h"

#include "host/base/text.h"
#include "host/properties/property_catalog.h"

namespace camhost {

namespace {

std::vector<std::string> readable_names() {
    std::vector<std::string> names;
    for (const Property& property : property_catalog()) {
        if (property.gettable) {
            names.emplace_back(property.name);
        }
    }
    return names;
}

std::vector<std::string> settable_names() {
    std::vector<std::string> names;
    for (const Property& property : property_catalog()) {
        if (property.settable) {
            names.push_back(std::string(property.name) +
                            (property.kind == ValueKind::kTrigger ? "" : "="));
        }
    }
    return names;
}

std::vector<std::string> assignments(const std::string& name) {
    const std::string head = name + "=";
    std::vector<std::string> words;
    for (const Property& property : property_catalog()) {
        if (property.settable && property.name == name) {
            for (const std::string& value : value_words(property)) {
                words.push_back(head + value);
            }
        }
    }
    return words;
}

std::vector<std::string> arguments(const std::string& command, const std::string& word) {
    if (command == "get") {
        return readable_names();
    }
    if (command != "set") {
        return {};
    }
    const size_t equals = word.find('=');
    return equals == std::string::npos ? settable_names() : assignments(word.substr(0, equals));
}

}  // namespace

std::vector<std::string> completions(const std::vector<std::string>& commands,
                                     const std::string& before, const std::string& word) {
    const auto earlier = words_of(before);
    std::vector<std::string> found = earlier.empty() ? commands : arguments(earlier.front(), word);
    std::erase_if(found, [&](const std::string& each) { return !each.starts_with(word); });
    return found;
}

}  // namespace camhost
