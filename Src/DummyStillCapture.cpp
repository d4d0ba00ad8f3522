#include "DummyStillCapture.h"

#include <stdlib.h>

#include <algorithm>

#include "FileContent.h"
#include "aitdbg.h"

char dummy_jpg_path_name[33] = "/mtd_rwcommon/lumo/bin/dummy.jpg";

namespace {

struct FreeMemory {
    void operator()(void* memory) const { free(memory); }
};

}  // namespace

CDummyStillCapture::CDummyStillCapture(IVideoCapture* capture, ICameraSubject* subject)
    : pThread(false, -1), video_capture(capture), camera_subject(subject) {}

void CDummyStillCapture::Run() {
    SendPlaceholder();
    delete this;
}

void CDummyStillCapture::SendPlaceholder() {
    AIT_LOG_AS("Run");
    FilePtr file = OpenFile(dummy_jpg_path_name);
    if (file == nullptr) {
        AIT_LOG(4, "CDummyStillCapture::Run() No dummy image file.\r\n");
        return;
    }
    const long size = FileSize(file.get());
    std::unique_ptr<void, FreeMemory> picture;
    if (size >= 0) {
        // At least one byte, so that null always means that memory is short; zeroed, in case the
        // file is shorter than it said.
        picture.reset(calloc(std::max<size_t>(static_cast<size_t>(size), 1), 1));
    }
    if (picture == nullptr) {
        AIT_LOG(4, "file %s size is incorrect. \r\n", dummy_jpg_path_name);
        return;
    }
    const size_t count = fread(picture.get(), 1, static_cast<size_t>(size), file.get());
    file.reset();
    if (count < static_cast<size_t>(size)) {
        AIT_LOG(3, "file %s: %ld of %ld bytes read.\r\n", dummy_jpg_path_name,
                static_cast<long>(count), size);
    }
    AIT_LOG(4, "CDummyStillCapture::Run() JPEG Size=%d\r\n", static_cast<int>(size));
    CCameraData data;
    data.m_pData = picture.get();
    data.m_size = static_cast<unsigned long>(size);
    data.m_cts = 0;
    data.m_type = CAM_STREAM_JPEG;
    camera_subject->OnFrameArrival(&data);
}
