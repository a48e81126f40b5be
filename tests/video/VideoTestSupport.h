// Helpers of the video tests: the writer and the reader driven through their
// interfaces, frames with per-frame content, a RIFF tree of a written file,
// hand-made AVI files, and the ffmpeg tools when they are installed.
#pragma once

#include <gtest/gtest.h>

#include <map>
#include <string>
#include <vector>

#include "tests/image/ImageTestSupport.h"

/// The internal option of "LUMMJPEG" that lowers the RIFF part limit.
constexpr int32_t kPartLimitOption = 0x4C56;

/// Frame `f` of a test sequence: cells of 16 x 16 pixels, aligned with the
/// JPEG blocks, each dark or bright by one bit of `f` (row by row), so that
/// a frame read back tells its number however it was coded.
SmartPtr<ILUMImageDIB> SequenceFrame(int32_t width, int32_t height, int32_t bits, int f);
/// The number a frame of the sequence shows.
int FrameNumber(ILUM* image);
/// The largest difference of blue, green, red (or gray) bytes between
/// `image` and frame `f` of the sequence (-1 for a size mismatch).
int DifferenceToFrame(ILUM* image, int32_t bits, int f);

/// A writer holding `count` frames of the test sequence.
SmartPtr<ICreatableSimpleCollection> WriterWith(int count, int32_t width, int32_t height, int32_t bits,
                                                int32_t rate = 15);
/// put_Filename + Save; the Save result.
HRESULT SaveAs(IUnknown* writer, const std::string& path);
/// A reader that loaded `path`; the Load result in `*result`.
SmartPtr<IFileArchive> LoadAvi(const std::string& path, HRESULT* result = nullptr);
int32_t CountOf(IUnknown* collection);
int32_t RateOf(IUnknown* avi);
/// Item `index` as an image (null on failure, the code in `*result`).
SmartPtr<ILUM> FrameOf(IUnknown* collection, int32_t index, HRESULT* result = nullptr);

/// One chunk of a RIFF file: code, list type (for RIFF and LIST), offset of
/// its header, body size, children.
struct RiffNode {
    std::string code, type;
    uint64_t offset = 0;
    uint32_t size = 0;
    std::vector<RiffNode> children;
    /// The first child of that code (and type, when given); null if none.
    const RiffNode* Find(const std::string& childCode, const std::string& childType = "") const;
    std::vector<const RiffNode*> All(const std::string& childCode) const;
};
/// The chunk tree of a whole file (its top level: the RIFF parts).
RiffNode ParseRiff(const std::string& bytes);
uint32_t Le32(const std::string& bytes, uint64_t offset);

// Building AVI files by hand.
std::string U16(uint16_t v);
std::string U32(uint32_t v);
std::string Chunk(const std::string& code, const std::string& body);
std::string ListOf(const std::string& code, const std::string& type, const std::string& body);
/// A stream list for a video stream: strh with rate/scale and strf with a
/// BITMAPINFOHEADER (palette appended as given).
std::string VideoStreamList(const std::string& compression, int32_t width, int32_t height, uint16_t bits,
                            uint32_t rate, uint32_t scale = 1, const std::string& palette = "");
/// A whole AVI file: header list with `streamLists`, a movi list of
/// `chunks`, and an idx1 of those chunks unless `withIndex` is false.
std::string AviFile(const std::string& streamLists, const std::vector<std::string>& chunks, bool withIndex = true);

/// Runs a shell command; its standard output, and its exit status in
/// `*status`.
std::string RunCommand(const std::string& command, int* status = nullptr);
bool HaveTool(const std::string& name);
/// ffprobe's key=value answers on the first video stream, frames counted.
std::map<std::string, std::string> Probe(const std::string& path);
