// Random sector layouts: whatever a sector image writer accepts reads back to
// the same sectors, in the fields that format keeps.
#include <gtest/gtest.h>

#include <cstdint>
#include <cstdio>
#include <random>
#include <string>
#include <vector>

#include "vdisk/imagecommon.h"
#include "vdisk/vdisk.h"

namespace {

enum Keeps : unsigned { kData = 0, kIds = 1, kDensity = 2, kDeleted = 4 };

struct Limits {
    int minCyl, maxCyl;      // cylinders drawn
    int minCount, maxCount;  // sectors a track
    bool uniform;            // one count and size code for the whole disk
    bool mixDensity;         // FM tracks too
    int maxN;                // size codes 0..maxN, or exactly -maxN when negative
    int type;                // media, 0 for any
};

struct Format {
    const char* ext;
    unsigned keeps;
    Limits lim;
    int tries;
};

const Format kFormats[] = {
    {".D88", kIds | kDensity | kDeleted, {1, 82, 1, 26, false, true, 3, 0}, 12},
    {".FDD", kIds | kDensity | kDeleted, {1, 80, 1, 26, false, true, 3, 0}, 12},
    {".NFD", kIds | kDensity | kDeleted, {1, 81, 1, 26, false, true, 3, 0}, 12},
    {".FDI", kData, {1, 84, 1, 26, true, false, 3, 0}, 12},
    {".DIM", kData, {77, 84, 8, 8, true, false, -3, VDISK_2HD}, 3},
    {".2DD", kData, {80, 80, 9, 9, true, false, -2, VDISK_2DD}, 2},
    {".2HC", kData, {80, 80, 15, 15, true, false, -2, VDISK_2HD}, 2},
    {".2HD", kData, {77, 77, 8, 8, true, false, -3, VDISK_2HD}, 2},
};

void Build(VDisk& v, const Limits& l, std::mt19937& rng) {
    auto pick = [&](int lo, int hi) { return std::uniform_int_distribution<int>(lo, hi)(rng); };
    const int types[] = {VDISK_2D, VDISK_2DD, VDISK_2HD};
    const int cyls = pick(l.minCyl, l.maxCyl);
    v.Init(l.type ? l.type : types[pick(0, 2)], cyls, 2);
    const int diskCount = pick(l.minCount, l.maxCount);
    const int diskN = l.maxN < 0 ? -l.maxN : pick(0, l.maxN);
    for (int c = 0; c < cyls; c++)
        for (int h = 0; h < 2; h++) {
            VTrack* t = v.NewTrack(c, h);
            const int mfm = l.mixDensity ? pick(0, 3) != 0 : 1;
            const int count = l.uniform ? diskCount : pick(l.minCount, l.maxCount);
            const int n = l.uniform ? diskN : pick(0, l.maxN);
            std::vector<uint8_t> data(static_cast<size_t>(128 << n));
            for (int r = 0; r < count; r++) {
                // Some sectors of one repeated byte (stored compactly by some formats).
                const bool flat = pick(0, 4) == 0;
                const uint8_t fill = static_cast<uint8_t>(rng());
                for (auto& b : data) b = flat ? fill : static_cast<uint8_t>(rng());
                const int status = pick(0, 5) == 0 ? SECT_DELETED : 0;
                // C = 0xFF marks an unused table entry in FDD and NFD files.
                t->AddSector(MakeSector(mfm, pick(0, 254), pick(0, 255), pick(0, 255), n,
                                        data.data(), static_cast<int>(data.size()), 22, 54,
                                        status));
            }
        }
}

std::string Describe(const VSector* s) {
    if (!s) return "none";
    char buf[96];
    std::snprintf(buf, sizeof(buf), "C%u H%u R%u N%u mfm%d st%u len%d", s->idC, s->idH, s->idR,
                  s->idN, s->mfm, s->status, s->length);
    return buf;
}

// Sector lists must agree in order; only the kept fields are compared.
void ExpectKept(const VDisk& a, const VDisk& b, unsigned keeps) {
    for (int c = 0; c < VDisk::kMaxCylinders; c++)
        for (int h = 0; h < 2; h++) {
            const VTrack* ta = a.Track(c, h);
            const VTrack* tb = b.Track(c, h);
            const VSector* sa = ta ? ta->sectors : nullptr;
            const VSector* sb = tb ? tb->sectors : nullptr;
            for (int i = 0; sa || sb;
                 i++, sa = sa ? sa->next : nullptr, sb = sb ? sb->next : nullptr) {
                SCOPED_TRACE(testing::Message() << "c" << c << " h" << h << " #" << i << " wrote "
                                                << Describe(sa) << " read " << Describe(sb));
                ASSERT_TRUE(sa && sb);
                ASSERT_EQ(sa->length, sb->length);
                ASSERT_TRUE(std::equal(sa->data, sa->data + sa->length, sb->data));
                if (keeps & kIds) {
                    ASSERT_TRUE(sa->idC == sb->idC && sa->idH == sb->idH && sa->idR == sb->idR &&
                                sa->idN == sb->idN);
                }
                if (keeps & kDensity) {
                    ASSERT_EQ(sa->mfm != 0, sb->mfm != 0);
                }
                if (keeps & kDeleted) {
                    ASSERT_EQ(sa->status & SECT_DELETED, sb->status & SECT_DELETED);
                }
            }
        }
}

TEST(LayoutInvariant, EveryAcceptedLayoutReadsBackToItsSectors) {
    std::mt19937 rng(20240601);
    for (const Format& f : kFormats) {
        int accepted = 0;
        for (int i = 0; i < f.tries; i++) {
            SCOPED_TRACE(testing::Message() << f.ext << " layout " << i);
            VDisk out;
            Build(out, f.lim, rng);
            const std::string name = std::string("invariant_layout") + f.ext;
            Filepath p;
            p.SetPath(name.c_str());
            if (!out.Export(p)) continue;
            accepted++;
            VDisk in;
            ASSERT_NE(in.Import(p, 1), 0);
            ExpectKept(out, in, f.keeps);
            std::remove(name.c_str());
        }
        // The layouts are drawn inside each format's limits: most must fit.
        EXPECT_GE(accepted * 2, f.tries) << f.ext;
    }
}

}  // namespace
