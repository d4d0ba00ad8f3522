// What the strict bus found wrong with the use that a program made of it.
#pragma once

#include <mutex>
#include <string>
#include <vector>

#include "virtcam/bus/records.h"

namespace virtcam::bus {

/// Complaints in the order in which they were raised. Thread-safe.
///
/// Unless quiet, each is printed as one line on standard error; of equal ones the first, the tenth,
/// hundredth ... with their number, and at the end the number if that has grown since.
class ComplaintLog {
  public:
    void raise(const std::string& code, const std::string& text);
    /// Prints how often complaints were raised that were not printed each time.
    void tell_counts();

    void set_quiet(bool quiet);
    /// Texts that are recorded, and not printed, when they are raised from now on.
    void expect(std::vector<std::string> texts);
    std::vector<Complaint> all() const;
    std::vector<Complaint> take();

  private:
    struct Tally {
        std::string text;
        uint64_t count = 0;
        uint64_t told = 0;  ///< count at the last print
    };

    Tally& tally_of(const std::string& text);
    void print(Tally& tally);

    mutable std::mutex mutex_;
    std::vector<Complaint> list_;
    std::vector<Tally> tallies_;  ///< of what is printed, in the order of the first of each
    std::vector<std::string> expected_;
    bool quiet_ = false;
};

}  // namespace virtcam::bus
