#include "host/acceptance/plugin_log.h"

#include <array>
#include <charconv>
#include <cstdio>
#include <fstream>
#include <iterator>
#include <map>

#include "host/base/text.h"

namespace camhost {

namespace {

/// What stands behind `mark` in the line; nothing when the mark is not in it.
std::optional<std::string_view> behind(std::string_view line, std::string_view mark) {
    const size_t at = line.find(mark);
    return at == std::string_view::npos ? std::nullopt
                                        : std::optional(line.substr(at + mark.size()));
}

/// The number that `text` begins with, spaces before it aside; 0 when it does not.
int64_t number_at(std::string_view text, int base = 10) {
    while (text.starts_with(' ')) {
        text.remove_prefix(1);
    }
    int64_t number = 0;
    std::from_chars(text.data(), text.data() + text.size(), number, base);
    return number;
}

std::string times(unsigned count, const char* one, const char* several) {
    return count == 1 ? std::string("1 ") + one : format("%u %s", count, several);
}

/// The types of sub-streams; null for others.
const char* sub_stream_name(int64_t type) {
    static const std::map<int64_t, const char*> names{
        {0x29, "YUY2"}, {0x2A, "NV12"}, {0x2B, "H.264 main"}, {0x2C, "JPEG"},
        {0x2D, "gray"}, {0x2F, "NV21"}, {0x35, "H.264 sub"}};
    const auto found = names.find(type);
    return found == names.end() ? nullptr : found->second;
}

/// Something that happened several times, with what was told of the first time.
struct Occurrences {
    unsigned count = 0;
    int64_t first = 0;

    void add(int64_t value) {
        first = count == 0 ? value : first;
        ++count;
    }
};

/// Transfers and payloads.
class TransferFaults {
  public:
    void read(std::string_view line) {
        // The wording names audio, whichever stream it is.
        if (const auto status = behind(line, "Audio Transfer Unknown Status=")) {
            constexpr int kStall = 4;
            ++(number_at(*status) == kStall ? stalls_ : errors_);
        } else if (const auto endpoint = behind(line, "LIBUSB_TRANSFER_OVERFLOW! EP = ")) {
            babble_.add(number_at(*endpoint, 16));
        } else if (const auto silent = behind(line, "LIBUSB_TRANSFER_TIMED_OUT! EP = ")) {
            time_outs_.add(number_at(*silent, 16));
        } else if (const auto length = behind(line, "UVC Payload Header Length = ")) {
            headers_.add(number_at(*length));
        } else if (behind(line, "Dropping payload (error bit set).")) {
            ++error_bits_;
        } else if (behind(line, "Fram size exceed MaxFrameSize!!")) {
            ++behind_end_;
        }
    }

    std::vector<std::string> sentences() const {
        std::vector<std::string> all;
        if (stalls_ > 0) {
            all.push_back(times(stalls_, "transfer ends", "transfers end") +
                          " with a stall: the endpoint is halted");
        }
        if (errors_ > 0) {
            all.push_back(times(errors_, "transfer fails", "transfers fail"));
        }
        if (babble_.count > 0) {
            all.push_back(times(babble_.count, "transfer", "transfers") + " with babble on " +
                          endpoint(babble_) + ": more came than was asked for");
        }
        if (time_outs_.count > 0) {
            all.push_back(times(time_outs_.count, "time-out", "time-outs") + " on " +
                          endpoint(time_outs_));
        }
        if (headers_.count > 0) {
            all.push_back(times(headers_.count, "payload header", "payload headers") +
                          format(" of %lld bytes, not 12", static_cast<long long>(headers_.first)));
        }
        // The plug-in counts a payload with another header among those.
        if (error_bits_ > headers_.count) {
            all.push_back(times(error_bits_ - headers_.count, "payload", "payloads") +
                          " with the error bit set");
        }
        if (behind_end_ > 0) {
            all.push_back("a frame does not end: " + times(behind_end_, "payload", "payloads") +
                          " behind its 2 MiB");
        }
        return all;
    }

  private:
    static std::string endpoint(const Occurrences& what) {
        return format("endpoint 0x%02llX", static_cast<unsigned long long>(what.first));
    }

    unsigned stalls_ = 0;
    unsigned errors_ = 0;
    unsigned error_bits_ = 0;
    unsigned behind_end_ = 0;
    Occurrences babble_;
    Occurrences time_outs_;
    Occurrences headers_;
};

/// Frames and the headers of their sub-streams.
class FrameFaults {
  public:
    void read(std::string_view line) {
        if (const auto type =
                behind(line,
                       "Parser Error, offset+h->dwPlayloadSize > frame_size , Stream Type = "
                       "0x")) {
            // Behind the text is the size alone, printed with a sign.
            const auto size = behind(*type, "offse+h->dwPlayloadSize=");
            read_size(number_at(*type, 16), static_cast<uint32_t>(size ? number_at(*size) : 0));
        } else if (const auto bytes = behind(line, "Sub-stream of ")) {
            lying_.add(number_at(*bytes));
        } else if (const auto unknown = behind(line, "Unknown Format ID ")) {
            unknown_.add(number_at(*unknown));
        } else if (behind(line, "Parser Error, offset >= frame_size")) {
            ++cut_headers_;
        }
    }

