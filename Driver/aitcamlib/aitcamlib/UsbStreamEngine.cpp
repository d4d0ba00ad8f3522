#include "UsbStreamEngine.h"

#include <string.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>

#include "CameraIdentity.h"
#include "aitdbg.h"

namespace {

constexpr suseconds_t kEventRoundUs = 33000;
constexpr suseconds_t kReapRoundUs = 1000;
constexpr useconds_t kIdlePauseUs = 500;
constexpr useconds_t kPollUs = 1000;
constexpr std::chrono::seconds kBoundedWait{2};

/// libusb 1.0.27 is the first whose alternate-setting call leaves the handle intact when the device
/// has gone.
bool AltSettingBreaksLostHandle() {
    const libusb_version* version = libusb_get_version();
    return version->major == 1 && version->minor == 0 && version->micro < 27;
}

class Deadline {
  public:
    bool Passed() const { return std::chrono::steady_clock::now() >= m_End; }

  private:
    std::chrono::steady_clock::time_point m_End = std::chrono::steady_clock::now() + kBoundedWait;
};

}  // namespace

/// Counts a thread inside the consumer side. It is counted before it reads the queue pointer, and
/// teardown clears the pointer before it reads the count: one of the two sees the other.
class UsbStreamEngine::ConsumerCall {
  public:
    explicit ConsumerCall(UsbStreamEngine& engine) : m_Calls(engine.m_nConsumerCalls) { ++m_Calls; }
    ~ConsumerCall() { --m_Calls; }
    ConsumerCall(const ConsumerCall&) = delete;
    ConsumerCall& operator=(const ConsumerCall&) = delete;

  private:
    std::atomic<int>& m_Calls;
};

UsbStreamEngine::TransferCbParam::TransferCbParam(UsbStreamEngine* engine, int id,
                                                  size_t bufferSize)
    : pThis(engine),
      transfer_id(id),
      transfer_buf(new (std::nothrow) unsigned char[bufferSize]()) {}

// --- consumer side -------------------------------------------------------------------------------

/// Null when nothing streams or no frame came within the queue's wait.
const CFrameBuf* UsbStreamEngine::Oldest(StaticSyncQueue<CFrameBuf*>* queue) {
    return queue == nullptr ? nullptr : queue->GetReadPtr();
}

unsigned int UsbStreamEngine::ReadFrame(unsigned char* dst, unsigned int size) {
    ConsumerCall call(*this);
    auto* queue = Queue();
    const CFrameBuf* frame = Oldest(queue);
    if (frame == nullptr) {
        return 0;
    }
    const unsigned int count = std::min(size, frame->len);
    if (count != 0) {  // a reader without a buffer takes the frame all the same
        memcpy(dst, frame->buf, count);
    }
    queue->ReadDone();
    return count;
}

unsigned int UsbStreamEngine::DequeFrameBuf(unsigned char** pBuf, unsigned int* pLen) {
    *pBuf = nullptr;
    *pLen = 0;
    ConsumerCall call(*this);
    auto* queue = Queue();
    const CFrameBuf* frame = Oldest(queue);
    if (frame == nullptr) {
        return 0;
    }
    if (frame->len == 0) {
        queue->ReadDone();
        return 0;
    }
    *pBuf = frame->buf;
    *pLen = frame->len;
    return frame->len;
}

unsigned int UsbStreamEngine::QueueFrameBuf() {
    ConsumerCall call(*this);
    auto* queue = Queue();
    if (queue != nullptr) {
        queue->ReadDone();
    }
    return 0;
}

// --- events --------------------------------------------------------------------------------------

void UsbStreamEngine::handle_libusb_event() {
    if (m_ctx != nullptr) {
        pMutexLock lock(m_TransferMtx);
        HandleEvents(kEventRoundUs);
    }
    if (!IsStreaming) {
        usleep(kIdlePauseUs);
    }
}

void UsbStreamEngine::HandleEvents(suseconds_t limitUs) {
    timeval timeout = {0, limitUs};
    libusb_handle_events_timeout(m_ctx, &timeout);
}

void UsbStreamEngine::callback(libusb_transfer* transfer) {
    if (transfer == nullptr || transfer->user_data == nullptr) {
        return;
    }
    TransferCbParam* param = Param(*transfer);
    UsbStreamEngine* engine = param->pThis;
    if (engine == nullptr) {
        return;
    }
    pFastMutexLock lock(engine->m_ProducerMtx);
    param->in_flight.store(false, std::memory_order_release);
    if (transfer->status == LIBUSB_TRANSFER_NO_DEVICE) {
        engine->m_bDeviceGone = true;
    }
    if (engine->Queue() == nullptr) {
        return;
    }
    if (transfer->status == LIBUSB_TRANSFER_COMPLETED || HasTimedOut(*transfer)) {
        engine->FillFromTransfer(transfer);
    }
}

