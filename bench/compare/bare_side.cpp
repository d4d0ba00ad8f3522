// The least that a client of libusb can do with a frame: what bounds the other two programs.
#include <libusb-1.0/libusb.h>
#include <pthread.h>

#include <array>
#include <atomic>
#include <cstring>
#include <stdexcept>
#include <thread>
#include <vector>

#include "bench/compare/sides.h"

namespace bench {
namespace {

constexpr size_t kTransfers = 3, kBuffers = 5;
constexpr uint8_t kBulkIn = 0x81, kEndOfFrame = 0x02;
constexpr size_t kLongestFrame = 0x200000;

/// Tests nothing but the end-of-frame bit, copies each payload once, hands a frame over by a counter
/// under a mutex and a condition variable that is signalled after its release, and waits without
/// limits.
class BareSide : public StreamSide {
  public:
    BareSide() : StreamSide(Side::kBare) {
        if (libusb_init(&context_) != 0) {
            throw std::runtime_error("bare client: no libusb");
        }
        handle_ = libusb_open_device_with_vid_pid(context_, kPlainVendor, kBareProduct);
        if (handle_ == nullptr) {
            throw std::runtime_error("bare client: no camera");
        }
        for (auto& buffer : buffers_) {
            buffer.data.assign(kLongestFrame, 1);
        }
    }
    ~BareSide() override {
        stop();
        libusb_close(handle_);
        libusb_exit(context_);
    }

    void start() override {
        stopping_ = false;
        written_ = read_ = 0;
        offset_ = 0;
        const uint32_t length = payload_bytes();
        for (size_t i = 0; i < kTransfers; ++i) {
            memory_[i].assign(length, 1);
            transfers_[i] = libusb_alloc_transfer(0);
            libusb_fill_bulk_transfer(transfers_[i], handle_, kBulkIn, memory_[i].data(),
                                      static_cast<int>(length), on_payload, this, 0);
            libusb_submit_transfer(transfers_[i]);
        }
        in_flight_ = kTransfers;
        events_ = std::thread([this] { handle_events(); });
        reader_ = std::thread([this] { read(); });
    }
    void stop() override {
        if (!events_.joinable()) {
            return;
        }
        stopping_ = true;
        cancel_transfers();
        events_.join();
        pthread_mutex_lock(&mutex_);  // the reader waits, or has yet to look
        pthread_mutex_unlock(&mutex_);
        pthread_cond_signal(&changed_);
        reader_.join();
        for (libusb_transfer* transfer : transfers_) {
            libusb_free_transfer(transfer);
        }
    }

  private:
    struct Frame {
        std::vector<uint8_t> data;
        size_t size = 0;
    };

    static void on_payload(libusb_transfer* transfer) {
        static_cast<BareSide*>(transfer->user_data)->take(transfer);
    }
    void take(libusb_transfer* transfer) {
        if (transfer->status != LIBUSB_TRANSFER_COMPLETED) {
            --in_flight_;
            return;
        }
        const auto count = static_cast<size_t>(transfer->actual_length) - kPayloadHeader;
        Frame& frame = buffers_[written_ % kBuffers];
        std::memcpy(frame.data.data() + offset_, transfer->buffer + kPayloadHeader, count);
        offset_ += count;
        if ((transfer->buffer[1] & kEndOfFrame) != 0) {
            frame.size = offset_;
            offset_ = 0;
            publish();
        }
        libusb_submit_transfer(transfer);
    }
    void publish() {
        pthread_mutex_lock(&mutex_);
        ++written_;
        const bool wake = waiting_;
        pthread_mutex_unlock(&mutex_);
        if (wake) {
            pthread_cond_signal(&changed_);
        }
    }
    void cancel_transfers() {
        for (libusb_transfer* transfer : transfers_) {
            libusb_cancel_transfer(transfer);
        }
    }
    void handle_events() {
        while (in_flight_ != 0) {
            if (stopping_) {
                cancel_transfers();  // one may have been on its way when the stop looked
            }
            libusb_handle_events_completed(context_, nullptr);
        }
    }

    void read() {
        for (;; ++read_) {
            pthread_mutex_lock(&mutex_);
            while (written_ == read_ && !stopping_) {
                waiting_ = true;
                pthread_cond_wait(&changed_, &mutex_);
                waiting_ = false;
            }
            const bool any = written_ != read_;
            pthread_mutex_unlock(&mutex_);
            if (!any) {
                return;
            }
            const Frame& frame = buffers_[read_ % kBuffers];
            consumer_.take(frame.data.data(), frame.size);
        }
    }

    libusb_context* context_ = nullptr;
    libusb_device_handle* handle_ = nullptr;
    std::array<libusb_transfer*, kTransfers> transfers_ = {};
    std::array<std::vector<uint8_t>, kTransfers> memory_;
    std::array<Frame, kBuffers> buffers_;
    std::thread events_, reader_;
    size_t in_flight_ = 0, offset_ = 0;  // of the event thread
    std::atomic<bool> stopping_{false};
    pthread_mutex_t mutex_ = PTHREAD_MUTEX_INITIALIZER;
    pthread_cond_t changed_ = PTHREAD_COND_INITIALIZER;
    uint64_t written_ = 0, read_ = 0;
    bool waiting_ = false;
};

}  // namespace

std::unique_ptr<StreamSide> make_bare_side() {
    return std::make_unique<BareSide>();
}

}  // namespace bench
