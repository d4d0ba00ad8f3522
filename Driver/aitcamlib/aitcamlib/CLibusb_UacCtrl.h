// USB Audio Class host (UAC 1.0) for the camera's microphone, on libusb: sets rate and volume,
// keeps two isochronous transfers in flight and hands each completed one, as one frame, to one
// consumer. It has no thread: CAIT_AUDIO_LIB drives its events. Channel count and sample format are
// the device's own.
#pragma once

#include <stdint.h>

#include "UsbStreamEngine.h"

class CLibUSB_UacCtrl : public UsbStreamEngine {
  public:
    CLibUSB_UacCtrl();
    ~CLibUSB_UacCtrl() override;

    /// Opens the camera and claims its audio interfaces. 0, or -1.
    int Init(int vid, int pid);

    /// Starts streaming at `rate` Hz and applies the volume; a running stream is stopped first. 0,
    /// or -1; a failed submit leaves IsStreaming set, so that the next start runs a full stop. Host
    /// thread.
    int UAC_EnableAudioStream(int rate);
    /// Stops the stream and frees what it used; see UsbStreamEngine for the contract. 0; -1 without
    /// a device, or when the interface cannot be set idle (nothing is freed then).
    int UAC_DisableAudioStream();

    /// Device units (1/256 dB, UAC 1.0, 5.2.2.4.3.2). 0; -1 outside the range or without a device
    /// (nothing is sent); a negative libusb code.
    int UAC_SetCurVolume(short volume);
    short UAC_GetMaxVolume() const { return m_MaxVolume; }
    short UAC_GetMinVolume() const { return m_MinVolume; }

    // --- not called by the plug-in ---------------------------------------------------------------

    /// Sets the endpoint's rate in Hz. Bytes transferred, or a negative libusb code (-1 without
    /// device).
    int UAC_SetSamplingRate(unsigned int rate);
    short UAC_GetCurVolume() const { return m_CurVolume; }
    // No list of rates and channels is kept.
    int UAC_GetSupportedSampleFreqCount() { return 0; }
    int UAC_GetSupportedSampleFreq(int) { return 0; }
    int UAC_GetNumberOfPutputChannel() { return 0; }

    // Of the video engine's shape.
    int UVC_query_ctrl(unsigned char, unsigned char, unsigned char, unsigned char, void*,
                       unsigned short, int) {
        return 0;
    }
    int UVC_EnableVideoStream(int, int, int) { return 0; }

  protected:
    /// Copies one transfer's packets into a frame buffer and publishes it. Always 0.
    int FillAudioData(libusb_transfer* transfer) REQUIRES(m_ProducerMtx);

    static constexpr int kControlInterface = 2;
    static constexpr int kStreamInterface = 3;

  private:
    int FillFromTransfer(libusb_transfer* transfer) override REQUIRES(m_ProducerMtx) {
        return FillAudioData(transfer);
    }

    // Start, step by step.
    bool NegotiateRate(int rate);
    bool ReadVolumeRange();
    bool ReadVolumeLimit(uint8_t request, short* limit);
    void ChooseVolume();
    void AllocateTransfers();
    bool FillTransfers(int maxIso);
    int SubmitTransfers();

    unsigned int CopyPackets(const libusb_transfer* transfer, CFrameBuf* frame);
    void EndStream() EXCLUDES(m_ProducerMtx);
    void ReleaseStream();
    void ReleaseLeftovers();

    /// The transfer lock by the name that it is known by on this engine; what both engines share
    /// calls it by the base's.
    [[maybe_unused]] pMutex& gAudioTransferMtx = m_TransferMtx;
    int m_NumFrameOfQ = FrameBufCount();
    int m_Num_Audio_PacketsPerTransfer = 10;
    short m_MaxVolume = 0;
    short m_MinVolume = 0;
    short m_CurVolume = -1;
    unsigned int m_nFrameCapacity = 0;  ///< bytes of each frame buffer
    libusb_transfer* m_AudioTransfer[2] = {};
    /// Being filled by the current completion.
    CFrameBuf* m_pCurFrameBuf GUARDED_BY(m_ProducerMtx) = nullptr;
    CFrameBuf* m_pFrameBuf[4] = {};

    // Kept of the video engine's shape; nothing reads them.
    [[maybe_unused]] uint32_t m_dwMaxFrameSize = 0;
    [[maybe_unused]] uint32_t m_dwMaxPayLoadTransferSize = 0;
    [[maybe_unused]] char* m_pTargetVidBufAddr = nullptr;
    [[maybe_unused]] int m_FormatIndex = 0;
    [[maybe_unused]] int m_FrameIndex = 0;
    [[maybe_unused]] int m_bulk_offset = 0;
};
