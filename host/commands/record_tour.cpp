#include "host/commands/record_tour.h"

#include "host/base/text.h"
#include "host/commands/record_verdict.h"
#include "host/pictures/png_file.h"

namespace camhost {

ExitCode RecordTour::run(StageRecorder& recorder, RecordReport& report) {
    const std::vector<Stage> stages = tour_stages(options_, session_);
    ExitCode code = ExitCode::kOk;
    size_t visited = 0;
    while (visited < stages.size() && !cuts_short(code)) {
        const Stage& stage = stages[visited++];
        const StageResult result = recorder.record(stage, options_.output / stage.name);
        report.add(stage, result);
        count(result);
        if (code == ExitCode::kOk || cuts_short(result.code)) {
            code = result.code;
        }
    }
    if (!tiles_.empty()) {
        write_png(options_.output / "contact-sheet.png", make_contact_sheet(tiles_));
    }
    if (cuts_short(code)) {
        print_totals();
        tell_early_end(stages, visited, code);
        return code;
    }
    const ExitCode whole = conclude();
    return code == ExitCode::kOk ? whole : code;
}

void RecordTour::count(const StageResult& result) {
    size_t tile = 0;
    for (const RecordedStream& stream : result.recording.streams) {
        auto& total = records_[static_cast<size_t>(stream.figures.stream)];
        if (stream.figures.records > 0) {
            if (total == 0) {
                tiles_.push_back(result.tiles[tile]);
            }
            ++tile;
        }
        total += stream.figures.records;
    }
}

/// Returns the streams of which nothing arrived though the camera could have sent them.
StreamSet RecordTour::print_totals() {
    console_.line();
    console_.line("records of the whole tour:");
    StreamSet silent;
    for (const Stream stream : options_.streams) {
        const uint64_t records = records_[static_cast<size_t>(stream)];
        console_.line(
            format("  %-11s %8llu", info(stream).label, static_cast<unsigned long long>(records)));
        // By video mode the camera has no combination with these.
        const bool reachable =
            session_.by_signal_type() ||
            (stream != Stream::kGray && stream != Stream::kYuy2 && stream != Stream::kNv21);
        if (records == 0 && reachable) {
            silent.insert(stream);
        }
    }
    return silent;
}

void RecordTour::tell_early_end(const std::vector<Stage>& stages, size_t visited, ExitCode why) {
    std::vector<std::string> rest;
    for (size_t i = visited; i < stages.size(); ++i) {
        rest.push_back(stages[i].name);
    }
    console_.line();
    console_.line("the tour ended early, in " + stages[visited - 1].name +
                  (why == ExitCode::kCameraLost ? " (the camera went away)" : " (interrupted)") +
                  (rest.empty() ? "" : "; not visited: " + join(rest)));
}

ExitCode RecordTour::conclude() {
    const StreamSet silent = print_totals();
    if (silent.empty()) {
        return ExitCode::kOk;
    }
    console_.line("nothing arrived of " + labels(silent));
    return ExitCode::kNoFrames;
}

}  // namespace camhost
