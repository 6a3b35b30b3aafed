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
        EXPECT_EQ(trackpool::WorkersFor(workers, count), std::max(used, 1));
        std::vector<std::atomic<int>> seen(static_cast<size_t>(count));
        trackpool::ForEach(count, workers, [&](int i) { seen[static_cast<size_t>(i)]++; });
        for (int i = 0; i < count; i++) EXPECT_EQ(seen[static_cast<size_t>(i)].load(), 1) << i;
    }
    EXPECT_GE(trackpool::WorkersFor(0, 168), 1);  // one per core
}

// A 77-cylinder 2HD disk of 8 x 1,024 (the plain, DIM and FDI layout), or a
// varied one: FM and MFM tracks, deleted and CRC-flagged sectors, a sector
// that does not fit and an empty track.
void FillDisk(VDisk& v, bool varied) {
    v.Init(VDISK_2HD, 77, 2);
    for (int c = 0; c < 77; c++) {
        for (int h = 0; h < 2; h++) {
            VTrack* t = v.Track(c, h);
            const int seed = c * 2 + h;
            int sectors = 8, n = 3, mfm = 1, gap3 = 116;
            if (varied) {
                if (seed == 5) continue;
                mfm = seed % 7 == 0 ? 0 : 1;
                n = mfm ? 1 + seed % 3 : 0;
                constexpr int kPerTrack[] = {26, 26, 15, 8};  // by N
                sectors = kPerTrack[n];
                gap3 = seed == 9 ? 200 : 51;  // too long: the last sectors are left out
            }
            for (int r = 1; r <= sectors; r++) {
                const int status =
                    varied && r == 3 ? (seed % 3 == 0 ? SECT_DELETED : SECT_DATACRC) : 0;
                VSector* s = dectest::NewSector(mfm, r, n, 128 << n, mfm ? 22 : 11, gap3, status);
                s->idC = static_cast<uint8_t>(c), s->idH = static_cast<uint8_t>(h);
                t->AddSector(s);
            }
        }
    }
}

void ExpectSameDisk(const ZEBDisk& a, const ZEBDisk& b) {
    EXPECT_EQ(Bytes(a.header, a.header + zebhdr::kSize), Bytes(b.header, b.header + zebhdr::kSize));
    for (int s = 0; s < ZEBDisk::kSlots; s++) EXPECT_EQ(a.track[s], b.track[s]) << "slot " << s;
}

struct Source {
    const char* ext;
    bool varied;
};
void PrintTo(const Source& s, std::ostream* os) {
    *os << s.ext << (s.varied ? " varied" : " uniform");
}

class PoolAgainstSerial : public testing::TestWithParam<Source> {};

// The disk imported, converted to raw and back, and written in its own format
// and both track formats: the same bytes with one worker and with several.
TEST_P(PoolAgainstSerial, SameBytes) {
    const std::string ext = GetParam().ext;
    const std::string src = "pool_src" + ext;
    {
        VDisk v;
        FillDisk(v, GetParam().varied);
        ASSERT_TRUE(v.Export(PathOf(src)));
    }
    ZEBDisk disk[2];
    disk[0].workers = 1;
    disk[1].workers = 5;
    Bytes out[2][3];
    for (int k = 0; k < 2; k++) {
        ZEBDisk& d = disk[k];
        ASSERT_TRUE(d.Import(PathOf(src), 1));
        // Parameters run in parallel processes: each writes files of its own.
        const std::string tag = "pool_out" + ext.substr(1) + std::to_string(k);
        ASSERT_TRUE(d.Export(PathOf(tag + ext), 0));
        ASSERT_TRUE(d.Export(PathOf(tag + ".hfe"), 1));
        ASSERT_TRUE(d.Save(PathOf(tag + ".zeb"), 1));
        out[k][0] = Slurp(tag + ext), out[k][1] = Slurp(tag + ".hfe"),
        out[k][2] = Slurp(tag + ".zeb");
    }
    ExpectSameDisk(disk[0], disk[1]);
    for (int f = 0; f < 3; f++) {
        EXPECT_FALSE(out[0][f].empty());
        EXPECT_EQ(out[0][f], out[1][f]) << "output " << f;
    }
    for (ZEBDisk& d : disk) ASSERT_TRUE(d.ConvertRaw());
    ExpectSameDisk(disk[0], disk[1]);
    for (ZEBDisk& d : disk) ASSERT_TRUE(d.ConvertEnc());
    ExpectSameDisk(disk[0], disk[1]);
}

// The track formats as sources, and a raw disk aligned on loading.
TEST(PoolAgainstSerialTracks, HfeZebAndAlignedRawLoad) {
    {
        VDisk v;
        FillDisk(v, true);
        ASSERT_TRUE(v.Export(PathOf("pool_tr.d88")));
        ZEBDisk d;
        ASSERT_TRUE(d.Import(PathOf("pool_tr.d88"), 1));
        ASSERT_TRUE(d.Export(PathOf("pool_tr.hfe"), 0));
        ASSERT_TRUE(d.Save(PathOf("pool_tr.zeb"), 1));
        ASSERT_TRUE(d.ConvertRaw());
        ASSERT_TRUE(d.Save(PathOf("pool_tr_raw.zeb"), 1));
    }
    for (const char* src : {"pool_tr.hfe", "pool_tr.zeb", "pool_tr_raw.zeb"}) {
        SCOPED_TRACE(src);
        ZEBDisk d[2];
        d[0].workers = 1;
        d[1].workers = 3;
        Bytes out[2];
        for (int k = 0; k < 2; k++) {
            const Filepath p = PathOf(src);
            ASSERT_TRUE(p.HasExt(".ZEB") ? d[k].Load(p, 1) : d[k].Import(p, 1));
            const std::string dst = "pool_tr_out" + std::to_string(k) + ".nfd";
            ASSERT_TRUE(d[k].Export(PathOf(dst), 1));
            out[k] = Slurp(dst);
        }
        ExpectSameDisk(d[0], d[1]);
        EXPECT_FALSE(out[0].empty());
        EXPECT_EQ(out[0], out[1]);
    }
}

INSTANTIATE_TEST_SUITE_P(Formats, PoolAgainstSerial,
                         testing::Values(Source{".hdm", false}, Source{".dim", false},
                                         Source{".fdi", false}, Source{".d88", true},
                                         Source{".fdd", true}, Source{".nfd", true}),
                         [](const testing::TestParamInfo<Source>& p) {
                             return std::string(p.param.ext + 1);
                         });

}  // namespace
