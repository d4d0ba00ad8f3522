// What precedes the stream of commands on a TCP connection: the list of devices, and the request
// for one of them.
#pragma once

#include <optional>

#include "virtcam/model/camera.h"
#include "virtcam/usbip/big_endian.h"

namespace virtcam::usbip {

inline constexpr uint32_t kBusNumber = 1;
inline constexpr uint32_t kDeviceNumber = 2;
inline constexpr uint32_t kDeviceId = kBusNumber << 16 | kDeviceNumber;
inline constexpr uint32_t kHighSpeed = 3;
/// Name under which the camera is offered.
inline constexpr char kBusId[] = "1-1";
inline constexpr size_t kDeviceRecordBytes = 312;

/// Outcome of an import, as the protocol numbers it.
enum class ImportStatus : uint32_t { kOk = 0, kBusy = 2, kNoDevice = 4 };

struct OpRequest {
    enum class Kind { kDeviceList, kImport };
    Kind kind = Kind::kDeviceList;
    bool our_camera = false;  ///< import: the bus ID is the camera's
};

/// Takes a request from the front of `received`, nothing when more bytes are needed.
/// Throws ProtocolError when it is none.
std::optional<OpRequest> take_request(Bytes& received);

/// A camera that is off the bus gives an empty list.
Bytes device_list_reply(const model::Camera& camera);
Bytes import_reply(const model::Camera& camera, ImportStatus status);

/// Importer's side: the request for the camera, and the size of the answer's fixed beginning.
Bytes import_request();
inline constexpr size_t kOpHeaderBytes = 8;
/// Status in the beginning of an import reply. Throws ProtocolError when it is none.
uint32_t import_reply_status(ByteView header);

}  // namespace virtcam::usbip
