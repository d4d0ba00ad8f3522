// camhost record: one combination, or a tour over all.
#include <algorithm>
#include <fstream>
#include <nlohmann/json.hpp>
#include <vector>

#include "host/base/text.h"
#include "host/commands/commands.h"
#include "host/commands/workbench.h"
#include "host/pictures/png_file.h"
#include "host/properties/combination.h"
#include "host/recording/report.h"
#include "host/session/property_access.h"

namespace camhost {

namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;

constexpr milliseconds kDefaultStillInterval = seconds(1);

/// One stop of the tour, or the only recording.
struct Stage {
    std::string name;
    std::optional<int> number;  ///< combination to choose; nothing: as the plug-in stands
    StreamSet carries;          ///< what should arrive; empty when unknown
    bool nv12 = false;
};

bool multiplexed_size(int width, int height) {
    constexpr Size kSizes[] = {{640, 480}, {160, 120}, {320, 240}, {1280, 720}, {1920, 1080}};
    return std::find(std::begin(kSizes), std::end(kSizes), Size{width, height}) != std::end(kSizes);
}

/// True for an ending that leaves nothing to go on with: it decides the exit code, whatever
/// earlier combinations gave.
bool cuts_short(ExitCode code) {
    return code == ExitCode::kCameraLost || code == ExitCode::kInterrupted;
}

class RecordCommand {
  public:
    RecordCommand(const RecordOptions& options, Workbench& bench, Session& session)
        : options_(options), bench_(bench), console_(bench.console()), session_(session) {}

    ExitCode run();

  private:
    Selector selector() const {
        return session_.by_signal_type() ? Selector::kSignalType : Selector::kVideoMode;
    }
    std::vector<Stage> stages() const;
    Stage named_stage() const;
    Stage stage_for(int number) const;
    void change(const char* property, const CAM_PROP_VALUE& value);
    void change(const char* property, int value);
    void apply_general_settings();
    void advise_on_size();
    RecordingPlan plan_for(const Stage& stage) const;
    milliseconds still_interval(const Stage& stage) const;
    ExitCode record_stage(const Stage& stage);
    void print_silent_streams(const Stage& stage, const RecordingPlan& plan,
                              const RecordingResult& result);
    ExitCode code_for(const RecordingResult& result) const;
    ExitCode judge_records(const RecordingResult& result) const;
    void tell_early_end(const std::vector<Stage>& tour, size_t visited, ExitCode why);
    StreamSet print_tour_totals();
    ExitCode conclude_tour();
    void write_json() const;

