// What the video and the audio streaming engine share: opening and claiming the camera, the life of
// asynchronous transfers, the frame queue between event thread and consumer, and the event round.
// Each engine owns a libusb context and a device handle of its own.
//
// Locks, in the order in which they are taken:
//   transfer lock  one round of event handling, cancellation and teardown. The event thread
//                  releases it between rounds and, once the stream is marked as ended, leaves a
//                  gap there.
//   producer lock  one completion, and the parts of teardown that a completion must not meet.
//                  Needed besides the transfer lock because libusb's synchronous calls handle the
//                  events of their context too: a completion may run on any thread inside a
//                  control transfer. Not recursive: libusb completes nothing inside a submission.
//   queue mutex    inside StaticSyncQueue.
//
// Stop contract: the engine's stop marks the stream as ended (a completion with good data is not
// resubmitted from then on, and no completion waits for a free buffer), wakes and waits out the
// consumer, cancels, sleeps its fixed time while the event thread reaps, then waits until each
// cancelled transfer has been reaped, at most 2 s more. A transfer that never comes back is leaked
// and said so: freeing it would pull it from under libusb. The consumer hands a lent buffer back
// before it asks for the stop.
#pragma once

#include <libusb-1.0/libusb.h>
#include <stdint.h>
#include <sys/types.h>

#include <atomic>

#include "CFrameBuf.h"
#include "LibusbWrap.h"
#include "StaticSyncQueue.h"
#include "ptasking.h"

class UsbStreamEngine {
  public:
    enum TransferCbParamStatus { _READY = 0, _STOPED = 1 };

    /// User data of one transfer; owns the transfer's buffer.
    class TransferCbParam {
      public:
        TransferCbParam(UsbStreamEngine* engine, int id, size_t bufferSize);
        virtual ~TransferCbParam() { delete[] transfer_buf; }
        TransferCbParam(const TransferCbParam&) = delete;
        TransferCbParam& operator=(const TransferCbParam&) = delete;

        /// Null once the engine has given the transfer up.
        std::atomic<UsbStreamEngine*> pThis;
        int transfer_id;
        unsigned char* transfer_buf;            ///< null when memory was short
        TransferCbParamStatus status = _READY;  // kept; nothing consults it
        /// libusb holds the transfer: submitted and not yet completed.
        std::atomic<bool> in_flight{false};
    };

    virtual ~UsbStreamEngine() = default;
    UsbStreamEngine(const UsbStreamEngine&) = delete;
    UsbStreamEngine& operator=(const UsbStreamEngine&) = delete;

    // Consumer side, for one capture thread.

    /// Lends the oldest frame without copying; it stays queued until QueueFrameBuf, which must
    /// follow exactly once. Its length, or 0 with both outputs zeroed when none came within 500 ms
    /// or nothing streams. An empty frame is released at once and counts as none.
    unsigned int DequeFrameBuf(unsigned char** pBuf, unsigned int* pLen);

    /// Hands back the frame lent by the last successful DequeFrameBuf. Always 0.
    unsigned int QueueFrameBuf();

    /// One round of event handling, at most 33 ms, under the transfer lock; pauses 500 µs after it
    /// when nothing streams, so that an idle engine does not spin and a stop gets the lock.
    void handle_libusb_event() EXCLUDES(m_TransferMtx);

    /// Completion callback of every transfer of the engine.
    static void callback(libusb_transfer* transfer);

    // --- not called by the plug-in ------------------------------------------------------------

    /// Consumer side, too: copies the oldest frame, at most `size` bytes, and releases it (the rest
    /// of a larger frame is lost). Bytes copied; 0 when none came within 500 ms or nothing streams.
    unsigned int ReadFrame(unsigned char* dst, unsigned int size);

  protected:
    struct InterfaceTexts {
        const char* claim_failed;  ///< with one %d for the libusb error
        const char* claimed;
    };

    /// The arrays say how many transfers and frame buffers there are. They are the derived engine's
    /// own, which is not constructed yet: only their addresses are taken. All slots start as null.
    template <size_t kTransfers, size_t kFrameBufs>
    UsbStreamEngine(libusb_transfer* (&transfers)[kTransfers], CFrameBuf* (&frameBufs)[kFrameBufs])
        : m_pTransfers(transfers),
          m_nTransferCount(static_cast<int>(kTransfers)),
          m_pFrameBufs(frameBufs),
          m_nFrameBufCount(static_cast<int>(kFrameBufs)) {}

    /// Takes the data of a completed or timed-out transfer; resubmits it or not.
    virtual int FillFromTransfer(libusb_transfer* transfer) REQUIRES(m_ProducerMtx) = 0;

