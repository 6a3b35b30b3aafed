// Sector and track model; encoder: whole layouts against the independent
// stream builder with pinned cell codes, budget and GAP3 shrinking, bounds.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <utility>
#include <vector>

#include "track/decoder_stream.h"
#include "track/vtrack.h"

namespace {

using dectest::CrcByte;
static_assert(CrcByte(CrcByte(CrcByte(CrcByte(0xFFFF, 0xA1), 0xA1), 0xA1), 0xFE) == 0xB230);

// Every cell of a track as the builder lays it down from the layout rules.
TEST(Encoder, LayoutMatchesTheStreamBuilder) {
    const struct {
        const char* name;
        int mfm, count, length, n, gap2, gap3, deleted;  // deleted: every second sector
    } rows[] = {
        {"MFM 9x512", 1, 9, 512, 2, 22, 84, 0},
        {"MFM deleted, no gaps, odd length", 1, 6, 300, 2, 0, 0, 1},
        {"FM 16x128", 0, 16, 128, 0, 11, 27, 0},
        {"FM deleted, no gaps, odd length", 0, 8, 200, 1, 0, 0, 1},
    };
    constexpr int kCells = 100000;
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        VTrack t;
        dectest::StreamBuilder b;
        row.mfm ? b.MfmHeader() : b.FmHeader();
        for (int i = 0; i < row.count; ++i) {
            VSector* s = dectest::NewSector(row.mfm, i + 1, row.n, row.length, row.gap2, row.gap3,
                                            row.deleted && i % 2 ? SECT_DELETED : 0);
            t.AddSector(s);
            b.Sector({row.mfm != 0, 5, 1, s->idR, s->idN,
                      std::vector<uint8_t>(s->data, s->data + s->length), row.gap2, row.gap3, 0xFE,
                      false, false, false, s->status != 0});
        }
        b.PadTo(kCells, row.mfm);
        std::vector<uint8_t> buf(kCells / 8);
        EXPECT_EQ(t.Encode(0, buf.data(), kCells), kCells);
        EXPECT_TRUE(buf == b.Bytes());
    }
}

TEST(Encoder, BudgetAndGap3Shrinking) {
    const struct {
        const char* name;
        // budget: the chosen layout's before encoding (0 = not checked); GAP3s after
        // encoding: the first atLow are low, the rest low + 1; kept: sectors written
        int mfm, cells, count, n, gap3, budget, low, atLow, kept;
    } rows[] = {
        {"fits", 1, 100000, 9, 2, 84, 97088, 84, 9, 9},
        {"first of the largest", 1, 96000, 9, 2, 84, 97088, 56, 5, 9},
        {"floor 20, last dropped", 1, 80000, 9, 2, 20, 87872, 20, 9, 8},
        {"FM target from base 1128", 0, 97000, 16, 0, 27, 97384, 20, 7, 16},
        {"huge GAP3", 1, 100000, 1, 2, 1 << 30, 0, 5342, 1, 1},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        VTrack t;
        for (int i = 0; i < row.count; ++i)
            t.AddSector(dectest::NewSector(row.mfm, i + 1, row.n, 128 << row.n, 22, row.gap3));
        EXPECT_EQ(row.budget ? row.mfm ? t.CalcTotalMFM() : t.CalcTotalFM() : 0, row.budget);
        std::vector<uint8_t> buf(static_cast<size_t>(row.cells / 8));
        EXPECT_EQ(t.Encode(0, buf.data(), row.cells), row.cells);
        int i = 0;
        for (VSector* s = t.sectors; s; s = s->next, ++i)
            EXPECT_EQ(s->gap3, row.low + (i >= row.atLow)) << i;
        const int target = row.cells * 97 / 100;  // cannot be reached only when sectors are lost
        EXPECT_EQ(row.mfm ? t.ShrinkGapMFM(target) : t.ShrinkGapFM(target), row.kept == row.count);
        VTrack d;
        d.Decode(0, buf.data(), row.cells, 0);
        EXPECT_EQ(d.SectorCount(), row.kept);
    }
}

