// Whether the counters that the virtual camera drew into a run of pictures are in order.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace recording_check {

/// Takes the pictures of one stream in their order.
class CounterRun {
  public:
    enum class Order {
        kConsecutive,  ///< each counter is the one after the last
        kGrowing,      ///< pictures may have been left out, none is repeated or comes late
    };

    explicit CounterRun(Order order = Order::kConsecutive) : order_(order) {}

    /// `counter`: what the next picture shows, or nothing when it is unreadable.
    void add(std::optional<uint32_t> counter);

    uint64_t pictures() const { return pictures_; }
    /// Counter of the first readable picture.
    std::optional<uint32_t> first() const { return first_; }
    /// Counter of the last readable picture.
    std::optional<uint32_t> last() const { return last_; }
    /// One sentence per picture that is unreadable or out of order, at most kMaxFaults of them.
    const std::vector<std::string>& faults() const { return faults_; }

    static constexpr size_t kMaxFaults = 20;

  private:
    bool may_follow(uint32_t counter) const;
    void fault(const std::string& sentence);

    Order order_;
    uint64_t pictures_ = 0;
    std::optional<uint32_t> first_;
    std::optional<uint32_t> last_;
    std::vector<std::string> faults_;
};

}  // namespace recording_check
