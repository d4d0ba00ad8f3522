#include "AitFirmware.h"

#include <stdint.h>
#include <stdlib.h>

#include <algorithm>

#include "AitXu.h"
#include "AitXu_Bench.h"
#include "FileContent.h"
#include "LibusbWrap.h"
#include "LittleEndian.h"
#include "UvcRequests.h"
#include "VendorCommands.h"
#include "aitdbg.h"

namespace {

constexpr unsigned char kBulkOutEndpoint = 1;
constexpr long kLargestImage = 0x7FFFFFFF;  // the requests carry 32 bits of size

constexpr unsigned int kShortTimeoutMs = 1000;
constexpr unsigned int kBurnTimeoutMs = 30000;

constexpr int kPcsyncPiece = 512;
constexpr unsigned int kPcsyncTimeoutMs = 100;
constexpr int kBulkPiece = 32768;

struct FreeMemory {
    void operator()(unsigned char* memory) const { free(memory); }
};

/// An image in memory; `spare` zero bytes follow it.
class Image {
  public:
    /// How the update functions differ in reading their file.
    struct Rules {
        unsigned int refusal_level;  // of the lines about a missing or unusable file
        long smallest;               // bytes
        size_t spare;                // bytes
        bool report_missing_memory;  // with a line of its own
    };

    /// False after a log line when the file cannot be used.
    bool Load(const char* path, const Rules& rules, LogAs AitLogName) {
        const FilePtr file = OpenFile(path);
        if (file == nullptr) {
            AIT_LOG(rules.refusal_level, "file %s not exist. \r\n", path);
            return false;
        }
        const long size = FileSize(file.get());
        if (size < rules.smallest) {
            AIT_LOG(rules.refusal_level, "file %s size is incorrect. \r\n", path);
            return false;
        }
        AIT_LOG(4, "binary size=%d bytes\r\n", static_cast<int>(size));
        if (!Allocate(size, rules.spare)) {
            if (rules.report_missing_memory) {
                AIT_LOG(1, "data pointer for loading firmware is NULL!!!\r\n");
            }
            AIT_LOG(1, "Update flash failed.\r\n");
            return false;
        }
        m_nSize = static_cast<int>(size);
        const size_t count = fread(m_Data.get(), 1, static_cast<size_t>(size), file.get());
        if (count < static_cast<size_t>(size)) {
            AIT_LOG(3, "file %s: %d of %d bytes read.\r\n", path, static_cast<int>(count), m_nSize);
            AIT_LOG(rules.refusal_level, "file %s not exist. \r\n", path);
            return false;
        }
        return true;
    }

    unsigned char* At(int offset) { return m_Data.get() + offset; }
    int Size() const { return m_nSize; }
    void Free() { m_Data.reset(); }

  private:
    bool Allocate(long size, size_t spare) {
        if (size > kLargestImage) {
            return false;
        }
        // At least one byte, so that null always means that memory is short.
        m_Data.reset(static_cast<unsigned char*>(
            calloc(std::max<size_t>(static_cast<size_t>(size) + spare, 1), 1)));
        return m_Data != nullptr;
    }