    unsigned count() const {
        return lying_.count + unknown_.count + garbage_.count + short_.count + cut_headers_;
    }

    unsigned begun() const { return short_.count; }

    std::vector<std::string> sentences() const {
        std::vector<std::string> all;
        if (lying_.count > 0) {
            all.push_back(
                times(lying_.count, "sub-stream header lies", "sub-stream headers lie") +
                format(" about the size (%lld bytes)", static_cast<long long>(lying_.first)));
        }
        if (short_.count > 0) {
            all.push_back(times(short_.count, "frame is", "frames are") +
                          " shorter than the headers in it say (" + sub_stream_name(short_.first) +
                          "): a payload is lost or cut");
        }
        if (unknown_.count > 0) {
            all.push_back(times(unknown_.count, "sub-stream", "sub-streams") +
                          format(" of the unknown type 0x%llX",
                                 static_cast<unsigned long long>(unknown_.first)));
        }
        if (garbage_.count + cut_headers_ > 0) {
            all.push_back(times(garbage_.count + cut_headers_, "frame has", "frames have") +
                          " other data where a sub-stream header is due: a payload is lost, cut or "
                          "there twice");
        }
        return all;
    }

  private:
    /// A sub-stream that does not fit its frame.
    void read_size(int64_t type, uint32_t size) {
        constexpr uint32_t kLargestFrame = uint32_t{2} << 20;
        if (sub_stream_name(type) == nullptr) {
            garbage_.add(type);
        } else if (size > kLargestFrame) {
            lying_.add(size);
        } else {
            short_.add(type);
        }
    }

    Occurrences lying_;
    Occurrences short_;
    Occurrences unknown_;
    Occurrences garbage_;
    unsigned cut_headers_ = 0;
};

std::string gaps(const char* stream, const Occurrences& what) {
    if (what.first == 1) {
        return format("the sequence numbers of the %s stream begin anew", stream);
    }
    return times(what.count, "sequence gap", "sequence gaps") + " on the " + stream + " stream, " +
           (what.count == 1 ? "" : "the first ") +
           format("before number %lld", static_cast<long long>(what.first));
}

/// Requests of the start by what the plug-in logs when one of them fails.
std::optional<std::string> failed_request(std::string_view line) {
    struct Row {
        const char* text;
        const char* sentence;
    };
    static constexpr std::array<Row, 7> kRows{{
        {"UVC_query_ctrl Error:Probe UVC_SET_CUR", "SET_CUR of the probe is refused"},
        {"UVC_query_ctrl Error:Probe UVC_GET_MAX", "GET_MAX of the probe fails or is too short"},
        {"UVC_query_ctrl Error:Probe UVC_GET_MIN", "GET_MIN of the probe fails or is too short"},
        {"UVC_query_ctrl Error:Probe UVC_GET_CUR", "GET_CUR of the probe fails or is too short"},
        {"UVC_query_ctrl Error:Commit UVC_SET_CUR", "SET_CUR of the commit is refused"},
        {"Failed to SET sampling rate: (", "SET_CUR of the sampling rate is refused"},
        {"Failed to GET sampling rate: (", "GET_CUR of the sampling rate fails or is too short"},
    }};
    for (const Row& row : kRows) {
        if (line.find(row.text) != std::string_view::npos) {
            return row.sentence;
        }
    }
    return std::nullopt;
}

}  // namespace

LoggedFaults faults_in(std::string_view log) {
    LoggedFaults faults;
    TransferFaults transfers;
    FrameFaults frames;
    Occurrences main;
    Occurrences sub;
    for (const std::string& line : split(log, '\n')) {
        transfers.read(line);
        frames.read(line);
        if (const auto request = failed_request(line)) {
            faults.start.push_back(*request);
        } else if (const auto number = behind(line, "Main H264, FRAME LOST. ")) {
            main.add(number_at(*number));
        } else if (const auto second = behind(line, "Sub H264, FRAME LOST. ")) {
            sub.add(number_at(*second));
        } else if (behind(line, "Dropped a UVC frame")) {
            ++faults.dropped_here;
        }
    }
    faults.transfers = transfers.sentences();
    faults.frames = frames.sentences();
    faults.broken_frames = frames.count();
    faults.begun_frames = frames.begun();
    if (main.count > 0) {
        faults.sequence.push_back(gaps("main", main));
    }
    if (sub.count > 0) {
        faults.sequence.push_back(gaps("sub", sub));
    }
    return faults;
}

std::optional<std::string> PluginLog::news() {
    std::fflush(stdout);  // the plug-in's own buffer
    if (!std::filesystem::is_regular_file(file_)) {
        return std::nullopt;
    }
    std::ifstream stream(file_, std::ios::binary);
    stream.seekg(read_);
    std::string text{std::istreambuf_iterator<char>(stream), {}};
    read_ += static_cast<std::streamoff>(text.size());
    return text;
}

}  // namespace camhost
