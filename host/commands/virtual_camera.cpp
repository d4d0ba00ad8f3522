#include "host/commands/virtual_camera.h"

#include <sys/mman.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <nlohmann/json.hpp>
#include <utility>

#include "host/base/exit_code.h"
#include "host/base/file_bytes.h"
#include "host/base/nearest_name.h"
#include "host/base/program_path.h"
#include "host/base/text.h"
#include "host/session/usb_trace.h"

namespace camhost {

namespace {

constexpr const char* kMarker = "CAMHOST_ON_VIRTUAL_BUS";
constexpr size_t kLongestConfiguration = size_t{1} << 20;

const std::vector<std::pair<std::string, std::string>>& presets() {
    static const std::vector<std::pair<std::string, std::string>> all{
        {"boot", R"({})"},
        {"running", R"({"camera": {"identity": "run-time"}})"},
        {"missing", R"({"bus": {"present": false}})"},
        {"never-returns", R"({"camera": {"returns": false}})"},
        {"old-boot", R"({"camera": {"boot_code": "older"}})"},
    };
    return all;
}

/// "unplug-at-3s" pulls the cable at the frame that is due so long after the first one, so that it
/// strikes while recording however long the start takes.
bool unplug_preset(const std::string& name, std::string* json) {
    constexpr std::string_view kPrefix = "unplug-at-";
    std::chrono::milliseconds when{};
    if (!name.starts_with(kPrefix) || !parse_duration(name.substr(kPrefix.size()), &when)) {
        return false;
    }
    constexpr int64_t kFrameRate = 30;
    const int64_t frame = std::max<int64_t>(1, when.count() * kFrameRate / 1000);
    const nlohmann::json event{{"on", {{"frame", true}}}, {"nth", frame}, {"do", "unplug"}};
    *json = nlohmann::json{{"events", nlohmann::json::array({event})}}.dump();
    return true;
}

/// The plug-in's known and lasting ways: it gives back an interface that it never took, and leaves
/// its own two to the close. A third complaint is news.
const std::vector<std::string>& known_complaints() {
    static const std::vector<std::string> all{
        "libusb_release_interface: interface 1 was not claimed",
        "libusb_close: claimed and not released: interface 2, 3"};
    return all;
}

std::string with_known_complaints(const std::string& configuration) {
    nlohmann::json root = nlohmann::json::parse(configuration);
    // What is malformed is for the bus to name.
    if (root.is_object() && (!root.contains("bus") || root["bus"].is_object())) {
        root["bus"].emplace("expected_complaints", known_complaints());
    }
    return root.dump();
}

void set_capture(const CommonOptions& options) {
    if (options.pcap.empty()) {
        return;
    }
    setenv("VIRTBUS_PCAP", std::filesystem::absolute(options.pcap).c_str(), 1);
    if (options.pcap_payloads) {
        setenv("VIRTBUS_PCAP_PAYLOADS", "1", 1);
    }
}

/// The configuration as an open file without a name: it outlives exec() and leaves nothing behind.
std::string configuration_path(const std::string& json) {
    const int file = memfd_create("virtual-bus", 0);
    if (file < 0 || write(file, json.data(), json.size()) != static_cast<ssize_t>(json.size())) {
        throw Failure(ExitCode::kFailed, "cannot hand the configuration to the virtual bus");
    }
    return format("/proc/self/fd/%d", file);
}

void prepend_library_path(const std::filesystem::path& folder) {
    const char* old = std::getenv("LD_LIBRARY_PATH");
    const std::string path =
        old != nullptr && *old != '\0' ? folder.string() + ":" + old : folder.string();
    setenv("LD_LIBRARY_PATH", path.c_str(), 1);
}

}  // namespace

bool on_virtual_bus() {
    return std::getenv(kMarker) != nullptr;
}

std::string virtual_configuration(const std::string& config) {
    const std::string name = config.empty() ? "boot" : config;
    std::vector<std::string> names;
    for (const auto& [preset, json] : presets()) {
        if (name == preset) {
            return json;
        }
        names.push_back(preset);
    }
    names.emplace_back("unplug-at-3s");
    std::string json;
    if (unplug_preset(name, &json)) {
        return json;
    }
    if (name.front() == '{') {
        json = name;
    } else if (std::filesystem::is_regular_file(name)) {
        const auto bytes = read_file(name, 0, kLongestConfiguration);
        json.assign(bytes.begin(), bytes.end());
    } else {
        throw Failure(ExitCode::kUsage, "--virtual " + name + ": neither a file nor a preset (" +
                                            join(names) + ")" + suggestion(name, names));
    }
    if (!nlohmann::json::accept(json)) {
        throw Failure(ExitCode::kUsage, "--virtual: the configuration is no valid JSON");
    }
    return json;
}

std::filesystem::path virtual_bus_folder(const CommonOptions& options) {
    constexpr const char* kLibrary = "libusb-1.0.so.0";
    if (!options.virtual_bus.empty()) {
        const auto library = options.virtual_bus / kLibrary;
        if (!std::filesystem::exists(library)) {
            throw Failure(ExitCode::kUsage, "there is no " + library.string());
        }
        return std::filesystem::canonical(options.virtual_bus);
    }
    const auto library =
        find_near_program({std::filesystem::path("../virtcam/bus") / kLibrary,
                           std::filesystem::path(AITCAM_LIBRARIES "/virtual-bus") / kLibrary});
    if (!library) {
        throw Failure(ExitCode::kUsage,
                      "the virtual bus is not built; name its folder with --virtual-bus");
    }
    return library->parent_path();
}

void restart_on_virtual_bus(const CommonOptions& options, const std::filesystem::path& status,
                            char** argv) {
    const auto configuration = virtual_configuration(*options.virtual_camera);
    prepend_library_path(virtual_bus_folder(options));
    setenv("VIRTBUS_CONFIG", configuration_path(with_known_complaints(configuration)).c_str(), 1);
    if (!status.empty()) {
        setenv("VIRTBUS_STATUS", std::filesystem::absolute(status).c_str(), 1);
    }
    set_capture(options);
    if (options.trace_usb) {
        UsbTrace::prepare();
    }
    setenv(kMarker, "1", 1);
    execv("/proc/self/exe", argv);
    throw Failure(ExitCode::kFailed, std::string("cannot start anew: ") + strerror(errno));
}

}  // namespace camhost
