// Selectors of the camera's extension unit, as the camera object uses them through the video
// adapter.
#pragma once

constexpr unsigned char kXuIspCommand = 1;
constexpr unsigned char kXuIspResult = 2;
constexpr unsigned char kXuAuxCommand = 4;
constexpr unsigned char kXuAuxResult = 5;
constexpr unsigned char kXuMmpCommand = 14;
constexpr unsigned char kXuMmpResult = 15;

constexpr int kXuAuxBlockSize = 8;
