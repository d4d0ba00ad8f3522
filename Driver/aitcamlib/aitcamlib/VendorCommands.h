// Everything that this maker's cameras understand beyond the USB classes: the commands of the
// extension unit (UVC entity 6) and the vendor requests. Whoever sends one calls it by its name
// here, so that a search for the name finds every sender; a number of theirs stands nowhere else.
//
// A command is a block of fixed size, written with SET_CUR to the selector of its group: the opcode,
// parameters (little-endian unless it says otherwise), zeros. Where it has an answer, that is a block
// of the same size, read with GET_CUR from the group's result selector before the next command.
//
// Two roads lead there. The camera object goes through the video engine (AitCommandSend,
// AitCommandGet), which addresses interface 0 and waits up to 5 s. The firmware loader, which works
// before there is an engine and has a handle of its own, goes through AitXu.h: to the device, as the
// camera expects it there, and with shorter time-outs. The blocks are the same on both.
#pragma once

#include <stdint.h>
#include <string.h>

namespace xu {

/// A kind of commands: the selectors of command and answer, and the bytes of either.
struct Group {
    uint8_t command;
    uint8_t result;
    uint8_t size;
};

inline constexpr Group kIsp = {1, 2, 8};     ///< picture and encoder
inline constexpr Group kAux = {4, 5, 8};     ///< what surrounds them: light, sound, flash
inline constexpr Group kMmp = {14, 15, 16};  ///< streams
constexpr int kLargestBlock = 16;

/// Selector that takes an image in raw pieces.
constexpr uint8_t kFirmwareData = 3;
constexpr uint8_t kFirmwarePiece = 32;  ///< bytes

/// A command: how its block begins, and where the parameter goes that its sender fills in.
struct Command {
    Group group;
    uint8_t opcode[3];
    uint8_t valueAt = 0;
};

// --- ISP

inline constexpr Command kFrameRate = {kIsp, {0x02}, 1};      ///< u16, frames/s
inline constexpr Command kKeyFrame = {kIsp, {0x04}};          ///< asks for one
inline constexpr Command kBitrate = {kIsp, {0x08, 0xFF}, 2};  ///< u16, kbit/s
/// Register, u16; answer: its value, u16 at 2.
inline constexpr Command kReadSensorRegister = {kIsp, {0x0A, 0x02}, 2};
/// Register and value, both u16.
inline constexpr Command kWriteSensorRegister = {kIsp, {0x0A, 0x03}, 2};
/// Answer: status (0 is good), then the six version bytes at 2.
inline constexpr Command kFirmwareVersion = {kIsp, {0x0B}};
/// StreamTarget: the stream that kBitrate and kFrameRate address from now on.
inline constexpr Command kRateTarget = {kIsp, {0x0D}, 1};
inline constexpr Command kWideDynamicRange = {kIsp, {0x0E}, 1};  ///< u8
/// Answer: the reading, u16 at 2.
inline constexpr Command kAmbientLight = {kIsp, {0x12}};
inline constexpr Command kImageEffect = {kIsp, {0xFF, 0x0B}, 2};   ///< u8, number of the effect
inline constexpr Command kThreeA = {kIsp, {0xFF, 0x0C}, 2};        ///< u16, high byte first
inline constexpr Command kColourEffect = {kIsp, {0xFF, 0x0D}, 2};  ///< u8, number of the effect

// --- MMP

/// Combination of streams (which is the signal type), u8, and PreviewMode, u8; behind them, where
/// the mode has them: origin and size of the crop area, then the scaled size, six u16 in pixels.
inline constexpr Command kPreviewParameters = {kMmp, {0x01}, 1};
/// Answer: the option word, u32 at 1.
inline constexpr Command kReadVideoOption = {kMmp, {0x02, 0x01}};
inline constexpr Command kWriteVideoOption = {kMmp, {0x02, 0x02}, 2};  ///< u32 of VideoOption
inline constexpr Command kTriggerJpeg = {kMmp, {0x03}};                ///< one picture
inline constexpr Command kNv12Mode = {kMmp, {0x04}, 1};                ///< u8
inline constexpr Command kFlashProtection = {kMmp, {0x07}, 1};         ///< FlashProtection
/// Answer, 2 s later: 0 at 0 when all is well.
inline constexpr Command kVideoTest = {kMmp, {0x12}};
/// PreviewMode, u8, then origin and size of the crop area, four u16.
inline constexpr Command kGrayCrop = {kMmp, {0x13}, 1};
inline constexpr Command kPreviewMode = {kMmp, {0x20}, 1};  ///< u8
inline constexpr Command kNv12Size = {kMmp, {0x2D}, 1};     ///< u8: 0 for 640x480, else 864x486

// --- auxiliary

inline constexpr Command kFirmwareBegin = {kAux, {0x01, 0x00, 0x03}};  ///< then kFirmwareData
inline constexpr Command kFirmwareBurn = {kAux, {0x01, 0x01, 0x03}};
inline constexpr Command kLight = {kAux, {0x0E, 0x00}, 2};    ///< u8: on when not 0
inline constexpr Command kLocalViewSize = {kAux, {0x28}, 1};  ///< LocalView
/// Goes before each access to a register of the audio converter.
inline constexpr Command kAudioRegisterPreamble = {kAux, {0xFF, 0x00, 0x14}};
/// Register and value: u16, high byte first, and u8.
inline constexpr Command kWriteAudioRegister = {kAux, {0xFF, 0x01}, 2};
/// Register, u16, high byte first; answer: its value, u8 at 2.
inline constexpr Command kReadAudioRegister = {kAux, {0xFF, 0x02}, 2};

// --- what the parameters mean

enum StreamTarget : uint8_t {
    kMainStream = 0,
    kSubStream = 1,
};

enum PreviewMode : uint8_t {
    kSelectStreams = 0,
    kFaceTrackingOn = 5,
    kFaceTrackingOff = 6,
    kCropOriginGiven = 9,
    kCropOriginReset = 10,
};

/// Bits of the option word.
enum VideoOption : uint32_t {
    kMirror = 0x01,
    kFlip = 0x02,
    kFaceDetection = 0x08,
    kLocalMirror = 0x10,
    kGrayMirror = 0x20,
};

enum FlashProtection : uint8_t {
    kFlashUnlock = 0,
    kFlashProtectionOff = 2,
};

enum LocalView : uint8_t {
    kLocalViewOther = 0,
    kLocalView640x360 = 5,
    kLocalView800x450 = 11,
};

/// The bytes of a command on their way out, and of the answer that takes their place.
class Block {
  public:
    explicit Block(const Command& command, uint8_t value = 0)
        : group(command.group), m_nValueAt(command.valueAt) {
        memcpy(bytes, command.opcode, sizeof command.opcode);
        if (command.valueAt != 0) {
            bytes[command.valueAt] = value;
        }
    }
    /// Zeros, for an answer.
    explicit Block(const Group& ofGroup) : group(ofGroup), m_nValueAt(0) {}

    /// Where the command's parameters begin.
    unsigned char* Value() { return bytes + m_nValueAt; }

    Group group;
    unsigned char bytes[kLargestBlock] = {};

  private:
    uint8_t m_nValueAt;
};

}  // namespace xu

namespace vendor {

/// bRequest of the vendor requests, all to the device.
enum Request : uint8_t {
    kGetFaces = 1,          ///< answer: number of faces, u8, then ten rectangles of four u16
    kSetFaceParameter = 2,  ///< data: a FACE_CMD
    // Firmware by bulk transfers. Where it is not said otherwise, wValue and wIndex carry the low and
    // the high half of the image's size.
    kBurnDefault = 3,
    kBurnChip3 = 5,
    kBurnChip2 = 6,
    kCheckSum = 7,  ///< data: check sum, u64, and size, u32; wValue and wIndex 0
    kBurnChip4 = 8,
    kAnnounceImage = 130,  ///< the image follows on endpoint 1
};

}  // namespace vendor
