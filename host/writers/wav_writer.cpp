#include "host/writers/wav_writer.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>

#include "host/base/exit_code.h"
#include "host/base/text.h"

namespace camhost {

void WavWriter::write(const Record& record, bool restarted) {
    if (file_ == nullptr || (restarted && sample_rate_.load() != file_rate_)) {
        begin_file();
    }
    const size_t whole = record.data.size() / kFrameBytes * kFrameBytes;
    if (whole != record.data.size() && result_.notes.empty()) {
        result_.notes.emplace_back("a record ends inside a sample; the odd bytes are left out");
    }
    const auto count = static_cast<sf_count_t>(whole);
    if (sf_write_raw(file_.get(), record.data.data(), count) != count) {
        throw Failure(ExitCode::kFailed, "cannot write " + result_.files.back().string() + ": " +
                                             sf_strerror(file_.get()));
    }
    remember(record.data);
}

void WavWriter::begin_file() {
    const size_t number = result_.files.size() + 1;
    const auto path = folder_ / (number == 1 ? "audio.wav" : format("audio-%zu.wav", number));
    file_rate_ = sample_rate_.load();
    SF_INFO layout{};
    layout.samplerate = file_rate_;
    layout.channels = kChannels;
    layout.format = SF_FORMAT_WAV | SF_FORMAT_PCM_16;
    file_.reset(sf_open(path.c_str(), SFM_WRITE, &layout));
    if (file_ == nullptr) {
        throw Failure(ExitCode::kFailed,
                      "cannot write " + path.string() + ": " + sf_strerror(nullptr));
    }
    last_second_.clear();
    result_.files.push_back(path);
}

void WavWriter::remember(const std::vector<uint8_t>& block) {
    for (size_t i = 0; i + kFrameBytes <= block.size(); i += kFrameBytes) {
        last_second_.push_back(static_cast<int16_t>(block[i] | (block[i + 1] << 8)));
    }
    const auto second = static_cast<size_t>(file_rate_);
    if (last_second_.size() > 2 * second) {
        last_second_.erase(last_second_.begin(),
                           last_second_.end() - static_cast<ptrdiff_t>(second));
    }
}

RgbPicture WavWriter::draw_curve() const {
    constexpr Size kSize{320, 240};
    constexpr int kMiddle = kSize.height / 2;
    RgbPicture picture(kSize, 24);
    for (int x = 0; x < kSize.width; ++x) {
        const size_t begin = last_second_.size() * static_cast<size_t>(x) / kSize.width;
        const size_t end = last_second_.size() * static_cast<size_t>(x + 1) / kSize.width;
        int peak = 0;
        for (size_t i = begin; i < end; ++i) {
            peak = std::max(peak, std::abs(static_cast<int>(last_second_[i])));
        }
        const int reach = peak * (kMiddle - 1) / 32768;
        for (int y = kMiddle - reach; y <= kMiddle + reach; ++y) {
            uint8_t* pixel = picture.pixel(x, y);
            pixel[0] = 90;
            pixel[1] = 220;
            pixel[2] = 130;
        }
    }
    return picture;
}

WrittenStream WavWriter::finish() {
    file_.reset();
    if (!last_second_.empty()) {
        result_.picture = draw_curve();
        result_.picture_size = result_.picture.size;
    }
    return std::move(result_);
}

}  // namespace camhost
