// Reading by file size, and every writer's file read back by its reader.
#include "image_builder.h"

using namespace vdt;

namespace {

// A plain image is known by its size alone, whatever its extension. The 2D row's
// own 36,840 bytes run short, the 368,640 bytes it writes are not recognised, and
// an empty file selects a geometry-only row and fails on its first read.
TEST(PlainImport, SizeAloneDecides) {
    for (const auto& [file, size] : {std::pair{"ps.D88", 1261568},
                                     {"ps.Img", 1261568},
                                     {"ps.img", 36840},
                                     {"ps.IMG", 368640},
                                     {"ps.xdf", 0}}) {
        SCOPED_TRACE(file);
        Bytes b(static_cast<size_t>(size));
        for (size_t i = 0; i < b.size(); i++) b[i] = static_cast<uint8_t>((i * 7) ^ (i >> 9));
        VDisk d;
        ASSERT_EQ(d.Import(PathOf(Put(file, b)), 1), size == 1261568);
        if (size != 1261568) continue;
        const VSector* last = d.Track(76, 1)->GetLasttSector();  // C, H, R by place; file order
        EXPECT_TRUE(d.type == 7 && d.cylinders == 77 && last->idC == 76 && last->idH == 1 &&
                    last->idR == 8 && last->idN == 3 && d.Track(76, 1)->SectorCount() == 8);
        EXPECT_EQ(Bytes(last->data, last->data + 1024), Bytes(b.end() - 1024, b.end()));
    }
}

TEST(ImageRoundTrip, EveryFormatKeepsWhatItHolds) {
    // A disk of cyls cylinders: uniform with count sectors of size code n; type 0: Mixed;
    // count 0: one sector on each of the first cyls tracks. The table formats take the
    // geometry from the first unused track (2D: by track 84); a full D88 table reads as 82.
    struct Case {
        const char* file;
        int type, cyls, count, n;
        int wantType, wantCyls, nameKept, protectKept;  // name: 0 for the file's name instead
    };
    const Case cases[] = {
        {"rt.2HQ", 7, 80, 18, 2, 7, 80, 0, 0}, {"rt.d88", 0, 80, 0, 0, 7, 82, 16, 1},
        {"rt.d77", 1, 84, 0, 0, 1, 42, 16, 1}, {"rt.DIM", 7, 77, 8, 3, 7, 84, 59, 0},
        {"rt.fdd", 0, 40, 0, 0, 7, 40, 59, 0}, {"rt.fdd", 3, 84, 0, 0, 1, 42, 59, 0},
        {"rt.fdd", 3, 85, 0, 0, 3, 43, 59, 0}, {"rt.fdd", 1, 160, 0, 0, 3, 80, 59, 0},
        {"rt.Nfd", 0, 40, 0, 0, 7, 40, 59, 0}, {"rt.nfd", 3, 84, 0, 0, 1, 42, 59, 0},
        {"rt.nfd", 1, 86, 0, 0, 3, 43, 59, 0}, {"rt.nfd", 3, 163, 0, 0, 3, 82, 59, 0},
        {"rt.nfd", 7, 4, 0, 0, 7, 2, 59, 0},
    };
    for (const Case& k : cases) {
        SCOPED_TRACE(std::string(k.file) + " row " + std::to_string(&k - cases));
        VDisk src, back;
        if (!k.type) Mixed(src, k.cyls);
        if (k.type && k.count) Uniform(src, k.type, k.cyls, k.count, k.n);
        if (k.type && !k.count) src.Init(k.type, (k.cyls + 1) / 2, 2);
        for (int t = 0; k.type && !k.count && t < k.cyls; t++)
            src.Track(t / 2, t % 2)->AddSector(Sec(1, 0, 0, 1, 0));
        for (int i = 0; i < 59; i++) src.name[i] = static_cast<char>('A' + i % 26);
        src.writeProtect = 1;
        Written(src, k.file);
        const std::string f = Scratch(k.file);
        ASSERT_EQ(back.Import(PathOf(f), 1), 1);
        EXPECT_TRUE(back.type == k.wantType && back.cylinders == k.wantCyls && back.heads == 2);
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
