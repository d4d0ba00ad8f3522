#include "host/streams/stream.h"

#include <algorithm>
#include <vector>

#include "host/base/exit_code.h"
#include "host/base/nearest_name.h"
#include "host/base/text.h"

namespace camhost {

StreamSet every_stream() {
    StreamSet all;
    for (const StreamInfo& row : kStreams) {
        all.insert(row.stream);
    }
    return all;
}

StreamSet parse_streams(std::string_view list) {
    if (lower(list) == "all") {
        return every_stream();
    }
    StreamSet chosen;
    for (const std::string& word : split(lower(list), ',')) {
        const auto row = std::find_if(kStreams.begin(), kStreams.end(),
                                      [&](const StreamInfo& each) { return word == each.name; });
        if (row == kStreams.end()) {
            std::vector<std::string> names{"all"};
            for (const StreamInfo& each : kStreams) {
                names.emplace_back(each.name);
            }
            throw Failure(ExitCode::kUsage, "there is no stream '" + word + "'" +
                                                suggestion(word, names) +
                                                " (streams: " + join(names) + ")");
        }
        chosen.insert(row->stream);
    }
    return chosen;
}

std::string labels(const StreamSet& streams) {
    std::vector<std::string> words;
    for (const Stream stream : streams) {
        words.emplace_back(info(stream).label);
    }
    return join(words);
}

}  // namespace camhost
