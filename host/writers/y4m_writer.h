// gray.y4m, yuy2.y4m, nv12.y4m and nv21.y4m: uncompressed pictures with a header that names their
// size, which most players open.
#pragma once

#include <optional>

#include "host/writers/output_file.h"
#include "host/writers/stream_writer.h"

namespace camhost {

/// A record whose byte count fits no known size goes to NAME.raw as it is, and a note says so.
/// When the size changes while recording, a new file begins: NAME-2.y4m.
class Y4mWriter : public StreamWriter {
  public:
    Y4mWriter(Stream stream, const std::filesystem::path& folder)
        : stream_(stream), folder_(folder) {}

    void write(const Record& record, bool restarted) override;
    WrittenStream finish() override;

  private:
    void write_picture(const PlanarPicture& picture);
    void write_unknown(const Record& record);
    void begin_file(const PlanarPicture& picture);
    void end_file();
    std::string numbered_name() const;

    Stream stream_;
    std::filesystem::path folder_;
    WrittenStream result_;
    std::optional<OutputFile> file_;
    std::optional<OutputFile> unknown_;
    unsigned files_begun_ = 0;
    PlanarPicture last_;
    uint64_t pictures_in_file_ = 0;
    Clock::time_point first_in_file_;
    Clock::time_point last_in_file_;
};

}  // namespace camhost
