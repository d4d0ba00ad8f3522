// The camera's own commands: one table for what a host sends, what the traces call it, what the
// camera does, and where the status shows it. docs/vendor-commands.md holds the same rows for
// people. A command without a row stalls.
#pragma once

#include <array>
#include <cstdint>
#include <nlohmann/json_fwd.hpp>
#include <optional>
#include <span>
#include <string>
#include <string_view>

#include "virtcam/model/bytes.h"
#include "virtcam/model/command_state.h"
#include "virtcam/model/descriptors.h"
#include "virtcam/model/setup.h"

namespace virtcam::model {

/// Who takes a command.
enum class Known : uint8_t {
    kRunTime,       ///< the running camera
    kAlways,        ///< the boot code, too
    kBulkDownload,  ///< the boot code that has a download interface, and nobody else
};

bool knows(Personality personality, Known known);

/// A number in a block, little-endian.
struct Field {
    std::string_view name;
    uint8_t at = 0;           ///< offset in the block, bytes
    uint8_t width = 0;        ///< bytes, 1 to 8; 0: no field
    bool high_first = false;  ///< big-endian after all
    bool hexadecimal = false;
    std::string_view (*word)(uint64_t) = nullptr;  ///< what traces show instead of the number
};

using Fields = std::array<Field, kMostNumbers>;  ///< up to the first of width 0

/// First bytes of a block.
struct Head {
    static constexpr uint16_t kAny = 0x100;  ///< a byte that may have any value
    uint8_t length = 0;
    std::array<uint16_t, 8> bytes{};
};

using Effect = bool (*)(CommandState& state, Call& call);
using Shown = void (*)(const Settings& settings, nlohmann::json& status);

/// A block written with SET_CUR to a selector of the extension unit. `text` is what traces say,
/// with "{}" for each field in turn.
struct Command {
    uint8_t selector;
    Head head;
    std::string_view text;
    Fields fields;
    Effect effect;
    Shown shown = nullptr;  ///< null: not in the status
    Field reply = {};       ///< of the group's result block, which is zero elsewhere
    Known known = Known::kRunTime;
};

/// A vendor request to the device. Its block is the data stage; where it has none, the four bytes
/// of wValue and wIndex.
struct VendorRequest {
    uint8_t request;
    bool device_to_host;
    uint16_t length;  ///< of the data stage, bytes
    std::string_view text;
    Fields fields;
    Effect effect;
    Known known;
};

std::span<const Command> commands();
std::span<const VendorRequest> vendor_requests();

/// Row of a block, which has the length of its selector; null: unknown.
const Command* find_command(uint8_t selector, ByteView block);
const VendorRequest* find_request(const Setup& setup);

/// Carries out a command and keeps its reply. False: stall.
bool execute(const Command& command, CommandState& state, ByteView block);
/// Carries out a vendor request; the data for the host, or nothing: stall.
std::optional<Bytes> execute(const VendorRequest& request, CommandState& state, const Setup& setup,
                             ByteView out);

/// What traces say, the numbers of `block` or `data` filled in; those behind its end count as 0.
std::string in_words(const Command& command, ByteView block);
std::string in_words(const VendorRequest& request, const Setup& setup, ByteView data);

/// Bytes of a block as documentation writes them: "08 FF rate:2" (two fixed bytes and a number of
/// two bytes), "FF 0C setting:2be" (high byte first), "-" for a byte that the camera does not look
/// at.
std::string layout(const Head& head, const Fields& fields);

}  // namespace virtcam::model
