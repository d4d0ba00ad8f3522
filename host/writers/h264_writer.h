// main.h264 and sub.h264: the records one after another are an Annex B byte stream.
#pragma once

#include <optional>

#include "host/writers/output_file.h"
#include "host/writers/stream_writer.h"

namespace camhost {

class H264Writer : public StreamWriter {
  public:
    H264Writer(Stream stream, const std::filesystem::path& folder);

    void write(const Record& record, bool restarted) override;
    /// Decodes from the last key frame on, to show the last picture.
    WrittenStream finish() override;

  private:
    void decode_last_picture(WrittenStream* result) const;

    OutputFile file_;
    std::optional<uint64_t> last_key_frame_;  ///< file offset of its parameter sets
    bool after_parameter_sets_ = false;
};

}  // namespace camhost
