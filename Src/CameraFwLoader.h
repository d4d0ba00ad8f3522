// Brings the camera from power-on to its run-time firmware, then watches it.
//
// The camera starts from boot code and needs its firmware loaded at every start. The thread finds
// it, chooses the newer of two firmware files, downloads it, waits for the run-time identity,
// records the version and reports once; afterwards it polls the camera until asked to stop or until
// it is gone.
#pragma once

#include <stdint.h>

#include <memory>

#include "AitDevice.h"
#include "CameraInterface.h"
#include "ptasking.h"

/// Status codes of the completion callback.
enum {
    CAMERA_STATUS_OK = 0,
    CAMERA_CANT_FOUND_DEVICE = 1,
    CAMERA_LOAD_FW_FAILED = 2,
    CAMERA_STATUS_ERROR = 3,  // not used by the loader
};

/// Completion callback, on the loader thread: status code and the data given with the callback.
typedef void (*AitCamInitDoneCallback)(unsigned int status, void* data);

// Paths on the television's flash; writable, so that a bench can point them elsewhere.
extern char fw_path_name[256];      ///< downloaded firmware
extern char exe_fw_path_name[256];  ///< firmware that came with the television

// --- not used by the plug-in
extern char boot_path_name[256];      ///< downloaded boot code
extern char exe_boot_path_name[256];  ///< boot code that came with the television

class CCameraFwLoader : public pThread {
  public:
    /// Boot-code identity and interface to open first; `subject` is borrowed.
    CCameraFwLoader(uint16_t pid, uint16_t vid, uint16_t interface, ICameraSubject* subject);
    ~CCameraFwLoader() override;

    /// True on a thread that executes a loader's Run, as the host's callback does.
    static bool OnLoaderThread();
    /// True on the thread of a loader that was asked to stop, which tells the host nothing more.
    static bool OnStoppingLoaderThread();
    /// From here on it makes no report, and ends soon. Does not wait.
    void AskToStop() { Shutdown = true; }
    /// Before Start: this one is to wait for the end of `old` and delete it, which a callback that
    /// `old` makes cannot do.
    void TakeOver(CCameraFwLoader* old) { m_pPredecessor.reset(old); }

    void SetInitDoneCallback(AitCamInitDoneCallback callback, void* data);

    void Run() override;

    /// Reads the version from the open camera; false when that fails or the version is 0. Any
    /// thread: a camera that is being closed is waited for.
    bool GetCamVersion();

    /// True when the files that came with the television are to be used, false for downloaded ones
    /// (also when memory is too short to compare the two).
    bool UseDefaultVersion();

    // --- not called by the plug-in

    /// Writes a boot-code file that is newer than `deviceVersion`. 0 also when there is none or it
    /// is not newer. The camera is the loader's own, whatever `ait_handle_` says.
    int UpdateBootCode(AitDevHandle* ait_handle_, char* path, unsigned long deviceVersion);

  private:
    enum class Step { kContinue, kEnd };

    // The start-up, step by step; each answers whether the thread goes on.
    Step FindBootCode(bool* bulkPath);
    Step LoadFirmware(bool bulkPath);
    Step AwaitRunTimeCamera();
    void RecordVersion();
    void Monitor();

    bool MayReport() const;
    Step Report(unsigned int status);
    void HandleDisconnection(int error);
    bool Pause();
    void AdoptDevice(AitDevHandle* device);
    void CloseDevice();

    uint16_t m_Pid;
    uint16_t m_Vid;
    uint16_t m_interface_id;
    ICameraSubject* camera_subject;
    void* pCamInitDoneCbData = nullptr;
    AitCamInitDoneCallback fpInitDoneCb = nullptr;
    AitDevHandle* ait_handle = nullptr;  ///< owned; written by the loader thread under m_HandleLock
    unsigned int m_nCameraVer = 0;
    unsigned int m_nListingSeen = 0;  ///< see t_SearchAITUsbCamera
    std::unique_ptr<CCameraFwLoader> m_pPredecessor;
    pMutex m_HandleLock;  ///< keeps the camera open during a query of another thread
};
