#include "host/writers/jpeg_writer.h"

#include "host/base/text.h"
#include "host/pictures/jpeg_decoder.h"
#include "host/writers/output_file.h"

namespace camhost {

void JpegWriter::write(const Record& record, bool /*restarted*/) {
    OutputFile file(folder_ / format("jpeg-%04zu.jpg", result_.files.size() + 1));
    file.write(record.data);
    file.close();
    result_.files.push_back(file.path());
    last_ = record.data;
}

WrittenStream JpegWriter::finish() {
    if (!last_.empty()) {
        result_.picture = decode_jpeg(last_);
        result_.picture_size = result_.picture.size;
        if (result_.picture.empty()) {
            result_.notes.emplace_back("the last JPEG does not decode");
        }
    }
    return std::move(result_);
}

}  // namespace camhost
