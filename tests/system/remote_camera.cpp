#include "tests/system/remote_camera.h"

#include <arpa/inet.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdlib>
#include <stdexcept>

namespace system_test {
namespace {

sockaddr_in server_address() {
    const char* text = std::getenv("VIRTCAM_COMMANDS");
    const std::string where = text == nullptr ? "" : text;
    const size_t colon = where.find(':');
    sockaddr_in address{};
    address.sin_family = AF_INET;
    if (colon == std::string::npos ||
        ::inet_pton(AF_INET, where.substr(0, colon).c_str(), &address.sin_addr) != 1) {
        throw std::runtime_error("VIRTCAM_COMMANDS is not ADDRESS:PORT: \"" + where + "\"");
    }
    address.sin_port = htons(static_cast<uint16_t>(std::stoul(where.substr(colon + 1))));
    return address;
}

}  // namespace

RemoteCamera::RemoteCamera() : socket_(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
    const sockaddr_in address = server_address();
    if (::connect(socket_, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
        ::close(socket_);
        throw std::runtime_error("nobody takes commands for the camera");
    }
}

RemoteCamera::~RemoteCamera() {
    ::close(socket_);
}

std::string RemoteCamera::command(const std::string& line) {
    const std::string request = line + "\n";
    if (::send(socket_, request.data(), request.size(), MSG_NOSIGNAL) !=
        static_cast<ssize_t>(request.size())) {
        throw std::runtime_error("the camera's server has gone");
    }
    std::string answer;
    char byte = 0;
    while (::recv(socket_, &byte, 1, 0) == 1 && byte != '\n') {
        answer += byte;
    }
    if (byte != '\n' || answer.rfind("error: ", 0) == 0) {
        throw std::runtime_error("\"" + line + "\": " + answer);
    }
    return answer;
}

std::vector<unsigned> RemoteCamera::strikes() {
    return nlohmann::json::parse(command("strikes")).get<std::vector<unsigned>>();
}

std::string RemoteCamera::last_commands() {
    constexpr size_t kMost = 12;
    const nlohmann::json commands = status().at("commands");
    std::string text;
    for (size_t i = commands.size() > kMost ? commands.size() - kMost : 0; i < commands.size();
         ++i) {
        text += commands[i].at("text").get<std::string>();
        text += commands[i].at("stalled").get<bool>() ? ", stalled\n" : "\n";
    }
    return text;
}

size_t RemoteCamera::count_vendor_requests(uint8_t request) {
    constexpr unsigned kTypeMask = 0x60;
    constexpr unsigned kVendor = 0x40;
    size_t count = 0;
    const nlohmann::json report = status();
    for (const auto& entry : report.at("commands")) {
        const unsigned type = entry.at("request_type").get<unsigned>() & kTypeMask;
        count += type == kVendor && entry.at("request") == request ? 1 : 0;
    }
    return count;
}

}  // namespace system_test
