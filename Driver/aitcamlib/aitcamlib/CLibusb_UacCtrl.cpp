#include "CLibusb_UacCtrl.h"

#include <string.h>
#include <unistd.h>

#include <algorithm>

#include "LittleEndian.h"
#include "UvcRequests.h"
#include "aitdbg.h"

namespace {

constexpr unsigned char kIsoInEndpoint = 0x82;
constexpr unsigned int kControlTimeoutMs = 5000;
constexpr unsigned int kTransferTimeoutMs = 1000;
constexpr useconds_t kReapSleepUs = 400000;
constexpr size_t kSmallestTransferBuffer = 10240;
constexpr int kDefaultVolumePercent = 30;
/// Where the copy of packets wraps, whatever the buffer holds; cameras and integrators rely on it.
constexpr unsigned int kCopyWrapLimit = 16000;

/// Feature unit 5 together with interface 3, the streaming interface: the class asks for the
/// control interface here, but this pairing is what the camera answers to.
constexpr uint16_t kFeatureUnitIndex = 0x0503;
constexpr uint16_t kRateSize = 3;
constexpr uint16_t kVolumeSize = 2;

}  // namespace

CLibUSB_UacCtrl::CLibUSB_UacCtrl() : UsbStreamEngine(m_AudioTransfer, m_pFrameBuf) {
    // Without a context every later call fails as 'not found'.
    libusb_init(&m_ctx);
}

CLibUSB_UacCtrl::~CLibUSB_UacCtrl() {
    AIT_LOG(4, "CLibUSB_UacCtrl::~CLibUSB_UacCtrl() +\r\n");
    ReapLeftovers();
    if (m_pDevH != nullptr) {
        // Interface 1 was never claimed here and 2 and 3 are left to the close: the camera's
        // firmware has always been released this way.
        libusb_release_interface(m_pDevH, 1);
        CloseDevice();
    }
    ReleaseStream();
    if (m_ctx != nullptr) {
        libusb_exit(m_ctx);
    }
    AIT_LOG(4, "CLibUSB_UacCtrl::~CLibUSB_UacCtrl() -\r\n");
}

int CLibUSB_UacCtrl::Init(int vid, int pid) {
    static const InterfaceTexts kStreamTexts = {"libusb_claim_interface (AudioStream) fail!(%d)\n",
                                                "libusb_claim_interface (AudioStream)  ok!\n"};
    static const InterfaceTexts kControlTexts = {
        "libusb_claim_interface (AudioControl)  fail!(%d)\n",
        "libusb_claim_interface (AudioControl) ok!\n"};
    pMutexLock lock(m_libusb_ctrl_lock);
    if (!OpenDevice(vid, pid)) {
        return -1;
    }
    DetachKernelDriver(kStreamInterface);
    if (!ClaimInterface(kStreamInterface, kStreamTexts)) {
        CloseDevice();
        return -1;
    }
    SelectAltSetting(kStreamInterface, 0);
    DetachKernelDriver(kControlInterface);
    if (!ClaimInterface(kControlInterface, kControlTexts)) {
        // Unlike on the video path, the interface claimed first is left to the close.
        CloseDevice();
        return -1;
    }
    return 0;
}

// --- start ---------------------------------------------------------------------------------------

int CLibUSB_UacCtrl::UAC_EnableAudioStream(int rate) {
    if (IsStreaming) {
        UAC_DisableAudioStream();
    }
    if (m_pDevH == nullptr) {
        return -1;
    }
    ReleaseLeftovers();
    AIT_LOG(4, "CLibUSB_UacCtrl::UAC_EnableAudioStream  %d Hz\r\n", rate);
    if (!NegotiateRate(rate) || !ReadVolumeRange()) {
        return -1;
    }
    ChooseVolume();
    if (SelectAltSetting(kStreamInterface, 1) != 0) {
        AIT_LOG(4, "UAC_EnableAudioStream Error: IF = 3, Alt = 1");
        return -1;
    }
    AllocateTransfers();
    const int maxIso = NoteResult(libusb_get_max_iso_packet_size(m_pDev, kIsoInEndpoint));
    if (maxIso <= 0) {
        AIT_LOG(4, "libusb_get_max_iso_packet_size Fail");
        return -1;
    }
    IsStreaming = true;
    m_nFrameCapacity = static_cast<unsigned int>(m_Num_Audio_PacketsPerTransfer * maxIso);
    if (!FillTransfers(maxIso) || !CreateQueue(m_nFrameCapacity)) {
        IsStreaming = false;
        ReleaseStream();
        return -1;
    }
    if (SubmitTransfers() != 0) {
        return -1;
    }
    UAC_SetCurVolume(m_CurVolume);
    return 0;
}

