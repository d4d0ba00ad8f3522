// recording.mkv: the compressed streams and the sound of a recording in one file for any player.
#pragma once

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

#include "host/pictures/picture.h"

namespace camhost {

/// A piece of a file, with the time at which it is to be shown or heard.
struct MkvPacket {
    int64_t time = 0;     ///< microseconds, on a scale that all tracks share
    uint64_t offset = 0;  ///< in the track's file
    size_t size = 0;
    bool key = false;
};

struct MkvVideo {
    std::filesystem::path file;  ///< H.264, Annex B; the first packet has the parameter sets
    std::string name;
    Size size;
    double pictures_per_second = 0;  ///< written into the file; 0: unknown
    std::vector<MkvPacket> packets;
};

struct MkvSound {
    std::filesystem::path file;  ///< WAV, 16-bit stereo
    int rate = 0;                ///< Hz
    int64_t time = 0;            ///< of the first sample
};

/// Writes `path` anew. Tracks without a packet are left out. Throws Failure (kFailed) when it cannot
/// be written.
void write_mkv(const std::filesystem::path& path, const std::vector<MkvVideo>& videos,
               const std::vector<MkvSound>& sounds);

}  // namespace camhost
