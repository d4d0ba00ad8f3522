// What the strict bus found wrong with the use that a program made of it.
#pragma once

#include <mutex>
#include <string>
#include <vector>

#include "virtcam/bus/records.h"

namespace virtcam::bus {

/// Complaints in the order in which they were raised. Thread-safe.
class ComplaintLog {
  public:
    /// Records a complaint and, unless quiet, prints it as one line on standard error.
    void raise(const std::string& code, const std::string& text);

    void set_quiet(bool quiet);
    std::vector<Complaint> all() const;
    std::vector<Complaint> take();

  private:
    mutable std::mutex mutex_;
    std::vector<Complaint> list_;
    bool quiet_ = false;
};

}  // namespace virtcam::bus
