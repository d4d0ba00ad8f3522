#include "tests/system/usb_tree.h"

#include <filesystem>
#include <fstream>
#include <thread>

namespace system_test {
namespace {

namespace fs = std::filesystem;

constexpr char kDevice[] = "/sys/bus/usb/devices/1-1";

std::string interface_name(int interface) {
    return "1-1:1." + std::to_string(interface);
}

int read_number(const std::string& attribute, int base) {
    std::ifstream file(std::string(kDevice) + "/" + attribute);
    std::string text;
    return file >> text ? std::stoi(text, nullptr, base) : -1;
}

}  // namespace

bool wait_until(const std::function<bool()>& condition, std::chrono::milliseconds limit) {
    const auto deadline = std::chrono::steady_clock::now() + limit;
    while (!condition()) {
        if (std::chrono::steady_clock::now() > deadline) {
            return false;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    return true;
}

int product_id() {
    return read_number("idProduct", 16);
}

int device_number() {
    return read_number("devnum", 10);
}

std::string driver_of(int interface) {
    std::error_code error;
    const fs::path link =
        fs::read_symlink("/sys/bus/usb/devices/" + interface_name(interface) + "/driver", error);
    return error ? "" : link.filename().string();
}

bool bind_driver(const std::string& driver, int interface) {
    std::ofstream file("/sys/bus/usb/drivers/" + driver + "/bind");
    file << interface_name(interface);
    return bool(file.flush());
}

bool kernel_uses_camera() {
    return driver_of(0) == kVideoDriver && driver_of(1) == kVideoDriver &&
           driver_of(2) == kAudioDriver && driver_of(3) == kAudioDriver && !video_node().empty() &&
           fs::exists("/dev/snd/pcmC0D0c");
}

std::string video_node() {
    std::error_code error;
    for (const auto& entry : fs::directory_iterator("/sys/class/video4linux", error)) {
        std::ifstream file(entry.path() / "index");  // 0: pictures, 1: their metadata
        int index = -1;
        if (file >> index && index == 0) {
            return "/dev/" + entry.path().filename().string();
        }
    }
    return "";
}

}  // namespace system_test
