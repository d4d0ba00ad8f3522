// Configurations and failure rules of the virtual camera: refused with a sentence, or taken and obeyed
// at points of every kind.
#include <cstddef>
#include <cstdint>
#include <stdexcept>
#include <string_view>

#include "virtcam/faults/rule_set.h"
#include "virtcam/line/config.h"

namespace {

using virtcam::faults::RuleSet;
using virtcam::faults::TransferKind;

template <typename Read>
void read_or_refuse(Read read) {
    try {
        read();
    } catch (const std::invalid_argument& refusal) {
        if (std::string_view(refusal.what()).empty()) {
            __builtin_trap();
        }
    }
}

/// Points of a short life.
void obey(RuleSet& rules) {
    constexpr uint8_t kData[] = {12, 2, 0, 0};
    for (int i = 0; i < 4; ++i) {
        rules.on_call("libusb_open", std::nullopt);
        rules.on_call("libusb_claim_interface", i);
        rules.on_control({0x21, 0x01, 0x0100, 0x0600, 8}, kData);
        rules.on_transfer(TransferKind::kBulk, 0x81, kData);
        rules.on_transfer(TransferKind::kIsochronous, 0x82, kData);
        rules.take_due(std::chrono::seconds(i));
        rules.next_due();
    }
    rules.strike_counts();
}

void read_rules(const nlohmann::json& text) {
    RuleSet rules;
    rules.add(text);
    obey(rules);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const auto text = nlohmann::json::parse(data, data + size, nullptr, /*allow_exceptions=*/false);
    if (text.is_discarded()) {
        return 0;
    }
    read_or_refuse([&] { read_rules(text); });
    read_or_refuse([&] {
        const auto config = virtcam::line::Config::from_json(text);
        read_rules(config.rules);
    });
    return 0;
}
