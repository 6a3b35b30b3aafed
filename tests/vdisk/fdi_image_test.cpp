#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "formats_testutil.h"
#include "vdisk/vdisk.h"
#include "vdisk_testutil.h"

using namespace fmtest;

namespace {

struct FdiHeader {
    uint32_t media = 0x90;
    uint32_t headerSize = 4096;
    uint32_t length = 512;
    uint32_t sectors = 9;
    uint32_t heads = 2;
    uint32_t cylinders = 3;
};

// A header followed by (cylinders x 2 x sectors) sectors whose bytes encode
// their position; extra is added to (or taken from) the file's length.
std::vector<uint8_t> MakeFdi(const FdiHeader& h, long extra = 0) {
    const size_t hdrLen = h.headerSize < 32 ? 32 : h.headerSize;
    std::vector<uint8_t> b(hdrLen, 0);
    Put32(b, 0x04, h.media);
    Put32(b, 0x08, h.headerSize);
    Put32(b, 0x0C, 0x12345678);  // ignored on reading
    Put32(b, 0x10, h.length);
    Put32(b, 0x14, h.sectors);
    Put32(b, 0x18, h.heads);
    Put32(b, 0x1C, h.cylinders);
    // Data to match the header, so that each case breaks one rule only.
    if (static_cast<uint64_t>(h.length) * h.sectors * h.cylinders <= (4u << 20)) {
        for (uint32_t t = 0; t < h.cylinders * 2; t++)
            for (uint32_t r = 1; r <= h.sectors; r++) {
                auto d = Pattern(static_cast<int>(h.length), t * 256 + r);
                b.insert(b.end(), d.begin(), d.end());
            }
    }
    if (extra > 0) b.insert(b.end(), static_cast<size_t>(extra), 0);
    if (extra < 0) b.resize(b.size() - static_cast<size_t>(-extra));
    return b;
}

}  // namespace

TEST(FdiImport, ReadsGeometryIdsDataAndName) {
    FdiHeader h;
    const std::string file = WriteFile("fdi_read_crafted.fdi", MakeFdi(h));
    VDisk d;
    ASSERT_EQ(d.ImportFDI(PathOf(file)), 1);
    EXPECT_EQ(d.type, VDISK_2HD);
    EXPECT_EQ(d.cylinders, 3);
    EXPECT_EQ(d.heads, 2);
    EXPECT_STREQ(d.name, "fdi_read_crafted.fdi");
    EXPECT_EQ(d.writeProtect, 0);
    for (int c = 0; c < 3; c++)
        for (int hd = 0; hd < 2; hd++) {
            const VTrack* t = d.Track(c, hd);
            ASSERT_NE(t, nullptr);
            ASSERT_EQ(t->mfmCount, 9);
            EXPECT_EQ(t->fmCount, 0);
            int r = 1;
            for (const VSector* s = t->sectors; s; s = s->next, r++) {
                EXPECT_EQ(s->mfm, 1);
                EXPECT_EQ(s->idC, c);
                EXPECT_EQ(s->idH, hd);
                EXPECT_EQ(s->idR, r);
                EXPECT_EQ(s->idN, 2);
                EXPECT_EQ(s->gap2, 22);
                EXPECT_EQ(s->gap3, 84);
                EXPECT_EQ(s->status, 0);
                ASSERT_EQ(s->length, 512);
                const auto want = Pattern(512, static_cast<unsigned>((c * 2 + hd) * 256 + r));
                EXPECT_EQ(std::memcmp(s->data, want.data(), 512), 0);
            }
        }
    EXPECT_EQ(d.Track(3, 0), nullptr);

    chmod(file.c_str(), 0444);
    ASSERT_EQ(d.ImportFDI(PathOf(file)), 1);
    EXPECT_EQ(d.writeProtect, 1);
    Remove(file);
}

