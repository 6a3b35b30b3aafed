// A track of no bits: the decoder finds no sectors and calls it unformatted,
// from cells and from raw samples, in both controller modes; the encoder
// writes nothing into a buffer of no cells, whatever sectors the track holds.
#include <gtest/gtest.h>

#include <vector>

#include "track/vsector.h"
#include "track/vtrack.h"

namespace {

TEST(EmptyTrack, DecodesToNoSectorsInEveryMode) {
    std::vector<unsigned char> buf(16, 0x4E);
    for (int raw : {0, 1}) {
        for (int mode : {0, 1}) {
            VTrack t;
            t.Decode(raw, buf.data(), 0, mode);
            EXPECT_EQ(t.SectorCount(), 0);
            EXPECT_EQ(t.sectors, nullptr);
            EXPECT_EQ(t.encLen, 0);
            EXPECT_EQ(t.flags, TRK_UNFORMATTED) << raw << mode;
        }
    }
}

TEST(EmptyTrack, EncodesNothingIntoNoCells) {
    for (int raw : {0, 1}) {
        VTrack t;
        auto* s = new VSector();
        s->mfm = 1, s->idR = 1, s->gap2 = 22, s->gap3 = 54;
        s->SetData(nullptr, 256);
        t.AddSector(s);
        std::vector<unsigned char> buf(16, 0xA5);
        EXPECT_EQ(t.Encode(raw, buf.data(), 0), 0);
        EXPECT_EQ(buf, std::vector<unsigned char>(16, 0xA5)) << raw;
    }
}

}  // namespace
