// USB Video Class host (UVC 1.00) for the camera, on libusb: negotiates one stream, keeps three
// bulk transfers in flight, reassembles payloads into frames and hands them to one consumer;
// carries the class and extension-unit control requests. It has no thread: CAIT_CAM_LIB drives its
// events.
#pragma once

#include <stdint.h>

#include "CFrameBufferLocker.h"
#include "UsbStreamEngine.h"

/// Video probe and commit control (UVC 1.00, 4.3.1.1), as it lies on the wire (little-endian).
#pragma pack(push, 1)
struct VIDEO_PROBE {
    uint16_t bmHint;
    uint8_t bFormatIndex;
    uint8_t bFrameIndex;
    uint32_t wInterval;  ///< 100 ns units
    uint16_t wKeyFrameRate;
    uint16_t wPFrameRate;
    uint16_t wCompQuality;
    uint16_t wCompWinSize;
    uint16_t wDelay;
    uint32_t lMaxFrameSize;    ///< bytes
    uint32_t lMaxPayloadSize;  ///< bytes
};
#pragma pack(pop)
static_assert(sizeof(VIDEO_PROBE) == 26, "UVC 1.00");

class CLibUSB_UvcCtrl : public UsbStreamEngine {
  public:
    CLibUSB_UvcCtrl();
    ~CLibUSB_UvcCtrl() override;

    /// Opens the camera and claims its video interfaces. 0, or -1.
    int Init(int vid, int pid);

    /// Negotiates format and frame (descriptor indices) at `fps` frames per second and submits the
    /// transfers; a running stream is stopped first. Negative on failure, else the result of the
    /// last submit. Host thread.
    int UVC_EnableVideoStream(int formatIndex, int frameIndex, int fps);
    /// Stops the stream and frees what it used; see UsbStreamEngine for the contract. Always 0.
    int UVC_DisableVideoStream();

    // --- control requests: synchronous, any thread, 5000 ms, never retried -----------------------

    /// One class request to an interface. Bytes transferred; -1 without a device, 0x80000003
    /// (negative) when libusb reports an error.
    int UVC_query_ctrl(unsigned char request, unsigned char unit, unsigned char interface,
                       unsigned char selector, void* data, unsigned short length, int timeout);

    /// Writes an ISP command block (see VendorCommands.h). `result` is not used.
    int AitISPCommand(unsigned char* cmd8, unsigned char* result);
    /// Extension-unit transfers.
    int AitCommandSend(unsigned char selector, unsigned char* data, unsigned char length);
    int AitCommandGet(unsigned char selector, unsigned char* data, unsigned char length);

    bool SetBitrate(uint16_t rate);   ///< kbit/s as the camera takes them; true: sent
    bool SetFramerate(uint16_t fps);  ///< frames/s of the encoder; true: sent
    bool RequestKeyFrame();           ///< true: sent

    /// Camera-terminal controls by the identifiers of CameraTerminal.h. Any other: false, nothing
    /// sent. `*value` is written whenever a request was made; it is 0 when the answer brought nothing.
    bool GetPTZ(unsigned int id, int* value);
    bool SetPTZ(unsigned int id, int value);

    /// Processing-unit control by UVC selector; false for those that are not for hosts.
    bool SetPU(unsigned int selector, int value);

    // --- not called by the plug-in ---------------------------------------------------------------

    // Leftovers of an isochronous video path: they do nothing and return 0.
    int FillVideoBuf(unsigned char*, int*) { return 0; }
    int GetIsoData(unsigned char*, int*) { return 0; }
    int GetIsoDataMJPG(unsigned char*, int*) { return 0; }

  protected:
    /// Reassembles one payload into the frame being filled. Always 0.
    int FillVideoBuf_Bulk(libusb_transfer* transfer) REQUIRES(m_ProducerMtx);

    static constexpr int kControlInterface = 0;
    static constexpr int kStreamInterface = 1;

  private:
    int FillFromTransfer(libusb_transfer* transfer) override REQUIRES(m_ProducerMtx) {
        return FillVideoBuf_Bulk(transfer);
    }

    // Start, step by step.
    bool Negotiate(int fps, VIDEO_PROBE* committed);
    bool ProbeRequest(unsigned char request, unsigned char selector, VIDEO_PROBE* probe,
                      const char* failure);
    bool OpenFrameQueue();
    bool CreateTransfers();
    int SubmitTransfers();

    // Stop, step by step.
    void CloseFrameQueue();
    void FreeTransfers(const char* line);
    void ReleaseLeftovers();

    // Reassembly, step by step.
    int BufferWaitMs() const;
    class BulkPayload;
    bool TakePayload(const libusb_transfer& transfer) REQUIRES(m_ProducerMtx);
    void AskForFreshBuffer(BulkPayload payload) REQUIRES(m_ProducerMtx);
    bool CrossFrameBoundary(BulkPayload payload, unsigned char* dst) REQUIRES(m_ProducerMtx);
    bool AppendPayload(BulkPayload payload, unsigned char* dst) REQUIRES(m_ProducerMtx);

    /// The transfer lock by the name that it is known by on this engine; what both engines share
    /// calls it by the base's.
    [[maybe_unused]] pMutex& gVideoTransferMtx = m_TransferMtx;
    uint32_t m_dwMaxFrameSize = 0;
    uint32_t m_dwMaxPayLoadTransferSize = 0;
    int m_FormatIndex = 0;
    int m_FrameIndex = 0;
    static constexpr size_t kTransfers = 3;
    libusb_transfer* m_VideoTransfer[kTransfers] = {};
    int bulk_offset GUARDED_BY(m_ProducerMtx) = 0;  ///< bytes of the current frame in its buffer
    CFrameBuf* m_pFrameBuf[5] = {};
    /// Flags of the last payload that began or ended a frame.
    uint8_t m_UvcHeaderInfo GUARDED_BY(m_ProducerMtx) = 0;
    CFrameBufferLocker* m_pCurFrameBufForWrite GUARDED_BY(m_ProducerMtx)
        PT_GUARDED_BY(m_ProducerMtx) = nullptr;

    // Kept of an isochronous video path; nothing reads them.
    [[maybe_unused]] int m_Num_Video_PacketsPerTransfer = 552;
    [[maybe_unused]] int m_Num_Audio_PacketsPerTransfer = 0;
    [[maybe_unused]] int m_bVideoTransfercompleted[kTransfers] = {};
};
