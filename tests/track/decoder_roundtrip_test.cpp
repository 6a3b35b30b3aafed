// Encode then Decode: every plain geometry, FM tracks, mixed tracks and
// deleted sectors come back with their IDs, data, density, deleted mark and
// gaps, from cells and from the raw signal, under both modes.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <string>
#include <vector>

#include "track/decoder_stream.h"
#include "track/vtrack.h"

namespace {

struct Geometry {
    const char* name;
    int cells;
    int count;
    uint8_t n;
    int gap3;
    // Density of sector i: 'M' MFM, 'F' FM, cycled over the sectors.
    const char* densities;
    int deletedEvery;  // every k-th sector gets the deleted mark; 0 = none
};

const Geometry kGeometries[] = {
    {"2HD 8x1024", 166666, 8, 3, 116, "M", 0},
    {"2HD 9x1024 gap 52", 166666, 9, 3, 52, "M", 0},
    {"2HD 9x1024 gap 53", 200000, 9, 3, 53, "M", 0},
    {"2HC 15x512", 166666, 15, 2, 84, "M", 0},
    {"2HQ 18x512", 200000, 18, 2, 84, "M", 0},
    {"2HD 26x256", 166666, 26, 1, 51, "M", 0},
    {"2DD 9x512", 100000, 9, 2, 84, "M", 0},
    {"2D 16x256", 100000, 16, 1, 54, "M", 0},
    {"shrunk 9x512", 96000, 9, 2, 84, "M", 0},
    {"FM 26x128", 166666, 26, 0, 27, "F", 0},
    {"FM 16x128", 100000, 16, 0, 27, "F", 0},
    {"FM 8x256", 100000, 8, 1, 42, "F", 0},
    {"MFM with FM sectors", 100000, 8, 1, 54, "MMF", 0},
    {"FM with MFM sectors", 100000, 7, 0, 27, "FFM", 0},
    {"alternating", 100000, 10, 1, 30, "MF", 0},
    {"deleted MFM", 100000, 9, 2, 84, "M", 3},
    {"deleted FM", 100000, 16, 0, 27, "F", 2},
    {"deleted mixed", 100000, 9, 1, 40, "MF", 2},
};

struct Expected {
    int mfm;
    uint8_t c, h, r, n;
    int gap2;
    int gap3;
    uint8_t status;
    std::vector<uint8_t> data;
};

// Builds the track and encodes it; returns what decoding must give back. The
// encoder may have shrunk GAP3s, so they are read after encoding.
std::vector<Expected> EncodeTrack(const Geometry& g, int cyl, int raw, std::vector<uint8_t>& buf) {
    VTrack t;
    const size_t nd = std::strlen(g.densities);
    for (int i = 0; i < g.count; ++i) {
        auto* s = new VSector;
        s->mfm = g.densities[static_cast<size_t>(i) % nd] == 'M' ? 1 : 0;
        s->idC = static_cast<uint8_t>(cyl);
        s->idH = 1;
        s->idR = static_cast<uint8_t>(i + 1);
        s->idN = g.n;
        s->gap2 = s->mfm ? 22 + (i % 3) : 11 + (i % 2);
        s->gap3 = g.gap3;
        if (g.deletedEvery && i % g.deletedEvery == 1) s->status = SECT_DELETED;
        const auto data = dectest::Pattern(128 << g.n, cyl * 100 + i);
        s->SetData(data.data(), static_cast<int>(data.size()));
        t.AddSector(s);
    }
    const int len = raw ? g.cells * 8 : g.cells;
    buf.assign(static_cast<size_t>(raw ? len : (len + 7) / 8), 0);
    EXPECT_EQ(t.Encode(raw, buf.data(), len), len);
    std::vector<Expected> out;
    for (VSector* s = t.sectors; s; s = s->next) {
        out.push_back({s->mfm, s->idC, s->idH, s->idR, s->idN, s->gap2, s->gap3, s->status,
                       std::vector<uint8_t>(s->data, s->data + s->length)});
    }
    t.Cleanup();
    return out;
}

std::string Name(const Geometry& g, int raw, int mode) {
    return std::string(g.name) + (raw ? " raw" : " cells") + (mode ? " MB8877" : " uPD765");
}

TEST(DecoderRoundTrip, EveryGeometryComesBack) {
    for (const auto& g : kGeometries) {
        for (int raw : {0, 1}) {
            for (int mode : {0, 1}) {
                SCOPED_TRACE(Name(g, raw, mode));
                std::vector<uint8_t> buf;
                const auto want = EncodeTrack(g, 5, raw, buf);
                VTrack t;
                t.Decode(raw, buf.data(), raw ? g.cells * 8 : g.cells, mode);
                ASSERT_EQ(t.SectorCount(), static_cast<int>(want.size()));

                bool anyMfm = false;
                bool anyFm = false;
                VSector* furthest = t.sectors;
                for (VSector* s = t.sectors; s; s = s->next) {
                    (s->mfm ? anyMfm : anyFm) = true;
                    if (s->endPos > furthest->endPos) furthest = s;
                }
                uint32_t flags = TRK_INDEX;
                if (anyMfm) flags |= TRK_MFM;
                if (anyFm) flags |= TRK_FM;
                EXPECT_EQ(t.flags, flags);
                EXPECT_EQ(t.encLen, g.cells);

                size_t i = 0;
                for (VSector* s = t.sectors; s; s = s->next, ++i) {
                    SCOPED_TRACE(i);
                    const Expected& e = want[i];
                    EXPECT_EQ(s->mfm, e.mfm);
                    EXPECT_EQ(s->idC, e.c);
                    EXPECT_EQ(s->idH, e.h);
                    EXPECT_EQ(s->idR, e.r);
                    EXPECT_EQ(s->idN, e.n);
                    EXPECT_EQ(s->status, e.status);
                    EXPECT_EQ(s->gap2, e.gap2);
                    ASSERT_EQ(s->length, static_cast<int>(e.data.size()));
                    EXPECT_EQ(std::memcmp(s->data, e.data.data(), e.data.size()), 0);
                    EXPECT_EQ(s->dataCells, s->length * (s->mfm ? 16 : 32));
                    // The sync allowance is 12 bytes in both densities, twice
                    // what an FM track writes.
                    const int gap3 = s == furthest ? 0 : e.mfm ? e.gap3 : std::max(e.gap3 - 6, 0);
                    EXPECT_EQ(s->gap3, gap3);
                    // Evenly spaced pulses: every data field has its nominal length.
                    EXPECT_EQ(s->timeDev, 0);
                }
                t.Cleanup();
            }
        }
    }
}

// The header and GAP4b measured on encoded tracks of each layout.
TEST(DecoderRoundTrip, TrackGapsOfBothLayouts) {
    struct Case {
        const Geometry& g;
        int iamPos, gap4a, gap1;
    } cases[] = {
        {kGeometries[6], 80 * 16 + 12 * 16, 80, 50},
        {kGeometries[10], 46 * 32, 40 - 6, 26 - 6},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.g.name);
        std::vector<uint8_t> buf;
        EncodeTrack(c.g, 0, 0, buf);
        VTrack t;
        t.Decode(0, buf.data(), c.g.cells, 0);
        EXPECT_EQ(t.iamPos, c.iamPos);
        EXPECT_EQ(t.gap4a, c.gap4a);
        EXPECT_EQ(t.gap1, c.gap1);
        const VSector* last = t.GetLasttSector();
        ASSERT_NE(last, nullptr);
        const int cpb = last->mfm ? 16 : 32;
        EXPECT_EQ(t.gap4b, (c.g.cells - last->endPos) / cpb);
        EXPECT_GT(t.gap4b, 0);
        t.Cleanup();
    }
}

// Decoding again replaces everything the track held.
TEST(DecoderRoundTrip, DecodeReplacesThePreviousTrack) {
    std::vector<uint8_t> a;
    std::vector<uint8_t> b;
    EncodeTrack(kGeometries[6], 1, 0, a);
    EncodeTrack(kGeometries[10], 2, 0, b);
    VTrack t;
    t.Decode(0, a.data(), kGeometries[6].cells, 0);
    ASSERT_EQ(t.mfmCount, 9);
    t.Decode(0, b.data(), kGeometries[10].cells, 0);
    EXPECT_EQ(t.mfmCount, 0);
    EXPECT_EQ(t.fmCount, 16);
    EXPECT_EQ(t.flags, TRK_INDEX | TRK_FM);
    EXPECT_EQ(t.GetSectorByIndex(0)->idC, 2);
    std::vector<uint8_t> zeros(1000, 0);
    t.Decode(0, zeros.data(), 8000, 0);
    EXPECT_EQ(t.SectorCount(), 0);
    EXPECT_EQ(t.flags, TRK_UNFORMATTED);
    EXPECT_EQ(t.gap1, 0);
    EXPECT_EQ(t.iamPos, 0);
    t.Cleanup();
}

}  // namespace