// Exactly len cells of zeros for an empty track; a GAP2 far beyond what the
// budget assumes still ends at the buffer's end.
TEST(Encoder, WritesOnlyItsLength) {
    for (int raw : {0, 1}) {
        VTrack t;
        std::vector<uint8_t> buf(200, 0xFF);
        EXPECT_EQ(t.Encode(raw, buf.data(), 1003), 1003);
        EXPECT_EQ(std::count(buf.begin(), buf.begin() + 125, 0), 125);
        EXPECT_EQ(buf[125], 0x1F);
        EXPECT_EQ(buf[126], 0xFF);
        for (bool mfm : {true, false}) {
            t.AddSector(dectest::NewSector(mfm, 1, 2, 512, 1000000, 84));
            const int len = raw ? 800000 : 100000;
            buf.assign(static_cast<size_t>(raw ? len : len / 8) + 64, 0x5A);
            EXPECT_EQ(t.Encode(raw, buf.data(), 0), 0);  // nothing into no cells
            EXPECT_EQ(std::count(buf.begin(), buf.end(), 0x5A), std::ssize(buf));
            EXPECT_EQ(t.Encode(raw, buf.data(), len), len);
            EXPECT_EQ(std::count(buf.end() - 64, buf.end(), 0x5A), 64);
            t.Cleanup();
        }
    }
}

TEST(VTrackModel, ListCountersAndIndexing) {
    VTrack t;
    EXPECT_TRUE(!t.GetSectorByIndex(-5) && !t.GetLasttSector());
    for (int r = 1; r <= 4; ++r) t.AddSector(dectest::NewSector(r != 2, r, 0, 16, 22, 0));
    EXPECT_EQ(t.mfmCount * 10 + t.fmCount, 31);
    for (const auto& [index, r] : {std::pair{-5, 1}, {0, 1}, {1, 2}, {3, 4}, {4, 0}})
        EXPECT_EQ(t.GetSectorByIndex(index) ? t.GetSectorByIndex(index)->idR : 0, r) << index;
    EXPECT_EQ(t.GetLasttSector(), t.GetSectorByIndex(3));
    t.encData = new unsigned char[4]();
    t.encLen = 29;
    t.ClrSector();  // keeps the stream
    EXPECT_TRUE(!t.sectors && t.mfmCount + t.fmCount == 0 && t.encData && t.encLen == 29);
    t.AddSector(dectest::NewSector(0, 1, 0, 16, 22, 0));
    t.Cleanup();
    EXPECT_TRUE(!t.encData && !t.sectors && t.encLen + t.fmCount == 0);
}

TEST(VTrackModel, GetLengthAddsTheMajorDensityOverhead) {
    // MFM sectors, FM sectors (128 bytes, GAP3 27: 217 bytes MFM, 188 FM), length
    const int rows[][3] = {{0, 0, 0}, {0, 1, 294}, {1, 1, 617}, {2, 1, 834}, {1, 2, 699}};
    for (const auto& row : rows) {
        VTrack t;
        for (int i = 0; i < row[0] + row[1]; ++i)
            t.AddSector(dectest::NewSector(i < row[0], i, 0, 128, 22, 27));
        EXPECT_EQ(t.GetLength(), row[2]) << row[0] << " MFM, " << row[1] << " FM";
        t.Cleanup();
    }
}

TEST(VTrackModel, GetEncDataWrapsRoundTheStream) {
    VTrack t;
    // 29 cells: 1100 1010  0101 1110  1000 0001  11111 (the rest of the byte is not stream)
    t.encData = new unsigned char[4]{0xCA, 0x5E, 0x81, 0xF8};
    t.encLen = 29;
    const int rows[][2] = {{3, 0x52}, {21, 0x3F}, {28, 0xE5}, {-3, 0xF9}, {29, 0xCA}, {-29, 0xCA}};
    for (const auto& row : rows) EXPECT_EQ(t.GetEncData(row[0]), row[1]) << row[0];
    t.Cleanup();
}

TEST(VTrackModel, CalcGap3ClampsTheSizeCode) {
    const int rows[][3] = {{-1, 24, 27}, {1, 54, 42}, {2, 84, 58}, {3, 116, 72}, {9, 116, 72}};
    for (const auto& row : rows) {  // N, MFM, FM
        EXPECT_EQ(VSector().CalcGAP3(1, row[0]), row[1]) << row[0];
        EXPECT_EQ(VSector().CalcGAP3(0, row[0]), row[2]) << row[0];
    }
}

}  // namespace
