#include "host/recording/conformance.h"

#include <algorithm>

#include "host/base/file_bytes.h"
#include "host/base/text.h"
#include "host/pictures/annexb.h"
#include "host/pictures/h264_decoder.h"
#include "host/pictures/jpeg_decoder.h"

namespace camhost {

namespace {

constexpr size_t kLargestFile = size_t{64} << 20;

using Findings = std::vector<Finding>;

std::string counts(uint64_t found, uint64_t expected) {
    return format("%llu of %llu", static_cast<unsigned long long>(found),
                  static_cast<unsigned long long>(expected));
}

void judge_h264(const RecordedStream& stream, const std::string& label, Findings* findings) {
    const auto bytes = read_file(stream.written.files.front(), 0, kLargestFile);
    bool begins_with_parameters = false;
    unsigned slices = 0;
    unsigned pictures = 0;
    size_t nals = 0;
    bool sps_first = false;
    H264Decoder decoder;
    PlanarPicture picture;
    for_each_nal(bytes, [&](std::span<const uint8_t> nal) {
        const auto type = static_cast<NalType>(nal[0] & 0x1F);
        sps_first = nals == 0 ? type == NalType::kSps : sps_first;
        begins_with_parameters =
            nals == 1 ? sps_first && type == NalType::kPps : begins_with_parameters;
        slices += type == NalType::kSlice || type == NalType::kIdr ? 1 : 0;
        pictures += decoder.decode(nal, &picture) ? 1 : 0;
        ++nals;
    });
    pictures += decoder.flush(&picture) ? 1 : 0;
    findings->push_back({begins_with_parameters, label + " begins with SPS and PPS", ""});
    findings->push_back({slices > 0 && pictures == slices && decoder.errors() == 0,
                         label + ": every access unit decodes", counts(pictures, slices)});
}

void judge_jpeg(const RecordedStream& stream, const std::string& label, Findings* findings) {
    const auto good = std::count_if(
        stream.written.files.begin(), stream.written.files.end(),
        [](const auto& file) { return !decode_jpeg(read_file(file, 0, kLargestFile)).empty(); });
    findings->push_back({static_cast<size_t>(good) == stream.written.files.size(),
                         label + ": every picture decodes",
                         counts(static_cast<uint64_t>(good), stream.written.files.size())});
}

void judge_raw(const RecordedStream& stream, const std::string& label, Findings* findings) {
    findings->push_back(
        {stream.written.notes.empty() && !stream.written.picture.empty(),
         label + ": records have the size of a picture",
         format("%dx%d", stream.written.picture_size.width, stream.written.picture_size.height)});
}

void judge_pcm(const RecordedStream& stream, const std::string& label, Findings* findings) {
    constexpr uint64_t kBlock = 960;
    findings->push_back({stream.figures.bytes == stream.figures.records * kBlock,
                         label + ": every record holds 960 bytes", ""});
}

void judge_arrived(const RecordedStream& stream, Findings* findings) {
    const StreamInfo& row = info(stream.figures.stream);
    const std::string label = row.label;
    findings->push_back({stream.error.empty() && stream.figures.dropped == 0,
                         label + ": all records are in files", stream.error});
    if (row.time_stamped) {
        findings->push_back(
            {stream.figures.steps_back == 0, label + ": time stamps never go back", ""});
    }
    if (stream.written.files.empty()) {
        return;
    }
    switch (row.stream) {
        case Stream::kH264Main:
        case Stream::kH264Sub:
            judge_h264(stream, label, findings);
            break;
        case Stream::kJpeg:
            judge_jpeg(stream, label, findings);
            break;
        case Stream::kPcm:
            judge_pcm(stream, label, findings);
            break;
        default:
            judge_raw(stream, label, findings);
            break;
    }
}

}  // namespace

std::vector<Finding> judge(const StreamSet& carries, const RecordingResult& result) {
    Findings findings;
    for (const RecordedStream& stream : result.streams) {
        const StreamInfo& row = info(stream.figures.stream);
        if (carries.count(row.stream) > 0) {
            findings.push_back(
                {stream.figures.records > 0, std::string(row.label) + " arrives",
                 format("%llu records", static_cast<unsigned long long>(stream.figures.records))});
        }
        if (stream.figures.records > 0) {
            judge_arrived(stream, &findings);
        }
        if (row.stream == Stream::kGray || row.stream == Stream::kNv12) {
            findings.push_back({stream.figures.end_markers == 1,
                                std::string(row.label) + ": its observers are told of the end",
                                ""});
        }
    }
    return findings;
}

}  // namespace camhost
