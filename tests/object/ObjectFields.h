// Private fields of the camera object, for what no operation shows or lets through: an explicit
// instantiation may name private members.
#pragma once

#include "AitOrixCamera.h"

namespace test {

/// MemberOf(Tag) gives the member; the tag only declares it.
template <typename Tag, auto kMember>
struct Opener {
    friend auto MemberOf(Tag) { return kMember; }
};

// clang-format off
struct SignalTypeTag    { friend auto MemberOf(SignalTypeTag); };
struct VideoModeTag     { friend auto MemberOf(VideoModeTag); };
struct TvModeTag        { friend auto MemberOf(TvModeTag); };
struct StreamFormatTag  { friend auto MemberOf(StreamFormatTag); };
struct AudioCapturerTag { friend auto MemberOf(AudioCapturerTag); };
struct CropPosTag       { friend auto MemberOf(CropPosTag); };
// clang-format on
template struct Opener<SignalTypeTag, &CAitOrixCamera::m_SignalType>;
template struct Opener<VideoModeTag, &CAitOrixCamera::m_videomode>;
template struct Opener<TvModeTag, &CAitOrixCamera::mCurTvMode>;
template struct Opener<StreamFormatTag, &CAitOrixCamera::m_StreamFormat>;
template struct Opener<AudioCapturerTag, &CAitOrixCamera::audio_capturer>;
template struct Opener<CropPosTag, &CAitOrixCamera::m_CurCropPos>;

}  // namespace test