    const RecordOptions& options_;
    Workbench& bench_;
    Console& console_;
    Session& session_;
    bool setting_refused_ = false;
    nlohmann::json recordings_ = nlohmann::json::array();
    std::vector<ContactSheetTile> tour_tiles_;
    std::array<uint64_t, kStreamCount> tour_records_{};
};

Stage RecordCommand::stage_for(int number) const {
    Stage stage{combination_name(selector(), number), number, {}, options_.nv12};
    if (const Combination* known = find_combination(selector(), number)) {
        stage.carries = known->carries;
    }
    return stage;
}

Stage RecordCommand::named_stage() const {
    const bool by_signal = session_.by_signal_type();
    const std::string& wanted = by_signal ? options_.signal : options_.video_mode;
    const std::string& other = by_signal ? options_.video_mode : options_.signal;
    if (!other.empty()) {
        throw Failure(ExitCode::kRefused,
                      by_signal ? "this television selects by signal type: use --signal"
                                : "this television selects by video mode: use --video-mode");
    }
    if (!wanted.empty()) {
        return stage_for(parse_combination(selector(), wanted));
    }
    const auto current = by_signal ? session_.get(CAM_PROPERTY_SIGNAL_TYPE) : std::nullopt;
    Stage stage = current ? stage_for(current->value) : Stage{"recording", {}, {}, options_.nv12};
    stage.number.reset();
    return stage;
}

std::vector<Stage> RecordCommand::stages() const {
    if (!options_.tour) {
        return {named_stage()};
    }
    std::vector<Stage> tour;
    for (const Combination& each : combinations(selector())) {
        if (selector() == Selector::kSignalType && each.number == CAM_SIGNAL_H264_GRAY_JPEG) {
            continue;  // The plug-in makes CAM_SIGNAL_H264_GRAY_SI of it.
        }
        tour.push_back(stage_for(each.number));
        // NV12 comes on top of a combination; two H.264 streams are where a call would use it.
        tour.back().nv12 = options_.nv12 || each.carries.count(Stream::kH264Sub) > 0;
    }
    return tour;
}

void RecordCommand::change(const char* property, const CAM_PROP_VALUE& value) {
    const SetOutcome outcome = set_property(session_, {find_property(property), value});
    if (outcome.result == SetOutcome::Result::kRefused) {
        // The same picture size again is refused too, and harmless.
        const auto current = session_.get(find_property(property).number);
        if (current && current->value == value.value) {
            return;
        }
        setting_refused_ = true;
        console_.line("  " + outcome.sentence);
    } else if (outcome.result == SetOutcome::Result::kIgnored) {
        console_.line("  " + outcome.sentence);
    }
}

void RecordCommand::change(const char* property, int value) {
    CAM_PROP_VALUE record{};
    record.value = value;
    change(property, record);
}

void RecordCommand::apply_general_settings() {
    if (options_.size) {
        change("size", *options_.size);
    }
    if (options_.fps) {
        change("fps", *options_.fps);
    }
    if (options_.bitrate) {
        change("bitrate", *options_.bitrate);
    }
    advise_on_size();
}

void RecordCommand::advise_on_size() {
    const auto size = session_.get(CAM_PROPERTY_DIMENSION);
    if (size && !multiplexed_size(size->res[0], size->res[1])) {
        console_.line(
            format("note: for %dx%d the camera falls back to plain MJPEG, which carries "
                   "no multiplexed streams: expect no video records",
                   size->res[0], size->res[1]));
    }
}

milliseconds RecordCommand::still_interval(const Stage& stage) const {
    if (!session_.by_signal_type()) {
        return milliseconds(0);
    }
    if (options_.jpeg_interval) {
        return *options_.jpeg_interval;
    }
    // By signal type a JPEG passes only when a still was asked for, even a continuous one.
    return stage.carries.count(Stream::kJpeg) > 0 ? kDefaultStillInterval : milliseconds(0);
}

RecordingPlan RecordCommand::plan_for(const Stage& stage) const {
    RecordingPlan plan;
    plan.name = stage.name;
    plan.streams = options_.streams;
    plan.duration = recording_duration(options_);
    plan.jpeg_interval = still_interval(stage);
    plan.changes = options_.changes;
    plan.queue_limits.bytes = options_.queue_bytes;
    return plan;
}

void RecordCommand::print_silent_streams(const Stage& stage, const RecordingPlan& plan,
                                         const RecordingResult& result) {
    if (result.end != RecordingResult::End::kComplete) {
        return;
    }
    StreamSet silent;
    for (const RecordedStream& stream : result.streams) {
        const Stream which = stream.figures.stream;
        const bool expected =
            stage.carries.count(which) > 0 || (which == Stream::kNv12 && stage.nv12);
        const bool asked =
            which != Stream::kJpeg || plan.jpeg_interval.count() > 0 || !session_.by_signal_type();
        if (stream.figures.records == 0 && expected && asked) {
            silent.insert(which);
        }
    }
    if (!silent.empty()) {
        console_.line("  note: nothing arrived of " + labels(silent) +
                      ", which this combination carries");
    }
}

ExitCode RecordCommand::code_for(const RecordingResult& result) const {
    // Stopping takes a moment, in which the camera may still go away and Ctrl-C be pressed.
    if (result.end == RecordingResult::End::kCameraLost || session_.lost()) {
        return ExitCode::kCameraLost;
    }
    if (result.end == RecordingResult::End::kInterrupted ||
        bench_.controls().interrupt.requested()) {
        return ExitCode::kInterrupted;
    }
    return result.end == RecordingResult::End::kNotStarted ? ExitCode::kFailed
                                                           : judge_records(result);
}

ExitCode RecordCommand::judge_records(const RecordingResult& result) const {
    const bool damaged =
        std::any_of(result.streams.begin(), result.streams.end(), [](const RecordedStream& stream) {
            return !stream.error.empty() || stream.figures.dropped > 0;
        });
    if (damaged) {
        return ExitCode::kFailed;
    }
    if (!result.any_records()) {
        return ExitCode::kNoFrames;
    }
    return setting_refused_ || result.change_refused ? ExitCode::kRefused : ExitCode::kOk;
}

ExitCode RecordCommand::record_stage(const Stage& stage) {
    const auto folder = options_.tour ? options_.output / stage.name : options_.output;
    std::filesystem::create_directories(folder);
    console_.line();
    console_.line(stage.name + " -> " + folder.string() + "/");
    if (stage.number) {
        change(selector() == Selector::kSignalType ? "signal-type" : "video-mode", *stage.number);
    }
    if (stage.nv12) {
        change("nv12-mode", 1);
    }
    const RecordingPlan plan = plan_for(stage);
    const RecordingResult result = run_recording(session_, plan, folder, bench_.controls());
    if (stage.nv12 && !session_.lost()) {
        change("nv12-mode", 0);
    }
    console_.line(format("  %s after %.1f s", words_for(result.end), result.seconds));
    print_report(console_, result);
    print_silent_streams(stage, plan, result);
    bench_.controls().show_requests();
    recordings_.push_back(report_json(stage.name, result));
    const auto tiles = contact_sheet_tiles(result);
    if (!tiles.empty()) {
        write_png(folder / "contact-sheet.png", make_contact_sheet(tiles));
    }
    size_t tile = 0;
    for (const RecordedStream& stream : result.streams) {
        auto& total = tour_records_[static_cast<size_t>(stream.figures.stream)];
        if (stream.figures.records > 0) {
            if (total == 0) {
                tour_tiles_.push_back(tiles[tile]);
            }
            ++tile;
        }
        total += stream.figures.records;
    }
    return code_for(result);
}

void RecordCommand::tell_early_end(const std::vector<Stage>& tour, size_t visited, ExitCode why) {
    std::vector<std::string> rest;
    for (size_t i = visited; i < tour.size(); ++i) {
        rest.push_back(tour[i].name);
    }
    console_.line();
    console_.line("the tour ended early, in " + tour[visited - 1].name +
                  (why == ExitCode::kCameraLost ? " (the camera went away)" : " (interrupted)") +
                  (rest.empty() ? "" : "; not visited: " + join(rest)));
}

/// Returns the streams of which nothing arrived though the camera could have sent them.
StreamSet RecordCommand::print_tour_totals() {
    console_.line();
    console_.line("records of the whole tour:");
    StreamSet silent;
    for (const Stream stream : options_.streams) {
        const uint64_t records = tour_records_[static_cast<size_t>(stream)];
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

ExitCode RecordCommand::conclude_tour() {
    const StreamSet silent = print_tour_totals();
    if (silent.empty()) {
        return ExitCode::kOk;
    }
    console_.line("nothing arrived of " + labels(silent));
    return ExitCode::kNoFrames;
}

void RecordCommand::write_json() const {
    if (options_.json.empty()) {
        return;
    }
    const nlohmann::json report{
        {"plugin_version", bench_.plugin().version()},
        {"selector", session_.by_signal_type() ? "signal-type" : "video-mode"},
        {"recordings", recordings_}};
    std::ofstream file(options_.json);
    file << report.dump(2) << '\n';
    file.close();
    if (!file) {
        throw Failure(ExitCode::kFailed, "cannot write " + options_.json.string());
    }
}

ExitCode RecordCommand::run() {
    apply_general_settings();
    const std::vector<Stage> all = stages();
    ExitCode code = ExitCode::kOk;
    size_t visited = 0;
    while (visited < all.size() && !cuts_short(code)) {
        const ExitCode stage_code = record_stage(all[visited++]);
        if (code == ExitCode::kOk || cuts_short(stage_code)) {
            code = stage_code;
        }
    }
    if (options_.tour) {
        if (!tour_tiles_.empty()) {
            write_png(options_.output / "contact-sheet.png", make_contact_sheet(tour_tiles_));
        }
        if (cuts_short(code)) {
            print_tour_totals();
            tell_early_end(all, visited, code);
        } else {
            const ExitCode tour_code = conclude_tour();
            code = code == ExitCode::kOk ? tour_code : code;
        }
    }
    write_json();
    console_.line();
    console_.line("files are in " + options_.output.string() + "/");
    return code;
}

}  // namespace

ExitCode run_record(const Options& options) {
    const RecordOptions& record = options.record;
    std::filesystem::create_directories(record.output);
    const auto log = options.common.log.empty() ? record.output / "plugin.log" : options.common.log;
    Workbench bench(options.common, log);
    Session& session = bench.bring_up();
    const ExitCode code = RecordCommand(record, bench, session).run();
    if (code == ExitCode::kCameraLost) {
        bench.console().line("the camera went away while recording: " + session.loss());
    }
    bench.close();
    return code;
}

}  // namespace camhost
