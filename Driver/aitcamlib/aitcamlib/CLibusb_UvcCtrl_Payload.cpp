// Reassembly of bulk payloads into frames.
//
// Each transfer carries one payload: a 12-byte header and data. A payload is a boundary when it
// ends a frame (end-of-frame bit) or begins one (its frame ID differs from that of the last
// boundary). A boundary publishes what has been gathered; data is appended to the buffer that was
// current when the transfer arrived.
//
// That pointer is taken once and deliberately not read again after a boundary has published its
// buffer: the camera ends each frame with a header-only payload, so the data of the next frame
// always finds a fresh buffer. Do not 'fix' this by re-reading the pointer; integrators compare
// frames byte by byte with those of cameras that end their frames otherwise.
#include <string.h>

#include <algorithm>

#include "CLibusb_UvcCtrl.h"
#include "UvcRequests.h"
#include "aitdbg.h"

namespace {

constexpr unsigned char kFrameId = 0x01;
constexpr unsigned char kEndOfFrame = 0x02;
constexpr unsigned char kError = 0x40;
constexpr int kShortestFrameEnd = 3;  // bytes of a payload that may ask for a buffer
constexpr int kBufferWaitMs = 500;
constexpr int kHeaderSize = static_cast<int>(kUvcPayloadHeaderSize);

}  // namespace

/// What a completion brought: no more than was asked for, whatever the completion says.
class CLibUSB_UvcCtrl::BulkPayload {
  public:
    explicit BulkPayload(const libusb_transfer& transfer) : m_Transfer(transfer) {}

    /// Header included.
    int Length() const { return std::min(m_Transfer.actual_length, m_Transfer.length); }
    unsigned char HeaderLength() const { return Length() > 0 ? m_Transfer.buffer[0] : 0; }
    /// A payload of one byte has none: they count as 0.
    unsigned char Flags() const { return Length() > 1 ? m_Transfer.buffer[1] : 0; }
    const unsigned char* Data() const { return m_Transfer.buffer + kHeaderSize; }
    /// 0 or less: the payload has no data.
    int DataLength() const { return Length() - kHeaderSize; }

  private:
    const libusb_transfer& m_Transfer;
};

/// Called by the completion callback, on whatever thread handles the events of the engine's context,
/// for a transfer that is completed or timed out. What becomes of the transfer, in this order:
///  - timed out in a running stream: resubmitted, what it brought is dropped;
///  - no frame buffers (the stream is being torn down): stays idle;
///  - no free buffer: resubmitted, the payload is dropped;
///  - error bit set, by the camera or for a header of another length: resubmitted;
///  - data that does not fit the frame: resubmitted, the frame so far is kept;
///  - otherwise resubmitted in a running stream, and left idle with a line in one that has ended.
/// A status other than completed past the first is the time-out of a stream that has ended: what it
/// brought is taken like any payload.
int CLibUSB_UvcCtrl::FillVideoBuf_Bulk(libusb_transfer* transfer) {
    if (transfer->status == LIBUSB_TRANSFER_TIMED_OUT && IsStreaming) {
        SubmitTransfer(transfer);
        return 0;
    }
    if (m_pCurFrameBufForWrite == nullptr) {
        return 0;
    }
    if (!TakePayload(*transfer) || IsStreaming) {
        SubmitTransfer(transfer);
    } else {
        AIT_LOG(4, "Stop submit transfer.\r\n");
    }
    return 0;
}

/// False: the payload was dropped. Inlined, or a payload costs an eighth more.
[[gnu::always_inline]] inline bool CLibUSB_UvcCtrl::TakePayload(const libusb_transfer& transfer) {
    AIT_LOG_AS("FillVideoBuf_Bulk");
    const BulkPayload payload(transfer);
    const CFrameBuf* const frame = m_pCurFrameBufForWrite->GetCurFrameBuffer();
    if (frame == nullptr) {
        AskForFreshBuffer(payload);
        return false;
    }
    unsigned char* const dst = frame->buf;
    if (payload.Length() <= 0) {
        return true;
    }
    if (transfer.status != LIBUSB_TRANSFER_COMPLETED) {
        AIT_LOG(4, "status %d\n", transfer.status);
    }
    const bool boundary = (payload.Flags() & kEndOfFrame) != 0 ||
                          ((payload.Flags() ^ m_UvcHeaderInfo) & kFrameId) != 0;
    if ((boundary && !CrossFrameBoundary(payload, dst)) || (payload.Flags() & kError) != 0) {
        AIT_LOG(4, "Dropping payload (error bit set).\n");
        return false;
    }
    return AppendPayload(payload, dst);
}

/// In a stream that has ended nobody waits: the consumer has gone, and the stop needs the locks.
int CLibUSB_UvcCtrl::BufferWaitMs() const {
    return IsStreaming ? kBufferWaitMs : 0;
}

/// There is no buffer to fill, since the queue was full: the data of this payload is lost. One that
/// ends a frame asks for a new buffer, so that the next frame starts in it.
void CLibUSB_UvcCtrl::AskForFreshBuffer(BulkPayload payload) {
    AIT_LOG_AS("FillVideoBuf_Bulk");
    if (payload.Length() >= kShortestFrameEnd && (payload.Flags() & kEndOfFrame) != 0) {
        AIT_LOG(1, "Dropped a UVC frame,Now trying to request a new frame buffer.\r\n");
        m_pCurFrameBufForWrite->GetNewFrameBuffer(BufferWaitMs());
    }
}

/// Publishes the frame gathered so far. False for a header of another length than 12, which makes the
/// payload an erroneous one: a longer one's bytes are copied behind the frame, where nothing counts
/// them.
bool CLibUSB_UvcCtrl::CrossFrameBoundary(BulkPayload payload, unsigned char* dst) {
    AIT_LOG_AS("FillVideoBuf_Bulk");
    m_UvcHeaderInfo = payload.Flags();
    const bool good = payload.HeaderLength() == kHeaderSize;
    if (!good) {
        AIT_LOG(4, "UVC Payload Header Length = %d\n", payload.HeaderLength());
        if (payload.HeaderLength() > kHeaderSize && payload.DataLength() > 0) {
            const size_t room =
                static_cast<size_t>(m_dwMaxFrameSize) - static_cast<size_t>(bulk_offset);
            memcpy(dst + bulk_offset, payload.Data(),
                   std::min(room, static_cast<size_t>(payload.DataLength())));
        }
    }
    if (bulk_offset > 0) {
        m_pCurFrameBufForWrite->GetCurFrameBuffer()->len = static_cast<uint32_t>(bulk_offset);
        m_pCurFrameBufForWrite->GetNewFrameBuffer(BufferWaitMs());
    }
    bulk_offset = 0;
    return good;
}

/// Appends the payload's data to the frame; false when it does not fit and was skipped.
inline bool CLibUSB_UvcCtrl::AppendPayload(BulkPayload payload, unsigned char* dst) {
    AIT_LOG_AS("FillVideoBuf_Bulk");
    if (dst == nullptr || payload.DataLength() <= 0) {
        return true;
    }
    const size_t count = static_cast<size_t>(payload.DataLength());
    const size_t sum = static_cast<size_t>(bulk_offset) + count;
    if (sum > m_dwMaxFrameSize) {
        AIT_LOG(4, "Fram size exceed MaxFrameSize!! %d\n", static_cast<int>(sum));
        return false;
    }
    unsigned char* const end = dst + bulk_offset;
    bulk_offset = static_cast<int>(sum);
    memcpy(end, payload.Data(), count);
    return true;
}
