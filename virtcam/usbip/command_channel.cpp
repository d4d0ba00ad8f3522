#include "virtcam/usbip/command_channel.h"

#include <charconv>
#include <nlohmann/json.hpp>
#include <stdexcept>

namespace virtcam::usbip {
namespace {

using nlohmann::json;

std::chrono::milliseconds parse_milliseconds(std::string_view text) {
    constexpr unsigned kMost = 600'000;
    unsigned number = 0;
    const auto [rest, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    if (error != std::errc{} || rest != text.data() + text.size() || number > kMost) {
        throw std::invalid_argument("wanted: milliseconds, 0 to 600000");
    }
    return std::chrono::milliseconds(number);
}

/// Returns the answer, or throws std::exception with a sentence.
std::string execute(std::string_view name, std::string_view rest, Bench& bench, LinkControl& link) {
    if (name == "status") {
        return bench.status().dump();
    }
    if (name == "strikes") {
        return json(bench.rules().strike_counts()).dump();
    }
    if (name == "plug") {
        bench.run(faults::DeviceAction::kPlug);
    } else if (name == "unplug") {
        bench.run(faults::DeviceAction::kUnplug);
    } else if (name == "power-cycle") {
        bench.run(faults::DeviceAction::kPowerCycle);
    } else if (name == "reset") {
        bench.reset(line::Config::from_json(rest.empty() ? json() : json::parse(rest)));
    } else if (name == "fault") {
        bench.rules().add(json::parse(rest));
    } else if (name == "no-faults") {
        bench.rules().clear();
    } else if (name == "mute") {
        link.mute();
    } else if (name == "late-unlinks") {
        link.answer_before_unlink();
    } else if (name == "freeze") {
        link.freeze(parse_milliseconds(rest));
    } else {
        throw std::invalid_argument("unknown command \"" + std::string(name) + "\"");
    }
    return "ok";
}

}  // namespace

std::string run_command(std::string_view line, Bench& bench, LinkControl& link) {
    const size_t space = line.find(' ');
    const std::string_view rest =
        space == std::string_view::npos ? std::string_view() : line.substr(space + 1);
    try {
        return execute(line.substr(0, space), rest, bench, link);
    } catch (const std::exception& error) {
        return std::string("error: ") + error.what();
    }
}

}  // namespace virtcam::usbip
