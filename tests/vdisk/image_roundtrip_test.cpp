// Every writer's file read back by its reader.
#include "image_builder.h"

using namespace vdt;

namespace {

TEST(ImageRoundTrip, EveryFormatKeepsWhatItHolds) {
    // count > 0: a uniform disk of cyls cylinders, count sectors of size code n. Else one
    // sector on each of the first cyls tracks: 16 KiB on track 0, FM on tracks 1, 5, 9 ..,
    // deleted on 2, 6, 10 ... The table formats take the geometry from the first unused
    // track (2D: by track 84); a full D88 table reads as 82.
    struct Case {
        const char* file;
        int type, cyls, count, n;
        int wantType, wantCyls, nameKept, protectKept;  // name: 0 for the file's name instead
    };
    const Case cases[] = {
        {"rt.2HQ", 7, 80, 18, 2, 7, 80, 0, 0}, {"rt.d88", 7, 160, 0, 0, 7, 82, 16, 1},
        {"rt.d77", 1, 84, 0, 0, 1, 42, 16, 1}, {"rt.DIM", 7, 77, 8, 3, 7, 84, 59, 0},
        {"rt.fdd", 7, 80, 0, 0, 7, 40, 59, 0}, {"rt.fdd", 3, 84, 0, 0, 1, 42, 59, 0},
        {"rt.fdd", 3, 85, 0, 0, 3, 43, 59, 0}, {"rt.fdd", 1, 160, 0, 0, 3, 80, 59, 0},
        {"rt.Nfd", 7, 80, 0, 0, 7, 40, 59, 0}, {"rt.nfd", 3, 84, 0, 0, 1, 42, 59, 0},
        {"rt.nfd", 1, 86, 0, 0, 3, 43, 59, 0}, {"rt.nfd", 3, 163, 0, 0, 3, 82, 59, 0},
        {"rt.nfd", 7, 4, 0, 0, 7, 2, 59, 0},   {"rt.fdi", 3, 80, 9, 2, 3, 80, 0, 0},
    };
    for (const Case& k : cases) {
        SCOPED_TRACE(std::string(k.file) + " row " + std::to_string(&k - cases));
        VDisk src, back;
        if (k.count) Uniform(src, k.type, k.cyls, k.count, k.n);
        if (!k.count) src.Init(k.type, (k.cyls + 1) / 2, 2);
        for (int t = 0; !k.count && t < k.cyls; t++)
            src.Track(t / 2, t % 2)
                ->AddSector(Sec(t % 4 != 1, 0, 0, 1, t ? 0 : 7, t % 4 == 2 ? SECT_DELETED : 0));
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
        EXPECT_EQ(back.writeProtect, 1);  // the next export removes the file first
    }
}

}  // namespace
