// Private fields of the camera object, for what no operation shows or lets through: an explicit
// instantiation may name private members.
#pragma once

#include "AitOrixCamera.h"

namespace test {

template <typename Tag, typename Tag::Member member>
struct Opener {
    friend typename Tag::Member MemberOf(Tag) { return member; }
};
struct SignalTypeTag {
    typedef CAM_SIGNAL_TYPE CAitOrixCamera::*Member;
    friend Member MemberOf(SignalTypeTag);
};
struct VideoModeTag {
    typedef CAM_VIDEO_MODE CAitOrixCamera::*Member;
    friend Member MemberOf(VideoModeTag);
};
struct TvModeTag {
    typedef std::atomic<TV_MODE> CAitOrixCamera::*Member;
    friend Member MemberOf(TvModeTag);
};
struct StreamFormatTag {
    typedef std::atomic<CAM_STR_FORMAT> CAitOrixCamera::*Member;
    friend Member MemberOf(StreamFormatTag);
};
struct AudioCapturerTag {
    typedef std::atomic<CAudioCapture*> CAitOrixCamera::*Member;
    friend Member MemberOf(AudioCapturerTag);
};
struct CropPosXTag {
    typedef std::atomic<uint16_t> CAitOrixCamera::*Member;
    friend Member MemberOf(CropPosXTag);
};
struct CropPosYTag {
    typedef std::atomic<uint16_t> CAitOrixCamera::*Member;
    friend Member MemberOf(CropPosYTag);
};
template struct Opener<SignalTypeTag, &CAitOrixCamera::m_SignalType>;
template struct Opener<VideoModeTag, &CAitOrixCamera::m_videomode>;
template struct Opener<TvModeTag, &CAitOrixCamera::mCurTvMode>;
template struct Opener<StreamFormatTag, &CAitOrixCamera::m_StreamFormat>;
template struct Opener<AudioCapturerTag, &CAitOrixCamera::audio_capturer>;
template struct Opener<CropPosXTag, &CAitOrixCamera::m_CurCropPosX>;
template struct Opener<CropPosYTag, &CAitOrixCamera::m_CurCropPosY>;

}  // namespace test
