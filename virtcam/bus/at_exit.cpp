// The last word of the bus: leaks are complained of, and the status is written, when everything
// that uses this library has been finished.
#include "virtcam/bus/bus.h"

namespace {

[[gnu::destructor]] void report_at_exit() {
    if (!virtcam::bus::Bus::started()) {
        return;
    }
    auto& bus = virtcam::bus::Bus::instance();
    if (!bus.owned_by_this_process()) {
        return;
    }
    for (const auto& leak : bus.leaks()) {
        bus.complaints().raise(leak.code, leak.text);
    }
    bus.complaints().tell_counts();
    bus.write_status();
}

}  // namespace
