// Where a host that was compiled years ago expects everything: one table of the places of fields,
// one of sizes, one of the slots of virtual functions, for machines of 64 and of 32 bits. The column
// of the machine at hand is held; the other one when the tests run there.
#include <gtest/gtest.h>

#include <bit>
#include <climits>
#include <cstddef>
#include <cstdint>
#include <string>

#include "Src/CameraInterface.h"
#include "tests/support/BareSubject.h"

namespace test {
namespace {

constexpr bool k64Bits = sizeof(void*) == 8;
static_assert(k64Bits || sizeof(void*) == 4);
static_assert(CHAR_BIT == 8 && sizeof(int) == 4 && sizeof(short) == 2);
static_assert(sizeof(long) == sizeof(void*), "sizes and stamps of a record are as wide as a word");

/// A number of bytes on machines of either width.
struct Bytes {
    const char* what;
    size_t here;
    size_t on64;
    size_t on32;
};

void Expect(const Bytes& row) {
    EXPECT_EQ(row.here, k64Bits ? row.on64 : row.on32) << row.what;
}

class Observer : public ICameraObserver {
  public:
    bool Update(const CCameraData*) override { return true; }
};

template <typename Object, typename Member>
size_t OffsetIn(const Object& object, const Member& member) {
    return static_cast<size_t>(reinterpret_cast<const char*>(&member) -
                               reinterpret_cast<const char*>(&object));
}

#define FIELD(object, field) #field, OffsetIn(object, (object).field)

TEST(Abi, FieldsOfARecord) {
    const CCameraExtData record = {};
    Expect({FIELD(record, m_pData), 0, 0});
    Expect({FIELD(record, m_size), 8, 4});
    Expect({FIELD(record, m_cts), 16, 8});
    Expect({FIELD(record, m_type), 24, 12});
    Expect({FIELD(record, m_nExtDataSize), 32, 16});
    Expect({FIELD(record, m_pExtData), 40, 20});
}

TEST(Abi, FieldsOfACropArea) {
    const CCamZoomParameters area = {};
    Expect({FIELD(area, m_bUseCropping), 0, 0});
    Expect({FIELD(area, m_ZoomAreaTop), 4, 4});
    Expect({FIELD(area, m_ZoomAreaLeft), 8, 8});
}

TEST(Abi, FieldsOfAnObserver) {
    const Observer observer;
    Expect({FIELD(observer, m_pSubjectRegistered), 8, 4});
    Expect({FIELD(observer, m_StreamType), 16, 8});
}

TEST(Abi, FieldsOfASubject) {
    const BareSubject subject;
    Expect({FIELD(subject, m_pObserverList), 8, 4});
    Expect({FIELD(subject, m_State), 512, 256});
    Expect({FIELD(subject, m_VendorName), 520, 260});
    Expect({FIELD(subject, m_ModelName), 552, 284});
    Expect({FIELD(subject, m_FileNPath), 584, 308});
    Expect({FIELD(subject, m_DataType), 616, 332});
}

#define SIZE(type) #type, sizeof(type)

TEST(Abi, Sizes) {
    Expect({SIZE(CAM_STREAM_TYPE), 4, 4});
    Expect({SIZE(CAM_STATE), 4, 4});
    Expect({SIZE(CAM_PROPERTY), 4, 4});
    Expect({SIZE(CAM_CAPABILITY), 4, 4});
    Expect({SIZE(CAM_STR_FORMAT), 4, 4});
    Expect({SIZE(CAM_SIGNAL_TYPE), 4, 4});
    Expect({SIZE(CAM_VIDEO_MODE), 4, 4});
    Expect({SIZE(CAM_PROP_VALUE), 4, 4});
    Expect({SIZE(CCameraData), 32, 16});
    Expect({SIZE(CCameraExtData), 48, 24});
    Expect({SIZE(CCamZoomParameters), 12, 12});
    Expect({SIZE(ICameraObserver), 24, 12});
    Expect({SIZE(ICameraSubject), 648, 356});
    Expect({SIZE(std::string), 32, 24});
    Expect({SIZE(std::vector<ICameraObserver*>), 24, 12});
}

/// Index in the table of virtual functions, of a pointer to a virtual member: the general C++ ABI
/// makes it of one plus the offset and a correction of `this`; that of ARM, where an odd address is
/// a function's, has the mark in the correction.
template <typename Member>
size_t SlotOf(Member member) {
    struct Representation {
        uintptr_t offset;
        ptrdiff_t correction;
    };
    const auto pointer = std::bit_cast<Representation>(member);
#if defined(__arm__) || defined(__aarch64__)
    EXPECT_EQ(pointer.correction, 1);
    return pointer.offset / sizeof(void*);
#else
    EXPECT_EQ(pointer.correction, 0);
    EXPECT_EQ(pointer.offset % 2, 1u);
    return (pointer.offset - 1) / sizeof(void*);
#endif
}

#define EXPECT_SLOT(slot, function) EXPECT_EQ(SlotOf(&function), size_t{slot})

TEST(Abi, SlotsOfASubject) {  // slots 0 and 1 are both forms of the destructor
    EXPECT_SLOT(2, ICameraSubject::Init);
    EXPECT_SLOT(3, ICameraSubject::GetState);
    EXPECT_SLOT(4, ICameraSubject::SetState);
    EXPECT_SLOT(5, ICameraSubject::RegisterObserver);
    EXPECT_SLOT(6, ICameraSubject::RemoveObserver);
    EXPECT_SLOT(7, ICameraSubject::OnFrameArrival);
    EXPECT_SLOT(8, ICameraSubject::StartRecording);
    EXPECT_SLOT(9, ICameraSubject::StopRecording);
    EXPECT_SLOT(10, ICameraSubject::SetProperty);
    EXPECT_SLOT(11, ICameraSubject::GetProperty);
    EXPECT_SLOT(12, ICameraSubject::GetCapability);
    EXPECT_SLOT(13, ICameraSubject::SetStreamFormat);
    EXPECT_SLOT(14, ICameraSubject::GetVendorName);
    EXPECT_SLOT(15, ICameraSubject::GetModelName);
    EXPECT_SLOT(16, ICameraSubject::Execute);
    EXPECT_SLOT(17, ICameraSubject::StartTest);
    EXPECT_SLOT(18, ICameraSubject::StopTest);
    EXPECT_SLOT(19, ICameraSubject::PrintStatus);
    EXPECT_SLOT(20, ICameraSubject::OnSleep);
    EXPECT_SLOT(21, ICameraSubject::OnWakeUp);
    EXPECT_SLOT(22, ICameraSubject::CameraUpdate);
    EXPECT_SLOT(23, ICameraSubject::GetCamDownloadedRootPath);
    EXPECT_SLOT(24, ICameraSubject::GetCamDataType);
    EXPECT_SLOT(25, ICameraSubject::GetCamInstalledVersion);
    EXPECT_SLOT(26, ICameraSubject::MustBeSecured);
    EXPECT_SLOT(27, ICameraSubject::StopCamUpgrade);
    EXPECT_SLOT(28, ICameraSubject::CompareCamVersion);
}

TEST(Abi, SlotOfAnObserver) {
    EXPECT_SLOT(2, ICameraObserver::Update);
}

}  // namespace
}  // namespace test
