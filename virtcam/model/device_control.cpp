// Control transfers: standard requests, class requests of the video and audio functions and of the
// extension unit, vendor requests of the download and of face detection.
#include "virtcam/model/commands.h"
#include "virtcam/model/device.h"
#include "virtcam/model/usb.h"

namespace virtcam::model {
namespace {

constexpr uint8_t kDescriptorDevice = 1;
constexpr uint8_t kDescriptorConfiguration = 2;
constexpr uint8_t kDescriptorString = 3;
constexpr uint8_t kDescriptorQualifier = 6;

uint8_t high(uint16_t value) {
    return static_cast<uint8_t>(value >> 8);
}

uint8_t low(uint16_t value) {
    return static_cast<uint8_t>(value & 0xFF);
}

uint8_t recipient(const Setup& setup) {
    return setup.request_type & usb::kRecipientMask;
}

std::optional<Bytes> done_if(bool done) {
    return done ? std::optional<Bytes>{Bytes{}} : std::nullopt;
}

std::optional<Bytes> non_empty(Bytes bytes) {
    return bytes.empty() ? std::nullopt : std::optional<Bytes>{std::move(bytes)};
}

/// A control of one byte that hosts can read only.
std::optional<Bytes> read_only(uint8_t request, uint8_t value) {
    switch (request) {
        case usb::kGetCur:
            return Bytes{value};
        case usb::kGetInfo:
            return Bytes{usb::kInfoGet};
        default:
            return std::nullopt;
    }
}

bool has_entity(uint8_t entity, bool streaming) {
    return entity == 0 ||
           (!streaming &&
            (entity == usb::kEntityCameraTerminal || entity == usb::kEntityProcessingUnit ||
             entity == usb::kEntityExtensionUnit || entity == usb::kEntityOutputTerminal));
}

bool is_error_code(uint8_t entity, uint8_t selector, bool streaming) {
    return entity == 0 &&
           selector == (streaming ? usb::kVsStreamErrorCode : usb::kVcRequestErrorCode);
}

bool is_negotiation(uint8_t selector, bool streaming) {
    return streaming && (selector == usb::kVsProbe || selector == usb::kVsCommit);
}

/// Bytes of a video control that SET_CUR may reach; 0 when there is none.
uint16_t settable_length(uint8_t entity, uint8_t selector, bool streaming) {
    if (streaming) {
        return is_negotiation(selector, streaming) ? kProbeLength : 0;
    }
    if (entity == usb::kEntityExtensionUnit) {
        const usb::ExtensionBlock* block = usb::extension_block(selector);
        return block == nullptr ? 0 : block->length;
    }
    return control_length(entity, selector);
}

}  // namespace

ControlReply Device::control(const Setup& setup, ByteView out) {
    const bool right_length = setup.device_to_host() ? out.empty() : out.size() == setup.length;
    Answer answer;
    if (right_length) {
        switch (setup.request_type & usb::kTypeMask) {
            case usb::kTypeStandard:
                answer = standard_request(setup);
                break;
            case usb::kTypeClass:
                answer = class_request(setup, out);
                break;
            case usb::kTypeVendor:
                answer = vendor_request(setup, out);
                break;
            default:
                break;
        }
    }
    if (!answer) {
        return {true, {}};
    }
    if (answer->size() > setup.length) {
        answer->resize(setup.length);
    }
    return {false, std::move(*answer)};
}

Device::Answer Device::standard_request(const Setup& setup) {
    switch (setup.request) {
        case usb::kGetStatus:
            return get_status(setup);
        case usb::kClearFeature:
            return clear_feature(setup);
        case usb::kSetFeature:
            return set_feature(setup);
        case usb::kSetAddress:
            return Bytes{};
        case usb::kGetDescriptor:
            return get_descriptor(setup);
        case usb::kGetConfiguration:
            return Bytes{configuration_};
        case usb::kSetConfiguration:
            if (setup.value > 1) {
                return std::nullopt;
            }
            bus_reset();
            configuration_ = low(setup.value);
            return Bytes{};
        case usb::kGetInterface:
            if (!descriptors::has_alternate(personality_, low(setup.index), 0)) {
                return std::nullopt;
            }
            return Bytes{descriptors::has_alternate(personality_, low(setup.index), 1)
                             ? audio_alternate_
                             : uint8_t{0}};
        case usb::kSetInterface:
            return set_interface(setup);
        default:
            return std::nullopt;
    }
}

Device::Answer Device::get_descriptor(const Setup& setup) const {
    const uint8_t index = low(setup.value);
    switch (high(setup.value)) {
        case kDescriptorDevice:
            return descriptors::device(personality_, config_);
        case kDescriptorConfiguration:
            return index == 0 ? Answer{descriptors::configuration(personality_)} : std::nullopt;
        case kDescriptorString:
            return non_empty(descriptors::string(personality_, index));
        case kDescriptorQualifier:
            return descriptors::device_qualifier(personality_);
        default:
            return std::nullopt;
    }
}

Device::Answer Device::set_interface(const Setup& setup) {
    if (setup.value > 0xFF || setup.index > 0xFF) {
        return std::nullopt;
    }
    const uint8_t number = low(setup.index);
    const uint8_t alternate = low(setup.value);
    if (!descriptors::has_alternate(personality_, number, alternate)) {
        return std::nullopt;
    }
    if (personality_ == Personality::kRunTime) {
        if (number == usb::kInterfaceVideoStreaming) {
            stop_stream();
            halted_.erase(usb::kEndpointVideo);
        } else if (number == usb::kInterfaceAudioStreaming) {
            audio_alternate_ = alternate;
            microphone_.restart();
        }
    } else if (number == usb::kInterfaceDownload) {
        halted_.erase(usb::kEndpointDownload);
    }
    return Bytes{};
}

Device::Answer Device::get_status(const Setup& setup) const {
    const uint8_t target = low(setup.index);
    switch (recipient(setup)) {
        case usb::kRecipientDevice:
            return Bytes{0, 0};  // powered by the bus, wakes nobody
        case usb::kRecipientInterface:
            return descriptors::has_alternate(personality_, target, 0) ? Answer{Bytes{0, 0}}
                                                                       : std::nullopt;
        case usb::kRecipientEndpoint:
            if (target != 0 && !descriptors::has_endpoint(personality_, target)) {
                return std::nullopt;
            }
            return Bytes{static_cast<uint8_t>(halted(target) ? 1 : 0), 0};
        default:
            return std::nullopt;
    }
}

/// Only bulk endpoints can be halted: the isochronous one has no handshake to tell it with.
Device::Answer Device::set_feature(const Setup& setup) {
    const uint8_t endpoint = low(setup.index);
    if (recipient(setup) != usb::kRecipientEndpoint || setup.value != usb::kFeatureEndpointHalt ||
        !descriptors::has_endpoint(personality_, endpoint) || endpoint == usb::kEndpointAudio) {
        return std::nullopt;
    }
    halt(endpoint);
    return Bytes{};
}

Device::Answer Device::clear_feature(const Setup& setup) {
    if (recipient(setup) != usb::kRecipientEndpoint || setup.value != usb::kFeatureEndpointHalt ||
        (low(setup.index) != 0 && !descriptors::has_endpoint(personality_, low(setup.index)))) {
        return std::nullopt;
    }
    halted_.erase(low(setup.index));
    if (low(setup.index) == usb::kEndpointVideo) {
        stop_stream();  // a bulk camera has no other signal of its host's stop
    }
    return Bytes{};
}

Device::Answer Device::class_request(const Setup& setup, ByteView out) {
    const bool reads = (setup.request & usb::kDirectionIn) != 0;
    if (reads != setup.device_to_host()) {
        return std::nullopt;
    }
    switch (recipient(setup)) {
        case usb::kRecipientDevice:
        case usb::kRecipientInterface:
            return entity_request(setup, out);
        case usb::kRecipientEndpoint:
            if (personality_ == Personality::kRunTime && setup.index == usb::kEndpointAudio &&
                setup.value == usb::kEpSamplingFrequency << 8) {
                return microphone_.frequency(setup.request, out);
            }
            return std::nullopt;
        default:
            return std::nullopt;
    }
}

Device::Answer Device::entity_request(const Setup& setup, ByteView out) {
    const uint8_t interface = low(setup.index);
    if (interface != usb::kInterfaceVideoControl && interface != usb::kInterfaceVideoStreaming) {
        return audio_request(setup, out);
    }
    Answer answer = video_request(setup, out);
    request_error_ = answer ? usb::kErrorNone : error_of(setup);
    return answer;
}

Device::Answer Device::audio_request(const Setup& setup, ByteView out) {
    if (personality_ != Personality::kRunTime || high(setup.index) != usb::kEntityFeatureUnit ||
        low(setup.index) > usb::kInterfaceAudioStreaming) {
        return std::nullopt;
    }
    return microphone_.feature(setup.request, high(setup.value), low(setup.value), out);
}

Device::Answer Device::video_request(const Setup& setup, ByteView out) {
    const uint8_t entity = high(setup.index);
    const uint8_t selector = high(setup.value);
    if (low(setup.value) != 0) {
        return std::nullopt;
    }
    if (low(setup.index) == usb::kInterfaceVideoControl && entity == usb::kEntityExtensionUnit) {
        return extension_request(setup, out);
    }
    if (personality_ != Personality::kRunTime) {
        return std::nullopt;
    }
    if (low(setup.index) == usb::kInterfaceVideoStreaming) {
        return entity == 0 ? streaming_request(setup, out) : std::nullopt;
    }
    if (entity == 0) {
        return selector == usb::kVcRequestErrorCode ? read_only(setup.request, request_error_)
                                                    : std::nullopt;
    }
    if (setup.request == usb::kSetCur) {
        return done_if(controls_.set(entity, selector, out));
    }
    return controls_.get(setup.request, entity, selector);
}

/// Why a video request stalled, as the request error code tells it.
uint8_t Device::error_of(const Setup& setup) const {
    const uint8_t entity = high(setup.index);
    const bool streaming = low(setup.index) == usb::kInterfaceVideoStreaming;
    if (!has_entity(entity, streaming)) {
        return usb::kErrorInvalidUnit;
    }
    const uint8_t selector = high(setup.value);
    const uint16_t length = settable_length(entity, selector, streaming);
    if (length == 0) {
        return is_error_code(entity, selector, streaming) ? usb::kErrorInvalidRequest
                                                          : usb::kErrorInvalidControl;
    }
    const bool right_length = is_negotiation(selector, streaming) ? is_probe_length(setup.length)
                                                                  : setup.length == length;
    if (setup.request != usb::kSetCur || !right_length) {
        return usb::kErrorInvalidRequest;
    }
    const bool needs_a_step_before =
        streaming || controls_.automatic(entity, selector) ||
        (entity == usb::kEntityExtensionUnit && selector == usb::kFirmwareData);
    return needs_a_step_before ? usb::kErrorWrongState : usb::kErrorOutOfRange;
}

Device::Answer Device::streaming_request(const Setup& setup, ByteView out) {
    const uint8_t selector = high(setup.value);
    if (selector == usb::kVsStreamErrorCode) {
        return read_only(setup.request, 0);  // the stream has no errors of its own
    }
    if (setup.request != usb::kSetCur) {
        return negotiation_.get(setup.request, selector);
    }
    if (selector == usb::kVsProbe) {
        return done_if(negotiation_.probe(out));
    }
    if (selector != usb::kVsCommit) {
        return std::nullopt;
    }
    const auto parameters = negotiation_.commit(out);
    if (!parameters) {
        return std::nullopt;
    }
    start_stream(*parameters);
    return Bytes{};
}

Device::Answer Device::extension_request(const Setup& setup, ByteView out) {
    const uint8_t selector = high(setup.value);
    if (setup.request != usb::kSetCur) {
        return extension_.get(setup.request, selector);
    }
    const bool done = extension_.set(selector, out);
    look_for_faces();
    return done_if(done);
}

Device::Answer Device::vendor_request(const Setup& setup, ByteView out) {
    if (recipient(setup) != usb::kRecipientDevice) {
        return std::nullopt;
    }
    const VendorRequest* request = find_request(setup);
    if (request == nullptr || !knows(personality_, request->known)) {
        return std::nullopt;
    }
    state_.facts.face = face_tick_ ? std::optional(face_at(*face_tick_)) : std::nullopt;
    return execute(*request, state_, setup, out);
}

}  // namespace virtcam::model
