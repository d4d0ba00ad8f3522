#include "host/writers/y4m_writer.h"

#include <algorithm>
#include <cmath>

#include "host/base/text.h"
#include "host/pictures/raw_picture.h"

namespace camhost {

namespace {

constexpr const char* kMagic = "YUV4MPEG2 ";

/// The rate is known only when the file ends, so its field has a fixed width: frames per 1000 s.
std::string rate_field(double pictures_per_second) {
    const double bounded = std::clamp(pictures_per_second * 1000, 1.0, 999'999.0);
    return format("F%06ld:1000", std::lround(bounded));
}

const char* chroma_field(PlanarPicture::Chroma chroma) {
    switch (chroma) {
        case PlanarPicture::Chroma::k420:
            return "C420mpeg2";
        case PlanarPicture::Chroma::k422:
            return "C422";
        case PlanarPicture::Chroma::kNone:
            break;
    }
    return "Cmono";
}

}  // namespace

void Y4mWriter::write(const Record& record, bool /*restarted*/) {
    const auto size = deduce_size(stream_, record.data.size());
    auto picture = size ? to_planar(stream_, *size, record.data) : std::nullopt;
    if (!picture) {
        write_unknown(record);
        return;
    }
    if (!file_ || picture->size != last_.size) {
        end_file();
        begin_file(*picture);
        first_in_file_ = record.arrival;
    }
    last_ = std::move(*picture);
    last_in_file_ = record.arrival;
    ++pictures_in_file_;
    write_picture(last_);
}

void Y4mWriter::write_picture(const PlanarPicture& picture) {
    file_->write("FRAME\n");
    file_->write(picture.y);
    file_->write(picture.u);
    file_->write(picture.v);
}

void Y4mWriter::write_unknown(const Record& record) {
    if (!unknown_) {
        unknown_.emplace(folder_ / (std::string(info(stream_).name) + ".raw"));
        result_.files.push_back(unknown_->path());
        result_.notes.push_back(
            format("a record of %zu bytes has no size that is known; such "
                   "records are in %s as they came",
                   record.data.size(), unknown_->path().filename().c_str()));
    }
    unknown_->write(record.data);
}

std::string Y4mWriter::numbered_name() const {
    const std::string stem = info(stream_).name;
    return (files_begun_ == 1 ? stem : stem + format("-%u", files_begun_)) + ".y4m";
}

void Y4mWriter::begin_file(const PlanarPicture& picture) {
    ++files_begun_;
    pictures_in_file_ = 0;
    file_.emplace(folder_ / numbered_name());
    result_.files.push_back(file_->path());
    file_->write(std::string(kMagic) + rate_field(0) +
                 format(" W%d H%d Ip A1:1 %s\n", picture.size.width, picture.size.height,
                        chroma_field(picture.chroma)));
}

void Y4mWriter::end_file() {
    if (!file_) {
        return;
    }
    const double seconds = std::chrono::duration<double>(last_in_file_ - first_in_file_).count();
    // One picture alone has no rate; one per second then is as good as any.
    const double rate = seconds > 0 ? static_cast<double>(pictures_in_file_ - 1) / seconds : 1.0;
    file_->write_at(static_cast<long>(std::char_traits<char>::length(kMagic)), rate_field(rate));
    file_->close();
    file_.reset();
}

WrittenStream Y4mWriter::finish() {
    end_file();
    if (unknown_) {
        unknown_->close();
    }
    if (!last_.y.empty()) {
        result_.picture_size = last_.size;
        result_.picture = to_rgb(last_);
    }
    return std::move(result_);
}

}  // namespace camhost
