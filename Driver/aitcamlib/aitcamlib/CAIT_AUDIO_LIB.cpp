#include "CAIT_AUDIO_LIB.h"

#include "EngineThread.h"
#include "aitdbg.h"

CAIT_AUDIO_LIB::CAIT_AUDIO_LIB() : pThread(false, -1) {}

CAIT_AUDIO_LIB::~CAIT_AUDIO_LIB() {
    AIT_LOG(4, "CAIT_AUDIO_LIB::~CAIT_AUDIO_LIB()+");
    pThread::Stop();
    AIT_LOG(4, "CAIT_AUDIO_LIB::~CAIT_AUDIO_LIB()-");
}

int CAIT_AUDIO_LIB::EnableStream(int rate) {
    const int result = UAC_EnableAudioStream(rate);
    if (AudioTransferStart() != 0 && result >= 0) {
        UAC_DisableAudioStream();
        return -1;
    }
    return result;
}

int CAIT_AUDIO_LIB::DisableStream() {
    if (!IsStreaming) {
        return 0;
    }
    AIT_LOG(4, "UAC_DisableAudioStream+\r\n");
    UAC_DisableAudioStream();
    AIT_LOG(4, "UAC_DisableAudioStream-\r\n");
    AIT_LOG(4, "AudioTransferStop+\r\n");
    AudioTransferStop();
    AIT_LOG(4, "AudioTransferStop-\r\n");
    return 0;
}

int CAIT_AUDIO_LIB::AudioTransferStart() {
    m_ExitThread = 0;
    return Start("ait-audio-usb") ? 0 : -1;
}

int CAIT_AUDIO_LIB::AudioTransferStop() {
    AIT_LOG(4, "AudioTransferStop+\n");
    Stop();
    AIT_LOG(4, "AudioTransferStop-\n");
    return 0;
}

unsigned int CAIT_AUDIO_LIB::GetCurVolume() const {
    return static_cast<unsigned int>(UAC_GetCurVolume() - UAC_GetMinVolume());
}

int CAIT_AUDIO_LIB::SetCurVolume(unsigned int offset) {
    return UAC_SetCurVolume(static_cast<short>(offset + GetMinVolume()));
}

void CAIT_AUDIO_LIB::Run() {
    RunEngineEvents(*this, Shutdown);
}
