// Reader rules the files do not spell out, and hostile files that every reader
// must refuse without reading past the file, the track table or its buffers.
#include "image_builder.h"

using namespace vdt;

namespace {

TEST(DimImport, SectorIdsFollowTheMediaByte) {
    struct Case {
        int media, c, h, i, r, idH, n, mfm;
    };
    const Case cases[] = {
        {1, 0, 0, 0, 1, 0, 3, 1},    {1, 0, 0, 1, 11, 0, 3, 1},   {1, 0, 1, 0, 10, 1, 3, 1},
        {1, 2, 0, 8, 18, 0, 3, 1},   {3, 0, 0, 0, 1, 0, 3, 1},    {3, 0, 0, 1, 2, 0x80, 3, 1},
        {3, 0, 1, 0, 1, 0x81, 3, 1}, {17, 0, 0, 25, 26, 0, 0, 0}, {17, 0, 1, 0, 1, 1, 1, 1},
        {2, 0, 1, 14, 15, 1, 2, 1},  {9, 2, 0, 17, 18, 0, 2, 1},  {0, 2, 0, 7, 8, 0, 3, 1},
    };
    for (const Case& k : cases) {
        SCOPED_TRACE("media " + std::to_string(k.media) + " row " + std::to_string(&k - cases));
        const Bytes file = DimImage(k.media, {0, 1, 4});
        VDisk d;
        ASSERT_EQ(d.Import(PathOf(Put("ids.dim", file)), 1), 1);
        EXPECT_STREQ(d.name, "ids.dim");  // no comment: the file's name
        const VSector* s = d.Track(k.c, k.h)->GetSectorByIndex(k.i);
        ASSERT_NE(s, nullptr);
        EXPECT_TRUE(s->idC == k.c && s->idH == k.idH && s->idR == k.r && s->idN == k.n &&
                    s->mfm == k.mfm && s->gap3 == (k.mfm ? Gap3MFM : Gap3FM)[k.n]);
        const VSector* last = d.Track(2, 0)->GetLasttSector();  // the sizes add up to the file
        EXPECT_EQ(std::memcmp(last->data, &*(file.end() - last->length), 128u << k.n), 0);
    }
}

TEST(D68Import, CylindersFromMediaByteAndFullTable) {
    struct Case {
        uint8_t media;
        uint32_t first;  // where the track data begins; 688 = a full table
        int index, type, cyls;
    };
    // A table cut short, or one without cylinder 0 head 0, reads as 80 cylinders.
    const Case cases[] = {{0x00, 688, 0, 1, 42},
                          {0x10, 688, 0, 3, 82},
                          {0x20, 688, 0, 7, 82},
                          {0x20, 720, 0, 7, 80},
                          {0x20, 688, 3, 7, 80}};
    for (const Case& k : cases) {
        Bytes b(k.first + 16 + 256, 0);
        FieldWriter w = W(b);
        w.U8(0x1B, k.media), w.U32(0x20 + 4 * static_cast<size_t>(k.index), k.first);
        w.U8(k.first + 4, 1), w.U16(k.first + 14, 256);
        VDisk d;
        ASSERT_EQ(d.Import(PathOf(Put("geo.d77", b)), 1), 1);
        EXPECT_TRUE(d.type == k.type && d.cylinders == k.cyls);
        EXPECT_EQ(d.Track(k.index / 2, k.index % 2)->SectorCount(), 1);
    }
}

TEST(D68MediaOffset, ChainOfDisksAndItsLimits) {
    VDisk a, b, d;
    Uniform(a, VDISK_2HD, 1, 1, 0);
    Uniform(b, VDISK_2DD, 2, 1, 1);
    std::strcpy(b.name, "SECOND");
    Bytes both = Written(a, "chain1.d88"), two = Written(b, "chain2.d88");
    const int n1 = static_cast<int>(both.size()), total = 0x1E0100;
    const uint32_t rest = static_cast<uint32_t>(total - n1);
    both.insert(both.end(), two.begin(), two.end());
    both.resize(total);  // room for the largest disk size
    const std::string f = Put("chain.d88", both);
    for (int no : {-3, 0, 1}) EXPECT_EQ(d.GetD68MediaOffset(PathOf(f), no), 0);
    EXPECT_EQ(d.GetD68MediaOffset(PathOf(f), 2), n1);
    ASSERT_EQ(d.Import(PathOf(f), 2), 1);
    EXPECT_STREQ(d.name, "SECOND");
    EXPECT_EQ(Diff(d, b), "");
    struct Case {
        int header;  // 0: the first disk's, 1: the second's
        uint32_t size;
        int diskno, expect;
    };
    const Case cases[] = {{0, 511, 2, -1},      {0, 512, 2, 512},   {0, 0x1E0000, 2, 0x1E0000},
                          {0, 0x1E0001, 2, -1}, {1, 100, 2, n1},    {1, 100, 3, -1},
                          {1, 0x1E0000, 3, -1}, {1, rest, 3, total}};
    for (const Case& k : cases) {
        Bytes img = both;
        W(img).U32(static_cast<size_t>(k.header * n1) + 0x1C, k.size);
        EXPECT_EQ(d.GetD68MediaOffset(PathOf(Put("chain.d88", img)), k.diskno), k.expect) << k.size;
    }
    EXPECT_EQ(d.Import(PathOf(f), 3), 0);  // disk 3 would begin at the end of the file
    for (int no : {1, 2}) EXPECT_EQ(d.GetD68MediaOffset(PathOf(Put("s.d88", Bytes(600))), no), -1);
}

// A valid image of two cylinders of two 256-byte sectors (DIM: media 0, tracks 0 and 3).
Bytes Valid(const std::string& ext) {
    if (ext == ".dim") return DimImage(0, {0, 3});
    VDisk d;
    Uniform(d, VDISK_2HD, 2, 2, 1);
    return Written(d, "valid" + ext);
}
constexpr size_t kF0 = 0xDC, kN0 = 0x120;  // first FDD and NFD table entries

struct Hostile {
    const char* ext;
    const char* what;
    void (*spoil)(Bytes&);
};
const Hostile kHostile[] = {
    {".d88", "media 0x30", [](Bytes& b) { b[0x1B] = 0x30; }},
    {".d88", "zero sector count", [](Bytes& b) { b[688 + 4] = 0; }},
    {".d88", "sector of 16,385",
     [](Bytes& b) { W(b).U16(702, 16385), b.resize(b.size() + 16385); }},
    {".d88", "track past the file", [](Bytes& b) { W(b).U32(0x24, 0x7FFFFFF0); }},
    {".d88", "data cut short", [](Bytes& b) { b.pop_back(); }},
    {".d88", "every track on the same 4 MiB",
     [](Bytes& b) {
         Bytes sec(16 + 16384, 0);
         W(sec).U8(4, 255), W(sec).U16(14, 16384);
         b.resize(688);
         for (int i = 0; i < 255; i++) b.insert(b.end(), sec.begin(), sec.end());
         for (size_t i = 0; i < 164; i++) W(b).U32(0x20 + 4 * i, 688);
     }},
    {".dim", "one trailing blank", [](Bytes& b) { b[0xB7] = 0; }},
    {".dim", "no NUL after the id", [](Bytes& b) { b[0xB8] = ' '; }},
    {".dim", "media 4", [](Bytes& b) { b[0] = 4; }},
    {".dim", "track cut short", [](Bytes& b) { b.pop_back(); }},
    {".fdi", "3 heads", [](Bytes& b) { W(b).U32(0x18, 3); }},
    {".fdi", "0 sectors", [](Bytes& b) { W(b).U32(0x14, 0), b.resize(4096); }},
    {".fdi", "85 cylinders", [](Bytes& b) { W(b).U32(0x1C, 85), b.resize(4096 + 85 * 1024); }},
    {".fdi", "256 sectors", [](Bytes& b) { W(b).U32(0x14, 256), b.resize(4096 + 1024 * 256); }},
    {".fdi", "length 1000", [](Bytes& b) { W(b).U32(0x10, 1000), b.resize(4096 + 8 * 1000); }},
    {".fdi", "length 64", [](Bytes& b) { W(b).U32(0x10, 64), b.resize(4096 + 8 * 64); }},
    {".fdi", "one byte long", [](Bytes& b) { b.push_back(0); }},
    {".fdd", "header one byte short", [](Bytes& b) { b.resize(0xC3FB); }},
    {".fdd", "VFD2.", [](Bytes& b) { b[3] = '2'; }},
    {".fdd", "data one byte past", [](Bytes& b) { W(b).U32(kF0 + 8, b.size() - 255); }},
    {".fdd", "N 7 on 256 bytes", [](Bytes& b) { b[kF0 + 3] = 7; }},
    {".nfd", "header one byte short", [](Bytes& b) { b.resize(0x10A0F); }},
    {".nfd", "revision R1", [](Bytes& b) { b[13] = '1'; }},
    {".nfd", "1 head", [](Bytes& b) { b[0x115] = 1; }},
    {".nfd", "media 0x20", [](Bytes& b) { b[kN0 + 10] = 0x20; }},
    {".nfd", "N 7 on 256 bytes", [](Bytes& b) { b[kN0 + 3] = 7; }},
};

TEST(ImageReaders, RefuseHostileFiles) {
    VDisk d;
    for (const Hostile& k : kHostile) {
        SCOPED_TRACE(std::string(k.ext) + ": " + k.what);
        Bytes b = Valid(k.ext);
        ASSERT_EQ(d.Import(PathOf(Put(std::string("ok") + k.ext, b)), 1), 1);  // one fault a row
        k.spoil(b);
        EXPECT_EQ(d.Import(PathOf(Put(std::string("bad") + k.ext, b)), 1), 0);
    }
    EXPECT_EQ(d.Import(PathOf(Scratch("missing.nfd")), 1), 0);
    EXPECT_EQ(d.Import(PathOf(Put("unknown.abc", Bytes(5000, 1))), 1), 0);
}

// Random damage to the bytes that steer each reader: the import fails, or the
// disk fits the table and stores no more bytes than the file holds.
TEST(ImageReaders, RandomDamageFailsOrStaysInsideTheFile) {
    uint32_t seed = 12345;
    auto next = [&seed] { return (seed = seed * 1103515245u + 12345u) >> 8; };
    const std::pair<std::string, size_t> spans[] = {
        {".d88", 0x30 + 16}, {".dim", 256}, {".fdi", 32}, {".fdd", kF0 + 48}, {".nfd", kN0 + 64}};
    for (const auto& [ext, span] : spans) {
        int accepted = 0;
        const Bytes base = Valid(ext);
        for (int round = 0; round < 150; round++) {
            Bytes b = base;
            for (int e = 0; e < 3; e++) {
                const size_t at = next() % span;  // D68: the disk header, then the sector header
                b[ext == ".d88" && at >= 0x30 ? at + 688 - 0x30 : at] =
                    static_cast<uint8_t>(next());
            }
            if (next() % 4 == 0) b.resize(next() % b.size());
            VDisk d;
            if (!d.Import(PathOf(Put("fuzz" + ext, b)), 1)) continue;
            accepted++;
            size_t stored = 0;
            ASSERT_LE(d.cylinders, VDisk::kMaxCylinders);
            for (int t = 0; t < 2 * VDisk::kMaxCylinders; t++)
                for (const VSector* s = Sectors(d, t); s; s = s->next) {
                    ASSERT_TRUE(s->length > 0 && s->length <= 16384 && s->data) << ext;
                    stored += static_cast<size_t>(s->length);
                }
            EXPECT_TRUE(ext == ".fdd" || stored <= b.size()) << ext;  // FDD fill bytes take no room
        }
        EXPECT_GT(accepted, 0) << ext;  // damage to ignored bytes leaves a readable image
        EXPECT_LT(accepted, 150) << ext;
    }
}

}  // namespace
