#include "virtcam/model/extension_unit.h"

#include <utility>

#include "virtcam/model/usb.h"

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
    Bytes answer;
    switch (request) {
        case usb::kGetLen:
            append_le(answer, 2, block->length);
            break;
        case usb::kGetInfo:
            answer.push_back(block->result ? usb::kInfoGet : usb::kInfoSet);
            break;
        case usb::kGetMin:
        case usb::kGetDef:
            answer.assign(block->length, 0x00);
            break;
        case usb::kGetMax:
            answer.assign(block->length, 0xFF);
            break;
        case usb::kGetRes:
            answer.assign(block->length, 0x01);
            break;
        case usb::kGetCur:
            answer = block->result ? reply_of(state_, *block) : Bytes{};
            break;
        default:
            break;
    }
    return answer.empty() ? std::nullopt : std::optional<Bytes>{std::move(answer)};
}

}  // namespace virtcam::model