/// Logs how a transfer ended that is not completed. One that has ended in any other way than by a
/// time-out is not resubmitted: it stays idle until the stop, and the stream goes on with the
/// remaining ones.
bool UsbStreamEngine::HasTimedOut(const libusb_transfer& transfer) {
    AIT_LOG_AS("callback");
    switch (transfer.status) {
        case LIBUSB_TRANSFER_TIMED_OUT:
            AIT_LOG(4, "LIBUSB_TRANSFER_TIMED_OUT! EP = %x\n", transfer.endpoint);
            return true;
        case LIBUSB_TRANSFER_CANCELLED:
            AIT_LOG(4, "LIBUSB_TRANSFER_CANCELLED!\n");
            return false;
        case LIBUSB_TRANSFER_NO_DEVICE:
            AIT_LOG(4, "LIBUSB_TRANSFER_NO_DEVICE \r\n");
            return false;
        case LIBUSB_TRANSFER_OVERFLOW:
            AIT_LOG(4, "LIBUSB_TRANSFER_OVERFLOW! EP = %x\n", transfer.endpoint);
            return false;
        default:
            // The wording names audio on both engines; log readers know it so.
            AIT_LOG(4, "Audio Transfer Unknown Status=%d\r\n", transfer.status);
            return false;
    }
}

// --- device --------------------------------------------------------------------------------------

bool UsbStreamEngine::OpenDevice(int vid, int pid) {
    AIT_LOG_AS("Init");
    if (m_ctx != nullptr) {
        m_pDevH = libusb_open_device_with_vid_pid(m_ctx, static_cast<uint16_t>(vid),
                                                  static_cast<uint16_t>(pid));
        if (m_pDevH == nullptr) {
            m_pDevH = libusb_open_device_with_vid_pid(m_ctx, kFallbackVendorId, kFallbackProductId);
            if (m_pDevH != nullptr) {
                AIT_LOG(4, "Found an AIT device VID=0x%X, PID=0x%X\r\n", kFallbackVendorId,
                        kFallbackProductId);
            }
        }
    }
    if (m_pDevH == nullptr) {
        AIT_LOG(4, "AIT Camera Device not found\n");
        return false;
    }
    m_bDeviceGone = false;
    m_pDev = libusb_get_device(m_pDevH);
    int configuration = 0;
    if (NoteResult(libusb_get_configuration(m_pDevH, &configuration)) != 0) {
        AIT_LOG(4, "libusb_get_configuration Error!\n");
        CloseDevice();
        return false;
    }
    return true;
}

void UsbStreamEngine::DetachKernelDriver(int interface) {
    AIT_LOG_AS("Init");
    // An error of the question counts as 'no driver'.
    if (NoteResult(libusb_kernel_driver_active(m_pDevH, interface)) != 1) {
        return;
    }
    const int error = NoteResult(libusb_detach_kernel_driver(m_pDevH, interface));
    if (error != 0) {
        AIT_LOG(4, "libusb_detach_kernel_driver fail!(%d)\n", error);
    }
}

bool UsbStreamEngine::ClaimInterface(int interface, const InterfaceTexts& texts) {
    AIT_LOG_AS("Init");
    const int error = NoteResult(libusb_claim_interface(m_pDevH, interface));
    if (error != 0) {
        AIT_LOG(4, texts.claim_failed, error);
        return false;
    }
    AIT_LOG(4, "%s", texts.claimed);
    return true;
}

void UsbStreamEngine::CloseDevice() {
    if (m_bHandleBroken) {
        AIT_LOG(1, "The lost device's handle is left open, this libusb cannot close it.\r\n");
    } else {
        libusb_close(m_pDevH);
    }
    m_pDevH = nullptr;
    m_pDev = nullptr;
    m_bHandleBroken = false;
}

int UsbStreamEngine::SelectAltSetting(int interface, int alternate) {
    if (m_bDeviceGone) {
        return LIBUSB_ERROR_NO_DEVICE;
    }
    const int error = NoteResult(libusb_set_interface_alt_setting(m_pDevH, interface, alternate));
    if (error == LIBUSB_ERROR_NO_DEVICE && AltSettingBreaksLostHandle()) {
        m_bHandleBroken = true;
    }
    return error;
}

