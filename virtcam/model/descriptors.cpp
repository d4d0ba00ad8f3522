#include "virtcam/model/descriptors.h"

#include <array>
#include <initializer_list>
#include <string_view>

#include "virtcam/model/stream_plan.h"
#include "virtcam/model/usb.h"
#include "virtcam/model/video_formats.h"

namespace virtcam::model::descriptors {
namespace {

constexpr uint8_t kDevice = 1;
constexpr uint8_t kConfiguration = 2;
constexpr uint8_t kString = 3;
constexpr uint8_t kInterface = 4;
constexpr uint8_t kEndpoint = 5;
constexpr uint8_t kQualifier = 6;
constexpr uint8_t kAssociation = 11;
constexpr uint8_t kCsInterface = 0x24;
constexpr uint8_t kCsEndpoint = 0x25;

constexpr uint8_t kClassAudio = 0x01;
constexpr uint8_t kClassVideo = 0x0E;
constexpr uint8_t kClassVendor = 0xFF;

// Tail that all GUIDs made from a FOURCC share (UVC 1.00, A.3 and the payload format documents).
constexpr std::array<uint8_t, 12> kFourccTail{0x00, 0x00, 0x10, 0x00, 0x80, 0x00,
                                              0x00, 0xAA, 0x00, 0x38, 0x9B, 0x71};
constexpr std::array<uint8_t, 16> kExtensionGuid{0x41, 0x49, 0x54, 0x58, 0x9A, 0x2B, 0x4C, 0x5D,
                                                 0x8E, 0x6F, 0x70, 0x81, 0x92, 0xA3, 0xB4, 0xC5};
constexpr uint8_t kExtensionControlBytes = 3;  // of bmControls
// Focus, zoom and pan/tilt (absolute) of the camera terminal.
constexpr uint32_t kCameraControls = 0x000A20;
// Brightness, contrast, hue, saturation, sharpness, gamma, white balance, backlight, gain, mains
// frequency, automatic white balance.
constexpr uint32_t kProcessingControls = 0x00177F;

/// Grows a descriptor list; bLength and total lengths are patched in when they are known.
class Writer {
  public:
    void raw(std::initializer_list<uint8_t> bytes) { bytes_.insert(bytes_.end(), bytes); }
    void raw(ByteView bytes) { bytes_.insert(bytes_.end(), bytes.begin(), bytes.end()); }
    void u16(uint32_t value) { append_le(bytes_, 2, value); }
    void u24(uint32_t value) { append_le(bytes_, 3, value); }
    void u32(uint32_t value) { append_le(bytes_, 4, value); }
    size_t size() const { return bytes_.size(); }

    /// Opens a descriptor: its length is set by the matching end().
    void begin(uint8_t type) {
        start_ = bytes_.size();
        raw({0, type});
    }
    void end() { bytes_[start_] = static_cast<uint8_t>(bytes_.size() - start_); }
    void patch_u16(size_t at, size_t value) {
        store_le(bytes_, at, 2, static_cast<uint32_t>(value));
    }
    Bytes take() { return std::move(bytes_); }

