// What has happened: calls, control transfers, endings, for tests, for the status and for the trace.
#pragma once

#include <chrono>
#include <cstdint>
#include <deque>
#include <map>
#include <nlohmann/json_fwd.hpp>
#include <string>
#include <utility>
#include <vector>

#include "virtcam/bus/capture.h"
#include "virtcam/bus/objects.h"
#include "virtcam/bus/records.h"
#include "virtcam/bus/trace.h"

namespace virtcam::bus {

class Journal {
  public:
    /// @param trace file of the trace; empty: none.
    /// @param capture file of the capture; empty: none. `payloads`: with the data of streams.
    Journal(const std::string& trace, const std::string& capture, bool payloads)
        : trace_(trace), capture_(capture, payloads) {}

    /// Forgets everything; the trace counts its time from here.
    void begin(TimePoint now);

    void count_call(const char* name);
    void note_call(CallRecord call);
    /// For the capture; of a control transfer it opens the entry, too.
    void note_submission(Urb& urb);
    /// Counts the ending of a transfer; of a control transfer the entry is completed.
    void note_ending(const Urb& urb);
    /// A request that the host's own core sent, with the data of its answer: in trace and capture
    /// only.
    void note_kernel_request(uint8_t address, const model::Setup& setup, model::ByteView data,
                             bool done);

    std::vector<ControlRecord> controls() const { return {controls_.begin(), controls_.end()}; }
    std::vector<CallRecord> calls() const { return {calls_.begin(), calls_.end()}; }
    /// Calls of each function.
    std::map<std::string, uint64_t> call_counts() const;
    /// Number of transfers by kind and ending.
    nlohmann::json transfer_counts() const;
    /// Forgets controls() and calls().
    void clear_logs();

  private:
    std::chrono::milliseconds elapsed() const;

    Trace trace_;
    Capture capture_;
    TimePoint begun_;
    std::deque<ControlRecord> controls_;
    uint64_t first_control_ = 0;  ///< number of the first entry
    std::deque<CallRecord> calls_;
    std::map<std::string, uint64_t, std::less<>> call_counts_;
    std::map<std::pair<int, faults::Status>, uint64_t> transfer_counts_;  ///< by type and ending
};

}  // namespace virtcam::bus
