#include <sndfile.h>

#include <cmath>
#include <memory>

#include "host/acceptance/check.h"
#include "host/acceptance/stream_probe.h"
#include "host/base/text.h"
#include "host/properties/combination.h"
#include "host/recording/conformance.h"
#include "host/session/property_access.h"

namespace camhost {

namespace {

using std::chrono::milliseconds;
using Verdict = CheckResult::Verdict;

constexpr milliseconds kCombinationDuration{1500};
constexpr milliseconds kStillInterval{600};
constexpr milliseconds kPatience{3000};

const StreamSummary* summary_of(const RecordingResult& result, Stream stream) {
    for (const RecordedStream& each : result.streams) {
        if (each.figures.stream == stream && each.figures.records > 0) {
            return &each.figures;
        }
    }
    return nullptr;
}

std::string counts_of(const RecordingResult& result) {
    std::vector<std::string> words;
    for (const RecordedStream& each : result.streams) {
        if (each.figures.records > 0) {
            words.push_back(format("%s %llu", info(each.figures.stream).label,
                                   static_cast<unsigned long long>(each.figures.records)));
        }
    }
    return words.empty() ? "nothing arrived" : join(words);
}

/// What the log tells of the frames; empty when they are good. Where nearly all are broken their
/// boundaries are wrong, and what is in them tells nothing: but the more pieces there are to each
/// beginning of a frame, the shorter is what is between two boundaries.
std::string fault_of_frames(const CheckedRecording& result) {
    constexpr unsigned kEnough = 8;
    constexpr unsigned kSinglePayloads = 5;
    const LoggedFaults& logged = *result.logged;
    const StreamSummary* main = summary_of(result, Stream::kH264Main);
    const uint64_t whole = main == nullptr ? 0 : main->pictures;
    if (logged.broken_frames < kEnough || logged.broken_frames < 3 * whole) {
        return join(logged.frames);
    }
    return format("%u broken pieces of frames and %llu whole ones: ", logged.broken_frames,
                  static_cast<unsigned long long>(whole)) +
           (logged.broken_frames > kSinglePayloads * logged.begun_frames
                ? "the frame ID toggles within frames"
                : "end of frame is not on a payload of its own");
}

/// Behind a failure: what the log tells that is nearest to its cause.
std::string cause_of(const CheckedRecording& result) {
    if (!result.logged) {
        return {};
    }
    for (const std::string& words :
         {join(result.logged->transfers), fault_of_frames(result), join(result.logged->sequence)}) {
        if (!words.empty()) {
            return "; " + words;
        }
    }
    return {};
}

CheckResult judged(const std::vector<Finding>& findings, const CheckedRecording& result) {
    for (const Finding& finding : findings) {
        if (!finding.passed) {
            return passed_if(false,
                             "not so: " + finding.what +
                                 (finding.detail.empty() ? "" : " (" + finding.detail + ")") +
                                 cause_of(result));
        }
    }
    return passed_if(true, counts_of(result));
}

CheckResult check_combination(CheckBench& bench, const Combination& combination) {
    const bool by_signal = bench.session.by_signal_type();
    const bool stills = by_signal && combination.carries.count(Stream::kJpeg) > 0;
    const CheckedRecording result =
        bench.record(combination.name, combination.number, kCombinationDuration,
                     stills ? kStillInterval : milliseconds(0));
    if (result.end != RecordingResult::End::kComplete) {
        return not_started(result.logged);
    }
    if (!result.stop_confirmed || bench.session.state() != CAM_STATE_READY) {
        return passed_if(false,
                         std::string("after the stop it is ") + words_for(bench.session.state()));
    }
    return judged(judge(combination.carries, result), result);
}

CheckResult check_version(CheckBench& bench) {
    return passed_if(bench.plugin_version > 0, format("%d", bench.plugin_version));
}

CheckResult check_ready(CheckBench& bench) {
    return passed_if(bench.session.state() == CAM_STATE_READY, words_for(bench.session.state()));
}

CheckResult within(double value, double least, double most, const char* unit) {
    return passed_if(value >= least && value <= most,
                     format("%.1f %s (%g to %g)", value, unit, least, most));
}

/// Behind a rate that is too low: when one stream stopped and the other did not.
std::string stop_of(const StreamSummary& stream, const StreamSummary* other, const char* words) {
    constexpr double kSilence = 0.75;  // seconds
    const bool stopped =
        other != nullptr && stream.records > 1 && other->seconds - stream.seconds > kSilence;
    return stopped ? format("; after %.1f s %s", stream.seconds, words) : "";
}

CheckResult with_words(CheckResult result, const std::string& words) {
    if (result.verdict == Verdict::kFail) {
        result.measured += words;
    }
    return result;
}

/// Recorded with the most kinds of stream: why a check of it cannot be made, or nothing.
std::optional<CheckResult> without_reference(CheckBench& bench) {
    if (bench.reference().end != RecordingResult::End::kComplete) {
        return not_started(bench.reference().logged);
    }
    return std::nullopt;
}

CheckResult check_rate(CheckBench& bench) {
    if (const auto failure = without_reference(bench)) {
        return *failure;
    }
    const StreamSummary* main = summary_of(bench.reference(), Stream::kH264Main);
    if (main == nullptr) {
        return passed_if(false, "the main stream is silent" + cause_of(bench.reference()));
    }
    const auto rate = bench.session.get(CAM_PROPERTY_FRAMERATE);
    const double nominal = rate && rate->value > 0 ? rate->value : 30;
    // Over the whole recording, which begins with pictures that came during the start.
    const double measured = static_cast<double>(main->records) / bench.reference().seconds;
    const StreamSummary* sound = summary_of(bench.reference(), Stream::kPcm);
    return with_words(within(measured, nominal * 0.85, nominal * 1.3, "pictures/s"),
                      stop_of(*main, sound, "the pictures stop and the sound does not") +
                          cause_of(bench.reference()));
}

/// What the log tells of the reference recording: `fault` makes a sentence of it, empty when there
/// is none.
CheckResult judged_by_log(CheckBench& bench, const char* good,
                          std::string (*fault)(const CheckedRecording&)) {
    if (const auto failure = without_reference(bench)) {
        return *failure;
    }
    const CheckedRecording& result = bench.reference();
    if (!result.logged) {
        return skipped("the plug-in's log cannot be read");
    }
    if (result.logged->dropped_here > 0) {
        return passed_if(false, format("%u payloads came while the plug-in's buffers were full: "
                                       "this machine is too slow to tell",
                                       result.logged->dropped_here));
    }
    const std::string words = fault(result);
    if (words.empty() && summary_of(result, Stream::kH264Main) == nullptr) {
        return passed_if(false, "the main stream is silent: nothing to judge");
    }
    return passed_if(words.empty(), words.empty() ? good : words);
}

CheckResult check_transfers(CheckBench& bench) {
    return judged_by_log(bench, "none failed",
                         [](const auto& result) { return join(result.logged->transfers); });
}

CheckResult check_frames(CheckBench& bench) {
    return judged_by_log(bench, "all whole", fault_of_frames);
}

CheckResult check_sequence(CheckBench& bench) {
    return judged_by_log(bench, "no gap",
                         [](const auto& result) { return join(result.logged->sequence); });
}

CheckResult check_time_stamps(CheckBench& bench) {
    uint64_t back = 0;
    double longest = 0;
    unsigned streams = 0;
    for (const RecordedStream& each : bench.reference().streams) {
        if (each.figures.time_stamps && each.figures.records > 0) {
            back += each.figures.steps_back;
            longest = std::max(longest, each.figures.time_stamps->longest_ms);
            ++streams;
        }
    }
    constexpr double kLongest = 500;
    return passed_if(streams > 0 && back == 0 && longest < kLongest,
                     format("%llu of %u streams go back, longest interval %.1f ms",
                            static_cast<unsigned long long>(back), streams, longest));
}

CheckResult check_audio_rate(CheckBench& bench) {
    if (const auto failure = without_reference(bench)) {
        return *failure;
    }
    const StreamSummary* sound = summary_of(bench.reference(), Stream::kPcm);
    if (sound == nullptr) {
        return passed_if(false, "no sound");
    }
    const auto rate = bench.session.get(CAM_PROPERTY_SAMPLERATE);
    const double nominal = rate && rate->value > 0 ? rate->value : 16'000;
    constexpr double kFrameBytes = 4;
    const double measured =
        static_cast<double>(sound->bytes) / kFrameBytes / bench.reference().seconds;
    const StreamSummary* main = summary_of(bench.reference(), Stream::kH264Main);
    return with_words(within(measured, nominal * 0.85, nominal * 1.2, "samples/s"),
                      stop_of(*sound, main, "the sound stops and the pictures do not"));
}

double level_of(const std::filesystem::path& file) {
    SF_INFO format{};
    const std::unique_ptr<SNDFILE, int (*)(SNDFILE*)> sound(
        sf_open(file.c_str(), SFM_READ, &format), sf_close);
    if (sound == nullptr) {
        return -200;
    }
    std::vector<float> samples(static_cast<size_t>(format.frames * format.channels));
    sf_read_float(sound.get(), samples.data(), static_cast<sf_count_t>(samples.size()));
    double power = 1e-20;
    for (const float sample : samples) {
        power += double{sample} * sample / static_cast<double>(samples.size());
    }
    return 10 * std::log10(power);
}

CheckResult check_audio_level(CheckBench& bench) {
    for (const RecordedStream& each : bench.reference().streams) {
        if (each.figures.stream == Stream::kPcm && !each.written.files.empty()) {
            constexpr double kSilence = -70;
            return within(level_of(each.written.files.front()), kSilence, 0, "dB");
        }
    }
    return passed_if(false, "no sound");
}

/// Pictures from a request to the key frame that answers it.
CheckResult check_key_frame(CheckBench& bench) {
    constexpr unsigned kMost = 10;
    bench.choose(richest(bench.session.selector()).number);
    StreamProbe probe(bench.session.camera(), Stream::kH264Main, bench.controls.wake);
    if (const auto failure = bench.start()) {
        return *failure;
    }
    // Right after one, so that the next comes for no other reason.
    const bool first =
        probe.wait_for([](const auto& seen) { return seen.key_frames >= 2; }, kPatience);
    probe.begin_count();
    const bool asked = bench.set(CAM_PROPERTY_NEWGOP, 0);
    const bool came =
        first && asked &&
        probe.wait_for([](const auto& seen) { return seen.key_frames_counted >= 1; }, kPatience);
    const unsigned after = probe.seen().pictures_to_key;
    bench.session.stop();
    bench.stop_if_over();
    if (!came) {
        return passed_if(false, asked ? "no key frame came" : "the request was refused");
    }
    return passed_if(after <= kMost, format("after %u pictures (at most %u)", after, kMost));
}

CheckResult check_bit_rate(CheckBench& bench) {
    constexpr int kLow = 500'000;
    constexpr int kHigh = 2'000'000;
    double measured[2] = {};
    for (const auto& [place, rate] : {std::pair(0, kLow), std::pair(1, kHigh)}) {
        bench.choose(richest(bench.session.selector()).number);
        if (!bench.set(CAM_PROPERTY_BITRATE, rate)) {
            return passed_if(false, format("%d bit/s was refused", rate));
        }
        const CheckedRecording result =
            bench.record(format("bit-rate-%d", rate), richest(bench.session.selector()).number,
                         milliseconds(3000));
        const StreamSummary* main = summary_of(result, Stream::kH264Main);
        measured[place] = main == nullptr ? 0 : main->kilobits_per_second();
    }
    bench.set(CAM_PROPERTY_BITRATE, kHigh);
    const bool low = measured[0] > 250 && measured[0] < 900;
    const bool high = measured[1] > 1200 && measured[1] < 3000;
    return passed_if(low && high,
                     format("500 -> %.0f kbit/s, 2000 -> %.0f kbit/s", measured[0], measured[1]));
}

CheckResult check_frame_rate(CheckBench& bench) {
    constexpr int kHalf = 15;
    if (!bench.set(CAM_PROPERTY_FRAMERATE, kHalf)) {
        return passed_if(false, "15/s was refused");
    }
    const CheckedRecording result =
        bench.record("frame-rate", richest(bench.session.selector()).number, milliseconds(2000));
    bench.set(CAM_PROPERTY_FRAMERATE, 30);
    const StreamSummary* main = summary_of(result, Stream::kH264Main);
    return within(main == nullptr ? 0 : main->records_per_second(), 13, 17, "pictures/s");
}

CheckResult check_stills(CheckBench& bench) {
    if (!bench.session.by_signal_type()) {
        return skipped("this television has no trigger");
    }
    constexpr unsigned kTriggers = 3;
    bench.choose(with_stills(bench.session.selector()).number);
    StreamProbe probe(bench.session.camera(), Stream::kJpeg, bench.controls.wake);
    if (const auto failure = bench.start()) {
        return *failure;
    }
    unsigned answered = 0;
    for (unsigned i = 1; i <= kTriggers; ++i) {
        bench.set(CAM_PROPERTY_TRIGGER_JPEG, 0);
        answered +=
            probe.wait_for([&](const auto& seen) { return seen.records >= i; }, kPatience) ? 1 : 0;
    }
    bench.session.stop();
    const uint64_t all = probe.seen().records;
    bench.stop_if_over();
    return passed_if(
        answered == kTriggers && all == kTriggers,
        format("%llu stills for %u triggers", static_cast<unsigned long long>(all), kTriggers));
}

CheckResult check_axes(CheckBench& bench) {
    constexpr std::pair<CAM_PROPERTY, int> kAxes[] = {
        {CAM_PROPERTY_PAN, 3}, {CAM_PROPERTY_TILT, -2}, {CAM_PROPERTY_ZOOM, 4}};
    std::vector<std::string> words;
    bool good = true;
    for (const auto& [property, value] : kAxes) {
        const char* name = find_property(property).name;
        const bool set = bench.set(property, value);
        const auto back = bench.session.get(property);
        good = good && set && back && back->value == value;
        words.push_back(!set    ? format("%s %d was refused", name, value)
                        : !back ? format("%s: no answer", name)
                        : back->value == value
                            ? format("%s %d", name, value)
                            : format("%s stays at %d, was set to %d", name, back->value, value));
        bench.set(property, 0);
    }
    bench.stop_if_over();
    return passed_if(good, join(words));
}

CheckResult check_start_stop(CheckBench& bench) {
    constexpr int kTimes = 20;
    bench.choose(richest(bench.session.selector()).number);
    StreamProbe probe(bench.session.camera(), Stream::kH264Main, bench.controls.wake);
    double slowest = 0;
    for (int i = 1; i <= kTimes; ++i) {
        const uint64_t before = probe.seen().records;
        const auto begin = Clock::now();
        const bool arrived =
            bench.session.start() &&
            probe.wait_for([&](const auto& seen) { return seen.records > before; }, kPatience);
        slowest = std::max(slowest, std::chrono::duration<double>(Clock::now() - begin).count());
        const bool stopped = bench.session.stop();
        bench.stop_if_over();
        if (!arrived || !stopped) {
            return passed_if(false, format("number %d brought no picture", i));
        }
        bench.controls.console.progress(static_cast<double>(i) / kTimes, "start and stop");
    }
    bench.controls.console.progress_done();
    return passed_if(true, format("%d times, slowest first picture %.2f s", kTimes, slowest));
}

CheckResult check_unplug(CheckBench& bench) {
    if (!bench.interactive) {
        return skipped("needs a hand at the cable: --interactive");
    }
    constexpr std::chrono::seconds kTime{30};
    bench.controls.console.line("now pull the camera's cable, within 30 s");
    const auto begin = Clock::now();
    while (!bench.session.lost() && Clock::now() - begin < kTime &&
           !bench.controls.interrupt.requested()) {
        bench.controls.wake.wait_until(Clock::now() + milliseconds(250));
    }
    return passed_if(bench.session.lost(),
                     bench.session.lost() ? bench.session.loss() : "the loss was not told");
}

}  // namespace

std::vector<Check> all_checks(Selector selector) {
    std::vector<Check> checks{
        {"version", "cam_version answers with a number above 0", check_version},
        {"ready", "is ready after Init", check_ready},
    };
    for (const Combination& each : combinations(selector)) {
        if (selector == Selector::kSignalType && each.number == CAM_SIGNAL_H264_GRAY_JPEG) {
            continue;  // The plug-in makes CAM_SIGNAL_H264_GRAY_SI of it.
        }
        checks.push_back({std::string("combination:") + each.name,
                          "starts, delivers what it promises, every picture whole, stops",
                          [each](CheckBench& bench) { return check_combination(bench, each); }});
    }
    const std::vector<Check> rest{
        {"picture-rate", "the main stream has its pictures per second", check_rate},
        {"transfers", "none fails, and every payload is sound", check_transfers},
        {"frames", "each holds what the headers of its sub-streams say", check_frames},
        {"sequence", "the numbers of both H.264 streams count without a gap", check_sequence},
        {"time-stamps", "they never go back and leave no hole of half a second", check_time_stamps},
        {"audio-rate", "as many samples per second as the rate says", check_audio_rate},
        {"audio-level", "there is something to hear", check_audio_level},
        {"key-frame", "one comes within 10 pictures of a request", check_key_frame},
        {"bit-rate", "follows 500 and 2000 kbit/s", check_bit_rate},
        {"frame-rate", "follows 15 pictures/s", check_frame_rate},
        {"stills", "one for each trigger, no more", check_stills},
        {"pan-tilt-zoom", "read back as they were set", check_axes},
        {"start-stop", "20 times, with a picture each", check_start_stop},
        {"unplug", "a loss is told (with --interactive)", check_unplug},
    };
    checks.insert(checks.end(), rest.begin(), rest.end());
    return checks;
}

}  // namespace camhost
