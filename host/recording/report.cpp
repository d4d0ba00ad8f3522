#include "host/recording/report.h"

#include <nlohmann/json.hpp>

#include "host/base/text.h"

namespace camhost {

namespace {

using ull = unsigned long long;

std::string time_stamp_columns(const StreamSummary& figures) {
    if (!figures.time_stamps) {
        return format("%6s %10s", "-", "-");
    }
    return format("%6zu %10.1f", figures.time_stamps->gaps, figures.time_stamps->longest_ms);
}

void print_row(Console& console, const StreamSummary& figures) {
    const StreamInfo& row = info(figures.stream);
    if (figures.records == 0) {
        console.line(format("  %-11s %8d", row.label, 0));
        return;
    }
    console.line(format("  %-11s %8llu %8llu %12llu %9.2f %10.1f %6zu %10.1f ", row.label,
                        static_cast<ull>(figures.records), static_cast<ull>(figures.pictures),
                        static_cast<ull>(figures.bytes), figures.records_per_second(),
                        figures.kilobits_per_second(), figures.arrival.gaps,
                        figures.arrival.longest_ms) +
                 time_stamp_columns(figures));
}

void print_remarks(Console& console, const RecordedStream& stream) {
    const std::string label = info(stream.figures.stream).label;
    const auto remark = [&](const std::string& text) { console.line("  " + label + ": " + text); };
    if (stream.figures.restarts > 0) {
        remark(format("recording was restarted %llu time(s) meanwhile",
                      static_cast<ull>(stream.figures.restarts)));
    }
    if (stream.figures.steps_back > 0) {
        remark(format("%llu time stamp(s) go back", static_cast<ull>(stream.figures.steps_back)));
    }
    if (stream.figures.clock_jumps > 0) {
        remark(
            format("the time stamps jumped %llu time(s) by 4295 s: the plug-in takes two equal "
                   "clock readings for a wrap; left out above",
                   static_cast<ull>(stream.figures.clock_jumps)));
    }
    if (stream.figures.missing_samples > 0) {
        remark(
            format("%llu samples are missing", static_cast<ull>(stream.figures.missing_samples)));
    }
    if (stream.figures.dropped > 0) {
        remark(format("%llu record(s) DROPPED by camhost: the disk did not keep up",
                      static_cast<ull>(stream.figures.dropped)));
    }
    for (const std::string& note : stream.written.notes) {
        remark(note);
    }
    if (!stream.error.empty()) {
        remark("its files are INCOMPLETE: " + stream.error);
    }
}

nlohmann::json intervals_json(const IntervalTracker::Summary& intervals) {
    return {{"gaps", intervals.gaps},
            {"median_ms", intervals.median_ms},
            {"longest_ms", intervals.longest_ms}};
}

nlohmann::json stream_json(const RecordedStream& stream) {
    const StreamSummary& figures = stream.figures;
    nlohmann::json json{{"records", figures.records},
                        {"pictures", figures.pictures},
                        {"bytes", figures.bytes},
                        {"records_per_second", figures.records_per_second()},
                        {"kilobits_per_second", figures.kilobits_per_second()},
                        {"arrival", intervals_json(figures.arrival)},
                        {"end_markers", figures.end_markers},
                        {"restarts", figures.restarts},
                        {"steps_back", figures.steps_back},
                        {"clock_jumps", figures.clock_jumps},
                        {"missing_samples", figures.missing_samples},
                        {"dropped", figures.dropped},
                        {"notes", stream.written.notes}};
    json["files"] = nlohmann::json::array();
    for (const auto& file : stream.written.files) {
        json["files"].push_back(file.filename().string());
    }
    if (figures.time_stamps) {
        json["time_stamps"] = intervals_json(*figures.time_stamps);
    }
    if (!stream.error.empty()) {
        json["error"] = stream.error;
    }
    return json;
}

}  // namespace

const char* words_for(RecordingResult::End end) {
    switch (end) {
        case RecordingResult::End::kComplete:
            return "complete";
        case RecordingResult::End::kInterrupted:
            return "interrupted";
        case RecordingResult::End::kCameraLost:
            return "the camera went away";
        case RecordingResult::End::kNotStarted:
            return "not started";
    }
    return "";
}

void print_report(Console& console, const RecordingResult& result) {
    console.line(format("  %-11s %8s %8s %12s %9s %10s %17s %17s", "", "", "", "", "", "",
                        "--- arrival ---", "-- time stamp --"));
    console.line(format("  %-11s %8s %8s %12s %9s %10s %6s %10s %6s %10s", "stream", "records",
                        "pictures", "bytes", "records/s", "kbit/s", "gaps", "longest ms", "gaps",
                        "longest ms"));
    for (const RecordedStream& stream : result.streams) {
        print_row(console, stream.figures);
    }
    for (const RecordedStream& stream : result.streams) {
        print_remarks(console, stream);
    }
}

nlohmann::json report_json(const std::string& name, const RecordingResult& result) {
    nlohmann::json json{{"name", name},
                        {"end", words_for(result.end)},
                        {"seconds", result.seconds},
                        {"stop_confirmed", result.stop_confirmed}};
    json["streams"] = nlohmann::json::object();
    for (const RecordedStream& stream : result.streams) {
        json["streams"][info(stream.figures.stream).name] = stream_json(stream);
    }
    return json;
}

std::vector<ContactSheetTile> contact_sheet_tiles(const RecordingResult& result) {
    std::vector<ContactSheetTile> tiles;
    for (const RecordedStream& stream : result.streams) {
        if (stream.figures.records == 0) {
            continue;
        }
        const StreamInfo& row = info(stream.figures.stream);
        const Size size = stream.written.picture_size;
        const std::string detail = row.stream == Stream::kPcm
                                       ? std::string("sound, last second")
                                       : format("%dx%d", size.width, size.height);
        tiles.push_back({std::string(row.label) + " " + detail, stream.written.picture});
    }
    return tiles;
}

}  // namespace camhost
