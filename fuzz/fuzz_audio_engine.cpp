// Isochronous completions into frames: packets of any size up to what a SuperSpeed endpoint may
// claim, of any status, whose lengths may exceed what was asked for.
#include <algorithm>
#include <cstddef>
#include <cstdint>

#include "CLibusb_UacCtrl.h"
#include "aitdbg.h"
#include "fuzz/fake_usb.h"

namespace {

class Engine : public CLibUSB_UacCtrl {
  public:
    Engine() {
        g_embedded_cam_dbg_level = 0;
        Init(0, 0);
    }
    ~Engine() override { UAC_DisableAudioStream(); }

    void Begin(int packetSize) {
        fuzz::set_iso_packet_size(packetSize);
        UAC_EnableAudioStream(16000);
    }

    /// The oldest transfer ends with packets of these lengths (two bytes each; 65,535 stands for a
    /// length that no packet can have). Returns what was used of the input.
    size_t Complete(const uint8_t* data, size_t size, libusb_transfer_status status) {
        libusb_transfer* transfer = fuzz::oldest_transfer();
        if (transfer == nullptr) {
            return size;
        }
        size_t used = 0;
        for (int i = 0; i < transfer->num_iso_packets; ++i, used += 2) {
            const unsigned length = used + 2 <= size ? data[used] | (data[used + 1] << 8) : 0;
            transfer->iso_packet_desc[i].actual_length = length == 0xFFFF ? 0xFFFFFFFFu : length;
            transfer->iso_packet_desc[i].status = status;
        }
        fuzz::end_oldest_transfer(status);
        return std::min(used, size);
    }

    void TakeFrame() {
        if (Queue() == nullptr || Queue()->GetCnt() == 0) {
            return;
        }
        unsigned char* data = nullptr;
        unsigned int size = 0;
        if (DequeFrameBuf(&data, &size) != 0) {
            fuzz::touch(data, size + CFrameBuf::kSpareBytes);
            QueueFrameBuf();
        }
    }
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static Engine engine;
    if (size < 2) {
        return 0;
    }
    // Small packets mostly: large ones cost megabytes for each input.
    const int large = data[0] | (data[1] << 8);
    engine.Begin(data[1] >= 0xC0 ? large : 1 + 16 * data[0]);
    size_t at = 2;
    while (at < size) {
        const uint8_t how = data[at++];
        at += engine.Complete(data + at, size - at,
                              static_cast<libusb_transfer_status>(how % 8 < 6 ? how % 8 : 0));
        if ((how & 0x80) != 0) {
            engine.TakeFrame();
        }
    }
    return 0;
}
