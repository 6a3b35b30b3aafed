// Random sector layouts: whatever a sector image writer accepts reads back to
// the same sectors, in the fields that format keeps.
#include <gtest/gtest.h>

#include <cstdint>
#include <random>
#include <string>
#include <vector>

#include "vdisk/imagecommon.h"
#include "vdisk/vdisk.h"

namespace {

// ids: free layouts (any count and size a track, FM too) keeping IDs, density and deleted
// marks; else one MFM count and size code for the whole disk, data alone kept. Cylinders and
// sectors a track drawn in [min, max]; size codes 0..maxN, or exactly -maxN; media 0: any.
struct Format {
    const char* ext;
    bool ids;
    int minCyl, maxCyl, minCount, maxCount, maxN, type, tries;
};
const Format kFormats[] = {{".D88", true, 1, 82, 1, 26, 3, 0, 12},
                           {".FDD", true, 1, 80, 1, 26, 3, 0, 12},
                           {".NFD", true, 1, 81, 1, 26, 3, 0, 12},
                           {".FDI", false, 1, 84, 1, 26, 3, 0, 12},
                           {".DIM", false, 77, 84, 8, 8, -3, VDISK_2HD, 3},
                           {".2DD", false, 80, 80, 9, 9, -2, VDISK_2DD, 2},
                           {".2HC", false, 80, 80, 15, 15, -2, VDISK_2HD, 2},
                           {".2HD", false, 77, 77, 8, 8, -3, VDISK_2HD, 2}};

void Build(VDisk& v, const Format& l, std::mt19937& rng) {
    auto pick = [&](int lo, int hi) { return std::uniform_int_distribution<int>(lo, hi)(rng); };
    const int types[] = {VDISK_2D, VDISK_2DD, VDISK_2HD};
    const int cyls = pick(l.minCyl, l.maxCyl);
    v.Init(l.type ? l.type : types[pick(0, 2)], cyls, 2);
    const int diskCount = pick(l.minCount, l.maxCount);
    const int diskN = l.maxN < 0 ? -l.maxN : pick(0, l.maxN);
    for (int t = 0; t < 2 * cyls; t++) {
        VTrack* trk = v.NewTrack(t / 2, t % 2);
        const int mfm = l.ids ? pick(0, 3) != 0 : 1;
        const int count = l.ids ? pick(l.minCount, l.maxCount) : diskCount;
        const int n = l.ids ? pick(0, l.maxN) : diskN;
        std::vector<uint8_t> data(static_cast<size_t>(128 << n));
        for (int r = 0; r < count; r++) {
            // Some sectors of one repeated byte (stored compactly by some formats); C = 0xFF
            // marks an unused table entry in FDD and NFD files.
            const bool flat = pick(0, 4) == 0;
            const uint8_t fill = static_cast<uint8_t>(rng());
            for (auto& b : data) b = flat ? fill : static_cast<uint8_t>(rng());
            trk->AddSector(MakeSector(mfm, pick(0, 254), pick(0, 255), pick(0, 255), n, data.data(),
                                      static_cast<int>(data.size()), 22, 54,
                                      pick(0, 5) ? 0 : SECT_DELETED));
        }
    }
}

// Sector lists must agree in order; only the kept fields are compared.
void ExpectKept(const VDisk& a, const VDisk& b, bool ids) {
    for (int t = 0; t < 2 * VDisk::kMaxCylinders; t++) {
        const VTrack *ta = a.Track(t / 2, t % 2), *tb = b.Track(t / 2, t % 2);
        const VSector *sa = ta ? ta->sectors : nullptr, *sb = tb ? tb->sectors : nullptr;
        for (int i = 0; sa || sb; i++, sa = sa->next, sb = sb->next) {
            SCOPED_TRACE(testing::Message() << "track " << t << " #" << i);
            ASSERT_TRUE(sa && sb && sa->length == sb->length);
            ASSERT_TRUE(std::equal(sa->data, sa->data + sa->length, sb->data));
            ASSERT_TRUE(!ids || (sa->idC == sb->idC && sa->idH == sb->idH && sa->idR == sb->idR &&
                                 sa->idN == sb->idN && !sa->mfm == !sb->mfm &&
                                 (sa->status & SECT_DELETED) == (sb->status & SECT_DELETED)));
        }
    }
}

TEST(LayoutInvariant, EveryAcceptedLayoutReadsBackToItsSectors) {
    std::mt19937 rng(20240601);
    for (const Format& f : kFormats) {
        int accepted = 0;
        for (int i = 0; i < f.tries; i++) {
            SCOPED_TRACE(testing::Message() << f.ext << " layout " << i);
            VDisk out, in;
            Build(out, f, rng);
            Filepath p;
            p.SetPath((std::string("invariant_layout") + f.ext).c_str());
            if (!out.Export(p)) continue;
            accepted++;
            ASSERT_NE(in.Import(p, 1), 0);
            ExpectKept(out, in, f.ids);
        }
        // The layouts are drawn inside each format's limits: most must fit.
        EXPECT_GE(accepted * 2, f.tries) << f.ext;
    }
}

}  // namespace
