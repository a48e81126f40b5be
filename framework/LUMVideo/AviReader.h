// Reading the structure of an AVI file: the first video stream's format and
// rate, and where each of its frames lies. Frames themselves are read later,
// one at a time (AviFrames.h), so that a long file costs memory only for its
// table of frames.
//
// The frame table comes from the first source that gives any frame: the
// OpenDML super index and its standard indexes, then the idx1 index, then a
// walk over the chunks of every "movi" list (of the "AVI " part and of any
// "AVIX" parts). Every size and offset read from the file is checked against
// the file's length; entries that point outside the file, and empty frames,
// are left out. A damaged or truncated file gives the frames that can still
// be located.
#pragma once

#include <cstdint>
#include <vector>

#include "lum/lum.h"

enum class AviCoding { Jpeg, Raw };

struct AviFrameRef {
    uint64_t offset;  // of the frame's data, behind its chunk header
    uint32_t size;
};

struct AviVideo {
    AviCoding coding = AviCoding::Jpeg;
    int32_t stream = 0;  // its number, which names its chunks ("00dc")
    int32_t rate = 0;    // frames per second, rounded, at least 1
    // Uncompressed frames: the layout of the rows in the file.
    int32_t width = 0;
    int32_t height = 0;  // rows, positive
    bool topDown = false;
    int32_t bits = 0;       // 8, 24 or 32
    int64_t rowBytes = 0;   // from one row to the next
    /// 8 bits: the palette as blue, green, red, reserved quads (may be
    /// shorter than 256 entries, or empty).
    std::vector<uint8_t> palette;
    std::vector<AviFrameRef> frames;
};

/// Reads the file's structure. E_FAIL when it is not an AVI file, has no
/// video stream in a supported coding (motion JPEG; uncompressed 8, 24 or
/// 32 bits; single-plane gray "Y800"), or no frame can be located. `video` is filled only on success.
HRESULT ReadAviStructure(int file, uint64_t fileSize, AviVideo& video);
