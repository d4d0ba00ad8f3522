// jpeg-0001.jpg and so on: one file per still.
#pragma once

#include <cstdint>
#include <vector>

#include "host/writers/stream_writer.h"

namespace camhost {

class JpegWriter : public StreamWriter {
  public:
    explicit JpegWriter(const std::filesystem::path& folder) : folder_(folder) {}

    void write(const Record& record, bool restarted) override;
    WrittenStream finish() override;

  private:
    std::filesystem::path folder_;
    WrittenStream result_;
    std::vector<uint8_t> last_;
};

}  // namespace camhost
