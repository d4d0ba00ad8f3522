// A number that is read or written where its type may not stand: some processors trap, others and
// emulators do not mind. UndefinedBehaviorSanitizer ends the test everywhere.
#include <gtest/gtest.h>

#include <cstdint>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <string>

namespace {

/// What must not be laid over bytes of the wire.
struct Header {
    uint16_t kind;
    uint32_t size;
};

[[gnu::noinline]] uint32_t SizeOf(const unsigned char* bytes) {
    return reinterpret_cast<const Header*>(bytes)->size;
}

[[gnu::noinline]] void SetSize(unsigned char* bytes, uint32_t size) {
    reinterpret_cast<Header*>(bytes)->size = size;
}

class Alignment : public testing::Test {
  protected:
    alignas(Header) unsigned char bytes_[2 * sizeof(Header)] = {};
};

TEST_F(Alignment, AStructWhereItMayStandIsFine) {
    SetSize(bytes_, 7);
    EXPECT_EQ(SizeOf(bytes_), 7U);
}

TEST_F(Alignment, AnUnalignedReadEndsTheTest) {
    EXPECT_DEATH(SizeOf(bytes_ + 1), "misaligned address");
}

TEST_F(Alignment, AnUnalignedWriteEndsTheTest) {
    EXPECT_DEATH(SetSize(bytes_ + 2, 7), "misaligned address");
}

TEST_F(Alignment, ThePluginIsBuiltWithTheCheck) {
    std::ifstream file(std::getenv("PLUGIN"), std::ios::binary);
    const std::string library{std::istreambuf_iterator<char>(file), {}};
    EXPECT_NE(library.find("__ubsan_handle_type_mismatch_v1_abort"), std::string::npos);
}

}  // namespace
