// Teledisk (.TD0) images: the layouts of their records, their check sum and
// the two expanders of the "advanced compression" bodies. A file is a 12-byte
// header, then the body: an optional comment block, then tracks, each a track
// header followed by its sectors (a sector header, then a data block unless
// the flags say the sector has none), ended by a track header whose sector
// count is 255. With the lower-case signature "td" everything after the
// header is compressed: by 1.x versions with LZW, by 2.x versions with LZSS
// and adaptive Huffman coding.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

// File header.
namespace td0hdr {
constexpr size_t kSignature = 0;  // "TD" normal, "td" compressed body
constexpr size_t kSequence = 2;   // volume of a set split over several files, from 0
constexpr size_t kCheck = 3;      // shared by the volumes of a set
constexpr size_t kVersion = 4;    // 10..19: 1.x, 20 and up: 2.x
constexpr size_t kRate = 5;       // bits 0-1: 250, 300, 500 kbit/s; bit 7: FM
constexpr size_t kDrive = 6;
constexpr size_t kStepping = 7;  // bit 7: a comment block follows
constexpr size_t kDosAlloc = 8;  // non-zero: unallocated sectors were not saved
constexpr size_t kSides = 9;
constexpr size_t kCrc = 10;  // check sum of bytes 0..9
constexpr size_t kSize = 12;
constexpr uint8_t kRateMask = 0x03;
constexpr uint8_t kRateFM = 0x80;
constexpr uint8_t kHasComment = 0x80;
constexpr int kFirst2xVersion = 20;
}  // namespace td0hdr

// Comment block: its check sum covers the eight bytes after it and the text.
namespace td0cmt {
constexpr size_t kCrc = 0;
constexpr size_t kLength = 2;  // bytes of text
constexpr size_t kYear = 4;    // since 1900
constexpr size_t kMonth = 5;   // 0..11
constexpr size_t kDay = 6;
constexpr size_t kHour = 7;
constexpr size_t kMinute = 8;
constexpr size_t kSecond = 9;
constexpr size_t kSize = 10;  // the text follows: lines ended by NUL
}  // namespace td0cmt

// Track header: its check byte is the low byte of the check sum of the first three.
namespace td0trk {
constexpr size_t kSectors = 0;  // 255: end of the image
constexpr size_t kCylinder = 1;
constexpr size_t kHead = 2;  // bit 7: the track is FM
constexpr size_t kCrc = 3;
constexpr size_t kSize = 4;
constexpr uint8_t kEnd = 0xFF;
constexpr uint8_t kHeadFM = 0x80;
}  // namespace td0trk

// Sector header: its check byte is the low byte of the check sum of the sector's data.
namespace td0sec {
constexpr size_t kC = 0;
constexpr size_t kH = 1;
constexpr size_t kR = 2;
constexpr size_t kN = 3;
constexpr size_t kFlags = 4;
constexpr size_t kCrc = 5;
constexpr size_t kSize = 6;
constexpr uint8_t kDuplicate = 0x01;  // the ID was met more than once in the track
constexpr uint8_t kCrcError = 0x02;   // read with a data CRC error
constexpr uint8_t kDeleted = 0x04;    // deleted data mark
constexpr uint8_t kSkipped = 0x10;    // not saved: unallocated by DOS; no data block
constexpr uint8_t kNoData = 0x20;     // an ID without a data field; no data block
constexpr uint8_t kNoId = 0x40;       // a data field without an ID
constexpr uint8_t kNoDataBlock = 0x30;
}  // namespace td0sec

// Data block: a 16-bit length that counts the encoding byte, the encoding
// byte, then the encoded data.
namespace td0blk {
constexpr size_t kLength = 0;
constexpr size_t kEncoding = 2;
constexpr size_t kSize = 3;
enum : uint8_t { kRaw = 0, kPattern = 1, kRunLength = 2 };
// A pattern block: a 16-bit count of the 2-byte pattern that follows.
constexpr size_t kPatternCount = 0;
constexpr size_t kPatternBytes = 2;
constexpr size_t kPatternSize = 4;
// A run-length chunk: a kind byte; 0: a length byte and that many bytes,
// else a repeat count and a pattern of kind 2-byte words.
constexpr uint8_t kLiteral = 0;
}  // namespace td0blk

// The file's 16-bit check sum: polynomial 0xA097, from 0, most significant
// bit first.
uint16_t Td0Crc(const uint8_t* data, size_t size, uint16_t crc = 0);

// Expanders of the compressed bodies. Each appends to out what in expands to,
// never more than limit bytes in all; false with the reason in *why when the
// stream is broken or expands past limit.
bool Td0ExpandLzw(const uint8_t* in, size_t size, size_t limit, std::vector<uint8_t>* out,
                  std::string* why);
bool Td0ExpandLzhuf(const uint8_t* in, size_t size, size_t limit, std::vector<uint8_t>* out,
                    std::string* why);

// The adaptive Huffman code of the 2.x body: 256 literals and 58 match
// lengths, its tree rebuilt when the root's count reaches 0x8000. The
// expander and writers of test data share it.
namespace td0huf {
constexpr int kRing = 4096;  // window of the matches
constexpr int kLookAhead = 60;
constexpr int kThreshold = 2;  // matches are kThreshold + 1 .. kLookAhead bytes
constexpr int kSymbols = 256 - kThreshold + kLookAhead;
constexpr int kNodes = 2 * kSymbols - 1;
constexpr int kRoot = kNodes - 1;
constexpr uint16_t kMaxFreq = 0x8000;

// Code lengths of the upper 6 bits of a match position, in code order; the
// codes are assigned canonically (shortest first) and the 6 low bits follow
// as they are.
constexpr int PositionBits(int upper) {
    return upper < 1 ? 3 : upper < 4 ? 4 : upper < 12 ? 5 : upper < 24 ? 6 : upper < 48 ? 7 : 8;
}
// The code of an upper position value, left-aligned in 8 bits.
constexpr int PositionCode(int upper) {
    int code = 0;
    for (int u = 0; u < upper; u++) code += 1 << (8 - PositionBits(u));
    return code;
}
static_assert(PositionCode(64) == 256, "the position codes fill the code space");

class Tree {
public:
    Tree() { Reset(); }
    void Reset();
    // Counts one more use of a symbol and keeps the tree ordered by count.
    void Update(int symbol);

    // Children of node i: son[i] and son[i] + 1; a value kNodes or more is
    // the leaf of symbol value - kNodes.
    uint16_t son[kNodes];
    // Parent of node i; of symbol s: parent[kNodes + s].
    uint16_t parent[kNodes + kSymbols];
    uint16_t freq[kNodes + 1];

private:
    void Rebuild();
};
}  // namespace td0huf