    // --- device -------------------------------------------------------------------------------
    /// Opens the camera, or else a device with the fallback identity, and reads its configuration.
    /// False with m_pDevH null when there is none.
    bool OpenDevice(int vid, int pid) REQUIRES(m_libusb_ctrl_lock);
    void DetachKernelDriver(int interface);
    bool ClaimInterface(int interface, const InterfaceTexts& texts);
    /// Closes the handle and clears the field; a handle that libusb cannot close any more is
    /// leaked.
    void CloseDevice();
    /// Selects an alternate setting; a negative libusb error on failure. Not attempted once the
    /// device is known to be gone, see m_bDeviceGone.
    int SelectAltSetting(int interface, int alternate);
    /// Notes a result of libusb on the handle, so that a lost device is remembered; returns it.
    int NoteResult(int result);

    // --- transfers ----------------------------------------------------------------------------
    int TransferCount() const { return m_nTransferCount; }
    int SubmitTransfer(libusb_transfer* transfer);
    /// Cancels every transfer, each after a log line with its index (`line` has one %d; null: none).
    void CancelAll(const char* line) REQUIRES(m_TransferMtx);
    /// Waits until no transfer is in flight, at most 2 s, handling events itself: there may be no
    /// event thread. Takes the transfer lock, round by round; a completion needs the producer lock.
    void WaitUntilReaped() EXCLUDES(m_TransferMtx, m_ProducerMtx);
    /// Cancels silently what is in flight, as a failed start or stop leaves it, and waits for it.
    void ReapLeftovers() EXCLUDES(m_TransferMtx, m_ProducerMtx);
    /// Frees transfer and parameter object and clears the slot; leaks a transfer that is still in
    /// flight.
    void FreeTransfer(int index) EXCLUDES(m_ProducerMtx);
    /// Frees every transfer, each after the log line (null: none).
    void FreeAll(const char* line) REQUIRES(m_TransferMtx) EXCLUDES(m_ProducerMtx);

    // --- frame buffers ------------------------------------------------------------------------
    int FrameBufCount() const { return m_nFrameBufCount; }
    /// Creates the buffers, `capacity` bytes each, and the queue over them; false when memory is
    /// short (what exists is left to DestroyQueue).
    bool CreateQueue(unsigned int capacity);
    void WakeQueue();
    /// Wakes and waits out every thread inside the queue, then destroys queue and buffers.
    void DestroyQueue() REQUIRES(m_TransferMtx) EXCLUDES(m_ProducerMtx);
    StaticSyncQueue<CFrameBuf*>* Queue() const { return m_pFrameQueue.load(); }

    pMutex m_TransferMtx ACQUIRED_BEFORE(m_ProducerMtx);
    pFastMutex m_ProducerMtx;
    libusb_device_handle* m_pDevH = nullptr;
    libusb_context* m_ctx = nullptr;
    libusb_device* m_pDev = nullptr;
    std::atomic<StaticSyncQueue<CFrameBuf*>*> m_pFrameQueue{nullptr};
    std::atomic<bool> IsStreaming{false};
    /// A libusb call or completion said that the device is gone. libusb before 1.0.27 corrupts the
    /// handle when libusb_set_interface_alt_setting is called after that, and libusb_close aborts.
    std::atomic<bool> m_bDeviceGone{false};

  private:
    class ConsumerCall;

    static bool HasTimedOut(const libusb_transfer& transfer);
    static const CFrameBuf* Oldest(StaticSyncQueue<CFrameBuf*>* queue);
    static TransferCbParam* Param(const libusb_transfer& transfer) {
        return static_cast<TransferCbParam*>(transfer.user_data);
    }
    TransferCbParam* Param(int index) const;
    void HandleEvents(suseconds_t limitUs) REQUIRES(m_TransferMtx);
    bool AnyInFlight() const;

    libusb_transfer** const m_pTransfers;
    const int m_nTransferCount;
    CFrameBuf** const m_pFrameBufs;
    const int m_nFrameBufCount;
    std::atomic<int> m_nConsumerCalls{0};  // threads inside the consumer side
    bool m_bHandleBroken = false;
};

// Here, since it is on each payload's way.
inline int UsbStreamEngine::SubmitTransfer(libusb_transfer* transfer) {
    // Before the call: the completion may be there before it returns. Released, not more: whoever
    // frees a transfer looks under the producer lock, and a full barrier at each payload is dear.
    Param(*transfer)->in_flight.store(true, std::memory_order_release);
    const int error = libusb_submit_transfer(transfer);
    if (error != 0) {
        NoteResult(error);
        Param(*transfer)->in_flight = false;
    }
    return error;
}