bool CLibUSB_UacCtrl::NegotiateRate(int rate) {
    AIT_LOG_AS("UAC_EnableAudioStream");
    unsigned char data[4];
    PutLe32(data, static_cast<uint32_t>(rate));  // 24 bits travel
    int count = NoteResult(libusb_control_transfer_(m_pDevH, usb::kClassToEndpoint, uac::kSetCur,
                                                    uac::kSamplingFrequencyControl, kIsoInEndpoint,
                                                    data, kRateSize, kControlTimeoutMs));
    if (count != kRateSize) {
        AIT_LOG(4, "Failed to SET sampling rate: (%d)\n", count);
        return false;
    }
    count = NoteResult(libusb_control_transfer_(m_pDevH, usb::kClassFromEndpoint, uac::kGetCur,
                                                uac::kSamplingFrequencyControl, kIsoInEndpoint,
                                                data, kRateSize, kControlTimeoutMs));
    if (count != kRateSize) {
        AIT_LOG(4, "Failed to GET sampling rate: (%d)\n", count);
        return false;
    }
    return true;
}

bool CLibUSB_UacCtrl::ReadVolumeRange() {
    return ReadVolumeLimit(uac::kGetMax, &m_MaxVolume) &&
           ReadVolumeLimit(uac::kGetMin, &m_MinVolume);
}

bool CLibUSB_UacCtrl::ReadVolumeLimit(uint8_t request, short* limit) {
    AIT_LOG_AS("UAC_EnableAudioStream");
    unsigned char data[kVolumeSize] = {};
    const int count = NoteResult(libusb_control_transfer_(
        m_pDevH, usb::kClassFromInterface, request, uac::kVolumeControlMaster, kFeatureUnitIndex,
        data, kVolumeSize, kControlTimeoutMs));
    if (count != kVolumeSize) {
        AIT_LOG(4, "libusb_control_transfer: Error: (%d)\n", count);
        return false;
    }
    *limit = static_cast<short>(GetLe16(data));
    return true;
}

/// A volume outside the device's range, as the initial one usually is, becomes 30 % above the
/// minimum.
void CLibUSB_UacCtrl::ChooseVolume() {
    if (m_CurVolume < m_MinVolume || m_CurVolume > m_MaxVolume) {
        m_CurVolume = static_cast<short>(
            m_MinVolume + ((m_MaxVolume - m_MinVolume) * kDefaultVolumePercent) / 100);
    }
}

/// A transfer that libusb refuses stays null and counts as a failed submit.
void CLibUSB_UacCtrl::AllocateTransfers() {
    for (libusb_transfer*& transfer : m_AudioTransfer) {
        transfer = libusb_alloc_transfer(m_Num_Audio_PacketsPerTransfer);
        if (transfer != nullptr) {
            transfer->user_data = nullptr;
        }
    }
}

bool CLibUSB_UacCtrl::FillTransfers(int maxIso) {
    const int length = m_Num_Audio_PacketsPerTransfer * maxIso;
    const size_t bufferSize = std::max(kSmallestTransferBuffer, static_cast<size_t>(length));
    for (int i = 0; i < TransferCount(); ++i) {
        if (m_AudioTransfer[i] == nullptr) {
            continue;
        }
        auto* param = new (std::nothrow) TransferCbParam(this, i, bufferSize);
        if (param == nullptr) {
            return false;
        }
        libusb_fill_iso_transfer(m_AudioTransfer[i], m_pDevH, kIsoInEndpoint, param->transfer_buf,
                                 length, m_Num_Audio_PacketsPerTransfer, callback, param,
                                 kTransferTimeoutMs);
        libusb_set_iso_packet_lengths(m_AudioTransfer[i], static_cast<unsigned int>(maxIso));
        if (param->transfer_buf == nullptr) {
            return false;
        }
    }
    return true;
}

/// On a failure the other transfer, the buffers and the queue stay until the next stop.
int CLibUSB_UacCtrl::SubmitTransfers() {
    AIT_LOG_AS("UAC_EnableAudioStream");
    for (int i = 0; i < TransferCount(); ++i) {
        libusb_transfer* transfer = m_AudioTransfer[i];
        const int error =
            transfer == nullptr ? static_cast<int>(LIBUSB_ERROR_NO_MEM) : SubmitTransfer(transfer);
        if (error == 0) {
            continue;
        }
        AIT_LOG(4, "libusb_fill_iso_transfer error: Audio %d\n", i);
        if (transfer != nullptr) {
            FreeTransfer(i);
        }
        return error;
    }
    return 0;
}

// --- data ----------------------------------------------------------------------------------------

int CLibUSB_UacCtrl::FillAudioData(libusb_transfer* transfer) {
    auto* queue = Queue();
    const int queued = static_cast<int>(queue->GetCnt());
    if (queued == m_NumFrameOfQ) {
        AIT_LOG(5, "Audio frame drop. %d buf, %d offset\r\n", queued, 0);
    } else {
        m_pCurFrameBuf = queue->GetWritePtr(-1);  // does not wait: there is room
        if (m_pCurFrameBuf == nullptr) {
            return 0;
        }
        m_pCurFrameBuf->len = CopyPackets(transfer, m_pCurFrameBuf);
        m_pCurFrameBuf = nullptr;
        queue->WriteDone();
    }
    if (IsStreaming) {
        SubmitTransfer(transfer);
    } else {
        AIT_LOG(4, "Stop submit audio transfer.\r\n");
    }
    return 0;
}