    std::unique_ptr<unsigned char, FreeMemory> m_Data;
    int m_nSize = 0;
};

typedef int (*ControlTransfer)(libusb_device_handle*, uint8_t, uint8_t, uint16_t, uint16_t,
                               unsigned char*, uint16_t, unsigned int);

/// A vendor request that carries the image's size in wValue and wIndex.
int SendSize(AitDevHandle* device, ControlTransfer transfer, vendor::Request request, int size,
             unsigned int timeoutMs) {
    const auto bits = static_cast<uint32_t>(size);
    return transfer(device->handle, usb::kVendorToDevice, request, static_cast<uint16_t>(bits),
                    static_cast<uint16_t>(bits >> 16), nullptr, 0, timeoutMs);
}

int WritePiece(AitDevHandle* device, Image& image, int offset, int largest,
               unsigned int timeoutMs) {
    int moved = 0;
    return libusb_bulk_transfer(device->handle, kBulkOutEndpoint, image.At(offset),
                                std::min(largest, image.Size() - offset), &moved, timeoutMs);
}

bool IsSet(const std::atomic<bool>* stop) {
    return stop != nullptr && *stop;
}

/// Writes the image in pieces; a failed piece is passed over, the burn request tells. False when
/// asked to stop.
bool WriteUnchecked(AitDevHandle* device, Image& image, int largest, unsigned int timeoutMs,
                    const std::atomic<bool>* stop = nullptr) {
    for (int offset = 0; offset < image.Size();
         offset += std::min(largest, image.Size() - offset)) {
        if (IsSet(stop)) {
            return false;
        }
        WritePiece(device, image, offset, largest, timeoutMs);
    }
    return !IsSet(stop);
}

/// Writes the image in pieces; a piece that times out is passed over, any other failure ends it.
bool WriteChecked(AitDevHandle* device, Image& image) {
    AIT_LOG_AS("UpdateFirmware");
    constexpr unsigned int kPieceTimeoutMs = 5000;
    for (int offset = 0; offset < image.Size();
         offset += std::min(kBulkPiece, image.Size() - offset)) {
        const int result = WritePiece(device, image, offset, kBulkPiece, kPieceTimeoutMs);
        if (result == LIBUSB_ERROR_TIMEOUT) {
            AIT_LOG(4, "PCSYNC_BULK_OUT_EP(%d) timeout.\r\n", kBulkOutEndpoint);
        } else if (result < 0) {
            AIT_LOG(4, "PCSYNC_BULK_OUT_EP(%d) Error.\r\n", kBulkOutEndpoint);
            return false;
        }
    }
    return true;
}

int Finish(bool burnt, LogAs AitLogName) {
    if (!burnt) {
        AIT_LOG(1, "Update flash failed.\r\n");
        return AIT_ERR_DEVICE;
    }
    AIT_LOG(1, "Update flash successfully.\r\n");
    return 0;
}

vendor::Request BurnRequest(unsigned int chip) {
    switch (chip) {
        case 2:
            return vendor::kBurnChip2;
        case 3:
            return vendor::kBurnChip3;
        case 4:
            return vendor::kBurnChip4;
        default:
            return vendor::kBurnDefault;
    }
}

bool CheckSumMatches(AitDevHandle* device, long long checkSum, int size) {
    unsigned char block[12];
    const auto bits = static_cast<uint64_t>(checkSum);
    PutLe32(block, static_cast<uint32_t>(bits));
    PutLe32(block + 4, static_cast<uint32_t>(bits >> 32));
    PutLe32(block + 8, static_cast<uint32_t>(size));
    return libusb_control_transfer_(device->handle, usb::kVendorToDevice, vendor::kCheckSum, 0, 0,
                                    block, sizeof block, kBurnTimeoutMs) >= 0;
}

}  // namespace

int UpdateFirmwareUvcPath(AitDevHandle* ait_handle, char* file_path_name, unsigned int,
                          const std::atomic<bool>* stop) {
    Image image;
    if (!image.Load(file_path_name, {1, 0, xu::kFirmwarePiece, true}, LogAs(__func__))) {
        return AIT_ERR_DEVICE;
    }
    AIT_LOG(4, "UVC path fw update init.\r\n");
    if (AitXU_SendBlock(ait_handle, xu::Block(xu::kFirmwareBegin)) < 0) {
        return AIT_ERR_DEVICE;
    }
    AIT_LOG(4, "UVC path fw data transfer.\r\n");
    const int pieces =
        image.Size() / xu::kFirmwarePiece + (image.Size() % xu::kFirmwarePiece != 0 ? 1 : 0);
    for (int i = 0; i < pieces; ++i) {
        if (IsSet(stop)) {
            return AIT_ERR_DEVICE;
        }
        if (AitXU_XuCmd(ait_handle, image.At(i * xu::kFirmwarePiece), xu::kFirmwareData,
                        xu::kFirmwarePiece, kToCamera) < 0) {
            return AIT_ERR_DEVICE;
        }
    }
    if (IsSet(stop)) {
        return AIT_ERR_DEVICE;
    }
    image.Free();
    AIT_LOG(4, "Start burning.\r\n");
    AitXU_SendBlock(ait_handle, xu::Block(xu::kFirmwareBurn));
    return Finish(
        true, LogAs(__func__));  // whatever the burn command said: the camera may be gone already
}

