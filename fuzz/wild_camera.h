// A camera that does what the fuzzer's bytes say, in virtual time. Where they end it is a good one,
// so that short inputs lead far.
#pragma once

#include "fuzz/tape.h"
#include "tests/simulation/camera.h"

namespace fuzz {

class WildCamera : public sim::Camera {
  public:
    /// `answers`: to requests and set-up calls; `stream`: completions and frames.
    WildCamera(uint16_t product, Tape answers, Tape stream);

    int call(const std::string& name, int interface) override;
    sim::Answer control(const sim::Setup& setup, unsigned char* data) override;
    sim::Answer bulk_out(const unsigned char* data, int length) override;
    int iso_packet_size() const override { return iso_packet_size_; }
    sim::Ending submitted(const libusb_transfer& transfer) override;
    void fill(libusb_transfer& transfer) override;

  protected:
    std::vector<uint8_t> next_frame() override;

  private:
    sim::Answer spoil(sim::Answer good, unsigned char* data);
    void spoil_payload(libusb_transfer& transfer);
    void spoil_packets(libusb_transfer& transfer);
    void append_sub_stream(std::vector<uint8_t>& frame);

    Tape answers_;
    Tape stream_;
    int iso_packet_size_;
};

/// Puts the television's files where the plug-in reads them, silences its log (which is formatted
/// all the same) and makes its shell do nothing. Once, in the sandbox.
void prepare_television();
/// Chooses one of the television's platforms, 0 to 9.
void choose_platform(unsigned platform);

}  // namespace fuzz
