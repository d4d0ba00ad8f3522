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

    /// Starts the stream and then the event thread. Negative, with no thread, when the start fails;
    /// without a thread nothing streams either.
    int EnableStream(int formatIndex, int frameIndex, int fps);
    /// Stops the stream, then the event thread, which must still reap the cancelled transfers, and
    /// selects the idle alternate setting. Always 0.
    int DisableStream();

    int VideoTransferStart();  ///< 0; -1 without a thread
    int VideoTransferStop();

    void Run() override;

    // --- not called by the plug-in ---------------------------------------------------------------

    void EnableTest() { m_bTest = 1; }

  private:
    // Kept of a bench program's shape; nothing reads them.
    [[maybe_unused]] int m_Num_Video_PacketsPerTransfer = 0;
    [[maybe_unused]] int m_Num_Audio_PacketsPerTransfer = 0;
    [[maybe_unused]] int m_r = 0;
    [[maybe_unused]] FILE* m_file = nullptr;
    [[maybe_unused]] libusb_device** m_ppDevList = nullptr;
    [[maybe_unused]] int m_bTest = 0;
    [[maybe_unused]] unsigned char* m_ptr = nullptr;
    [[maybe_unused]] int m_ExitThread = 0;
    [[maybe_unused]] int m_i = 0;
    [[maybe_unused]] timeval m_tv = {0, 1};
};
