// A camera that loses and spoils frames by a plan, and the account of what became of each.
#pragma once

#include <array>
#include <cstdint>
#include <map>
#include <string>

#include "tests/simulation/camera.h"

namespace soak {

/// Which frames go wrong: each that many; 0: none.
struct Plan {
    unsigned lost_each = 0;    ///< never sent
    unsigned spoilt_each = 0;  ///< sent with the error bit: its data is not taken
};

/// Every frame from the camera to the observer. A frame that does not arrive needs a reason: it was
/// lost or spoilt by plan; it waited for the key frame after such a loss; the observer kept the
/// queue full; recording stopped.
class Account {
  public:
    void sent(uint32_t id, bool key);
    void lost(uint32_t id) { entry(id) = {id, Fate::kLost, false, sim::World::now()}; }
    void delivered(uint32_t id);
    /// The observer is busy from now until `end`, and what it missed comes in late.
    void observer_is_slow_until(sim::Time end) { slow_until_ = end; }
    /// Recording has stopped: what is under way will not come.
    void close(uint32_t last);
    /// Decides on frames that are old enough.
    void settle(uint32_t newest);

    /// How many frames, by what became of them. What begins with "UNEXPLAINED" is a defect.
    const std::map<std::string, uint64_t>& totals() const { return totals_; }

  private:
    enum class Fate : uint8_t { kUnderWay, kDelivered, kLost };
    struct Entry {
        uint32_t id;
        Fate fate;
        bool key;
        sim::Time at;
        bool slow = false;
    };
    static constexpr uint32_t kPatience = 64;  // frames

    Entry& entry(uint32_t id) { return entries_[id % entries_.size()]; }
    const char* judge(const Entry& entry, bool stopped);

    std::array<Entry, 256> entries_{};
    uint32_t settled_ = 0;
    bool gap_ = false;
    sim::Time slow_until_{};
    std::map<std::string, uint64_t> totals_;
};

class SoakCamera : public sim::Camera {
  public:
    SoakCamera(Account& account, Plan plan) : account_(account), plan_(plan) {}

    void follow(Plan plan) { plan_ = plan; }
    /// Frames so far, those that were lost included: the number of the last.
    uint32_t frames() const { return id_; }

    sim::Answer control(const sim::Setup& setup, unsigned char* data) override;
    void fill(libusb_transfer& transfer) override;

    /// Number of a frame, as it stands in its picture; 0: none.
    static uint32_t id_in(const unsigned char* picture, unsigned long size);

  protected:
    std::vector<uint8_t> next_frame() override;

  private:
    bool falls_on(unsigned each) const { return each != 0 && id_ % each == 0; }

    Account& account_;
    Plan plan_;
    uint32_t id_ = 0;
    bool key_wanted_ = true;
    bool spoilt_ = false;
};

}  // namespace soak
