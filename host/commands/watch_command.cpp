// camhost watch: the streams as they run.
#include <cmath>
#include <iterator>
#include <nlohmann/json.hpp>

#include "host/base/key_reader.h"
#include "host/base/text.h"
#include "host/commands/commands.h"
#include "host/commands/record_stage.h"
#include "host/commands/workbench.h"
#include "host/recording/live_streams.h"
#include "host/session/property_access.h"

namespace camhost {

namespace {

constexpr std::chrono::seconds kPeriod{1};

struct Key {
    char key;
    const char* meaning;
};

constexpr Key kKeys[] = {{'s', "still"},    {'k', "key frame"}, {'m', "mirror"}, {'+', "zoom in"},
                         {'-', "zoom out"}, {'u', "mute"},      {'q', "quit"}};

std::string one_place(const std::optional<double>& value) {
    return value ? format("%.1f", *value) : "-";
}

std::string row_of(const LiveFigures& figures) {
    return format("%-11s %8.2f %10.1f %6llu %10.1f %7s %9s %8llu", info(figures.stream).label,
                  figures.records_per_second, figures.kilobits_per_second,
                  static_cast<unsigned long long>(figures.gaps), figures.jitter_ms,
                  one_place(figures.key_interval).c_str(), one_place(figures.level_db).c_str(),
                  static_cast<unsigned long long>(figures.dropped));
}

nlohmann::json json_of(const std::vector<LiveFigures>& streams, const Session& session,
                       double seconds) {
    nlohmann::json object{{"seconds", seconds}, {"state", words_for(session.state())}};
    object["streams"] = nlohmann::json::object();
    for (const LiveFigures& each : streams) {
        nlohmann::json stream{{"records_per_second", each.records_per_second},
                              {"kilobits_per_second", each.kilobits_per_second},
                              {"gaps", each.gaps},
                              {"jitter_ms", each.jitter_ms},
                              {"dropped", each.dropped}};
        if (each.key_interval) {
            stream["key_interval_seconds"] = *each.key_interval;
        }
        if (each.level_db) {
            stream["level_db"] = *each.level_db;
        }
        object["streams"][info(each.stream).name] = std::move(stream);
    }
    return object;
}

class Watch {
  public:
    Watch(const Options& options, Workbench& bench, Session& session)
        : options_(options), bench_(bench), session_(session) {}

    ExitCode run() {
        LiveStreams streams;
        streams.attach(session_.camera());
        if (!session_.start()) {
            bench_.console().line("recording could not be started");
            return ExitCode::kFailed;
        }
        KeyReader keys;
        follow(streams, keys);
        session_.stop();
        streams.detach();
        return session_.lost() ? ExitCode::kCameraLost : ExitCode::kOk;
    }

  private:
    void follow(LiveStreams& streams, KeyReader& keys) {
        const auto& duration = options_.record.duration;
        const auto end = duration ? begin_ + *duration : Clock::time_point::max();
        auto next = begin_ + kPeriod;
        const Controls controls = bench_.controls();
        while (!quit_ && !controls.interrupt.requested() && !session_.lost()) {
            if (const auto key = keys.wait(controls.wake, std::min(next, end))) {
                press(*key);
            }
            const auto now = Clock::now();
            if (now >= next || now >= end) {
                show(streams.take(), std::chrono::duration<double>(now - begin_).count());
                next += kPeriod;
            }
            quit_ = quit_ || now >= end;
        }
    }

    void show(const std::vector<LiveFigures>& streams, double seconds) {
        Console& console = bench_.console();
        if (options_.watch.json) {
            console.line(json_of(streams, session_, seconds).dump());
            return;
        }
        std::vector<std::string> lines;
        lines.push_back(format("%-11s %8s %10s %6s %10s %7s %9s %8s", "stream", "records/s",
                               "kbit/s", "gaps", "jitter ms", "key s", "level dB", "dropped"));
        for (const LiveFigures& each : streams) {
            lines.push_back(row_of(each));
        }
        std::string keys;
        for (const Key& each : kKeys) {
            keys += format("  %c %s", each.key, each.meaning);
        }
        lines.push_back(format("%s, %.0f s %s", words_for(session_.state()), seconds,
                               said_.empty() ? "" : ("- " + said_).c_str()));
        lines.push_back(console.terminal() ? keys : "");
        console.redraw(lines);
    }

    void set(const char* name, int value) {
        said_ = set_property(session_, {find_property(name), {.value = value}}).sentence;
    }

    /// The plug-in has no mute of its own.
    void toggle_mute() {
        if (!volume_) {
            const auto volume = session_.get(CAM_PROPERTY_MICVOLUME);
            volume_ = volume ? volume->value : 0;
            set("mic-volume", 0);
        } else {
            set("mic-volume", *volume_);
            volume_.reset();
        }
    }

    void press(char key) {
        switch (key) {
            case 's':
                set("trigger-jpeg", 0);
                break;
            case 'k':
                set("key-frame", 0);
                break;
            case 'm':
                set("mirror", (mirror_ = !mirror_) ? 1 : 0);
                break;
            case 'u':
                toggle_mute();
                break;
            case '+':
            case '-':
                zoom_ = std::max(0, zoom_ + (key == '+' ? 1 : -1));
                set("zoom", zoom_);
                break;
            case 'q':
                quit_ = true;
                break;
            default:
                break;
        }
    }

    const Options& options_;
    Workbench& bench_;
    Session& session_;
    const Clock::time_point begin_ = Clock::now();
    bool quit_ = false;
    bool mirror_ = false;
    std::optional<int> volume_;  ///< before it was muted
    int zoom_ = 0;
    std::string said_;
};

}  // namespace

ExitCode run_watch(const Options& options) {
    Workbench bench(options.common, log_of(options.common));
    bench.console().set_silent(options.watch.json);
    Session& session = bench.bring_up();
    const Stage stage = named_stage(options.record, session);
    StageRecorder(options.record, session, bench.controls()).choose(stage);
    bench.console().set_silent(false);
    const ExitCode code = Watch(options, bench, session).run();
    bench.close();
    return code;
}

}  // namespace camhost