TEST(FdiImport, MediaNibbleAndSizeCode) {
    struct Case {
        uint32_t media;
        uint32_t length;
        int type;  // 0: rejected
        int n;
        int gap3;
    };
    const Case cases[] = {
        {0x91, 1024, 7, 3, 116}, {0x30, 128, 7, 0, 24},   {0xB0, 256, 7, 1, 54},
        {0x10, 512, 3, 2, 84},   {0x7F, 2048, 3, 4, 116}, {0xF0, 16384, 3, 7, 116},
        {0x50, 256, 1, 1, 54},   {0xD0, 256, 1, 1, 54},   {0x20, 512, 0, 0, 0},
        {0x00, 512, 0, 0, 0},    {0x80, 512, 0, 0, 0},
    };
    for (const Case& k : cases) {
        FdiHeader h;
        h.media = k.media;
        h.length = k.length;
        h.sectors = 2;
        h.cylinders = 1;
        const std::string file = WriteFile("fdi_media.fdi", MakeFdi(h));
        VDisk d;
        SCOPED_TRACE(k.media);
        ASSERT_EQ(d.ImportFDI(PathOf(file)), k.type ? 1 : 0);
        if (!k.type) continue;
        EXPECT_EQ(d.type, k.type);
        const VSector* s = d.Track(0, 1)->GetLasttSector();
        EXPECT_EQ(s->idN, k.n);
        EXPECT_EQ(s->idR, 2);
        EXPECT_EQ(s->gap3, k.gap3);
        EXPECT_EQ(s->length, static_cast<int>(k.length));
    }
}

TEST(FdiImport, RejectsBadHeadersAndSizes) {
    struct Case {
        const char* what;
        FdiHeader h;
        long extra;
    };
    auto with = [](auto f) {
        FdiHeader h;
        f(h);
        return h;
    };
    const Case cases[] = {
        {"3 heads", with([](FdiHeader& h) { h.heads = 3; }), 0},
        {"0 cylinders", with([](FdiHeader& h) { h.cylinders = 0; }), 0},
        {"85 cylinders",
         with([](FdiHeader& h) { h.cylinders = 85, h.sectors = 1, h.length = 128; }), 0},
        {"127 cylinders",
         with([](FdiHeader& h) { h.cylinders = 127, h.sectors = 1, h.length = 128; }), 0},
        {"0 sectors", with([](FdiHeader& h) { h.sectors = 0; }), 0},
        {"256 sectors",
         with([](FdiHeader& h) { h.sectors = 256, h.length = 128, h.cylinders = 1; }), 0},
        {"length 1000", with([](FdiHeader& h) { h.length = 1000; }), 0},
        {"length 64", with([](FdiHeader& h) { h.length = 64; }), 0},
        {"length 32768",
         with([](FdiHeader& h) { h.length = 32768, h.cylinders = 1, h.sectors = 1; }), 0},
        {"one byte long", FdiHeader{}, 1},
        {"one byte short", FdiHeader{}, -1},
        {"header 32, one byte short", with([](FdiHeader& h) { h.headerSize = 32; }), -1},
    };
    for (const Case& k : cases) {
        SCOPED_TRACE(k.what);
        const std::string file = WriteFile("fdi_reject.fdi", MakeFdi(k.h, k.extra));
        VDisk d;
        EXPECT_EQ(d.ImportFDI(PathOf(file)), 0);
    }

    // A header size that makes the 32-bit sum wrap to the real file size.
    std::vector<uint8_t> b(64, 0);
    const uint64_t data = 16384ull * 255 * 84 * 2;
    Put32(b, 0x04, 0x90);
    Put32(b, 0x08, static_cast<uint32_t>((1ull << 32) - data + b.size()));
    Put32(b, 0x10, 16384);
    Put32(b, 0x14, 255);
    Put32(b, 0x18, 2);
    Put32(b, 0x1C, 84);
    VDisk d;
    EXPECT_EQ(d.ImportFDI(PathOf(WriteFile("fdi_wrap.fdi", b))), 0);
    EXPECT_EQ(d.ImportFDI(PathOf(WriteFile("fdi_tiny.fdi", std::vector<uint8_t>(31, 0)))), 0);
    EXPECT_EQ(d.ImportFDI(PathOf(ScratchFile("fdi_missing.fdi"))), 0);

    // A header size below 32 is only a seek target: the data starts there.
    FdiHeader small;
    small.headerSize = 32;
    EXPECT_EQ(d.ImportFDI(PathOf(WriteFile("fdi_hdr32.fdi", MakeFdi(small)))), 1);
}

