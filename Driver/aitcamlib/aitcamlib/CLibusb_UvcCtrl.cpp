// Life of the video engine: open, start of a stream, stop, close.
#include "CLibusb_UvcCtrl.h"

#include <unistd.h>

#include <new>

#include "UvcRequests.h"
#include "aitdbg.h"

namespace {

constexpr unsigned char kBulkInEndpoint = 0x81;
constexpr unsigned int kTransferTimeoutMs = 5000;
constexpr useconds_t kReapSleepUs = 200000;
constexpr uint32_t kMaxFrameSize = 0x200000;       // whatever the device negotiates
constexpr uint32_t kProposedFrameSize = 0x100000;  // dwMaxVideoFrameSize in the probe
constexpr uint32_t kProposedPayloadSize = 0x2000;  // dwMaxPayloadTransferSize in the probe
constexpr uint32_t kSmallestPayloadSize = kUvcPayloadHeaderSize + 1;
constexpr uint32_t kSpareTransferBytes = 512;      // never requested
constexpr int kIntervalUnitsPerSecond = 10000000;  // 100 ns
constexpr uint16_t kHintFixedInterval = 1;

VIDEO_PROBE InitialProbe(int formatIndex, int frameIndex, int fps) {
    VIDEO_PROBE probe = {};
    probe.bmHint = kHintFixedInterval;
    probe.bFormatIndex = static_cast<uint8_t>(formatIndex);
    probe.bFrameIndex = static_cast<uint8_t>(frameIndex);
    probe.wInterval = static_cast<uint32_t>(kIntervalUnitsPerSecond / fps);
    probe.lMaxFrameSize = kProposedFrameSize;
    probe.lMaxPayloadSize = kProposedPayloadSize;
    return probe;
}

uint32_t UsablePayloadSize(uint32_t offered) {
    if (offered < kSmallestPayloadSize) {
        return kProposedPayloadSize;
    }
    return offered > kMaxFrameSize ? kMaxFrameSize : offered;
}

}  // namespace

CLibUSB_UvcCtrl::CLibUSB_UvcCtrl() : UsbStreamEngine(m_VideoTransfer, m_pFrameBuf) {
    // Without a context every later call fails as 'not found'.
    libusb_init(&m_ctx);
}

CLibUSB_UvcCtrl::~CLibUSB_UvcCtrl() {
    AIT_LOG(4, "LibUSB_UvcCtrl::~CLibUSB_UvcCtrl()\r\n");
    ReapLeftovers();
    if (m_pDevH != nullptr) {
        libusb_release_interface(m_pDevH, kStreamInterface);
        libusb_release_interface(m_pDevH, kControlInterface);
        CloseDevice();
    }
    FreeTransfers("CLibUSB_UvcCtrl free transfer \r\n");
    CloseFrameQueue();
    if (m_ctx != nullptr) {
        libusb_exit(m_ctx);
    }
}

int CLibUSB_UvcCtrl::Init(int vid, int pid) {
    static const InterfaceTexts kStreamTexts = {
        "libusb_claim_interface (VideoStreaming) fail!(%d)\n",
        "libusb_claim_interface (VideoStreaming) ok!\n"};
    static const InterfaceTexts kControlTexts = {
        "libusb_claim_interface (VideoControl) fail!(%d)\n",
        "libusb_claim_interface (VideoControl) ok!\n"};
    pMutexLock lock(m_libusb_ctrl_lock);
    if (!OpenDevice(vid, pid)) {
        return -1;
    }
    DetachKernelDriver(kStreamInterface);
    DetachKernelDriver(kControlInterface);
    if (!ClaimInterface(kStreamInterface, kStreamTexts)) {
        CloseDevice();
        return -1;
    }
    if (!ClaimInterface(kControlInterface, kControlTexts)) {
        libusb_release_interface(m_pDevH, kStreamInterface);
        CloseDevice();
        return -1;
    }
    const int error = SelectAltSetting(kStreamInterface, 0);
    if (error != 0) {
        AIT_LOG(4, "libusb_set_interface_alt_setting (VideoStream) fail!(%d)\n", error);
    }
    return 0;
}

