#include "host/writers/output_file.h"

#include <sys/types.h>

#include <cerrno>
#include <cstring>

#include "host/base/exit_code.h"

namespace camhost {

static_assert(sizeof(off_t) == 8, "a recording may be longer than 2 GiB");

OutputFile::OutputFile(const std::filesystem::path& path)
    : path_(path), file_(std::fopen(path.c_str(), "wbe")) {
    if (file_ == nullptr) {
        fail();
    }
}

void OutputFile::fail() const {
    throw Failure(ExitCode::kFailed, "cannot write " + path_.string() + ": " + strerror(errno));
}

void OutputFile::write(std::span<const uint8_t> bytes) {
    if (!bytes.empty() && std::fwrite(bytes.data(), 1, bytes.size(), file_.get()) != bytes.size()) {
        fail();
    }
    size_ += bytes.size();
}

void OutputFile::write(std::string_view text) {
    write(std::span(reinterpret_cast<const uint8_t*>(text.data()), text.size()));
}

void OutputFile::write_at(long offset, std::string_view text) {
    if (std::fseek(file_.get(), offset, SEEK_SET) != 0 ||
        std::fwrite(text.data(), 1, text.size(), file_.get()) != text.size() ||
        std::fseek(file_.get(), 0, SEEK_END) != 0) {
        fail();
    }
}

void OutputFile::close() {
    if (std::fclose(file_.release()) != 0) {
        fail();
    }
}

}  // namespace camhost