TEST(FdiExport, HeaderMediaByEstimateAndConformingCylinders) {
    struct Case {
        int type;
        int count;
        int n;
        int gap3;
        uint32_t media;
    };
    const Case cases[] = {
        {7, 8, 3, 116, 0x90},  // 8 x (60 + 1024 + 2 + 116) + 212 = 9,828
        {7, 18, 2, 84, 0x30},  // 18 x 658 + 212 = 12,056
        {3, 9, 2, 84, 0x10},  {1, 16, 1, 54, 0x50}, {0, 16, 1, 54, 0x00},
    };
    for (const Case& k : cases) {
        SCOPED_TRACE(k.media);
        VDisk d;
        FillUniformDisk(d, k.type, 80, k.count, k.n, k.gap3);
        // Cylinder 77 gets one sector more: the image ends before it.
        d.Track(77, 1)->AddSector(NewSector(1, 77, 1, 99, k.n, Pattern(128 << k.n, 1), k.gap3));
        const std::string file = ScratchFile("fdi_write.fdi");
        ASSERT_EQ(d.ExportFDI(PathOf(file)), 1);
        const auto b = ReadFile(file);
        const uint32_t len = 128u << k.n;
        const uint32_t dataSize = 77u * k.count * len * 2;
        ASSERT_EQ(b.size(), 4096u + dataSize);
        EXPECT_EQ(Get32(b, 0x00), 0u);
        EXPECT_EQ(Get32(b, 0x04), k.media);
        EXPECT_EQ(Get32(b, 0x08), 4096u);
        EXPECT_EQ(Get32(b, 0x0C), dataSize);
        EXPECT_EQ(Get32(b, 0x10), len);
        EXPECT_EQ(Get32(b, 0x14), static_cast<uint32_t>(k.count));
        EXPECT_EQ(Get32(b, 0x18), 2u);
        EXPECT_EQ(Get32(b, 0x1C), 77u);
        for (size_t i = 0x20; i < 4096; i++) ASSERT_EQ(b[i], 0) << i;
        // The last sector of cylinder 76 head 1 ends the file.
        const auto last =
            Pattern(static_cast<int>(len), 76u * 64 + 32 + static_cast<unsigned>(k.count));
        EXPECT_TRUE(std::equal(last.begin(), last.end(), b.end() - len));
        // Cylinder 1 head 0 sector 1 follows cylinder 0.
        const auto c1 = Pattern(static_cast<int>(len), 64 + 1);
        EXPECT_TRUE(std::equal(c1.begin(), c1.end(), b.begin() + 4096 + 2 * k.count * len));
    }
}

TEST(FdiExport, RefusesDisksWithoutAConformingCylinder) {
    struct Case {
        const char* what;
        void (*shape)(VDisk&);
    };
    const Case cases[] = {
        {"no track 0", [](VDisk& d) { d.Init(7, 2, 2), d.tracks[0][0].reset(); }},
        {"empty track 0", [](VDisk& d) { d.Init(7, 2, 2); }},
        {"no cylinders", [](VDisk& d) { FillUniformDisk(d, 7, 2, 8, 3, 116), d.cylinders = 0; }},
        {"single-sided",
         [](VDisk& d) { FillUniformDisk(d, 7, 2, 8, 3, 116), d.tracks[0][1].reset(); }},
        {"FM sector",
         [](VDisk& d) {
             FillUniformDisk(d, 7, 2, 8, 3, 116);
             d.Track(0, 1)->GetLasttSector()->mfm = 0;
         }},
        {"other N on head 1",
         [](VDisk& d) {
             FillUniformDisk(d, 7, 2, 8, 3, 116);
             d.Track(0, 1)->sectors->idN = 2;
         }},
    };
    for (const Case& k : cases) {
        SCOPED_TRACE(k.what);
        VDisk d;
        k.shape(d);
        const std::string file = ScratchFile("fdi_refused.fdi");
        Remove(file);
        EXPECT_EQ(d.ExportFDI(PathOf(file)), 0);
        EXPECT_FALSE(Exists(file));
    }
}

TEST(FdiRoundTrip, WriterThenReader) {
    VDisk src;
    FillUniformDisk(src, 3, 80, 9, 2, 84);
    const std::string file = ScratchFile("fdi_roundtrip.fdi");
    ASSERT_EQ(src.ExportFDI(PathOf(file)), 1);
    VDisk back;
    ASSERT_EQ(back.ImportFDI(PathOf(file)), 1);
    EXPECT_EQ(back.type, 3);
    ASSERT_EQ(back.cylinders, 80);
    vdtest::ExpectSameSectors(src, back, 80);
}

TEST(FdiImport, SurvivesDamagedHeaders) {
    VDisk src;
    FillUniformDisk(src, 7, 4, 8, 3, 116);
    const std::string file = ScratchFile("fdi_damage_src.fdi");
    ASSERT_EQ(src.ExportFDI(PathOf(file)), 1);
    ImportDamaged(&VDisk::ImportFDI, ReadFile(file), 0, 32, "fdi_damaged.fdi", 400);
}