// --- start ---------------------------------------------------------------------------------------

int CLibUSB_UvcCtrl::UVC_EnableVideoStream(int formatIndex, int frameIndex, int fps) {
    if (fps == 0) {
        return -1;
    }
    if (IsStreaming) {
        UVC_DisableVideoStream();
    }
    ReleaseLeftovers();
    m_FormatIndex = formatIndex;
    m_FrameIndex = frameIndex;
    if (m_pDevH == nullptr) {
        return -1;
    }
    AIT_LOG(4, "UVC_EnableVideoStream start video FormatID:%d FrameID:%d\r\n", m_FormatIndex,
            m_FrameIndex);
    VIDEO_PROBE committed;
    if (!Negotiate(fps, &committed)) {
        return -1;
    }
    if (NoteResult(libusb_get_max_packet_size(m_pDev, kBulkInEndpoint)) < 1) {
        AIT_LOG(4, "libusb_get_max_packet_size Fail");
        return -1;
    }
    m_dwMaxFrameSize = kMaxFrameSize;
    m_dwMaxPayLoadTransferSize = UsablePayloadSize(committed.lMaxPayloadSize);
    AIT_LOG(4, "Max Frame Size = %d\n", static_cast<int>(m_dwMaxFrameSize));
    AIT_LOG(4, "Max Payload Transfer Size = %d\n", static_cast<int>(m_dwMaxPayLoadTransferSize));
    if (!OpenFrameQueue() || !CreateTransfers()) {
        ReleaseLeftovers();
        return LIBUSB_ERROR_NO_MEM;
    }
    const int result = SubmitTransfers();
    IsStreaming = true;
    return result;
}

/// The sequence that the camera expects: a pass over the limits, whose answers nobody uses, then
/// the pass that counts.
bool CLibUSB_UvcCtrl::Negotiate(int fps, VIDEO_PROBE* committed) {
    constexpr unsigned char kProbe = uvc::kVsProbeControl;
    constexpr unsigned char kCommit = uvc::kVsCommitControl;
    VIDEO_PROBE probe = InitialProbe(m_FormatIndex, m_FrameIndex, fps);
    if (!ProbeRequest(uvc::kSetCur, kProbe, &probe, "UVC_query_ctrl Error:Probe UVC_SET_CUR\n") ||
        !ProbeRequest(uvc::kGetMax, kProbe, &probe, "UVC_query_ctrl Error:Probe UVC_GET_MAX\n") ||
        !ProbeRequest(uvc::kGetMin, kProbe, &probe, "UVC_query_ctrl Error:Probe UVC_GET_MIN\n")) {
        return false;
    }
    probe = InitialProbe(m_FormatIndex, m_FrameIndex, fps);
    if (!ProbeRequest(uvc::kSetCur, kProbe, &probe, "UVC_query_ctrl Error:Probe UVC_SET_CUR\n") ||
        !ProbeRequest(uvc::kGetCur, kProbe, &probe, "UVC_query_ctrl Error:Probe UVC_GET_CUR\n") ||
        !ProbeRequest(uvc::kSetCur, kCommit, &probe, "UVC_query_ctrl Error:Commit UVC_SET_CUR\n")) {
        return false;
    }
    *committed = probe;
    return true;
}

bool CLibUSB_UvcCtrl::ProbeRequest(unsigned char request, unsigned char selector,
                                   VIDEO_PROBE* probe, const char* failure) {
    AIT_LOG_AS("UVC_EnableVideoStream");
    const int count = UVC_query_ctrl(request, 0, kStreamInterface, selector, probe, sizeof *probe,
                                     uvc::kTimeoutMs);
    if (count != static_cast<int>(sizeof *probe)) {
        AIT_LOG(4, "%s", failure);
        return false;
    }
    return true;
}