/// Packs the packets' data one behind the other and returns the bytes in use. Packet status is not
/// examined, only actual_length counts. The copy wraps at kCopyWrapLimit, and every single copy is
/// bounded by the buffer besides.
unsigned int CLibUSB_UacCtrl::CopyPackets(const libusb_transfer* transfer, CFrameBuf* frame) {
    AIT_LOG_AS("FillAudioData");
    const auto copy = [&](unsigned int offset, const unsigned char* from, unsigned int count) {
        if (offset < m_nFrameCapacity) {
            memcpy(frame->buf + offset, from, std::min(count, m_nFrameCapacity - offset));
        }
    };
    unsigned int offset = 0;
    const unsigned char* data = transfer->buffer;
    const int packets = std::min(m_Num_Audio_PacketsPerTransfer, transfer->num_iso_packets);
    for (int i = 0; i < packets; ++i) {
        const libusb_iso_packet_descriptor& packet = transfer->iso_packet_desc[i];
        const unsigned int count = std::min(packet.actual_length, packet.length);
        if (count != 0 && offset + count < kCopyWrapLimit) {
            copy(offset, data, count);
            offset += count;
        } else if (count != 0) {
            AIT_LOG(4, "offset  =%d\n", static_cast<int>(offset));
            AIT_LOG(4, "acture = %d\n", static_cast<int>(count));
            // The rest of a packet of 16,001 bytes or more may end at the limit or beyond it.
            const unsigned int first = offset < kCopyWrapLimit ? kCopyWrapLimit - offset : 0;
            copy(offset, data, first);
            offset = count - first;
            copy(0, data + first, offset);
        }
        data += packet.length;
    }
    return std::min(offset, m_nFrameCapacity);
}

// --- controls ------------------------------------------------------------------------------------

int CLibUSB_UacCtrl::UAC_SetCurVolume(short volume) {
    if (m_pDevH == nullptr || volume < m_MinVolume || volume > m_MaxVolume) {
        return -1;
    }
    AIT_LOG(4, "UAC SetVolume Min=%d, Max=%d, Vol=%d\r\n", m_MinVolume, m_MaxVolume, volume);
    unsigned char data[kVolumeSize];
    PutLe16(data, static_cast<uint16_t>(volume));
    const int result = NoteResult(libusb_control_transfer_(
        m_pDevH, usb::kClassToInterface, uac::kSetCur, uac::kVolumeControlMaster, kFeatureUnitIndex,
        data, kVolumeSize, kControlTimeoutMs));
    if (result < 0) {
        AIT_LOG(4, "UAC_SetCurVolume: Error: (%d)\n", result);
        return result;
    }
    m_CurVolume = volume;
    return 0;
}

int CLibUSB_UacCtrl::UAC_SetSamplingRate(unsigned int rate) {
    if (m_pDevH == nullptr) {
        return -1;
    }
    unsigned char data[4];
    PutLe32(data, rate);
    const int result = NoteResult(libusb_control_transfer_(
        m_pDevH, usb::kClassToEndpoint, uac::kSetCur, uac::kSamplingFrequencyControl,
        kIsoInEndpoint, data, kRateSize, kControlTimeoutMs));
    if (result < 0) {
        AIT_LOG(4, "UAC_SetSamplingRate: Error: (%d)\n", result);
    }
    return result;
}

// --- stop ----------------------------------------------------------------------------------------

int CLibUSB_UacCtrl::UAC_DisableAudioStream() {
    if (m_pDevH == nullptr) {
        return -1;
    }
    EndStream();
    {
        pMutexLock lock(m_TransferMtx);
        CancelAll(nullptr);
    }
    if (SelectAltSetting(kStreamInterface, 0) != 0) {
        AIT_LOG(4, "UAC_DisableAudioStream: IF = 3, Alt = 0 Error!!");
        return -1;
    }
    usleep(kReapSleepUs);  // the event thread delivers the cancellations meanwhile
    WaitUntilReaped();
    ReleaseStream();
    return 0;
}

/// Under the producer lock: a completion on another thread that has seen the stream running resubmits
/// before the cancellation, not after it.
void CLibUSB_UacCtrl::EndStream() {
    pFastMutexLock producer(m_ProducerMtx);
    IsStreaming = false;
}

/// Unlike on the video path the transfers go before the queue and its buffers.
void CLibUSB_UacCtrl::ReleaseStream() {
    pMutexLock lock(m_TransferMtx);
    FreeAll(nullptr);
    DestroyQueue();
}

/// What a failed start or stop left behind. Unlike in the stop the queue goes first: a completion
/// that finds none says nothing.
void CLibUSB_UacCtrl::ReleaseLeftovers() {
    {
        pMutexLock lock(m_TransferMtx);
        DestroyQueue();
    }
    ReapLeftovers();
    ReleaseStream();
}
