// Turning the bytes of one video frame into a new "LUMImageDIB": motion-JPEG
// frames (with the standard Huffman tables put in when a frame leaves them
// out, as many cameras and encoders do) and uncompressed rows.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "framework/LUMVideo/AviReader.h"
#include "lum/lum.h"

/// `frame` with a DHT segment of the standard tables before its first SOS
/// marker when no DHT segment comes before it; otherwise unchanged (also
/// when the markers cannot be followed: the decoder then reports the damage).
void AddStandardHuffmanTables(std::vector<uint8_t>& frame);

/// Decodes a JPEG frame into a new image (8 bits for gray frames, else 24).
/// E_FAIL for damaged data or when no image can be made.
HRESULT DecodeJpegFrame(std::vector<uint8_t>& frame, SmartPtr<ILUMImageDIB>& image);

/// Decodes an uncompressed frame laid out as `video` says: rows of
/// `video.rowBytes`, bottom-up unless `video.topDown`. 8-bit frames with a gray (or no)
/// palette give 8-bit images, others 24 through the palette. E_FAIL when the
/// frame is too short.
HRESULT DecodeRawFrame(const std::vector<uint8_t>& frame, const AviVideo& video, SmartPtr<ILUMImageDIB>& image);
