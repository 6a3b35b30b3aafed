// What a D88 file holds against what its header says: a 2D media byte over
// tracks no 2D disk holds, disks of a multi-disk file, and tracks that table
// formats list beyond the geometry they give.
#include "image_builder.h"

using namespace vdt;

namespace {

// cyls cylinders of count sectors of size code n, both heads, as D88 with the given media byte.
Bytes D88Of(const char* name, int cyls, int count, int n, int mfm, uint8_t media) {
    VDisk d;
    d.Init(VDISK_2DD, cyls, 2);
    for (int t = 0; t < 2 * cyls; t++)
        for (int r = 1; r <= count; r++)
            d.Track(t / 2, t % 2)->AddSector(Sec(mfm, t / 2, t % 2, r, n));
    Bytes b = Written(d, name);
    b[0x1B] = media;
    return b;
}

TEST(D68Media, A2DByteOverTracksNo2DDiskHoldsIsOverridden) {
    const struct {
        int cyls, count, n, mfm;
        uint8_t media;
        int type, wantCyls;
        const char* warning;
    } cases[] = {
        {77, 8, 3, 1, 0x00, VDISK_2HD, 82,
         "media byte 0x00 (2D) overridden: 70 tracks lie beyond cylinder 41 and track 0.0 needs "
         "8688 bytes, more than the 6250 of a 2D track; read as 2HD with 82 cylinders"},
        {80, 16, 1, 1, 0x00, VDISK_2DD, 82,
         "media byte 0x00 (2D) overridden: 76 tracks lie beyond cylinder 41; read as 2DD with 82 "
         "cylinders"},
        {35, 16, 1, 0, 0x00, VDISK_2D, 42, ""},  // 16 x 256 FM fits at double density
        {2, 1, 7, 1, 0x00, VDISK_2D, 42, ""},    // a track too long for any disk
        {40, 8, 3, 1, 0x10, VDISK_2DD, 82, ""},  // a 2DD byte over 2HD tracks stays
    };
    for (const auto& k : cases) {
        SCOPED_TRACE(&k - cases);
        VDisk d;
        ASSERT_EQ(d.Import(PathOf(Put("media.d77", D88Of("media_src.d88", k.cyls, k.count, k.n,
                                                         k.mfm, k.media))),
                           1),
                  1);
        EXPECT_EQ(std::pair(d.type, d.cylinders), std::pair(k.type, k.wantCyls));
        int sectors = 0;
        for (int t = 0; t < 2 * d.cylinders; t++) sectors += d.Track(t / 2, t % 2)->SectorCount();
        EXPECT_EQ(sectors, 2 * std::min(k.cyls, d.cylinders) * k.count);  // every one kept
        EXPECT_EQ(d.report.warnings, Lines(k.warning));
    }
}

// Three disks in one file, the second one's size patched where a row says.
TEST(D68Media, OtherDisksAreCountedAndMissingOnesNamed) {
    const Bytes one = D88Of("multi_src.d88", 2, 1, 1, 1, 0x10);
    Bytes three;
    for (int i = 0; i < 3; i++) three.insert(three.end(), one.begin(), one.end());
    Bytes badSize = three;
    W(badSize).U32(one.size() + 0x1C, 100);
    const struct {
        const Bytes* file;
        int diskno;
        const char *warning, *reason;
    } cases[] = {
        {&one, 1, "", ""},
        {&three, 2, "the file holds 3 disks; disk 2 was read, the other 2 were not", ""},
        {&three, 4, "", "the file holds 3 disks; there is no disk 4"},
        {&badSize, 3, "",
         "disk 2 at offset 1776 gives a disk size of 100 (512 to 1966080 are read)"},
    };
    for (const auto& k : cases) {
        SCOPED_TRACE(k.diskno);
        VDisk d;
        ExpectImport(d, Put("multi.d88", *k.file), k.reason, k.diskno);
        EXPECT_EQ(d.report.warnings, Lines(k.warning));
    }
}

// Table formats end the disk at the first unused track, D88 without cylinder 0 head 0 at 80
// cylinders; DIM flags one cylinder more than the disk holds. What lies beyond is named.
TEST(TablesBeyondGeometry, TracksNotReadAreCounted) {
    VDisk src, d88;
    Uniform(src, VDISK_2HD, 4, 2, 1);
    src.Track(1, 0)->Cleanup();
    Uniform(d88, VDISK_2HD, 82, 1, 1);
    d88.Track(0, 0)->Cleanup();
    const char* afterUnused =
        "5 tracks after the unused track 1.0 were not read (first: track 1.1)";
    const std::tuple<const char*, Bytes, int, const char*> cases[] = {
        {"beyond.fdd", Written(src, "src.fdd"), 1, afterUnused},
        {"beyond.nfd", Written(src, "src.nfd"), 1, afterUnused},
        {"beyond.d88", Written(d88, "src.d88"), 80,
         "4 tracks beyond cylinder 79 were not read (first: track 80.0)"},
        {"beyond.dim", DimImage(0, {0, 168, 169}), 84,
         "2 tracks of cylinder 84 flagged present were not read (cylinders 0-83 are)"},
    };
    for (const auto& [name, file, cyls, warning] : cases) {
        VDisk d;
        ExpectImport(d, Put(name, file), "");
        EXPECT_EQ(d.cylinders, cyls) << name;
        EXPECT_EQ(d.report.warnings, Lines(warning)) << name;
    }
}

}  // namespace