int UsbStreamEngine::NoteResult(int result) {
    if (result == LIBUSB_ERROR_NO_DEVICE) {
        m_bDeviceGone = true;
    }
    return result;
}

// --- transfers -----------------------------------------------------------------------------------

UsbStreamEngine::TransferCbParam* UsbStreamEngine::Param(int index) const {
    const libusb_transfer* transfer = m_pTransfers[index];
    return transfer == nullptr ? nullptr : Param(*transfer);
}

void UsbStreamEngine::CancelAll(const char* line) {
    AIT_LOG_AS("UVC_DisableVideoStream");  // the other engine has no line
    for (int i = 0; i < m_nTransferCount; ++i) {
        if (m_pTransfers[i] == nullptr) {
            continue;
        }
        if (line != nullptr) {
            AIT_LOG(4, line, i);
        }
        // The result says little: a transfer that has just completed answers 'not found'. What
        // counts is that each one is reaped.
        NoteResult(libusb_cancel_transfer(m_pTransfers[i]));
    }
}

bool UsbStreamEngine::AnyInFlight() const {
    for (int i = 0; i < m_nTransferCount; ++i) {
        const TransferCbParam* param = Param(i);
        if (param != nullptr && param->in_flight) {
            return true;
        }
    }
    return false;
}

void UsbStreamEngine::WaitUntilReaped() {
    const Deadline deadline;
    while (AnyInFlight() && !deadline.Passed()) {
        {
            pMutexLock lock(m_TransferMtx);
            HandleEvents(kReapRoundUs);
        }
        usleep(kPollUs);
    }
}

void UsbStreamEngine::ReapLeftovers() {
    if (!AnyInFlight()) {
        return;
    }
    {
        pMutexLock lock(m_TransferMtx);
        CancelAll(nullptr);
    }
    WaitUntilReaped();
}

void UsbStreamEngine::FreeTransfer(int index) {
    pFastMutexLock lock(m_ProducerMtx);
    libusb_transfer* transfer = m_pTransfers[index];
    TransferCbParam* param = Param(index);
    m_pTransfers[index] = nullptr;
    if (param != nullptr && param->in_flight) {
        AIT_LOG(1, "Transfer %d was never given back, it is left to libusb.\r\n", index);
        param->pThis = nullptr;
        return;
    }
    delete param;
    transfer->user_data = nullptr;
    libusb_free_transfer(transfer);
}

void UsbStreamEngine::FreeAll(const char* line) {
    AIT_LOG_AS("UVC_DisableVideoStream");
    for (int i = 0; i < m_nTransferCount; ++i) {
        if (m_pTransfers[i] == nullptr) {
            continue;
        }
        if (line != nullptr) {
            AIT_LOG(4, "%s", line);
        }
        FreeTransfer(i);
    }
}

// --- frame buffers -------------------------------------------------------------------------------

bool UsbStreamEngine::CreateQueue(unsigned int capacity) {
    for (int i = 0; i < m_nFrameBufCount; ++i) {
        m_pFrameBufs[i] = new (std::nothrow) CFrameBuf(capacity);
        if (m_pFrameBufs[i] == nullptr || m_pFrameBufs[i]->buf == nullptr) {
            return false;
        }
    }
    m_pFrameQueue = new (std::nothrow) StaticSyncQueue<CFrameBuf*>(m_pFrameBufs, m_nFrameBufCount);
    return Queue() != nullptr;
}

void UsbStreamEngine::WakeQueue() {
    auto* queue = Queue();
    if (queue != nullptr) {
        queue->WakeWait();
    }
}

void UsbStreamEngine::DestroyQueue() {
    StaticSyncQueue<CFrameBuf*>* queue;
    {
        // A completion that runs elsewhere ends before its queue goes.
        pFastMutexLock lock(m_ProducerMtx);
        queue = m_pFrameQueue.exchange(nullptr);
    }
    const Deadline deadline;
    while (queue != nullptr && m_nConsumerCalls != 0 && !deadline.Passed()) {
        queue->WakeWait();
        usleep(kPollUs);
    }
    const bool abandoned = queue != nullptr && m_nConsumerCalls != 0;
    if (abandoned) {
        AIT_LOG(1, "A consumer does not leave the frame queue, its buffers are left to it.\r\n");
    } else {
        delete queue;
    }
    for (int i = 0; i < m_nFrameBufCount; ++i) {
        if (!abandoned) {
            delete m_pFrameBufs[i];
        }
        m_pFrameBufs[i] = nullptr;
    }
}
