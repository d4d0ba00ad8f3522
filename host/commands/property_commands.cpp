// camhost get, set, list and capabilities.
#include "host/commands/property_commands.h"

#include <algorithm>
#include <array>

#include "host/base/text.h"
#include "host/commands/commands.h"
#include "host/commands/workbench.h"
#include "host/session/property_access.h"

namespace camhost {

namespace {

struct CapabilityRow {
    CAM_CAPABILITY number;
    const char* name;
    const char* meaning;
};

constexpr std::array<CapabilityRow, 14> kCapabilities{{
    {CAM_CAPABILITY_ZOOM, "zoom", "digital zoom"},
    {CAM_CAPABILITY_DUAL_ENCODING, "dual-encoding", "a second H.264 stream"},
    {CAM_CAPABILITY_SIGNAL_TYPE, "signal-type", "streams are selected by signal type"},
    {CAM_CAPABILITY_TRIGGER_JPEG, "trigger-jpeg", "stills on request"},
    {CAM_CAPABILITY_WOV, "wov", "wake on voice"},
    {CAM_CAPABILITY_BEAMFORMER, "beamformer", "directed microphones"},
    {CAM_CAPABILITY_AUTO_HZ, "auto-hz", "finds the mains frequency by itself"},
    {CAM_CAPABILITY_FACE_TRACKING, "face-tracking", "follows faces"},
    {CAM_CAPABILITY_FHD, "fhd", "1920x1080"},
    {CAM_CAPABILITY_Y800600, "y800600", "gray pictures of 800x600"},
    {CAM_CAPABILITY_RECOG_VOICE, "recog-voice", "voice recognition"},
    {CAM_CAPABILITY_RECOG_GESTURE, "recog-gesture", "gesture recognition"},
    {CAM_CAPABILITY_NADEX, "nadex", "camera generation"},
    {CAM_CAPABILITY_VESPIN_PLUS, "vespin-plus", "camera generation"},
}};

const char* access_words(const Property& property) {
    if (property.settable && property.gettable) {
        return "set, get";
    }
    return property.settable ? "set" : "get";
}

std::string current_value(const Session& session, const Property& property) {
    if (!property.gettable) {
        return "-";
    }
    if (property.slow) {
        return "(takes seconds: camhost get)";
    }
    const auto value = session.get(property.number);
    return value ? format_value(property, *value) : "refused";
}

/// The end of a command whose steps are done. Putting the camera away takes a moment, and Ctrl-C
/// counts in it too.
ExitCode conclude(Workbench& bench, bool all_done) {
    bench.close();
    bench.step_done();
    return all_done ? ExitCode::kOk : ExitCode::kRefused;
}

}  // namespace

std::filesystem::path log_of(const CommonOptions& options) {
    return options.log.empty() ? "/dev/null" : options.log;
}

bool print_get(Console& console, const Session& session, const std::string& name) {
    const GetOutcome outcome = get_property(session, find_property(name));
    console.line(outcome.sentence);
    return outcome.ok;
}

bool perform_set(Console& console, Session& session, const Assignment& assignment) {
    const SetOutcome outcome = set_property(session, assignment);
    console.line(outcome.sentence);
    return outcome.result == SetOutcome::Result::kDone ||
           outcome.result == SetOutcome::Result::kIgnored;
}

void print_list(Console& console, const Session& session) {
    constexpr const char* kRow = "%-16s %6s  %-9s %-15s %-25s %-9s %s";
    console.line(format(kRow, "property", "number", "access", "kind", "range", "unit", "current"));
    for (const Property& property : property_catalog()) {
        console.line(format(kRow, property.name, format("%d", property.number).c_str(),
                            access_words(property), kind_name(property.kind), property.range,
                            property.unit, current_value(session, property).c_str()));
    }
}

void print_capabilities(Console& console, Session& session) {
    for (const CapabilityRow& row : kCapabilities) {
        console.line(format("%-14s %-4s %s", row.name,
                            session.camera().GetCapability(row.number) ? "yes" : "no",
                            row.meaning));
    }
}

ExitCode run_get(const Options& options) {
    for (const std::string& name : options.words) {
        find_property(name);  // Typing errors before the camera is brought up, which takes seconds.
    }
    Workbench bench(options.common, log_of(options.common));
    const Session& session = bench.bring_up();
    bool all = true;
    for (const std::string& name : options.words) {
        all = print_get(bench.console(), session, name) && all;
        bench.step_done();
    }
    return conclude(bench, all);
}

ExitCode run_set(const Options& options) {
    std::vector<Assignment> assignments;
    for (const std::string& word : options.words) {
        assignments.push_back(parse_assignment(word));
    }
    Workbench bench(options.common, log_of(options.common));
    Session& session = bench.bring_up();
    bool all = true;
    for (const Assignment& assignment : assignments) {
        all = perform_set(bench.console(), session, assignment) && all;
        bench.step_done();
    }
    return conclude(bench, all);
}

ExitCode run_list(const Options& options) {
    Workbench bench(options.common, log_of(options.common));
    print_list(bench.console(), bench.bring_up());
    bench.step_done();
    return conclude(bench, true);
}

ExitCode run_capabilities(const Options& options) {
    Workbench bench(options.common, log_of(options.common));
    print_capabilities(bench.console(), bench.bring_up());
    bench.step_done();
    return conclude(bench, true);
}

}  // namespace camhost
