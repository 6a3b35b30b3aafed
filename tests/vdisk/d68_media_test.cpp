// What a D88 file holds against what its header says: a 2D media byte over
// tracks no 2D disk holds, disks of a multi-disk file, and tracks that table
// formats list beyond the geometry they give.
#include "image_builder.h"

using namespace vdt;

namespace {

// cyls cylinders of count sectors of size code n, both heads, written as D88
// with its media byte set to media.
Bytes D88Of(const std::string& name, int cyls, int count, int n, int mfm, uint8_t media) {
    VDisk d;
    d.Init(VDISK_2DD, cyls, 2);
    for (int t = 0; t < 2 * cyls; t++)
        for (int r = 1; r <= count; r++)
            d.Track(t / 2, t % 2)->AddSector(Sec(mfm, t / 2, t % 2, r, n));
    Bytes b = Written(d, name);
    b[0x1B] = media;
    return b;
}

struct MediaCase {
    const char* what;
    int cyls, count, n, mfm;
    uint8_t media;
    int type, wantCyls;
    const char* warning;  // after "<path>: ", or ""
};
// clang-format off
const MediaCase kMedia[] = {
    {"2HD disk behind a 2D byte", 77, 8, 3, 1, 0x00, VDISK_2HD, 82,
     "media byte 0x00 (2D) overridden: 70 track(s) lie beyond cylinder 41 and track 0.0 needs "
     "8688 bytes, more than the 6250 of a 2D track; read as 2HD with 82 cylinders"},
    {"2HD tracks within 42 cylinders", 40, 8, 3, 1, 0x00, VDISK_2HD, 82,
     "media byte 0x00 (2D) overridden: track 0.0 needs 8688 bytes, more than the 6250 of a 2D "
     "track; read as 2HD with 82 cylinders"},
    {"2DD cylinders behind a 2D byte", 80, 16, 1, 1, 0x00, VDISK_2DD, 82,
     "media byte 0x00 (2D) overridden: 76 track(s) lie beyond cylinder 41; read as 2DD with 82 "
     "cylinders"},
    {"16 x 256 FM fits at double density", 35, 16, 1, 0, 0x00, VDISK_2D, 42, ""},
    {"a track too long for any disk", 2, 1, 7, 1, 0x00, VDISK_2D, 42, ""},
    {"2DD byte over 2HD tracks stays", 40, 8, 3, 1, 0x10, VDISK_2DD, 82, ""},
};
// clang-format on

TEST(D68Media, A2DByteOverTracksNo2DDiskHoldsIsOverridden) {
    for (const MediaCase& k : kMedia) {
        SCOPED_TRACE(k.what);
        const std::string file =
            Put("media.d77", D88Of("media_src.d88", k.cyls, k.count, k.n, k.mfm, k.media));
        VDisk d;
        ASSERT_EQ(d.Import(PathOf(file), 1), 1) << d.report.error;
        EXPECT_EQ(std::pair(d.type, d.cylinders), std::pair(k.type, k.wantCyls));
        int sectors = 0;
        for (int t = 0; t < 2 * d.cylinders; t++) sectors += d.Track(t / 2, t % 2)->SectorCount();
        EXPECT_EQ(sectors, 2 * std::min(k.cyls, d.cylinders) * k.count);  // every one kept
        EXPECT_EQ(d.report.warnings, k.warning[0]
                                         ? std::vector<std::string>{file + ": " + k.warning}
                                         : std::vector<std::string>{});
    }
}

// Three disks in one file, the second one patched where a row says.
TEST(D68Media, OtherDisksAreCountedAndMissingOnesNamed) {
    const Bytes one = D88Of("multi_src.d88", 2, 1, 1, 1, 0x10);
    Bytes three;
    for (int i = 0; i < 3; i++) three.insert(three.end(), one.begin(), one.end());
    Bytes badSize = three;
    W(badSize).U32(one.size() + 0x1C, 100);
    // clang-format off
    const struct {
        const Bytes* file;
        int diskno;
        const char* warning;  // "" when refused or alone
        const char* reason;   // "" when read
    } cases[] = {
        {&one, 1, "", ""},
        {&three, 2, "the file holds 3 disks; disk 2 was read, the other 2 were not", ""},
        {&three, 4, "", "the file holds 3 disk(s); there is no disk 4"},
        {&three, 9, "", "the file holds 3 disk(s); there is no disk 9"},
        {&badSize, 3, "", "disk 2 at offset 1776 gives a disk size of 100 (512 to 1966080 are read)"},
    };
    // clang-format on
    for (const auto& k : cases) {
        SCOPED_TRACE(k.diskno);
        const std::string file = Put("multi.d88", *k.file);
        VDisk d;
        EXPECT_EQ(d.Import(PathOf(file), k.diskno), k.reason[0] ? 0 : 1);
        EXPECT_EQ(d.report.error, k.reason[0] ? file + ": " + k.reason : "");
        EXPECT_EQ(d.report.warnings, k.warning[0]
                                         ? std::vector<std::string>{file + ": " + k.warning}
                                         : std::vector<std::string>{});
    }
}

// Table formats end the disk at the first unused track; DIM flags one cylinder
// more than the disk holds. What lies beyond is named, not read.
TEST(TablesBeyondGeometry, TracksNotReadAreCounted) {
    VDisk src;
    Uniform(src, VDISK_2HD, 4, 2, 1);
    src.Track(1, 0)->Cleanup();  // track 2 unused: the disk ends at cylinder 1
    const std::pair<const char*, const char*> tables[] = {
        {"beyond.fdd", "5 track(s) after the unused track 1.0 were not read (first: track 1.1)"},
        {"beyond.nfd", "5 track(s) after the unused track 1.0 were not read (first: track 1.1)"},
    };
    for (const auto& [name, warning] : tables) {
        const Bytes b = Written(src, name);
        ASSERT_FALSE(b.empty());
        VDisk d;
        const std::string file = Put(name, b);
        ASSERT_EQ(d.Import(PathOf(file), 1), 1);
        EXPECT_EQ(d.cylinders, 1);
        EXPECT_EQ(d.report.warnings, std::vector<std::string>{file + ": " + warning});
    }
    // A D88 table without cylinder 0 head 0 gives 80 cylinders; 80 and 81 are not read.
    VDisk d88;
    Uniform(d88, VDISK_2HD, 82, 1, 1);
    d88.Track(0, 0)->Cleanup();
    const std::string cut = Put("beyond.d88", Written(d88, "beyond_src.d88"));
    VDisk e;
    ASSERT_EQ(e.Import(PathOf(cut), 1), 1);
    EXPECT_EQ(e.cylinders, 80);
    EXPECT_EQ(e.report.warnings,
              std::vector<std::string>{cut + ": 4 track(s) beyond cylinder 79 were not read "
                                             "(first: track 80.0)"});
    Bytes dim = DimImage(0, {0, 168, 169});
    const std::string file = Put("beyond.dim", dim);
    VDisk d;
    ASSERT_EQ(d.Import(PathOf(file), 1), 1);
    EXPECT_EQ(d.report.warnings, std::vector<std::string>{
                                     file + ": 2 track(s) of cylinder 84 flagged present were not "
                                            "read (cylinders 0-83 are)"});
}

}  // namespace