  private:
    Bytes bytes_;
    size_t start_ = 0;
};

void interface(Writer& w, uint8_t number, uint8_t alternate, uint8_t endpoints,
               uint8_t device_class, uint8_t subclass, uint8_t string) {
    w.raw({9, kInterface, number, alternate, endpoints, device_class, subclass, 0, string});
}

void association(Writer& w, uint8_t first, uint8_t device_class, uint8_t subclass, uint8_t string) {
    w.raw({8, kAssociation, first, 2, device_class, subclass, 0, string});
}

void bulk_endpoint(Writer& w, uint8_t address) {
    w.raw({7, kEndpoint, address, 2});
    w.u16(512);
    w.raw({0});
}

/// bmControls: bit 0 stands for selector 1.
uint32_t extension_controls() {
    uint32_t bits = 0;
    for (const usb::ExtensionBlock& block : usb::kExtensionBlocks) {
        bits |= 1U << (block.selector - 1);
    }
    return bits;
}

void extension_unit(Writer& w, uint8_t source) {
    w.begin(kCsInterface);
    w.raw({6, usb::kEntityExtensionUnit});
    w.raw(kExtensionGuid);
    w.raw({static_cast<uint8_t>(usb::kExtensionBlocks.size()), 1, source, kExtensionControlBytes});
    w.u24(extension_controls());
    w.raw({0});
    w.end();
}

void camera_terminal(Writer& w) {
    w.begin(kCsInterface);
    w.raw({2, usb::kEntityCameraTerminal});
    w.u16(0x0201);  // ITT_CAMERA
    w.raw({0, 0});
    w.raw({0, 0, 0, 0, 0, 0});  // focal lengths unknown
    w.raw({3});
    w.u24(kCameraControls);
    w.end();
}

void processing_unit(Writer& w) {
    w.begin(kCsInterface);
    w.raw({5, usb::kEntityProcessingUnit, usb::kEntityCameraTerminal});
    w.u16(0);
    w.raw({2});
    w.u16(kProcessingControls);
    w.raw({0});
    w.raw({0});  // bmVideoStandards: none
    w.end();
}

void output_terminal(Writer& w, uint8_t id, uint8_t source) {
    w.begin(kCsInterface);
    w.raw({3, id});
    w.u16(0x0101);  // TT_STREAMING
    w.raw({0, source, 0});
    w.end();
}

void video_control(Writer& w) {
    interface(w, usb::kInterfaceVideoControl, 0, 0, kClassVideo, 1, 2);
    const size_t header = w.size();
    w.begin(kCsInterface);
    w.raw({1});
    w.u16(0x0110);  // bcdUVC: the first with frame-based formats
    w.u16(0);       // total length, below
    w.u32(48000000);
    w.raw({1, usb::kInterfaceVideoStreaming});
    w.end();
    camera_terminal(w);
    processing_unit(w);
    extension_unit(w, usb::kEntityProcessingUnit);
    output_terminal(w, usb::kEntityOutputTerminal, usb::kEntityExtensionUnit);
    w.patch_u16(header + 5, w.size() - header);
}

void fourcc_guid(Writer& w, std::string_view fourcc) {
    for (const char letter : fourcc) {
        w.raw({static_cast<uint8_t>(letter)});
    }
    w.raw(kFourccTail);
}

void video_format(Writer& w, uint8_t index, const VideoFormat& format) {
    const auto frames = static_cast<uint8_t>(format.frames.size());
    w.begin(kCsInterface);
    switch (format.kind) {
        case FormatKind::kYuy2:
        case FormatKind::kNv12: {
            const bool packed = format.kind == FormatKind::kYuy2;
            w.raw({4, index, frames});
            fourcc_guid(w, packed ? "YUY2" : "NV12");
            w.raw({static_cast<uint8_t>(packed ? 16 : 12), 1, 0, 0, 0, 0});
            break;
        }
        case FormatKind::kMjpeg:
            w.raw({6, index, frames, 0, 1, 0, 0, 0, 0});
            break;
        case FormatKind::kMultiplexed:
            // Hosts list only formats that they know; the first thing in a frame is H.264, behind
            // the camera's own 32-byte header.
            w.raw({0x10, index, frames});
            fourcc_guid(w, "H264");
            w.raw({16, 1, 0, 0, 0, 0, 1});
            break;
    }
    w.end();
}

uint8_t frame_subtype(FormatKind kind) {
    switch (kind) {
        case FormatKind::kMjpeg:
            return 7;
        case FormatKind::kMultiplexed:
            return 0x11;
        default:
            return 5;
    }
}

/// dwMinBitRate and dwMaxBitRate.
BitRates bit_rates(const VideoFormat& format, FrameSize size) {
    if (format.kind == FormatKind::kMultiplexed) {
        return multiplexed_bit_rates(size);
    }
    const uint64_t bits = uint64_t{max_frame_bytes(format, size)} * 8;
    const auto per_second = [bits](uint32_t interval) {
        return static_cast<uint32_t>(bits * 10000000 / interval);
    };
    return {per_second(format.intervals.back()), per_second(format.intervals.front())};
}

void video_frame(Writer& w, uint8_t index, const VideoFormat& format, FrameSize size) {
    const BitRates rates = bit_rates(format, size);
    w.begin(kCsInterface);
    w.raw({frame_subtype(format.kind), index, 0});
    w.u16(size.width);
    w.u16(size.height);
    w.u32(rates.least);
    w.u32(rates.most);
    if (format.kind != FormatKind::kMultiplexed) {
        w.u32(max_frame_bytes(format, size));
    }
    w.u32(format.default_interval);
    w.raw({static_cast<uint8_t>(format.intervals.size())});
    if (format.kind == FormatKind::kMultiplexed) {
        w.u32(0);  // dwBytesPerLine: variable
    }
    for (const uint32_t interval : format.intervals) {
        w.u32(interval);
    }
    w.end();
}

void video_streaming(Writer& w) {
    const auto formats = video_formats();
    interface(w, usb::kInterfaceVideoStreaming, 0, 1, kClassVideo, 2, 0);
    const size_t header = w.size();
    w.begin(kCsInterface);
    w.raw({1, static_cast<uint8_t>(formats.size())});
    w.u16(0);  // total length, below
    w.raw({usb::kEndpointVideo, 0, usb::kEntityOutputTerminal, 0, 0, 0, 1});
    for (size_t i = 0; i < formats.size(); ++i) {
        w.raw({0});
    }
    w.end();
    for (size_t f = 0; f < formats.size(); ++f) {
        video_format(w, static_cast<uint8_t>(f + 1), formats[f]);
        for (size_t i = 0; i < formats[f].frames.size(); ++i) {
            video_frame(w, static_cast<uint8_t>(i + 1), formats[f], formats[f].frames[i]);
        }
        if (formats[f].kind != FormatKind::kMultiplexed) {
            w.raw({6, kCsInterface, 0x0D, 1, 1, 4});  // colour matching: BT.709, SMPTE 170M
        }
    }
    w.patch_u16(header + 4, w.size() - header);
    bulk_endpoint(w, usb::kEndpointVideo);
}

void audio_control(Writer& w) {
    interface(w, usb::kInterfaceAudioControl, 0, 0, kClassAudio, 1, 0);
    const size_t header = w.size();
    w.begin(kCsInterface);
    w.raw({1});
    w.u16(0x0100);
    w.u16(0);  // total length, below
    w.raw({1, usb::kInterfaceAudioStreaming});
    w.end();
    w.raw({12, kCsInterface, 2, 1, 0x01, 0x02, 0, 2, 3, 0, 0, 0});  // microphone, left and right
    w.raw({10, kCsInterface, 6, usb::kEntityFeatureUnit, 1, 1, 3, 0, 0, 0});  // mute, volume
    output_terminal(w, 3, usb::kEntityFeatureUnit);
    w.patch_u16(header + 5, w.size() - header);
}

void audio_streaming(Writer& w) {
    interface(w, usb::kInterfaceAudioStreaming, 0, 0, kClassAudio, 2, 0);
    interface(w, usb::kInterfaceAudioStreaming, 1, 1, kClassAudio, 2, 0);
    w.raw({7, kCsInterface, 1, 3, 1, 1, 0});  // terminal 3, PCM
    w.begin(kCsInterface);
    w.raw({2, 1, 2, 2, 16, 2});  // type I, 2 channels of 2 bytes, 2 rates
    w.u24(16000);
    w.u24(24000);
    w.end();
    w.raw({9, kEndpoint, usb::kEndpointAudio, 5});  // isochronous, asynchronous
    w.u16(usb::kAudioPacketBytes);
    w.raw({4, 0, 0});                        // 2^(4-1) microframes: 1 ms
    w.raw({7, kCsEndpoint, 1, 1, 0, 0, 0});  // sampling frequency control
}

void boot_interfaces(Writer& w, Personality personality) {
    // The extension unit answers here without a descriptor: on an interface of the vendor's class
    // nobody could read one, and a video class would let video drivers take the boot code.
    interface(w, 0, 0, 0, kClassVendor, 0, 0);
    if (personality == Personality::kBootNewer) {
        interface(w, 1, 0, 0, kClassVendor, 0, 0);
        interface(w, usb::kInterfaceDownload, 0, 1, kClassVendor, 0, 0);
        bulk_endpoint(w, usb::kEndpointDownload);
    }
}

uint8_t interface_count(Personality personality) {
    switch (personality) {
        case Personality::kBootOlder:
            return 1;
        case Personality::kBootNewer:
            return 3;
        case Personality::kRunTime:
            break;
    }
    return 4;
}

}  // namespace

Bytes device(Personality personality, const CameraConfig& config) {
    const bool run_time = personality == Personality::kRunTime;
    Writer w;
    w.raw({18, kDevice});
    w.u16(0x0200);
    if (run_time) {
        w.raw({0xEF, 2, 1});  // interface associations
    } else {
        w.raw({kClassVendor, 0, 0});
    }
    w.raw({64});
    w.u16(config.vendor_id);
    w.u16(run_time ? config.product_id : usb::kProductBootCode);
    w.u16(0x0100);
    w.raw({1, 2, 3, 1});
    return w.take();
}

Bytes device_qualifier(Personality personality) {
    Writer w;
    w.raw({10, kQualifier});
    w.u16(0x0200);
    if (personality == Personality::kRunTime) {
        w.raw({0xEF, 2, 1});
    } else {
        w.raw({kClassVendor, 0, 0});
    }
    w.raw({64, 0, 0});
    return w.take();
}

Bytes configuration(Personality personality) {
    Writer w;
    w.raw({9, kConfiguration, 0, 0, interface_count(personality), 1, 0, 0x80, 250});
    if (personality == Personality::kRunTime) {
        association(w, usb::kInterfaceVideoControl, kClassVideo, 3, 2);
        video_control(w);
        video_streaming(w);
        association(w, usb::kInterfaceAudioControl, kClassAudio, 1, 2);
        audio_control(w);
        audio_streaming(w);
    } else {
        boot_interfaces(w, personality);
    }
    w.patch_u16(2, w.size());
    return w.take();
}

std::string text(Personality personality, uint8_t index) {
    switch (index) {
        case 1:
            return "Aitorix";
        case 2:
            return personality == Personality::kRunTime ? "Aitorix TV Camera"
                                                        : "Aitorix TV Camera (boot code)";
        case 3:
            return "VC000001";
        default:
            return {};
    }
}

Bytes string(Personality personality, uint8_t index) {
    if (index == 0) {
        return {4, kString, 0x09, 0x04};
    }
    const std::string ascii = text(personality, index);
    if (ascii.empty()) {
        return {};
    }
    Writer w;
    w.begin(kString);
    for (const char letter : ascii) {
        w.u16(static_cast<uint8_t>(letter));
    }
    w.end();
    return w.take();
}

bool has_alternate(Personality personality, uint8_t number, uint8_t alternate) {
    if (number >= interface_count(personality)) {
        return false;
    }
    const bool streams_audio =
        personality == Personality::kRunTime && number == usb::kInterfaceAudioStreaming;
    return alternate <= (streams_audio ? 1 : 0);
}

bool has_endpoint(Personality personality, uint8_t address) {
    switch (personality) {
        case Personality::kBootNewer:
            return address == usb::kEndpointDownload;
        case Personality::kBootOlder:
            return false;
        case Personality::kRunTime:
            break;
    }
    return address == usb::kEndpointVideo || address == usb::kEndpointAudio;
}

}  // namespace virtcam::model::descriptors
