// audio.wav: 16-bit stereo, through libsndfile.
#pragma once

#include <sndfile.h>

#include <atomic>
#include <cstdint>
#include <memory>
#include <vector>

#include "host/writers/stream_writer.h"

namespace camhost {

/// The records do not carry their sampling rate: it is read from `sample_rate` (Hz) when a file
/// begins. A restart of recording at another rate begins a new file: audio-2.wav.
class WavWriter : public StreamWriter {
  public:
    static constexpr int kChannels = 2;
    static constexpr size_t kFrameBytes = sizeof(int16_t) * kChannels;

    /// `sample_rate` is borrowed; the controlling thread may change it while recording.
    WavWriter(const std::filesystem::path& folder, const std::atomic<int>& sample_rate)
        : folder_(folder), sample_rate_(sample_rate) {}

    void write(const Record& record, bool restarted) override;
    /// The picture is the curve of the last second.
    WrittenStream finish() override;

  private:
    struct Closer {
        void operator()(SNDFILE* file) const { sf_close(file); }
    };
    void begin_file();
    void remember(const std::vector<uint8_t>& block);
    RgbPicture draw_curve() const;

    std::filesystem::path folder_;
    const std::atomic<int>& sample_rate_;
    int file_rate_ = 0;
    std::unique_ptr<SNDFILE, Closer> file_;
    WrittenStream result_;
    std::vector<int16_t> last_second_;  ///< left channel
};

}  // namespace camhost