/// Frame buffers, queue, and the first buffer for the producer. False when memory is short.
bool CLibUSB_UvcCtrl::OpenFrameQueue() {
    pFastMutexLock producer(m_ProducerMtx);
    bulk_offset = 0;
    if (!CreateQueue(m_dwMaxFrameSize)) {
        return false;
    }
    m_pCurFrameBufForWrite = new (std::nothrow) CFrameBufferLocker(Queue());
    if (m_pCurFrameBufForWrite == nullptr) {
        return false;
    }
    m_pCurFrameBufForWrite->GetNewFrameBuffer();
    return true;
}

/// Creates what can be created; a transfer that libusb refuses stays null and counts as a failed
/// submit. False when our own memory is short.
bool CLibUSB_UvcCtrl::CreateTransfers() {
    const size_t bufferSize = size_t{m_dwMaxPayLoadTransferSize} + kSpareTransferBytes;
    for (int i = 0; i < TransferCount(); ++i) {
        libusb_transfer* transfer = libusb_alloc_transfer(0);
        m_VideoTransfer[i] = transfer;
        if (transfer == nullptr) {
            continue;
        }
        transfer->user_data = nullptr;
        auto* param = new (std::nothrow) TransferCbParam(this, i, bufferSize);
        if (param == nullptr) {
            return false;
        }
        libusb_fill_bulk_transfer(transfer, m_pDevH, kBulkInEndpoint, param->transfer_buf,
                                  static_cast<int>(m_dwMaxPayLoadTransferSize), callback, param,
                                  kTransferTimeoutMs);
        if (param->transfer_buf == nullptr) {
            return false;
        }
    }
    return true;
}

int CLibUSB_UvcCtrl::SubmitTransfers() {
    AIT_LOG_AS("UVC_EnableVideoStream");
    int result = 0;
    for (int i = 0; i < TransferCount(); ++i) {
        libusb_transfer* transfer = m_VideoTransfer[i];
        result =
            transfer == nullptr ? static_cast<int>(LIBUSB_ERROR_NO_MEM) : SubmitTransfer(transfer);
        if (result == 0) {
            continue;
        }
        // The number is the transfer count, not the index; log readers know it so.
        AIT_LOG(4, "libusb_submit_transfer error: Video %d\n", TransferCount());
        if (transfer != nullptr) {
            FreeTransfer(i);
        }
    }
    return result;
}

// --- stop ----------------------------------------------------------------------------------------

int CLibUSB_UvcCtrl::UVC_DisableVideoStream() {
    IsStreaming = false;
    WakeQueue();
    CloseFrameQueue();
    AIT_LOG(4, "Video lock +\r\n");
    {
        pMutexLock lock(m_TransferMtx);
        CancelAll("UVC_DisableVideoStream:: cancel bulk transfer. %d\r\n");
    }
    AIT_LOG(4, "Video lock -\r\n");
    usleep(kReapSleepUs);  // the event thread delivers the cancellations meanwhile
    WaitUntilReaped();
    if (m_pDevH != nullptr && SelectAltSetting(kStreamInterface, 0) != 0) {
        // The text names UAC although this is the video path; log readers know it so.
        AIT_LOG(4, "UAC_DisableVideoStream: IF = 1, Alt = 0 Error!!");
    }
    FreeTransfers("CLibUSB_UvcCtrl::UVC_DisableVideoStream free bulk transfer \r\n");
    AIT_LOG(4, "UVC_DisableVideoStream finish.\r\n");
    return 0;
}

/// Publishes the partly filled buffer, waits out the consumer and frees queue and buffers. From
/// here on completions find no queue and do nothing.
void CLibUSB_UvcCtrl::CloseFrameQueue() {
    pMutexLock lock(m_TransferMtx);
    {
        pFastMutexLock producer(m_ProducerMtx);
        delete m_pCurFrameBufForWrite;
        m_pCurFrameBufForWrite = nullptr;
    }
    DestroyQueue();
}

void CLibUSB_UvcCtrl::FreeTransfers(const char* line) {
    pMutexLock lock(m_TransferMtx);
    FreeAll(line);
}

/// What a failed start or stop left behind goes first, in the order of the stop.
void CLibUSB_UvcCtrl::ReleaseLeftovers() {
    CloseFrameQueue();
    ReapLeftovers();
    FreeTransfers(nullptr);
}
