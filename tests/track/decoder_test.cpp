// Decoder: encoded tracks come back whole; defects laid down by the stream
// builder become status bits and track flags under each controller's rules.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <tuple>
#include <vector>

#include "track/decoder_stream.h"
#include "track/vtrack.h"

namespace {

using dectest::SectorLayout;

TEST(Decoder, EncodedTracksComeBack) {
    const struct {
        const char* name;
        int cells, count, n, gap3;
        const char* densities;  // per sector, cycled: M = MFM, F = FM
        int deletedEvery;       // sector i is deleted when i % k == 1
    } rows[] = {
        // clang-format off
        {"2HD 8x1024", 166666, 8, 3, 116, "M", 0},   {"2HQ 18x512", 200000, 18, 2, 84, "M", 0},
        {"shrunk 9x512", 96000, 9, 2, 84, "M", 0},   {"FM 26x128", 166666, 26, 0, 27, "F", 0},
        {"alternating", 100000, 10, 1, 30, "MF", 2}, {"3 FM + 2 MFM", 100000, 5, 0, 27, "FMFMF", 0},
        {"deleted FM", 100000, 16, 0, 27, "F", 2},
        // clang-format on
    };
    for (const auto& g : rows) {
        for (int raw : {0, 1}) {
            for (int mode : {0, 1}) {
                SCOPED_TRACE(testing::Message() << g.name << " raw " << raw << " mode " << mode);
                VTrack e;
                for (int i = 0; i < g.count; ++i) {
                    const bool mfm = g.densities[i % std::strlen(g.densities)] == 'M';
                    e.AddSector(dectest::NewSector(
                        mfm, i + 1, g.n, 128 << g.n, mfm ? 22 + i % 3 : 11 + i % 2, g.gap3,
                        g.deletedEvery && i % g.deletedEvery == 1 ? SECT_DELETED : 0));
                }
                const int len = raw ? g.cells * 8 : g.cells;
                std::vector<uint8_t> buf(static_cast<size_t>(raw ? len : (len + 7) / 8));
                ASSERT_EQ(e.Encode(raw, buf.data(), len), len);
                VTrack d;
                d.Decode(raw, buf.data(), len, mode);
                ASSERT_EQ(d.SectorCount(), g.count);
                ASSERT_EQ(d.encLen, g.cells);
                const bool mfmMajor = e.mfmCount >= e.fmCount;
                const VSector* furthest = d.sectors;
                for (VSector* s = d.sectors; s; s = s->next)
                    furthest = s->endPos > furthest->endPos ? s : furthest;
                EXPECT_EQ(
                    std::tuple(d.flags, d.iamPos, d.gap4a, d.gap1, d.gap4b),
                    std::tuple(TRK_INDEX | (e.mfmCount ? TRK_MFM : 0u) | (e.fmCount ? TRK_FM : 0u),
                               1472, mfmMajor ? 80 : 34, mfmMajor ? 50 : 20,
                               (g.cells - furthest->endPos) / (mfmMajor ? 16 : 32)));
                const VSector* x = e.sectors;
                for (const VSector* s = d.sectors; s; s = s->next, x = x->next) {
                    SCOPED_TRACE(s->idR);
                    // The FM sync allowance is twelve bytes, twice what is written.
                    const int gap3 = s == furthest ? 0
                                     : x->mfm      ? x->gap3
                                                   : std::max(x->gap3 - 6, 0);
                    EXPECT_EQ(std::tuple(s->mfm, s->status, s->gap2, s->gap3, s->timeDev),
                              std::tuple(x->mfm, x->status, x->gap2, gap3, 0));
                    ASSERT_EQ(s->length, x->length);
                    EXPECT_EQ(std::memcmp(&s->idC, &x->idC, 4), 0);
                    EXPECT_EQ(std::memcmp(s->data, x->data, static_cast<size_t>(s->length)), 0);
                }
            }
        }
    }
}

// Header, sectors 1..3 (the middle one as edit makes it), padded to cells.
dectest::StreamBuilder Track(bool mfm, void (*edit)(SectorLayout&), int cells,
                             std::vector<dectest::Placed>* at = nullptr) {
    dectest::StreamBuilder b;
    mfm ? b.MfmHeader() : b.FmHeader();
    for (uint8_t r = 1; r <= 3; ++r) {
        SectorLayout s{mfm, 5, 0, r, 1, dectest::Pattern(256, r), mfm ? 22 : 11, mfm ? 54 : 27};
        if (r == 2 && edit) edit(s);
        const auto p = b.Sector(s);
        if (at) at->push_back(p);
    }
    b.PadTo(cells, mfm);
    return b;
}

TEST(Decoder, DefectsOfOneSector) {
    constexpr uint8_t kGone = 0xFF;  // not read as a sector
    const struct {
        const char* name;
        int mode;
        void (*edit)(SectorLayout&);
        int status, flags, length;  // of sector 2; the track's defect flags
    } rows[] = {
        {"bad ID CRC", 0, [](auto& s) { s.badIdCrc = true; }, SECT_IDCRC, TRK_IDCRC, 256},
        {"bad data CRC", 1, [](auto& s) { s.badDataCrc = true; }, SECT_DATACRC, TRK_DATACRC, 256},
        {"no data mark", 0, [](auto& s) { s.noDam = true; }, SECT_NODAM, TRK_NODAM, 0},
        {"deleted", 0, [](auto& s) { s.deleted = true; }, SECT_DELETED, 0, 256},
        {"deleted, then normal", 0, [](auto& s) { s.deleted = s.secondNormal = true; },
         SECT_DELETED, TRK_MORE_DAM, 256},
        {"ID mark FC uPD765", 0, [](auto& s) { s.idMark = 0xFC; }, kGone, TRK_MORE_DAM, 0},
        {"ID mark FF MB8877", 1, [](auto& s) { s.idMark = 0xFF; }, 0, 0, 256},
        {"N 9 uPD765", 0, [](auto& s) { s.n = 9; }, SECT_DATACRC, TRK_DATACRC, 16384},
        {"N 9 MB8877", 1, [](auto& s) { s.n = 9; }, 0, 0, 256},
    };
    constexpr uint32_t kDefects = TRK_NODAM | TRK_DATACRC | TRK_IDCRC | TRK_MORE_DAM;
    for (const auto& row : rows) {
        for (bool mfm : {true, false}) {
            SCOPED_TRACE(testing::Message() << row.name << (mfm ? " MFM" : " FM"));
            auto cells = Track(mfm, row.edit, 100000).Bytes();
            VTrack t;
            t.Decode(0, cells.data(), 100000, row.mode);
            EXPECT_EQ(t.flags & kDefects, static_cast<uint32_t>(row.flags));
            ASSERT_EQ(t.SectorCount(), row.status == kGone ? 2 : 3);
            for (const VSector* s = t.sectors; s; s = s->next) {
                SCOPED_TRACE(s->idR);
                const bool edited = s->idR == 2;
                EXPECT_EQ(s->status, edited ? row.status : 0);
                ASSERT_EQ(s->length, edited ? row.length : 256);
                const auto want = dectest::Pattern(std::min(s->length, 256), s->idR);
                EXPECT_EQ(std::vector<uint8_t>(s->data, s->data + want.size()), want);
            }
        }
    }
}

TEST(Decoder, EmptyOrMarklessStreamIsUnformatted) {
    dectest::StreamBuilder index;  // an index mark and gap, no sector
    index.MfmHeader();
    std::vector<uint8_t> zeros(1000, 0), header = index.Bytes();
    // raw, length, header or zeros, controller mode
    const int rows[][4] = {{0, 0, 0, 0},    {1, 0, 0, 0},    {0, 0, 0, 1},          {1, 0, 0, 1},
                           {0, 8000, 0, 0}, {1, 8000, 0, 0}, {0, index.Pos(), 1, 0}};
    for (const auto& row : rows) {
        VTrack t;
        t.Decode(row[0], (row[2] ? header : zeros).data(), row[1], row[3]);
        EXPECT_TRUE(t.flags == TRK_UNFORMATTED && !t.sectors &&
                    t.encLen == row[1] / (row[0] ? 8 : 1))
            << row[0] << " " << row[1] << " " << row[3];
    }
}

// Turned so that the stream ends inside sector 3's data: read whole round the index.
TEST(Decoder, SectorCrossingTheIndex) {
    std::vector<dectest::Placed> at;
    auto cells = Track(true, nullptr, 100000, &at).Rotated(at[2].damPos + 2000);
    VTrack t;
    t.Decode(0, cells.data(), 100000, 0);
    EXPECT_EQ(t.flags, TRK_INDEX | TRK_MFM | TRK_CROSS_INDEX);
    const VSector* last = t.GetLasttSector();
    ASSERT_EQ(t.SectorCount(), 3);
    EXPECT_TRUE(last->idR == 3 && last->status == 0 && last->idPos > last->endPos);
    EXPECT_EQ(std::vector<uint8_t>(last->data, last->data + last->length),
              dectest::Pattern(256, 3));
}

// More ID marks than the mark list holds: the first 96 are read.
TEST(Decoder, AtMost96IdMarks) {
    for (bool mfm : {true, false}) {
        dectest::StreamBuilder b;
        for (int r = 1; r <= 150; ++r)
            b.Sector({mfm, 0, 0, static_cast<uint8_t>(r), 0, {}, 0, 0, 0xFE, false, false, true});
        b.PadTo(b.Pos() + 64, mfm);
        VTrack t;
        t.Decode(0, const_cast<uint8_t*>(b.Bytes().data()), b.Pos(), 0);
        ASSERT_EQ(t.SectorCount(), 96);
        EXPECT_TRUE(t.GetLasttSector()->idR == 96 && t.GetLasttSector()->status == SECT_NODAM);
    }
}

// Sector 2 written slow or fast in the raw signal: only its timeDev moves.
TEST(Decoder, RawTimeDeviation) {
    for (double stretch : {1.05, 0.96}) {
        std::vector<dectest::Placed> at;
        const auto cells = Track(true, nullptr, 60000, &at).Bytes();
        int samples = 0;
        auto raw = dectest::CellsToRawStretched(cells, 60000, at[1].damPos - 192, at[1].endPos,
                                                stretch, &samples);
        VTrack t;
        t.Decode(1, raw.data(), samples, 0);
        ASSERT_EQ(t.SectorCount(), 3);
        for (const VSector* s = t.sectors; s; s = s->next) {
            EXPECT_EQ(s->status, 0);
            EXPECT_NEAR(s->timeDev, s->idR == 2 ? (stretch - 1) * 1000 : 0, s->idR == 2 ? 4 : 1)
                << stretch;
        }
    }
}

}  // namespace
