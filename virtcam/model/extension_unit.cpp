#include "virtcam/model/extension_unit.h"

namespace virtcam::model {
namespace {

/// Last reply of a result selector, zeros before any.
Bytes reply_of(const CommandState& state, const usb::ExtensionBlock& block) {
    const auto found = state.replies.find(block.selector);
    return found == state.replies.end() ? Bytes(block.length, 0) : found->second;
}

}  // namespace

bool ExtensionUnit::set(uint8_t selector, ByteView block) {
    const usb::ExtensionBlock* form = usb::extension_block(selector);
    if (form == nullptr || block.size() != form->length) {
        return false;
    }
    const Command* command = find_command(selector, block);
    return command != nullptr && knows(personality_, command->known) &&
           execute(*command, state_, block);
}

std::optional<Bytes> ExtensionUnit::get(uint8_t request, uint8_t selector) const {
    const usb::ExtensionBlock* block = usb::extension_block(selector);
    if (block == nullptr) {
        return std::nullopt;
    }
    switch (request) {
        case usb::kGetLen:
            return Bytes{static_cast<uint8_t>(block->length), 0};
        case usb::kGetInfo:
            return Bytes{block->result ? usb::kInfoGet : usb::kInfoSet};
        default:
            return block->result ? result(request, *block) : std::nullopt;
    }
}

std::optional<Bytes> ExtensionUnit::result(uint8_t request,
                                           const usb::ExtensionBlock& block) const {
    switch (request) {
        case usb::kGetCur:
            return reply_of(state_, block);
        case usb::kGetMin:
        case usb::kGetDef:
            return Bytes(block.length, 0x00);
        case usb::kGetMax:
            return Bytes(block.length, 0xFF);
        case usb::kGetRes:
            return Bytes(block.length, 0x01);
        default:
            return std::nullopt;
    }
}

}  // namespace virtcam::model
