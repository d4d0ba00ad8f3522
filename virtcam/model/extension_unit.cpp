#include "virtcam/model/extension_unit.h"

#include <algorithm>

#include "virtcam/model/usb.h"

namespace virtcam::model {
namespace {

using Outcome = ExtensionUnit::Outcome;

constexpr uint8_t kCodeCount = 9;   // stream-combination codes 0 to 8
constexpr uint8_t kModeSelect = 0;  // modes of MMP group 0x01
constexpr uint8_t kModeTrackingOn = 5;
constexpr uint8_t kModeTrackingOff = 6;
constexpr uint8_t kModeCropOrigin = 9;
constexpr uint8_t kModeCropReset = 10;

Outcome outcome(bool done) {
    return done ? Outcome::kDone : Outcome::kStall;
}

/// Crop modes 9 and 10, with the origin at `at`; false for another mode.
bool apply_crop(uint8_t mode, ByteView block, size_t at, std::optional<CropOrigin>& crop) {
    switch (mode) {
        case kModeCropOrigin:
            crop = CropOrigin{load_u16(block, at), load_u16(block, at + 2)};
            return true;
        case kModeCropReset:
            crop.reset();
            return true;
        default:
            return false;
    }
}

}  // namespace

ExtensionUnit::Outcome ExtensionUnit::set(uint8_t selector, ByteView block) {
    if (block.empty() || block.size() != usb::extension_length(selector)) {
        return Outcome::kStall;
    }
    switch (selector) {
        case usb::kIspCommand:
            return outcome(isp(block));
        case usb::kFirmwareData:
            return outcome(firmware_.piece(block));
        case usb::kAuxCommand:
            return auxiliary(block);
        case usb::kMmpCommand:
            return outcome(mmp(block));
        default:
            return Outcome::kStall;
    }
}

std::optional<Bytes> ExtensionUnit::get(uint8_t request, uint8_t selector, uint16_t length) const {
    const uint16_t block_length = usb::extension_length(selector);
    if (block_length == 0) {
        return std::nullopt;
    }
    const bool result = usb::is_extension_result(selector);
    Bytes answer;
    switch (request) {
        case usb::kGetLen:
            append_le(answer, 2, block_length);
            break;
        case usb::kGetInfo:
            answer.push_back(result ? usb::kInfoGet : usb::kInfoSet);
            break;
        case usb::kGetMin:
        case usb::kGetDef:
            answer.assign(block_length, 0x00);
            break;
        case usb::kGetMax:
            answer.assign(block_length, 0xFF);
            break;
        case usb::kGetRes:
            answer.assign(block_length, 0x01);
            break;
        case usb::kGetCur:
            if (selector == usb::kIspResult) {
                answer.assign(isp_reply_.begin(), isp_reply_.end());
            } else if (selector == usb::kAuxResult) {
                answer.assign(aux_reply_.begin(), aux_reply_.end());
            } else if (selector == usb::kMmpResult) {
                answer.assign(mmp_reply_.begin(), mmp_reply_.end());
            }
            break;
        default:
            break;
    }
    if (answer.empty() || answer.size() != length) {
        return std::nullopt;
    }
    return answer;
}

bool ExtensionUnit::isp(ByteView block) {
    StreamRate& rate = settings_.stream.rates[settings_.rate_target];
    switch (block[0]) {
        case 0x02:
            rate.fps = load_u16(block, 1);
            return true;
        case 0x04:
            requests_.key_frame = true;
            return true;
        case 0x08:
            if (block[1] != 0xFF) {
                return false;
            }
            rate.kbps = load_u16(block, 2);
            return true;
        case 0x0A:
            return isp_register(block);
        case 0x0B:
            isp_reply_ = {};
            std::copy(facts_.version.begin(), facts_.version.end(), isp_reply_.begin() + 2);
            return true;
        case 0x0D:
            return select_rate_target(block[1]);
        case 0x0E:
            settings_.wide_dynamic_range = block[1];
            return true;
        case 0x12:
            isp_reply_ = {};
            store_le(isp_reply_, 2, 2, facts_.lux);
            return true;
        case 0xFF:
            return isp_effect(block);
        default:
            return false;
    }
}

bool ExtensionUnit::isp_register(ByteView block) {
    const uint16_t address = load_u16(block, 2);
    if (block[1] == 0x03) {
        settings_.sensor_registers[address] = load_u16(block, 4);
        return true;
    }
    if (block[1] != 0x02) {
        return false;
    }
    const auto found = settings_.sensor_registers.find(address);
    isp_reply_ = {};
    store_le(isp_reply_, 2, 2, found == settings_.sensor_registers.end() ? 0 : found->second);
    return true;
}

bool ExtensionUnit::isp_effect(ByteView block) {
    switch (block[1]) {
        case 0x0B:
            settings_.stream.image_effect = block[2];
            return true;
        case 0x0C:  // the one field of the protocol that goes high byte first
            settings_.three_a = static_cast<uint16_t>(block[2] << 8 | block[3]);
            return true;
        case 0x0D:
            settings_.stream.colour_effect = block[2];
            return true;
        default:
            return false;
    }
}

bool ExtensionUnit::select_rate_target(uint8_t target) {
    if (target >= settings_.stream.rates.size()) {
        return false;
    }
    settings_.rate_target = target;
    return true;
}

ExtensionUnit::Outcome ExtensionUnit::auxiliary(ByteView block) {
    constexpr std::array<uint8_t, 8> kInit{0x01, 0x00, 0x03};
    constexpr std::array<uint8_t, 8> kBurn{0x01, 0x01, 0x03};
    if (std::equal(block.begin(), block.end(), kInit.begin())) {
        return outcome(firmware_.begin_pieces());
    }
    if (std::equal(block.begin(), block.end(), kBurn.begin())) {
        return firmware_.burn_pieces() ? Outcome::kBurned : Outcome::kStall;
    }
    return outcome(block[0] == 0xFF ? audio_register(block) : auxiliary_setting(block));
}

bool ExtensionUnit::auxiliary_setting(ByteView block) {
    switch (block[0]) {
        case 0x0E:
            if (block[1] != 0) {
                return false;
            }
            settings_.led = block[2] != 0;
            return true;
        case 0x28:
            if (block[1] != 0 && block[1] != 5 && block[1] != 11) {
                return false;
            }
            settings_.stream.local_size = block[1];
            return true;
        default:
            return false;
    }
}

bool ExtensionUnit::audio_register(ByteView block) {
    const auto address = static_cast<uint16_t>(block[2] << 8 | block[3]);
    switch (block[1]) {
        case 0x00:  // preamble: selects the audio codec
            return block[2] == 0x14;
        case 0x01:
            settings_.audio_registers[address] = block[4];
            return true;
        case 0x02: {
            const auto found = settings_.audio_registers.find(address);
            aux_reply_ = {};
            aux_reply_[2] = found == settings_.audio_registers.end() ? 0 : found->second;
            return true;
        }
        default:
            return false;
    }
}

bool ExtensionUnit::mmp(ByteView block) {
    switch (block[0]) {
        case 0x01:
            return preview_parameters(block);
        case 0x02:
            return video_option(block);
        case 0x03:
            return trigger_still();
        case 0x04:
            settings_.stream.nv12_mode = block[1];
            return true;
        case 0x07:
            return unlock_flash(block[1]);
        case 0x12:
            return self_test();
        case 0x13:
            return gray_crop(block);
        case 0x20:
            settings_.preview_mode = block[1];
            return true;
        case 0x2D:
            settings_.stream.nv12_wide = block[1] != 0;
            return true;
        default:
            return false;
    }
}

bool ExtensionUnit::preview_parameters(ByteView block) {
    const uint8_t mode = block[2];
    switch (mode) {
        case kModeSelect:
            if (block[1] >= kCodeCount) {
                return false;
            }
            settings_.stream.combination = block[1];
            return true;
        case kModeTrackingOn:
        case kModeTrackingOff:
            settings_.face_tracking = mode == kModeTrackingOn;
            return true;
        default:
            return apply_crop(mode, block, 3, settings_.stream.crop);
    }
}

bool ExtensionUnit::video_option(ByteView block) {
    switch (block[1]) {
        case 0x01:
            mmp_reply_ = {};
            store_le(mmp_reply_, 1, 4, settings_.stream.options);
            return true;
        case 0x02:
            settings_.stream.options = load_u32(block, 2);
            return true;
        default:
            return false;
    }
}

bool ExtensionUnit::gray_crop(ByteView block) {
    return apply_crop(block[1], block, 2, settings_.stream.gray_crop);
}

bool ExtensionUnit::trigger_still() {
    const uint8_t code = settings_.stream.combination;
    if (code == 5 || code == 6) {
        requests_.still = true;
    }
    return true;
}

bool ExtensionUnit::unlock_flash(uint8_t step) {
    if (step == 0) {
        settings_.write_protect_step = 1;
        return true;
    }
    if (step != 2) {
        return false;
    }
    if (settings_.write_protect_step == 1) {
        settings_.write_protect_step = 2;
    }
    return true;
}

bool ExtensionUnit::self_test() {
    ++settings_.self_tests;
    mmp_reply_ = {};
    mmp_reply_[0] = facts_.self_test_result;
    return true;
}

}  // namespace virtcam::model
