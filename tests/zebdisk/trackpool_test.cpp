// The pool of track workers: every track is handled once, and every format
// comes out of the pool byte for byte as it comes out of the single-threaded
// path.
#include <gtest/gtest.h>

#include <atomic>
#include <ostream>
#include <string>
#include <tuple>
#include <vector>

#include "track/decoder_stream.h"
#include "vdisk/vdisk.h"
#include "zebdisk/trackpool.h"
#include "zebdisk/zebdisk.h"
#include "zebdisk/zebdisk_file_builder.h"

using namespace zebtest;

namespace {

TEST(TrackPool, EveryTrackOnceForAnyWorkerCount) {
    for (const auto& [count, workers, used] :
         {std::tuple{0, 4, 1}, {1, 4, 1}, {3, 8, 3}, {168, 1, 1}, {168, 3, 3}, {168, 16, 16}}) {
        SCOPED_TRACE(testing::Message() << count << " tracks, " << workers << " workers");
        EXPECT_EQ(trackpool::WorkersFor(workers, count), used);
        std::vector<std::atomic<int>> seen(static_cast<size_t>(count));
        trackpool::ForEach(count, workers, [&](int i) { seen[static_cast<size_t>(i)]++; });
        for (int i = 0; i < count; i++) EXPECT_EQ(seen[static_cast<size_t>(i)].load(), 1) << i;
    }
    EXPECT_GE(trackpool::WorkersFor(0, 168), 1);  // one per core
}

// A 77-cylinder 2HD disk of 8 x 1,024 (the plain, DIM and FDI layout), or a varied one:
// FM and MFM tracks, deleted and CRC-flagged sectors, a sector that does not fit
// (GAP3 200 on track 9) and an empty track (5).
void FillDisk(VDisk& v, bool varied) {
    v.Init(VDISK_2HD, 77, 2);
    for (int t = 0; t < 154; t++) {
        const int mfm = !varied || t % 7, n = !varied ? 3 : mfm ? 1 + t % 3 : 0;
        for (int r = 1; r <= (!varied ? 8 : t == 5 ? 0 : n == 3 ? 8 : n == 2 ? 15 : 26); r++) {
            const int status = varied && r == 3 ? (t % 3 ? SECT_DATACRC : SECT_DELETED) : 0;
            const int gap3 = !varied ? 116 : t == 9 ? 200 : 51;
            VSector* s = dectest::NewSector(mfm, r, n, 128 << n, mfm ? 22 : 11, gap3, status);
            s->idC = static_cast<uint8_t>(t / 2), s->idH = static_cast<uint8_t>(t % 2);
            v.Track(t / 2, t % 2)->AddSector(s);
        }
    }
}

void ExpectSameDisk(const ZEBDisk& a, const ZEBDisk& b) {
    EXPECT_EQ(Bytes(a.header, a.header + zebhdr::kSize), Bytes(b.header, b.header + zebhdr::kSize));
    for (int s = 0; s < ZEBDisk::kSlots; s++) EXPECT_EQ(a.track[s], b.track[s]) << "slot " << s;
}

// A sector image written from FillDisk, or a track file (raw when raw) made from the varied D88.
struct Source {
    const char* name;
    const char* ext;
    bool varied, raw;
};
void PrintTo(const Source& s, std::ostream* os) {
    *os << s.name;
}

class PoolAgainstSerial : public testing::TestWithParam<Source> {};

// Loaded, written as a sector image, HFE and ZEB, converted between cells and raw
// both ways: the same bytes with one worker and with several.
TEST_P(PoolAgainstSerial, SameBytes) {
    const Source& p = GetParam();
    const std::string base = std::string("pool_") + p.name, src = base + p.ext;
    const bool track = p.ext[1] == 'h' || p.ext[1] == 'z';
    VDisk v;
    FillDisk(v, p.varied);
    if (track) {
        ZEBDisk d;
        ASSERT_TRUE(v.Export(PathOf(base + ".d88")) && d.Import(PathOf(base + ".d88"), 1));
        ASSERT_TRUE(!p.raw || d.ConvertRaw());
        ASSERT_TRUE(p.ext[1] == 'h' ? d.Export(PathOf(src), 0) : d.Save(PathOf(src), 1));
    } else {
        ASSERT_TRUE(v.Export(PathOf(src)));
    }
    ZEBDisk disk[2];
    Bytes out[2][3];
    for (int k = 0; k < 2; k++) {
        ZEBDisk& d = disk[k];
        d.workers = k ? 5 : 1;
        ASSERT_TRUE(p.ext[1] == 'z' ? d.Load(PathOf(src), 1) : d.Import(PathOf(src), 1));
        const std::string tag = base + "_out" + std::to_string(k);
        const std::string image = tag + (track ? ".nfd" : p.ext);
        ASSERT_TRUE(d.Export(PathOf(image), track) && d.Export(PathOf(tag + ".hfe"), 1) &&
                    d.Save(PathOf(tag + ".zeb"), 1));
        out[k][0] = Slurp(image), out[k][1] = Slurp(tag + ".hfe"), out[k][2] = Slurp(tag + ".zeb");
    }
    ExpectSameDisk(disk[0], disk[1]);
    for (int f = 0; f < 3; f++) {
        EXPECT_FALSE(out[0][f].empty());
        EXPECT_EQ(out[0][f], out[1][f]) << "output " << f;
    }
    for (bool toRaw : {true, false}) {  // an export leaves a raw disk encoded
        for (ZEBDisk& d : disk) ASSERT_TRUE(toRaw ? d.ConvertRaw() : d.ConvertEnc());
        ExpectSameDisk(disk[0], disk[1]);
    }
}

INSTANTIATE_TEST_SUITE_P(
    Formats, PoolAgainstSerial,
    testing::Values(Source{"hdm", ".hdm", false, false}, Source{"dim", ".dim", false, false},
                    Source{"fdi", ".fdi", false, false}, Source{"d88", ".d88", true, false},
                    Source{"fdd", ".fdd", true, false}, Source{"nfd", ".nfd", true, false},
                    Source{"hfe", ".hfe", true, false}, Source{"zeb", ".zeb", true, false},
                    Source{"raw_zeb", ".zeb", true, true}),
    [](const testing::TestParamInfo<Source>& p) { return std::string(p.param.name); });

}  // namespace
