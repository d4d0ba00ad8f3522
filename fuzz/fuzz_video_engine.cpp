// Bulk payloads into frames: a sequence of completions with any status, length and header, and a
// consumer that takes a frame now and then.
#include <algorithm>
#include <cstddef>
#include <cstdint>

#include "CLibusb_UvcCtrl.h"
#include "aitdbg.h"
#include "fuzz/fake_usb.h"

namespace {

constexpr unsigned kLargestFrame = 0x200000;

/// One completion, as it stands in the input; what the payload carries is its place in it.
struct Record {
    uint8_t status;   // 4 and more of 8: completed
    uint8_t repeats;  // of the payload, and (highest bit) whether a frame is taken afterwards
    uint8_t length_low, length_high;
    uint8_t header_length, flags;
};

class Engine : public CLibUSB_UvcCtrl {
  public:
    Engine() {
        g_embedded_cam_dbg_level = 0;
        Init(0, 0);
    }
    ~Engine() override { UVC_DisableVideoStream(); }

    /// The same state for every input: all transfers in flight, no frame begun, none queued.
    void Begin() {
        if (m_Idle || !IsStreaming) {
            UVC_EnableVideoStream(4, 4, 30);
            m_Idle = false;
        }
        Complete({4, 0, 12, 0, 12, 2});
        while (TakeFrame()) {
        }
    }

    void Complete(const Record& record) {
        libusb_transfer* transfer = fuzz::oldest_transfer();
        if (transfer == nullptr) {
            return;
        }
        // Negative lengths, and such beyond the transfer, are no answers of a kernel.
        transfer->actual_length =
            static_cast<int16_t>(record.length_low | (record.length_high << 8));
        std::fill_n(transfer->buffer, transfer->length, record.length_low);
        transfer->buffer[0] = record.header_length;
        transfer->buffer[1] = record.flags;
        constexpr libusb_transfer_status kStatus[] = {LIBUSB_TRANSFER_TIMED_OUT,
                                                      LIBUSB_TRANSFER_ERROR, LIBUSB_TRANSFER_STALL,
                                                      LIBUSB_TRANSFER_OVERFLOW};
        const unsigned status = record.status % 8;
        const auto ending = status >= 4 ? LIBUSB_TRANSFER_COMPLETED : kStatus[status];
        m_Idle |= ending != LIBUSB_TRANSFER_COMPLETED && ending != LIBUSB_TRANSFER_TIMED_OUT;
        fuzz::end_oldest_transfer(ending);
    }

    bool TakeFrame() {
        if (Queue()->GetCnt() == 0) {
            return false;
        }
        unsigned char* data = nullptr;
        unsigned int size = 0;
        if (DequeFrameBuf(&data, &size) != 0) {
            if (size > kLargestFrame) {
                __builtin_trap();
            }
            fuzz::touch(data, size + CFrameBuf::kSpareBytes);
            QueueFrameBuf();
        }
        return true;
    }

  private:
    bool m_Idle = false;  // a transfer was not resubmitted
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static Engine engine;
    engine.Begin();
    for (size_t at = 0; at + sizeof(Record) <= size; at += sizeof(Record)) {
        const Record record = {data[at],     data[at + 1], data[at + 2],
                               data[at + 3], data[at + 4], data[at + 5]};
        for (int i = 0; i <= (record.repeats & 0x1F); ++i) {
            engine.Complete(record);
        }
        if ((record.repeats & 0x80) != 0) {
            engine.TakeFrame();
        }
    }
    return 0;
}
