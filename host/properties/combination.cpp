#include "host/properties/combination.h"

#include <algorithm>
#include <array>

#include "host/base/exit_code.h"
#include "host/base/nearest_name.h"
#include "host/base/text.h"

namespace camhost {

CAM_PROPERTY property_of(Selector selector) {
    return selector == Selector::kSignalType ? CAM_PROPERTY_SIGNAL_TYPE : CAM_PROPERTY_VIDEO_MODE;
}

std::span<const Combination> combinations(Selector selector) {
    using S = Stream;
    static const std::array<Combination, 9> signal_types{{
        {0, "h264-yuyv", "CAM_SIGNAL_H264_YUYV", {S::kH264Main, S::kYuy2, S::kPcm}},
        {1, "h264-gray", "CAM_SIGNAL_H264_GRAY", {S::kH264Main, S::kGray, S::kPcm}},
        {2, "gray", "CAM_SIGNAL_GRAY", {S::kGray, S::kPcm}},
        {3,
         "h264-h264-gray",
         "CAM_SIGNAL_H264_H264_GRAY",
         {S::kH264Main, S::kH264Sub, S::kGray, S::kPcm}},
        {4, "h264-nv21", "CAM_SIGNAL_H264_NV21", {S::kH264Main, S::kNv21, S::kPcm}},
        {5,
         "h264-gray-jpeg",
         "CAM_SIGNAL_H264_GRAY_JPEG",
         {S::kH264Main, S::kGray, S::kJpeg, S::kPcm}},
        {6, "h264-gray-si", "CAM_SIGNAL_H264_GRAY_SI", {S::kH264Main, S::kGray, S::kJpeg, S::kPcm}},
        {7, "h264-h264", "CAM_SIGNAL_H264_H264", {S::kH264Main, S::kH264Sub, S::kPcm}},
        {8, "h264-mjpeg", "CAM_SIGNAL_H264_MJPEG", {S::kH264Main, S::kJpeg, S::kPcm}},
    }};
    static const std::array<Combination, 3> video_modes{{
        {0, "h264-h264", "CAM_VIDEO_H264_H264", {S::kH264Main, S::kH264Sub, S::kPcm}},
        {1, "h264-mjpeg", "CAM_VIDEO_H264_MJPEG", {S::kH264Main, S::kJpeg, S::kPcm}},
        {2, "h264-jpeg", "CAM_VIDEO_H264_JPEG", {S::kH264Main, S::kJpeg, S::kPcm}},
    }};
    if (selector == Selector::kSignalType) {
        return signal_types;
    }
    return video_modes;
}

const Combination* find_combination(Selector selector, int number) {
    const auto all = combinations(selector);
    const auto found = std::find_if(all.begin(), all.end(),
                                    [&](const Combination& each) { return each.number == number; });
    return found == all.end() ? nullptr : &*found;
}

const Combination* chosen_combination(CAM_PROPERTY property, int number) {
    for (const Selector selector : {Selector::kSignalType, Selector::kVideoMode}) {
        if (property == property_of(selector)) {
            return find_combination(selector, number);
        }
    }
    return nullptr;
}

int parse_combination(Selector selector, std::string_view text) {
    int32_t number = 0;
    if (parse_int(text, &number)) {
        return number;
    }
    const std::string word = lower(text);
    for (const Combination& each : combinations(selector)) {
        if (word == each.name || word == lower(each.constant)) {
            return each.number;
        }
    }
    const auto names = combination_names(selector);
    const char* kind = selector == Selector::kSignalType ? "signal type" : "video mode";
    throw Failure(ExitCode::kUsage, format("there is no %s '%s'", kind, word.c_str()) +
                                        suggestion(word, names) + " (" + join(names) + ")");
}

std::vector<std::string> combination_names(Selector selector) {
    std::vector<std::string> names;
    for (const Combination& each : combinations(selector)) {
        names.emplace_back(each.name);
    }
    return names;
}

std::string combination_name(Selector selector, int number) {
    const Combination* found = find_combination(selector, number);
    return found != nullptr ? found->name : format("%d", number);
}

}  // namespace camhost
