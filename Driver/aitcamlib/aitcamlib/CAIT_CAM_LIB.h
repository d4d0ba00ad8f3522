// The video engine with its event thread.
#pragma once

#include <stdio.h>
#include <sys/time.h>

#include "CLibusb_UvcCtrl.h"
#include "ptasking.h"

class CAIT_CAM_LIB : public CLibUSB_UvcCtrl, public pThread {
  public:
    CAIT_CAM_LIB();
    /// The owner stops the stream first.
    ~CAIT_CAM_LIB() override;

    /// Starts the stream and then the event thread. Negative, with no thread, when the start fails.
    int EnableStream(int formatIndex, int frameIndex, int fps);
    /// Stops the stream, then the event thread, which must still reap the cancelled transfers, and
    /// selects the idle alternate setting. Always 0.
    int DisableStream();

    int VideoTransferStart();
    int VideoTransferStop();
    void EnableTest() { m_bTest = 1; }

    void Run() override;

  private:
    // Kept for the layout; nothing reads them.
    int m_Num_Video_PacketsPerTransfer = 0;
    int m_Num_Audio_PacketsPerTransfer = 0;
    int m_r = 0;
    FILE* m_file = nullptr;
    libusb_device** m_ppDevList = nullptr;
    int m_bTest = 0;
    unsigned char* m_ptr = nullptr;
    int m_ExitThread = 0;
    int m_i = 0;
    timeval m_tv = {0, 1};
};
