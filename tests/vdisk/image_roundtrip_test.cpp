// Reading by file size, and every writer's file read back by its reader.
#include "image_builder.h"

using namespace vdt;

namespace {

// Rows of type 0 are not plain images: the 2D row's own 36,840 bytes run short,
// the 368,640 bytes it writes are not recognised, and an empty file selects a
// geometry-only row and fails on its first read.
TEST(PlainImport, RowChosenBySizeBeforeExtension) {
    struct Case {
        size_t size;
        const char* file;
        int type, cyls, sectors, n;
    };
    const Case cases[] = {
        {1261568, "pl_r0.hdm", 7, 77, 8, 3},  {1228800, "pl_r3.2hc", 7, 80, 15, 2},
        {1474560, "pl_r5.xdf", 7, 80, 18, 2}, {737280, "pl_r8.2DD", 3, 80, 9, 2},
        {1261568, "pl_sz.D88", 7, 77, 8, 3},  {1261568, "pl_case.Img", 7, 77, 8, 3},
        {36840, "pl_r9.img", 0, 0, 0, 0},     {368640, "pl_2d.img", 0, 0, 0, 0},
        {0, "pl_empty.img", 0, 0, 0, 0},
    };
    for (const Case& k : cases) {
        SCOPED_TRACE(k.file);
        VDisk want, d;
        Uniform(want, k.type, k.cyls, k.sectors, k.n);
        Bytes file(k.type ? 0 : k.size);
        for (int t = 0; t < 2 * k.cyls; t++)
            for (const VSector* s = Sectors(want, t); s; s = s->next)
                file.insert(file.end(), s->data, s->data + s->length);
        ASSERT_EQ(file.size(), k.size);
        ASSERT_EQ(d.Import(PathOf(Put(k.file, file)), 1), k.type ? 1 : 0);
        if (!k.type) continue;
        EXPECT_TRUE(d.type == k.type && d.cylinders == k.cyls && d.heads == 2 && !d.writeProtect);
        EXPECT_STREQ(d.name, k.file);
        EXPECT_EQ(Diff(want, d), "");  // IDs from the place, GAP3 of the row, data in file order
    }
}

TEST(ImageRoundTrip, EveryFormatKeepsWhatItHolds) {
    struct Case {
        const char* file;
        void (*make)(VDisk&);
        int type, cyls;
        int nameKept;  // characters of the name kept; 0: the file's name instead
        int protectKept;
    };
    const Case cases[] = {
        {"rt.2HQ", [](VDisk& d) { Uniform(d, VDISK_2HD, 80, 18, 2); }, 7, 80, 0, 0},
        {"rt.d88", [](VDisk& d) { Mixed(d, 80); }, 7, 82, 16, 1},  // a full table reads as 82
        {"rt.DIM", [](VDisk& d) { Uniform(d, VDISK_2HD, 77, 8, 3); }, 7, 84, 59, 0},
        {"rt.fdi", [](VDisk& d) { Uniform(d, VDISK_2DD, 80, 9, 2); }, 3, 80, 0, 0},
        {"rt.fdd", [](VDisk& d) { Mixed(d, 40); }, 7, 40, 59, 0},
        {"rt.Nfd", [](VDisk& d) { Mixed(d, 40); }, 7, 40, 59, 0},
    };
    for (const Case& k : cases) {
        SCOPED_TRACE(k.file);
        VDisk src, back;
        k.make(src);
        for (int i = 0; i < 59; i++) src.name[i] = static_cast<char>('A' + i % 26);
        src.writeProtect = 1;
        Written(src, k.file);
        const std::string f = Scratch(k.file);
        ASSERT_EQ(back.Import(PathOf(f), 1), 1);
        EXPECT_TRUE(back.type == k.type && back.cylinders == k.cyls && back.heads == 2);
        EXPECT_EQ(std::string(back.name), k.nameKept ? std::string(src.name, k.nameKept) : k.file);
        EXPECT_EQ(back.writeProtect, k.protectKept);
        EXPECT_EQ(Diff(src, back), "");
        chmod(f.c_str(), 0444);  // a read-only file is write protected
        ASSERT_EQ(back.Import(PathOf(f), 1), 1);
        EXPECT_EQ(back.writeProtect, 1);
        std::remove(f.c_str());
    }
}

// Table formats take the geometry from the first unused track; 2D ends by track 84.
TEST(ImageRoundTrip, GeometryFromFirstUnusedTrack) {
    struct Case {
        const char* file;
        int type, usedTracks, readType, readCyls;
    };
    const Case cases[] = {
        {"geo.fdd", 3, 84, 1, 42}, {"geo.fdd", 3, 85, 3, 43},  {"geo.fdd", 1, 160, 3, 80},
        {"geo.fdd", 7, 3, 7, 2},   {"geo.nfd", 3, 84, 1, 42},  {"geo.nfd", 1, 86, 3, 43},
        {"geo.nfd", 7, 4, 7, 2},   {"geo.nfd", 3, 163, 3, 82}, {"geo.d88", 1, 84, 1, 42},
    };
    for (const Case& k : cases) {
        SCOPED_TRACE(std::string(k.file) + " " + std::to_string(k.usedTracks));
        VDisk d, back;
        d.Init(k.type, (k.usedTracks + 1) / 2, 2);
        for (int t = 0; t < k.usedTracks; t++) d.Track(t / 2, t % 2)->AddSector(Sec(1, 0, 0, 1, 0));
        Written(d, k.file);
        ASSERT_EQ(back.Import(PathOf(Scratch(k.file)), 1), 1);
        EXPECT_EQ(back.type, k.readType);
        EXPECT_EQ(back.cylinders, k.readCyls);
        EXPECT_EQ(Diff(d, back), "");
    }
}

}  // namespace
