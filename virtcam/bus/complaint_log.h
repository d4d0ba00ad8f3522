// What the strict bus found wrong with the use that a program made of it.
#pragma once

#include <mutex>
#include <string>
#include <vector>

#include "virtcam/bus/records.h"

namespace virtcam::bus {

/// Complaints in the order in which each was raised first. Thread-safe.
///
/// Unless quiet, each is printed as one line on standard error when it is raised; equal ones again
/// at the tenth, hundredth ... time, with their number, and at the end if that has grown since.
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
    struct Entry {
        Complaint complaint;
        uint64_t told = 0;  ///< count at the last print
    };

    void print(Entry& entry);

    mutable std::mutex mutex_;
    std::vector<Entry> list_;
    std::vector<std::string> expected_;
    bool quiet_ = false;
};

}  // namespace virtcam::bus
