// HFE version 3 track streams: the cells of version 1 with opcode bytes among
// them. Cells never hold four 1s in a row in MFM or FM, so a byte whose first
// four cells are all 1 cannot be data: such bytes carry the opcodes.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "fileio/report.h"

namespace hfe3 {

// The version 3 signature; the header and track list are those of version 1.
constexpr char kSignature[] = "HXCHFEV3";

// Opcode bytes, as they read once the file's bit order is reversed (first
// cell in the top bit), with the argument bytes that follow each.
struct Opcode {
    uint8_t code;
    uint8_t argBytes;
    const char* name;
};
constexpr uint8_t kNop = 0xF0;         // nothing
constexpr uint8_t kSetIndex = 0xF1;    // the index pulse lies at this point
constexpr uint8_t kSetBitRate = 0xF2;  // rate byte: cell rate = 36 MHz / rate
constexpr uint8_t kSkipBits = 0xF3;    // count byte, then a byte whose first count cells drop
constexpr uint8_t kRand = 0xF4;        // a byte of random (weak) cells
constexpr Opcode kOpcodes[] = {
    {kNop, 0, "no-op"},           {kSetIndex, 0, "index"},
    {kSetBitRate, 1, "bit rate"}, {kSkipBits, 2, "skipped bits"},
    {kRand, 0, "random cells"},
};

// The rate byte of a data bit rate in kbit/s (cells at twice that rate), and back.
constexpr int RateCode(int kbps) {
    return kbps > 0 ? (18000 + kbps / 2) / kbps : 0;
}
constexpr int RateKbps(int code) {
    return code > 0 ? (18000 + code / 2) / code : 0;
}

// What one side's stream held besides its cells.
struct Side {
    int64_t cells = 0;      // cells written
    int64_t index = -1;     // cell at the first index opcode, -1 without one
    int otherRate = -1;     // the first rate byte other than the expected one, -1 if none
    int64_t weakCells = 0;  // cells standing for random ones, written as no flux
    std::string error;      // why the stream cannot be read; empty when it can
};

// Turns the n bytes of one side's stream, already in first-cell-in-top-bit
// order, into cells from bit 0 of out, which holds cap bytes (n bytes always
// suffice: no byte gives more than 8 cells). rateCode is the rate byte the
// file's header bit rate stands for.
Side DecodeSide(const uint8_t* in, size_t n, uint8_t* out, size_t cap, int rateCode);

// Copies the first cells bits of src into dst turned so that bit index comes
// first: dst holds (cells + 7) / 8 bytes, src one byte more.
void RotateCells(const uint8_t* src, int64_t cells, int64_t index, uint8_t* dst);

// The sides of a file in track order (2 x cylinder + head): the reason the
// first unreadable one gives ("track 3.1: ..."), or, when every side reads,
// nothing and one warning in report per kind of cell a track record cannot
// keep. bitRate is the header's, in kbit/s.
std::string Summarize(const std::vector<Side>& sides, int bitRate, Report& report);

}  // namespace hfe3
