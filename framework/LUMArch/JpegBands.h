// One JPEG coded on every core: the image is cut into horizontal bands of
// whole MCU rows, each band is coded on its own thread with the same tables,
// and the bands are joined into one baseline file with a restart marker
// between two bands (restart interval = the MCUs of one band). The result
// is a standard JPEG that any decoder reads.
//
// Reading reverses it: a baseline file whose restart intervals are whole MCU
// rows is cut at its restart markers and the pieces are decoded in parallel
// straight into the image's rows.
#pragma once

#include <cstddef>
#include <cstdint>

#include "framework/LUMArch/CodecTypes.h"
#include "framework/LUMArch/JpegCodec.h"

/// Codes `image` in bands into `out`. S_FALSE when the image is too small
/// to gain (or cannot be banded): nothing was coded, use the one-thread
/// path. E_FAIL when a band cannot be coded.
HRESULT EncodeJpegBands(const ImageView& image, int quality, JpegBlock& out);

/// Decodes a file whose restart intervals are whole MCU rows, its pieces in
/// parallel. S_FALSE when the file is not laid out so (nothing was asked of
/// the target): decode it the ordinary way.
HRESULT DecodeJpegBands(const uint8_t* data, size_t size, ImageTarget& target);

/// Threads that code or decode one image together (the caller's included).
int JpegBandThreads();
