#include "gst/stream_choice.h"

#include <algorithm>
#include <limits>
#include <optional>

#include "gst/stream_table.h"
#include "host/base/exit_code.h"

namespace gstcam {

namespace {

using camhost::Combination;
using camhost::Selector;
using camhost::Stream;
using camhost::StreamSet;

StreamSet without_nv12(StreamSet streams) {
    streams.erase(Stream::kNv12);
    return streams;
}

bool includes(const StreamSet& all, const StreamSet& part) {
    return std::includes(all.begin(), all.end(), part.begin(), part.end());
}

/// kB/s of what nobody asked for.
unsigned waste(const StreamSet& carried, const StreamSet& wanted) {
    unsigned sum = 0;
    for (const Stream stream : carried) {
        sum += wanted.count(stream) != 0 ? 0 : row_of(stream).kilobytes_per_second;
    }
    return sum;
}

std::string pad_names(const StreamSet& streams) {
    std::string names;
    for (const Stream stream : streams) {
        names += (names.empty() ? "" : ", ") + std::string(row_of(stream).pad);
    }
    return names;
}

/// "h264-yuyv (main, yuy2, audio); ..."
std::string what_goes_together(Selector selector) {
    std::string text;
    for (const Combination& each : camhost::combinations(selector)) {
        text += (text.empty() ? "" : "; ") + std::string(each.name) + " (" +
                pad_names(each.carries) + ")";
    }
    return text + "; nv12 goes with each";
}

[[noreturn]] void refuse(Selector selector, const std::string& sentence) {
    throw camhost::Failure(camhost::ExitCode::kRefused,
                           sentence + ". What goes together: " + what_goes_together(selector));
}

int parse_name(Selector selector, const std::string& name) {
    try {
        return camhost::parse_combination(selector, name);
    } catch (const camhost::Failure& failure) {
        refuse(selector, failure.what());
    }
}

const Combination* least_waste(Selector selector, const StreamSet& wanted) {
    const Combination* best = nullptr;
    unsigned least = std::numeric_limits<unsigned>::max();
    for (const Combination& each : camhost::combinations(selector)) {
        if (includes(each.carries, wanted) && waste(each.carries, wanted) < least) {
            best = &each;
            least = waste(each.carries, wanted);
        }
    }
    return best;
}

}  // namespace

bool carries(Selector selector, int combination, const StreamSet& wanted) {
    const Combination* found = camhost::find_combination(selector, combination);
    return found != nullptr && includes(found->carries, without_nv12(wanted));
}

StreamChoice choose_streams(Selector selector, const StreamSet& wanted,
                            const std::string& by_name) {
    const bool nv12 = wanted.count(Stream::kNv12) != 0;
    if (!by_name.empty()) {
        const int number = parse_name(selector, by_name);
        // A number without a name is passed on: what the plug-in makes of it is its own affair.
        if (camhost::find_combination(selector, number) != nullptr &&
            !carries(selector, number, wanted)) {
            refuse(selector, "The combination " + camhost::combination_name(selector, number) +
                                 " does not carry all of " + pad_names(wanted));
        }
        return {number, nv12};
    }
    const Combination* best = least_waste(selector, without_nv12(wanted));
    if (best == nullptr) {
        refuse(selector, "No combination of streams carries " + pad_names(wanted) + " together");
    }
    return {best->number, nv12};
}

}  // namespace gstcam
