// Sends a placeholder picture to the observers of stills: one shot. Not called by the plug-in.
#pragma once

#include "CameraInterface.h"
#include "CaptureInterfaces.h"
#include "ptasking.h"

/// Path of the placeholder; writable, so that a bench can point it elsewhere.
extern char dummy_jpg_path_name[33];

/// Owns itself once started: allocate it with new and do not touch it after Start, since it deletes
/// itself at the end of Run. No request of the plug-in creates one; it stands for a host's still
/// request on a camera without pictures.
class CDummyStillCapture : public pThread {
  public:
    /// Both are borrowed; `capture` is not used.
    CDummyStillCapture(IVideoCapture* capture, ICameraSubject* subject);
    ~CDummyStillCapture() override { Stop(); }

    void Run() override;

  private:
    void SendPlaceholder();

    [[maybe_unused]] IVideoCapture* video_capture;
    ICameraSubject* camera_subject;
};
