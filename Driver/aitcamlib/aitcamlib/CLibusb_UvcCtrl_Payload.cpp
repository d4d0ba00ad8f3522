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
constexpr int kBufferWaitMs = 500;
constexpr int kHeaderSize = static_cast<int>(kUvcPayloadHeaderSize);

}  // namespace

int CLibUSB_UvcCtrl::FillVideoBuf_Bulk(libusb_transfer* transfer) {
    if (transfer->status == LIBUSB_TRANSFER_TIMED_OUT && IsStreaming) {
        SubmitTransfer(transfer);
        return 0;
    }
    if (m_pCurFrameBufForWrite == nullptr) {
        return 0;
    }
    if (AwaitFreshBuffer(transfer)) {
        SubmitTransfer(transfer);
        return 0;
    }
    unsigned char* const dst = m_pCurFrameBufForWrite->GetCurFrameBuffer()->buf;
    if (transfer->actual_length > 0) {
        if (transfer->status != LIBUSB_TRANSFER_COMPLETED) {
            AIT_LOG(4, "status %d\n", transfer->status);
        }
        // A payload of one byte has no flags: they count as 0.
        unsigned char flags = transfer->actual_length > 1 ? transfer->buffer[1] : 0;
        if ((flags & kEndOfFrame) != 0 || ((flags ^ m_UvcHeaderInfo) & kFrameId) != 0) {
            CrossFrameBoundary(transfer, dst, &flags);
        }
        if ((flags & kError) != 0) {
            AIT_LOG(4, "Dropping payload (error bit set).\n");
            SubmitTransfer(transfer);
            return 0;
        }
        if (!AppendPayload(transfer, dst)) {
            SubmitTransfer(transfer);
            return 0;
        }
    }
    if (IsStreaming) {
        SubmitTransfer(transfer);
    } else {
        AIT_LOG(4, "Stop submit transfer.\r\n");
    }
    return 0;
}

/// In a stream that has ended nobody waits: the consumer has gone, and the stop needs the locks.
int CLibUSB_UvcCtrl::BufferWaitMs() const {
    return IsStreaming ? kBufferWaitMs : 0;
}

/// True while there is no buffer to fill, since the queue was full: the data of this payload is
/// lost. A payload that ends a frame asks for a new buffer, so that the next frame starts in it.
bool CLibUSB_UvcCtrl::AwaitFreshBuffer(libusb_transfer* transfer) {
    if (m_pCurFrameBufForWrite->GetCurFrameBuffer() != nullptr) {
        return false;
    }
    if (transfer->actual_length >= 3 && (transfer->buffer[1] & kEndOfFrame) != 0) {
        AIT_LOG(1, "Dropped a UVC frame,Now trying to request a new frame buffer.\r\n");
        m_pCurFrameBufForWrite->GetNewFrameBuffer(BufferWaitMs());
    }
    return true;
}

/// Publishes the frame gathered so far. A header of another length than 12 makes the payload an
/// erroneous one: a longer one's bytes are copied behind the frame, where nothing counts them.
void CLibUSB_UvcCtrl::CrossFrameBoundary(libusb_transfer* transfer, unsigned char* dst,
                                         unsigned char* flags) {
    m_UvcHeaderInfo = *flags;
    const unsigned char headerLength = transfer->buffer[0];
    if (headerLength != kHeaderSize) {
        AIT_LOG(4, "UVC Payload Header Length = %d\n", headerLength);
        *flags |= kError;
        if (headerLength > kHeaderSize && transfer->actual_length > kHeaderSize) {
            const size_t room =
                static_cast<size_t>(m_dwMaxFrameSize) - static_cast<size_t>(bulk_offset);
            const size_t count =
                std::min(room, static_cast<size_t>(transfer->actual_length - kHeaderSize));
            memcpy(dst + bulk_offset, transfer->buffer + kHeaderSize, count);
        }
    }
    if (bulk_offset > 0) {
        m_pCurFrameBufForWrite->GetCurFrameBuffer()->len = static_cast<uint32_t>(bulk_offset);
        m_pCurFrameBufForWrite->GetNewFrameBuffer(BufferWaitMs());
    }
    bulk_offset = 0;
}

/// Appends the payload's data to the frame; false when it does not fit and was skipped.
bool CLibUSB_UvcCtrl::AppendPayload(const libusb_transfer* transfer, unsigned char* dst) {
    if (dst == nullptr || transfer->actual_length <= kHeaderSize) {
        return true;
    }
    const size_t count = static_cast<size_t>(transfer->actual_length - kHeaderSize);
    const size_t sum = static_cast<size_t>(bulk_offset) + count;
    if (sum > m_dwMaxFrameSize) {
        AIT_LOG(4, "Fram size exceed MaxFrameSize!! %d\n", static_cast<int>(sum));
        return false;
    }
    memcpy(dst + bulk_offset, transfer->buffer + kHeaderSize, count);
    bulk_offset = static_cast<int>(sum);
    return true;
}
