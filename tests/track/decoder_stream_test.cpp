// Decoder on streams laid down cell by cell: positions, gaps, defects, mode
// rules, the index crossing and mark-count limits.
#include <gtest/gtest.h>

#include <cstring>
#include <vector>

#include "track/decoder_stream.h"
#include "track/vtrack.h"

using dectest::Placed;
using dectest::SectorSpec;
using dectest::StreamBuilder;

namespace {

constexpr int kMfmCells = 100000;

struct Built {
    std::vector<uint8_t> cells;
    int len = 0;
    std::vector<Placed> placed;
};

Built Build(const std::vector<SectorSpec>& specs, bool mfmTrack, int total = kMfmCells,
            bool header = true) {
    StreamBuilder b;
    if (header) mfmTrack ? b.MfmHeader() : b.FmHeader();
    Built out;
    for (const auto& s : specs) out.placed.push_back(b.Sector(s));
    b.PadTo(total, mfmTrack);
    out.cells = b.Bytes();
    out.len = b.Pos();
    return out;
}

void DecodeCells(VTrack& t, Built& b, int mode = 0) {
    t.Decode(0, b.cells.data(), b.len, mode);
}

std::vector<VSector*> List(const VTrack& t) {
    std::vector<VSector*> v;
    for (VSector* s = t.sectors; s; s = s->next) v.push_back(s);
    return v;
}

SectorSpec Mfm(uint8_t r, uint8_t n, int gap3 = 84) {
    SectorSpec s;
    s.r = r;
    s.n = n;
    s.data = dectest::Pattern(128 << n, r);
    s.gap3 = gap3;
    return s;
}

SectorSpec Fm(uint8_t r, uint8_t n, int gap3 = 27) {
    SectorSpec s = Mfm(r, n, gap3);
    s.mfm = false;
    s.gap2 = 11;
    return s;
}

TEST(DecoderStream, EmptyAndMarklessStreamsAreUnformatted) {
    std::vector<uint8_t> zeros(12500, 0);
    StreamBuilder gapOnly;
    gapOnly.MfmHeader();
    gapOnly.PadTo(kMfmCells, true);
    // Data fields without any ID field: data marks are counted but do not
    // make a formatted track.
    StreamBuilder dataOnly;
    for (int i = 0; i < 3; ++i) {
        SectorSpec s = Mfm(1, 0);
        dataOnly.Mfm(0x4E, 40);
        dataOnly.Mfm(0x00, 12);
        dataOnly.MfmSyncA1();
        dataOnly.Mfm(0xFB);
        dataOnly.MfmBytes(s.data);
    }
    dataOnly.PadTo(20000, true);

    struct Case {
        const char* name;
        unsigned char* buf;
        int len;
        int raw;
    } cases[] = {
        {"null", nullptr, 1000, 0},
        {"zero length", zeros.data(), 0, 0},
        {"negative length", zeros.data(), -8, 0},
        {"zero cells", zeros.data(), 100000, 0},
        {"zero samples", zeros.data(), 100000, 1},
        {"gaps and index only", const_cast<uint8_t*>(gapOnly.Bytes().data()), gapOnly.Pos(), 0},
        {"data marks only", const_cast<uint8_t*>(dataOnly.Bytes().data()), dataOnly.Pos(), 0},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        VTrack t;
        t.Decode(c.raw, c.buf, c.len, 0);
        EXPECT_EQ(t.flags, TRK_UNFORMATTED);
        EXPECT_EQ(t.sectors, nullptr);
        EXPECT_EQ(t.SectorCount(), 0);
        EXPECT_NE(t.encData, nullptr);
        t.Cleanup();
    }
}

TEST(DecoderStream, MfmTrackPositionsAndGaps) {
    std::vector<SectorSpec> specs;
    for (int r = 1; r <= 9; ++r) specs.push_back(Mfm(static_cast<uint8_t>(r), 2, 84));
    specs[3].gap2 = 30;
    specs[5].gap3 = 40;
    Built b = Build(specs, true);
    VTrack t;
    DecodeCells(t, b);
    EXPECT_EQ(t.flags, TRK_INDEX | TRK_MFM);
    EXPECT_EQ(t.encLen, kMfmCells);
    EXPECT_EQ(t.iamPos, 80 * 16 + 12 * 16);
    EXPECT_EQ(t.gap4a, 80);
    EXPECT_EQ(t.gap1, 50);
    EXPECT_EQ(t.gap4b, (kMfmCells - b.placed.back().endPos) / 16);
    auto v = List(t);
    ASSERT_EQ(v.size(), 9u);
    EXPECT_EQ(t.mfmCount, 9);
    for (size_t i = 0; i < v.size(); ++i) {
        SCOPED_TRACE(i);
        const VSector& s = *v[i];
        EXPECT_EQ(s.mfm, 1);
        EXPECT_EQ(s.idR, specs[i].r);
        EXPECT_EQ(s.idN, 2);
        EXPECT_EQ(s.status, 0);
        EXPECT_EQ(s.length, 512);
        ASSERT_NE(s.data, nullptr);
        EXPECT_EQ(std::memcmp(s.data, specs[i].data.data(), 512), 0);
        EXPECT_EQ(s.gap2, specs[i].gap2);
        EXPECT_EQ(s.gap3, i + 1 < v.size() ? specs[i].gap3 : 0);
        EXPECT_EQ(s.idPos, b.placed[i].idPos);
        EXPECT_EQ(s.damPos, b.placed[i].damPos);
        EXPECT_EQ(s.dataPos, b.placed[i].damPos + 64);
        EXPECT_EQ(s.endPos, b.placed[i].endPos);
        EXPECT_EQ(s.dataCells, 512 * 16);
        const uint16_t crc = StreamBuilder::IdCrc(specs[i]);
        EXPECT_EQ(s.idCrc[0], crc >> 8);
        EXPECT_EQ(s.idCrc[1], crc & 0xFF);
        EXPECT_EQ(s.timeDev, 0);
    }
    t.Cleanup();
}

TEST(DecoderStream, FmTrackUsesTwelveByteSyncAllowance) {
    std::vector<SectorSpec> specs;
    for (int r = 1; r <= 5; ++r) specs.push_back(Fm(static_cast<uint8_t>(r), 0, 27));
    specs[1].gap3 = 4;  // below the allowance: measured as 0
    Built b = Build(specs, false, 50000);
    VTrack t;
    DecodeCells(t, b);
    EXPECT_EQ(t.flags, TRK_INDEX | TRK_FM);
    EXPECT_EQ(t.iamPos, 46 * 32);
    EXPECT_EQ(t.gap4a, 40 - 6);
    EXPECT_EQ(t.gap1, 26 - 6);
    EXPECT_EQ(t.gap4b, (50000 - b.placed.back().endPos) / 32);
    auto v = List(t);
    ASSERT_EQ(v.size(), 5u);
    EXPECT_EQ(t.fmCount, 5);
    const int want3[] = {21, 0, 21, 21, 0};
    for (size_t i = 0; i < v.size(); ++i) {
        SCOPED_TRACE(i);
        EXPECT_EQ(v[i]->mfm, 0);
        EXPECT_EQ(v[i]->status, 0);
        EXPECT_EQ(v[i]->gap2, 11);
        EXPECT_EQ(v[i]->gap3, want3[i]);
        EXPECT_EQ(v[i]->idPos, b.placed[i].idPos);
        EXPECT_EQ(v[i]->dataPos, b.placed[i].damPos + 32);
        EXPECT_EQ(v[i]->endPos, b.placed[i].endPos);
        ASSERT_EQ(v[i]->length, 128);
        EXPECT_EQ(std::memcmp(v[i]->data, specs[i].data.data(), 128), 0);
    }
    t.Cleanup();
}

TEST(DecoderStream, DefectsBecomeStatusAndFlags) {
    struct Case {
        const char* name;
        void (*edit)(SectorSpec&);
        uint8_t status;
        uint32_t flags;
    } cases[] = {
        {"broken ID CRC", [](SectorSpec& s) { s.badIdCrc = true; }, SECT_IDCRC, TRK_IDCRC},
        {"broken data CRC", [](SectorSpec& s) { s.badDataCrc = true; }, SECT_DATACRC, TRK_DATACRC},
        {"missing data mark", [](SectorSpec& s) { s.noDam = true; }, SECT_NODAM, TRK_NODAM},
        {"missing data mark and broken ID CRC",
         [](SectorSpec& s) {
             s.noDam = true;
             s.badIdCrc = true;
         },
         SECT_NODAM | SECT_IDCRC, TRK_NODAM | TRK_IDCRC},
        {"deleted mark", [](SectorSpec& s) { s.deleted = true; }, SECT_DELETED, 0},
        {"deleted mark before a normal one",
         [](SectorSpec& s) {
             s.deleted = true;
             s.secondNormal = true;
         },
         SECT_DELETED, TRK_MORE_DAM},
    };
    for (bool mfm : {true, false}) {
        for (const auto& c : cases) {
            SCOPED_TRACE(std::string(c.name) + (mfm ? " MFM" : " FM"));
            std::vector<SectorSpec> specs;
            for (int r = 1; r <= 4; ++r) {
                specs.push_back(mfm ? Mfm(static_cast<uint8_t>(r), 1)
                                    : Fm(static_cast<uint8_t>(r), 0));
            }
            c.edit(specs[1]);
            Built b = Build(specs, mfm);
            VTrack t;
            DecodeCells(t, b);
            auto v = List(t);
            ASSERT_EQ(v.size(), 4u);
            const uint32_t density = mfm ? TRK_MFM : TRK_FM;
            uint32_t want = TRK_INDEX | density | c.flags;
            // A sector without a data field keeps endPos 0, before its idPos.
            if (c.status & SECT_NODAM) want |= TRK_CROSS_INDEX;
            EXPECT_EQ(t.flags, want);
            EXPECT_EQ(v[0]->status, 0);
            EXPECT_EQ(v[2]->status, 0);
            const VSector& s = *v[1];
            EXPECT_EQ(s.status, c.status);
            EXPECT_EQ(s.idR, 2);
            if (c.status & SECT_NODAM) {
                EXPECT_EQ(s.length, 0);
                EXPECT_EQ(s.data, nullptr);
                EXPECT_EQ(s.endPos, 0);
                EXPECT_EQ(s.gap3, 0);
            } else {
                ASSERT_EQ(s.length, static_cast<int>(specs[1].data.size()));
                // The data are kept even when their CRC fails.
                EXPECT_EQ(std::memcmp(s.data, specs[1].data.data(), specs[1].data.size()), 0);
                EXPECT_EQ(s.damPos, b.placed[1].damPos);
            }
            t.Cleanup();
        }
    }
}

TEST(DecoderStream, DataLengthFollowsMode) {
    struct Case {
        uint8_t n;
        int mode;
        int length;
    } cases[] = {
        {0, 0, 128},     {3, 0, 1024}, {6, 0, 8192}, {7, 0, 16384}, {8, 0, 16384}, {9, 0, 16384},
        {255, 0, 16384}, {3, 1, 1024}, {4, 1, 128},  {7, 1, 1024},  {9, 1, 256},   {254, 1, 512},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(::testing::Message() << "N=" << int(c.n) << " mode " << c.mode);
        std::vector<SectorSpec> specs = {Mfm(1, 1), Mfm(2, 1)};
        specs[0].n = c.n;
        specs[0].data = dectest::Pattern(std::min(c.length, 1024), 7);
        Built b = Build(specs, true);
        VTrack t;
        DecodeCells(t, b, c.mode);
        auto v = List(t);
        ASSERT_EQ(v.size(), 2u);
        EXPECT_EQ(v[0]->length, c.length);
        EXPECT_EQ(v[0]->dataCells, c.length * 16);
        ASSERT_NE(v[0]->data, nullptr);
        EXPECT_EQ(std::memcmp(v[0]->data, specs[0].data.data(), specs[0].data.size()), 0);
        const bool longer = c.length > static_cast<int>(specs[0].data.size());
        EXPECT_EQ(v[0]->status, longer ? SECT_DATACRC : 0);
        // A 16384-byte field reaches over the next sector.
        EXPECT_EQ((t.flags & TRK_OVERLAP) != 0, longer);
        EXPECT_EQ(v[1]->status, 0);
        t.Cleanup();
    }
}

TEST(DecoderStream, OtherIdMarkBytesOnlyUnderMb8877) {
    for (bool mfm : {true, false}) {
        for (uint8_t mark : {0xFC, 0xFD, 0xFF}) {
            for (int mode : {0, 1}) {
                SCOPED_TRACE(::testing::Message() << (mfm ? "MFM " : "FM ") << std::hex << int(mark)
                                                  << " mode " << mode);
                std::vector<SectorSpec> specs;
                for (int r = 1; r <= 3; ++r) {
                    specs.push_back(mfm ? Mfm(static_cast<uint8_t>(r), 1)
                                        : Fm(static_cast<uint8_t>(r), 0));
                }
                specs[1].idMark = mark;
                Built b = Build(specs, mfm);
                VTrack t;
                DecodeCells(t, b, mode);
                auto v = List(t);
                if (mode == 0) {
                    ASSERT_EQ(v.size(), 2u);
                    EXPECT_EQ(v[0]->idR, 1);
                    EXPECT_EQ(v[1]->idR, 3);
                    // The first sector's data search now runs to sector 3 and
                    // meets sector 2's data mark after its own.
                    EXPECT_EQ(v[0]->status, 0);
                } else {
                    ASSERT_EQ(v.size(), 3u);
                    EXPECT_EQ(v[1]->idR, 2);
                    EXPECT_EQ(v[1]->status, 0);
                    EXPECT_EQ(std::memcmp(v[1]->data, specs[1].data.data(), specs[1].data.size()),
                              0);
                }
                t.Cleanup();
            }
        }
    }
}

TEST(DecoderStream, MixedDensitiesInOneTrack) {
    std::vector<SectorSpec> specs = {Mfm(1, 1), Fm(2, 0), Mfm(3, 1), Fm(4, 0), Mfm(5, 1)};
    Built b = Build(specs, true);
    VTrack t;
    DecodeCells(t, b);
    EXPECT_EQ(t.flags, TRK_INDEX | TRK_MFM | TRK_FM);
    auto v = List(t);
    ASSERT_EQ(v.size(), 5u);
    EXPECT_EQ(t.mfmCount, 3);
    EXPECT_EQ(t.fmCount, 2);
    for (size_t i = 0; i < v.size(); ++i) {
        SCOPED_TRACE(i);
        EXPECT_EQ(v[i]->mfm, specs[i].mfm ? 1 : 0);
        EXPECT_EQ(v[i]->idR, specs[i].r);
        EXPECT_EQ(v[i]->status, 0);
        EXPECT_EQ(v[i]->gap2, specs[i].gap2);
        if (i + 1 < v.size()) {
            EXPECT_EQ(v[i]->gap3, specs[i].mfm ? 84 : 27 - 6);
        }
        EXPECT_EQ(std::memcmp(v[i]->data, specs[i].data.data(), specs[i].data.size()), 0);
    }
    t.Cleanup();
}

TEST(DecoderStream, MoreDataMarksThanIdMarks) {
    StreamBuilder b;
    b.MfmHeader();
    b.Sector(Mfm(1, 0));
    for (int i = 0; i < 2; ++i) {
        b.Mfm(0x00, 12);
        b.MfmSyncA1();
        b.Mfm(0xF8);
        b.Mfm(0xE5, 128);
        b.Mfm(0x4E, 30);
    }
    b.PadTo(kMfmCells, true);
    VTrack t;
    t.Decode(0, const_cast<uint8_t*>(b.Bytes().data()), b.Pos(), 0);
    EXPECT_EQ(t.flags, TRK_MORE_DAM | TRK_INDEX | TRK_MFM);
    EXPECT_EQ(t.SectorCount(), 1);
    t.Cleanup();
}

TEST(DecoderStream, SectorCrossingTheIndexIsReadWhole) {
    constexpr int kLen = 166666;  // 2HD at 360 rpm
    std::vector<SectorSpec> specs;
    for (int r = 1; r <= 8; ++r) specs.push_back(Mfm(static_cast<uint8_t>(r), 3, 116));
    StreamBuilder b;
    b.MfmHeader();
    std::vector<Placed> placed;
    for (const auto& s : specs) placed.push_back(b.Sector(s));
    b.PadTo(kLen, true);
    // Turn the track so that the stream ends in the middle of sector 8's data.
    const int cut = placed[7].damPos + 64 + 300 * 16 + 5;
    std::vector<uint8_t> cells = b.Rotated(cut);
    VTrack t;
    t.Decode(0, cells.data(), kLen, 0);
    const int off = kLen - cut;  // how far every field before the cut moves
    auto v = List(t);
    ASSERT_EQ(v.size(), 8u);
    // Every ID lies before the cut, so sector 8 stays last and its data wrap round.
    const VSector& last = *v.back();
    EXPECT_EQ(last.idR, 8);
    EXPECT_EQ(last.status, 0);
    ASSERT_EQ(last.length, 1024);
    EXPECT_EQ(std::memcmp(last.data, specs[7].data.data(), 1024), 0);
    EXPECT_EQ(last.idPos, placed[7].idPos + off);
    EXPECT_EQ(last.damPos, placed[7].damPos + off);
    EXPECT_EQ(last.endPos, placed[7].endPos + off - kLen);
    EXPECT_GT(last.idPos, last.endPos);
    EXPECT_EQ(t.flags, TRK_INDEX | TRK_MFM | TRK_CROSS_INDEX);
    EXPECT_EQ(v[0]->idR, 1);
    EXPECT_EQ(v[0]->idPos, placed[0].idPos + off);
    // GAP4a is counted from the end of the wrapped sector.
    const int iam = 80 * 16 + 12 * 16 + off;
    EXPECT_EQ(t.iamPos, iam);
    EXPECT_EQ(t.gap4a, (iam - 192) / 16 - last.endPos / 16);
    EXPECT_GT(t.gap4a, 0);
    // The wrapped sector reaches furthest: its GAP3 is 0 and no GAP4b is left.
    EXPECT_EQ(last.gap3, 0);
    EXPECT_EQ(t.gap4b, 0);
    EXPECT_EQ(v[6]->gap3, 116);
    t.Cleanup();
}

// Many short ID fields of both densities: at most 96 of each are kept and
// the merged list holds at most 96 marks, the earliest on the track.
TEST(DecoderStream, MarkCountsAreBounded) {
    struct Case {
        int mfmIds;
        int fmIds;
        int sectors;
    } cases[] = {{96, 0, 96},  {150, 0, 96},   {0, 140, 96},
                 {60, 60, 96}, {250, 250, 96}, {40, 30, 70}};
    for (const auto& c : cases) {
        SCOPED_TRACE(::testing::Message() << c.mfmIds << " MFM, " << c.fmIds << " FM");
        StreamBuilder b;
        b.MfmHeader();
        std::vector<std::pair<int, int>> written;  // idPos, mfm
        int r = 0;
        for (int i = 0; i < std::max(c.mfmIds, c.fmIds); ++i) {
            for (bool mfm : {true, false}) {
                if (i >= (mfm ? c.mfmIds : c.fmIds)) continue;
                SectorSpec s;
                s.mfm = mfm;
                s.r = static_cast<uint8_t>(r++);
                s.noDam = true;
                s.gap2 = 2;
                s.gap3 = 2;
                written.emplace_back(b.Sector(s).idPos, mfm ? 1 : 0);
            }
        }
        b.PadTo(std::max(b.Pos() + 1000, kMfmCells), true);
        // The first 96 of each density, in track order, then the first 96 of those.
        std::vector<std::pair<int, int>> want;
        int keptMfm = 0;
        int keptFm = 0;
        for (const auto& w : written) {
            int& kept = w.second ? keptMfm : keptFm;
            if (kept < 96) {
                ++kept;
                if (want.size() < 96) want.push_back(w);
            }
        }
        VTrack t;
        t.Decode(0, const_cast<uint8_t*>(b.Bytes().data()), b.Pos(), 0);
        auto v = List(t);
        ASSERT_EQ(static_cast<int>(v.size()), c.sectors);
        ASSERT_EQ(want.size(), v.size());
        for (size_t k = 0; k < v.size(); ++k) {
            SCOPED_TRACE(k);
            EXPECT_EQ(v[k]->idPos, want[k].first);
            EXPECT_EQ(v[k]->mfm, want[k].second);
            EXPECT_EQ(v[k]->status, SECT_NODAM);
        }
        t.Cleanup();
    }
}

TEST(DecoderStream, RawSignalDecodesLikeItsCells) {
    std::vector<SectorSpec> specs;
    for (int r = 1; r <= 9; ++r) specs.push_back(Mfm(static_cast<uint8_t>(r), 2, 84));
    specs[4].deleted = true;
    Built b = Build(specs, true);
    std::vector<uint8_t> raw = dectest::CellsToRaw(b.cells, b.len);
    VTrack cellsTrack;
    DecodeCells(cellsTrack, b);
    VTrack rawTrack;
    rawTrack.Decode(1, raw.data(), b.len * 8, 0);
    auto want = List(cellsTrack);
    auto got = List(rawTrack);
    ASSERT_EQ(got.size(), want.size());
    EXPECT_EQ(rawTrack.flags, cellsTrack.flags);
    for (size_t i = 0; i < got.size(); ++i) {
        SCOPED_TRACE(i);
        EXPECT_EQ(got[i]->idR, want[i]->idR);
        EXPECT_EQ(got[i]->status, want[i]->status);
        EXPECT_EQ(got[i]->gap2, want[i]->gap2);
        ASSERT_EQ(got[i]->length, want[i]->length);
        EXPECT_EQ(std::memcmp(got[i]->data, want[i]->data, static_cast<size_t>(got[i]->length)), 0);
        // Evenly spaced cells: the data field has its nominal length.
        EXPECT_EQ(got[i]->timeDev, 0);
    }
    cellsTrack.Cleanup();
    rawTrack.Cleanup();
}

// A data field written slower or faster than the rest of the track shows
// as its length deviation, in thousandths.
TEST(DecoderStream, RawTimeDeviationOfOneSector) {
    for (double stretch : {1.05, 0.96}) {
        SCOPED_TRACE(stretch);
        std::vector<SectorSpec> specs;
        for (int r = 1; r <= 6; ++r) specs.push_back(Mfm(static_cast<uint8_t>(r), 2, 84));
        Built b = Build(specs, true, 60000);
        // Sector 3 from its data sync (damPos - 192) to the end of its CRC.
        int samples = 0;
        std::vector<uint8_t> raw = dectest::CellsToRawStretched(
            b.cells, b.len, b.placed[2].damPos - 192, b.placed[2].endPos, stretch, &samples);
        VTrack t;
        t.Decode(1, raw.data(), samples, 0);
        auto v = List(t);
        ASSERT_EQ(v.size(), 6u);
        const int want = static_cast<int>((stretch - 1.0) * 1000);
        for (size_t i = 0; i < v.size(); ++i) {
            SCOPED_TRACE(i);
            EXPECT_EQ(v[i]->status, 0);
            if (i == 2) {
                EXPECT_NEAR(v[i]->timeDev, want, 4);
            } else {
                EXPECT_NEAR(v[i]->timeDev, 0, 1);
            }
        }
        t.Cleanup();
    }
}

// A data mark pattern cut by the end of the stream: the search to the end of
// the stream tries whole 32-cell groups of offsets, so the mark is still found
// when its group starts early enough, and then read round the index.
TEST(DecoderStream, DataMarkAcrossTheStreamEnd) {
    for (bool mfm : {true, false}) {
        const int bits = mfm ? 128 : 96;
        std::vector<SectorSpec> specs;
        for (int r = 1; r <= 4; ++r) {
            specs.push_back(mfm ? Mfm(static_cast<uint8_t>(r), 1) : Fm(static_cast<uint8_t>(r), 0));
        }
        // Off the 32-cell grid of the search, so that a few cuts keep the mark.
        specs[3].padCells = 16;
        StreamBuilder b;
        mfm ? b.MfmHeader() : b.FmHeader();
        std::vector<Placed> placed;
        for (const auto& sp : specs) placed.push_back(b.Sector(sp));
        b.PadTo(kMfmCells, mfm);
        const int patStart = placed[3].damPos - 64;
        const int idEnd = placed[3].idPos + (mfm ? 160 : 224);
        int found = 0;
        for (int x = 1; x < bits; ++x) {
            SCOPED_TRACE(::testing::Message() << (mfm ? "MFM" : "FM") << " cut " << x);
            const int cut = patStart + x;
            std::vector<uint8_t> cells = b.Rotated(cut);
            VTrack t;
            t.Decode(0, cells.data(), kMfmCells, 0);
            auto v = List(t);
            ASSERT_EQ(v.size(), 4u);
            const int range = cut - idEnd;
            const int off = patStart - idEnd;
            const bool want = off / 32 * 32 <= range - bits;
            const VSector& last = *v.back();
            EXPECT_EQ(last.idR, 4);
            if (want) {
                ++found;
                EXPECT_EQ(last.status, 0);
                EXPECT_EQ(last.damPos, (placed[3].damPos - cut + kMfmCells) % kMfmCells);
                ASSERT_EQ(last.length, static_cast<int>(specs[3].data.size()));
                EXPECT_EQ(std::memcmp(last.data, specs[3].data.data(), specs[3].data.size()), 0);
            } else {
                EXPECT_EQ(last.status, SECT_NODAM);
            }
            t.Cleanup();
        }
        // Some cuts keep the mark and some lose it.
        EXPECT_GT(found, 0);
        EXPECT_LT(found, bits - 1);
    }
}

// DecodeIn on its own: an empty mark list leaves only the index mark's
// measure; entries that cannot be marks of the stream are passed over.
TEST(DecoderStream, DecodeInWithoutAndWithBadMarks) {
    for (bool mfm : {true, false}) {
        SCOPED_TRACE(mfm ? "MFM" : "FM");
        Built b = Build({}, mfm, 50000);
        VTrack t;
        int none[1][2] = {{0, 0}};
        t.DecodeIn(b.cells.data(), b.len, none, mfm ? 1 : 0, 0);
        EXPECT_EQ(t.flags, TRK_INDEX);
        EXPECT_EQ(t.SectorCount(), 0);
        EXPECT_EQ(t.iamPos, 1472);  // both headers put the index mark at byte 92 or 46
        EXPECT_EQ(t.gap4a, mfm ? 80 : 34);
        t.Cleanup();
    }
    std::vector<SectorSpec> specs = {Mfm(1, 1), Mfm(2, 1)};
    Built b = Build(specs, true, 50000);
    int list[][2] = {{-5, 1},          {b.placed[0].idPos, 1},
                     {b.len + 500, 1}, {b.placed[1].idPos, 1},
                     {2147483000, 2},  {0, 0}};
    VTrack t;
    t.DecodeIn(b.cells.data(), b.len, list, 1, 0);
    auto v = List(t);
    ASSERT_EQ(v.size(), 2u);
    EXPECT_EQ(v[0]->idR, 1);
    EXPECT_EQ(v[1]->idR, 2);
    // The bogus entry after sector 1 only widens its data mark search.
    EXPECT_EQ(v[0]->status, 0);
    EXPECT_EQ(v[1]->status, 0);
    t.Cleanup();
}

}  // namespace
