// Cuts the microphone's samples into blocks of 960 bytes and hands them to the camera object.
#pragma once

#include "CameraInterface.h"
#include "CaptureInterfaces.h"
#include "ptasking.h"

class CAudioCaptureThread : public pThread {
  public:
    /// Both are borrowed and outlive the thread.
    CAudioCaptureThread(IAudioCapture* capture, ICameraSubject* subject);
    ~CAudioCaptureThread() override { Stop(); }

    void Run() override;

  private:
    IAudioCapture* audio_capture;
    ICameraSubject* camera_subject;
};
