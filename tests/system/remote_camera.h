// The virtual camera outside of the guest, told what to do.
#pragma once

#include <cstdint>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

namespace system_test {

/// Sends commands to `virtcam serve --commands`; where it listens stands in the environment
/// variable VIRTCAM_COMMANDS (ADDRESS:PORT, numeric). One connection, one thread.
class RemoteCamera {
  public:
    /// Throws std::runtime_error when nobody listens.
    RemoteCamera();
    ~RemoteCamera();
    RemoteCamera(const RemoteCamera&) = delete;
    RemoteCamera& operator=(const RemoteCamera&) = delete;

    /// The answer to one command line. Throws std::runtime_error when it is an error.
    std::string command(const std::string& line);
    /// A new camera, switched on just now.
    void reset(const nlohmann::json& configuration) { command("reset " + configuration.dump()); }
    nlohmann::json status() { return nlohmann::json::parse(command("status")); }
    /// How often each failure rule in force has struck, in the order in which they were added.
    std::vector<unsigned> strikes();
    /// The newest commands that have reached the camera, a line each: for what a failure prints.
    std::string last_commands();
    /// Vendor requests of this code that have reached the camera.
    size_t count_vendor_requests(uint8_t request);

  private:
    int socket_;
};

}  // namespace system_test
