// The pieces of the AVI file format (RIFF) that the writer and the reader
// share: four-character codes, little-endian fields, flags and fixed sizes.
//
// An AVI file is a "RIFF" chunk of form "AVI " holding a header list
// ("hdrl": the main header "avih" and one stream list "strl" per stream with
// its header "strh" and format "strf"), the frame list ("movi": one chunk
// per frame, named by the stream number and "dc" for compressed or "db" for
// uncompressed frames) and the index "idx1". Files beyond 1 GB follow the
// OpenDML extension: further "RIFF" chunks of form "AVIX" with a "movi" list
// each, a standard index chunk ("ix00") per list, a super index ("indx") in
// the stream list naming those index chunks, and the total frame count in
// "odml"/"dmlh".
#pragma once

#include <cstdint>
#include <cstring>

namespace avi {

constexpr uint32_t FourCC(const char (&code)[5]) {
    return uint32_t(uint8_t(code[0])) | uint32_t(uint8_t(code[1])) << 8 | uint32_t(uint8_t(code[2])) << 16 |
           uint32_t(uint8_t(code[3])) << 24;
}

inline uint16_t Get16(const uint8_t* p) { return uint16_t(p[0] | p[1] << 8); }
inline uint32_t Get32(const uint8_t* p) {
    return uint32_t(p[0]) | uint32_t(p[1]) << 8 | uint32_t(p[2]) << 16 | uint32_t(p[3]) << 24;
}
inline uint64_t Get64(const uint8_t* p) { return uint64_t(Get32(p)) | uint64_t(Get32(p + 4)) << 32; }

inline void Put16(uint8_t* p, uint16_t v) {
    p[0] = uint8_t(v);
    p[1] = uint8_t(v >> 8);
}
inline void Put32(uint8_t* p, uint32_t v) {
    for (int i = 0; i < 4; ++i) p[i] = uint8_t(v >> (8 * i));
}
inline void Put64(uint8_t* p, uint64_t v) {
    Put32(p, uint32_t(v));
    Put32(p + 4, uint32_t(v >> 32));
}

/// Chunk bodies are padded to an even length.
constexpr uint64_t Padded(uint64_t size) { return size + (size & 1); }

constexpr uint32_t kRiff = FourCC("RIFF");
constexpr uint32_t kList = FourCC("LIST");
constexpr uint32_t kFormAvi = FourCC("AVI ");
constexpr uint32_t kFormAvix = FourCC("AVIX");
constexpr uint32_t kHeaderList = FourCC("hdrl");
constexpr uint32_t kStreamList = FourCC("strl");
constexpr uint32_t kMovieList = FourCC("movi");
constexpr uint32_t kRecordList = FourCC("rec ");
constexpr uint32_t kOdmlList = FourCC("odml");
constexpr uint32_t kMainHeader = FourCC("avih");
constexpr uint32_t kStreamHeader = FourCC("strh");
constexpr uint32_t kStreamFormat = FourCC("strf");
constexpr uint32_t kSuperIndex = FourCC("indx");
constexpr uint32_t kOdmlHeader = FourCC("dmlh");
constexpr uint32_t kLegacyIndex = FourCC("idx1");
constexpr uint32_t kVideoType = FourCC("vids");
constexpr uint32_t kMjpg = FourCC("MJPG");
constexpr uint32_t kFirstVideoChunk = FourCC("00dc");
constexpr uint32_t kFirstStandardIndex = FourCC("ix00");

// Sizes of the fixed chunk bodies.
constexpr uint32_t kMainHeaderBytes = 56;
constexpr uint32_t kStreamHeaderBytes = 56;
constexpr uint32_t kBitmapHeaderBytes = 40;
constexpr uint32_t kOdmlHeaderBytes = 248;
/// Header of "indx" and "ix##" bodies, before the entries.
constexpr uint32_t kIndexHeaderBytes = 24;
constexpr uint32_t kSuperEntryBytes = 16;
constexpr uint32_t kStandardEntryBytes = 8;
constexpr uint32_t kLegacyEntryBytes = 16;

// avih flags.
constexpr uint32_t kHasIndex = 0x10;
constexpr uint32_t kIsInterleaved = 0x100;
// idx1 entry flag of a frame that decodes on its own.
constexpr uint32_t kKeyFrame = 0x10;
// bIndexType of "indx" and "ix##" chunks.
constexpr uint8_t kIndexOfIndexes = 0x00;
constexpr uint8_t kIndexOfChunks = 0x01;
// In a standard index entry's size: set for frames that are not key frames.
constexpr uint32_t kNotKeyFrame = 0x80000000u;

/// The chunk code of stream `stream` (0-99) with a two-letter suffix, e.g.
/// stream 0 + "dc" = "00dc".
constexpr uint32_t StreamChunk(int stream, char a, char b) {
    return uint32_t('0' + stream / 10 % 10) | uint32_t('0' + stream % 10) << 8 | uint32_t(uint8_t(a)) << 16 |
           uint32_t(uint8_t(b)) << 24;
}

}  // namespace avi