int UpdateFirmwarePcsyncPath(AitDevHandle* ait_handle, char* file_path_name, unsigned int,
                             const std::atomic<bool>* stop) {
    if (ait_handle == nullptr) {
        return Finish(false, LogAs(__func__));
    }
    Image image;
    if (!image.Load(file_path_name, {4, 1, kPcsyncPiece, true}, LogAs(__func__))) {
        return AIT_ERR_DEVICE;
    }
    // This path does not take the control transfers' lock: nothing else uses the camera yet.
    SendSize(ait_handle, libusb_control_transfer, vendor::kAnnounceImage, image.Size(),
             kShortTimeoutMs);
    if (!WriteUnchecked(ait_handle, image, kPcsyncPiece, kPcsyncTimeoutMs, stop)) {
        return AIT_ERR_DEVICE;
    }
    image.Free();
    AIT_LOG(4, "Start burning.\r\n");
    const int result = SendSize(ait_handle, libusb_control_transfer, vendor::kBurnChip4,
                                image.Size(), kShortTimeoutMs);
    // The camera may reboot before it has acknowledged.
    return Finish(result == 0 || result == LIBUSB_ERROR_NO_DEVICE, LogAs(__func__));
}

// --- not called by the plug-in

int UpdateFirmware(AitDevHandle* ait_handle, char* file_path_name, unsigned int chip) {
    if (ait_handle == nullptr) {
        return Finish(false, LogAs(__func__));
    }
    Image image;
    if (!image.Load(file_path_name, {4, 0, 0, false}, LogAs(__func__))) {
        return AIT_ERR_DEVICE;
    }
    SendSize(ait_handle, libusb_control_transfer_, vendor::kAnnounceImage, image.Size(),
             kShortTimeoutMs);
    if (!WriteChecked(ait_handle, image)) {
        return AIT_ERR_DEVICE;
    }
    image.Free();
    AIT_LOG(4, "Start burning.\r\n");
    return Finish(SendSize(ait_handle, libusb_control_transfer_, BurnRequest(chip), image.Size(),
                           kBurnTimeoutMs) >= 0,
                  LogAs(__func__));
}

int UpdateAitFirmwareWithCheckSum(AitDevHandle* ait_handle, char* file_path_name,
                                  long long CheckSum) {
    if (ait_handle == nullptr) {
        return Finish(false, LogAs(__func__));
    }
    Image image;
    if (!image.Load(file_path_name, {4, 0, 0, false}, LogAs(__func__))) {
        return AIT_ERR_DEVICE;
    }
    SendSize(ait_handle, libusb_control_transfer_, vendor::kAnnounceImage, image.Size(),
             kShortTimeoutMs);
    WriteUnchecked(ait_handle, image, kBulkPiece, kShortTimeoutMs);
    image.Free();
    AIT_LOG(4, "Start burning.\r\n");
    if (!CheckSumMatches(ait_handle, CheckSum, image.Size())) {
        AIT_LOG(1, "Check sum does not match.\r\n");
        return AIT_ERR_DEVICE;
    }
    return Finish(SendSize(ait_handle, libusb_control_transfer_, vendor::kBurnDefault, image.Size(),
                           kBurnTimeoutMs) >= 0,
                  LogAs(__func__));
}

int DisableFlashWP(AitDevHandle* ait_handle) {
    xu::Block unlock(xu::kFlashProtection, xu::kFlashUnlock);
    AitMMPCmdSet16(ait_handle, unlock.bytes);
    xu::Block off(xu::kFlashProtection, xu::kFlashProtectionOff);
    AitMMPCmdSet16(ait_handle, off.bytes);
    return 0;
}
