// Reading by file size, and every writer's file read back by its reader.
#include "image_builder.h"

using namespace vdt;

namespace {

// A plain image is known by its size alone, whatever its extension. The 2D row's
// own 36,840 bytes run short, the 368,640 bytes it writes are not recognised, and
// an empty file selects a geometry-only row and fails on its first read.
TEST(PlainImport, SizeAloneDecides) {
    const std::pair<const char*, size_t> cases[] = {{"ps.D88", 1261568},
                                                    {"ps.Img", 1261568},
                                                    {"ps.img", 36840},
                                                    {"ps.IMG", 368640},
                                                    {"ps.xdf", 0}};
    for (const auto& [file, size] : cases) {
        SCOPED_TRACE(file);
        Bytes b(size);
        for (size_t i = 0; i < size; i++) b[i] = static_cast<uint8_t>((i * 7) ^ (i >> 9));
        VDisk d;
        ASSERT_EQ(d.Import(PathOf(Put(file, b)), 1), size == 1261568);
        if (size != 1261568) continue;
        EXPECT_TRUE(d.type == 7 && d.cylinders == 77 && d.Track(76, 1)->SectorCount() == 8);
        const VSector* last = d.Track(76, 1)->GetLasttSector();  // C, H, R by place; file order
        EXPECT_TRUE(last->idC == 76 && last->idH == 1 && last->idR == 8 && last->idN == 3);
        EXPECT_EQ(std::memcmp(last->data, &b[size - 1024], 1024), 0);
    }
}

// One sector on each of the first `used` tracks.
void Tracks(VDisk& d, int type, int used) {
    d.Init(type, (used + 1) / 2, 2);
    for (int t = 0; t < used; t++) d.Track(t / 2, t % 2)->AddSector(Sec(1, 0, 0, 1, 0));
}

TEST(ImageRoundTrip, EveryFormatKeepsWhatItHolds) {
    struct Case {
        const char* file;
        void (*make)(VDisk&);
        int type, cyls;
        int nameKept;  // characters of the name kept; 0: the file's name instead
        int protectKept;
    };
    // The table formats take the geometry from the first unused track (2D: by track 84).
    const Case cases[] = {
        {"rt.HDM", [](VDisk& d) { Uniform(d, VDISK_2HD, 77, 8, 3); }, 7, 77, 0, 0},
        {"rt.2hc", [](VDisk& d) { Uniform(d, VDISK_2HD, 80, 15, 2); }, 7, 80, 0, 0},
        {"rt.2HQ", [](VDisk& d) { Uniform(d, VDISK_2HD, 80, 18, 2); }, 7, 80, 0, 0},
        {"rt.2DD", [](VDisk& d) { Uniform(d, VDISK_2DD, 80, 9, 2); }, 3, 80, 0, 0},
        {"rt.d88", [](VDisk& d) { Mixed(d, 80); }, 7, 82, 16, 1},  // a full table reads as 82
        {"rt.d77", [](VDisk& d) { Tracks(d, 1, 84); }, 1, 42, 16, 1},
        {"rt.DIM", [](VDisk& d) { Uniform(d, VDISK_2HD, 77, 8, 3); }, 7, 84, 59, 0},
        {"rt.fdi", [](VDisk& d) { Uniform(d, VDISK_2DD, 80, 9, 2); }, 3, 80, 0, 0},
        {"rt.fdd", [](VDisk& d) { Mixed(d, 40); }, 7, 40, 59, 0},
        {"rt.fdd", [](VDisk& d) { Tracks(d, 3, 84); }, 1, 42, 59, 0},
        {"rt.fdd", [](VDisk& d) { Tracks(d, 3, 85); }, 3, 43, 59, 0},
        {"rt.fdd", [](VDisk& d) { Tracks(d, 1, 160); }, 3, 80, 59, 0},
        {"rt.Nfd", [](VDisk& d) { Mixed(d, 40); }, 7, 40, 59, 0},
        {"rt.nfd", [](VDisk& d) { Tracks(d, 3, 84); }, 1, 42, 59, 0},
        {"rt.nfd", [](VDisk& d) { Tracks(d, 1, 86); }, 3, 43, 59, 0},
        {"rt.nfd", [](VDisk& d) { Tracks(d, 3, 163); }, 3, 82, 59, 0},
        {"rt.nfd", [](VDisk& d) { Tracks(d, 7, 4); }, 7, 2, 59, 0},
    };
    for (const Case& k : cases) {
        SCOPED_TRACE(std::string(k.file) + " row " + std::to_string(&k - cases));
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

}  // namespace
