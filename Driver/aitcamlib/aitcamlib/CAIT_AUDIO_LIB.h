// The audio engine with its event thread and a volume scale that starts at the device's minimum.
#pragma once

#include <stdio.h>
#include <sys/time.h>

#include "CLibusb_UacCtrl.h"
#include "ptasking.h"

class CAIT_AUDIO_LIB : public CLibUSB_UacCtrl, public pThread {
  public:
    CAIT_AUDIO_LIB();
    /// The owner stops the stream first.
    ~CAIT_AUDIO_LIB() override;

    /// Starts the stream at `rate` Hz and then the event thread, whatever the result (unlike the
    /// video engine); returns the start's result, or -1 with nothing streaming without a thread.
    int EnableStream(int rate);
    /// Stops stream and event thread; nothing when nothing streams, so that the thread of a failed
    /// start runs on until the engine is destroyed. Always 0.
    int DisableStream();

    int AudioTransferStart();  ///< 0; -1 without a thread
    int AudioTransferStop();

    unsigned int GetMinVolume() const { return static_cast<unsigned int>(UAC_GetMinVolume()); }
    unsigned int GetMaxVolume() const { return static_cast<unsigned int>(UAC_GetMaxVolume()); }
    /// Volume as an offset above the minimum, device units.
    int SetCurVolume(unsigned int offset);

    void Run() override;

    // --- not called by the plug-in ---------------------------------------------------------------

    unsigned int GetCurVolume() const;
    int SetSamplingRate(unsigned int rate) { return UAC_SetSamplingRate(rate); }
    void EnableTest() { m_bTest = 1; }

  private:
    // Kept of a bench program's shape; nothing reads them.
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
