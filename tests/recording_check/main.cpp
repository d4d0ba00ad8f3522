// Command-line front of the two measurements, for scripts/check-recording. Prints one JSON object;
// exit status 0 when the recording is as it should be, 1 when not, 2 when it cannot be read.
#include <CLI/CLI.hpp>
#include <cstdio>
#include <exception>
#include <iostream>
#include <memory>
#include <nlohmann/json.hpp>
#include <sndfile.hh>
#include <vector>

#include "tests/recording_check/counter_run.h"
#include "tests/recording_check/tone.h"
#include "virtcam/model/counter_code.h"

namespace {

using recording_check::CounterRun;

constexpr int kBad = 1;
constexpr int kUnreadable = 2;
constexpr double kLeastShare = 0.9;
constexpr double kLeastLevel = 0.001;  // -60 dB of full scale

/// Reads gray pictures of width × height bytes from standard input up to its end.
int check_counters(int width, int height, CounterRun::Order order) {
    std::vector<uint8_t> picture(static_cast<size_t>(width) * static_cast<size_t>(height));
    CounterRun run(order);
    size_t got = 0;
    while ((got = std::fread(picture.data(), 1, picture.size(), stdin)) == picture.size()) {
        run.add(virtcam::model::read_counter(picture.data(), width, height, width));
    }
    nlohmann::json report{{"pictures", run.pictures()}, {"faults", run.faults()}};
    if (run.first()) {
        report["first"] = *run.first();
        report["last"] = *run.last();
    }
    std::cout << report << '\n';
    if (got != 0) {
        std::cerr << "the input ends inside a picture\n";
        return kUnreadable;
    }
    return run.pictures() > 0 && run.faults().empty() ? 0 : kBad;
}

int check_tone(const std::string& path, double tone_hz) {
    SndfileHandle file(path);
    if (file.error() != SF_ERR_NO_ERROR) {
        std::cerr << path << ": " << file.strError() << '\n';
        return kUnreadable;
    }
    const auto channels = static_cast<size_t>(file.channels());
    std::vector<float> all(static_cast<size_t>(file.frames()) * channels);
    file.readf(all.data(), file.frames());
    nlohmann::json report{{"rate", file.samplerate()}, {"channels", nlohmann::json::array()}};
    bool good = channels > 0;
    for (size_t channel = 0; channel < channels; ++channel) {
        std::vector<float> samples;
        for (size_t i = channel; i < all.size(); i += channels) {
            samples.push_back(all[i]);
        }
        const auto tone = recording_check::measure_tone(
            samples, static_cast<unsigned>(file.samplerate()), tone_hz);
        report["seconds"] = tone.seconds;
        report["channels"].push_back({{"share", tone.share}, {"level", tone.level}});
        good = good && tone.share >= kLeastShare && tone.level >= kLeastLevel;
    }
    std::cout << report << '\n';
    return good ? 0 : kBad;
}

}  // namespace

int main(int argc, char** argv) try {
    CLI::App app("Reads back the virtual camera's counters and its tone.", "recording_check");
    app.require_subcommand(1);
    int width = 0;
    int height = 0;
    auto* counters = app.add_subcommand(
        "counters", "gray pictures on standard input: are their counters consecutive?");
    counters->add_option("--width", width)->required()->check(CLI::Range(1, 8192));
    counters->add_option("--height", height)->required()->check(CLI::Range(1, 8192));
    bool gaps = false;
    counters->add_flag("--gaps", gaps, "pictures may have been left out");
    std::string path;
    double tone_hz = 1000;
    auto* tone = app.add_subcommand("tone", "does the sound file hold the tone?");
    tone->add_option("file", path)->required();
    tone->add_option("--hz", tone_hz, "default 1000");
    CLI11_PARSE(app, argc, argv);
    if (tone->parsed()) {
        return check_tone(path, tone_hz);
    }
    return check_counters(width, height,
                          gaps ? CounterRun::Order::kGrowing : CounterRun::Order::kConsecutive);
} catch (const std::exception& error) {
    std::cerr << error.what() << '\n';
    return kUnreadable;
}
