// From records to files that a person can open.
#pragma once

#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "host/pictures/picture.h"
#include "host/streams/record.h"

namespace camhost {

/// What a writer made of its stream.
struct WrittenStream {
    std::vector<std::filesystem::path> files;
    std::vector<std::string> notes;  ///< sentences for the user, such as an unknown picture size
    RgbPicture picture;              ///< the last picture, or the sound's curve; empty without one
    Size picture_size;               ///< before any shrinking
};

/// Writes one stream into a folder. Used by one thread. Throws Failure (kFailed) when a file
/// cannot be written; the other streams' writers are not concerned.
class StreamWriter {
  public:
    virtual ~StreamWriter() = default;
    StreamWriter() = default;
    StreamWriter(const StreamWriter&) = delete;
    StreamWriter& operator=(const StreamWriter&) = delete;

    /// Appends a record that is not empty. `restarted`: it is the first
    /// after a restart of recording.
    virtual void write(const Record& record, bool restarted) = 0;
    /// Completes the files. Called once, after the last write().
    virtual WrittenStream finish() = 0;
};

}  // namespace camhost
