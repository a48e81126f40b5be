// Writing a motion-JPEG AVI file from the frames of a CFrameStore.
//
// Every size is known before the first byte is written, so the whole file is
// laid out first and then written front to back in large blocks, without
// seeking back. A file that fits in one part under the part limit is a
// plain AVI file: one RIFF "AVI " chunk with the idx1 index. A larger one is
// an OpenDML file: the first part "AVI " and extension parts "AVIX", each
// under the limit, each "movi" list ending in a standard index "ix00", the
// super index "indx" in the stream list, the total in "odml"/"dmlh", and the
// idx1 index for the frames of the first part (for readers that know only
// that).
#pragma once

#include <cstdint>
#include <string>

#include "framework/LUMVideo/FrameStore.h"

struct AviWriteSettings {
    int32_t width = 0;
    int32_t height = 0;
    int32_t rate = 15;  // frames per second, at least 1
    /// Largest size of one RIFF part, headers included.
    uint64_t partLimit = 0;
};

/// The part limit of the files written: 1 GiB.
constexpr uint64_t kAviPartLimit = uint64_t(1) << 30;
/// The largest frame a part can hold with room for its headers.
constexpr uint64_t kAviMaxFrameBytes = kAviPartLimit - (uint64_t(1) << 20);

/// Writes the frames of `store` in order as "00dc" chunks of one "vids"/
/// "MJPG" stream into the file `path`, replacing it. E_FAIL when the store
/// is empty, or the file cannot be created or written (a begun file is
/// removed again).
HRESULT WriteMjpegAvi(const std::string& path, const AviWriteSettings& settings, CFrameStore& store);
