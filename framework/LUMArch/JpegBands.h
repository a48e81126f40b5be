// One JPEG coded on every core: the image is cut into horizontal bands of
// whole MCU rows, a few per core and short ones last so that the cores end
// together, each band is coded on whichever thread is free with the same
// tables, and the bands are joined into one baseline file with restart
// markers between them (a restart interval is whole MCU rows; a band holds
// one or eight intervals). The result is a standard JPEG that any decoder
// reads. Bands go out in order as soon as they and every band before them
// are coded, while the later ones are still being coded.
//
// Reading reverses it: a baseline file whose restart intervals are whole MCU
// rows is cut at its restart markers and runs of pieces are decoded in
// parallel straight into the image's rows, without copying the pieces.
#pragma once

#include <cstddef>
#include <cstdint>

#include "framework/LUMArch/CodecTypes.h"
#include "framework/LUMArch/JpegCodec.h"

/// Where a banded file goes, in order, one piece after the other. Called by
/// one thread at a time, not always the same one.
class JpegOutput {
public:
    /// False when the bytes cannot be taken; the coding then ends.
    virtual bool Put(const uint8_t* bytes, size_t count) = 0;

protected:
    ~JpegOutput() = default;
};

/// Codes `image` in bands into `output`. S_FALSE when the image is too
/// small to gain (or cannot be banded): nothing was put, use the one-thread
/// path. E_FAIL when a band cannot be coded or put; what was put before is
/// an incomplete file.
HRESULT EncodeJpegBands(const ImageView& image, int quality, JpegOutput& output);
/// The same into `out` (its size set to the file's bytes; 0 on failure).
HRESULT EncodeJpegBands(const ImageView& image, int quality, JpegBlock& out);

/// Decodes a file whose restart intervals are whole MCU rows, its pieces in
/// parallel. S_FALSE when the file is not laid out so (nothing was asked of
/// the target): decode it the ordinary way.
HRESULT DecodeJpegBands(const uint8_t* data, size_t size, ImageTarget& target);

/// Threads that code or decode one image together (the caller's included).
int JpegBandThreads();
