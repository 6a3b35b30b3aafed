#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <string>
#include <vector>

#include "vdisk_testutil.h"

using namespace vdtest;

namespace {

constexpr size_t kHdr = 256;

struct Layout {
    int sectors;
    int n;
};

Layout LayoutOf(int media, int c, int h) {
    switch (media) {
        case 0:
            return {8, 3};
        case 1:
        case 3:
            return {9, 3};
        case 2:
            return {15, 2};
        case 9:
            return {18, 2};
        default:
            return {26, (c == 0 && h == 0) ? 0 : 1};
    }
}

// A DIM file of the given media with cylinders [0, cyls) present on both heads
// (or only the listed track indices), each track's data a distinct pattern.
std::vector<uint8_t> BuildDIM(int media, int cyls, const char* comment = "",
                              std::vector<int> only = {}, uint8_t overtrack = 0) {
    std::vector<uint8_t> img(kHdr, 0);
    img[0] = static_cast<uint8_t>(media);
    if (only.empty())
        for (int i = 0; i < 2 * cyls; i++) only.push_back(i);
    for (int i : only) img[1 + static_cast<size_t>(i)] = 0x01;
    std::memcpy(img.data() + 0xAB, "DIFC HEADER  ", 14);
    const uint8_t fixed[8] = {0x04, 0x21, 0x03, 0x22, 0x01, 0x00, 0x00, 0x00};
    std::memcpy(img.data() + 0xBA, fixed, 8);
    std::memcpy(img.data() + 0xC2, comment, std::min<size_t>(std::strlen(comment), 60));
    img[0xFE] = 0x19;
    img[0xFF] = overtrack;
    for (int i = 0; i < 168; i++) {
        if (!img[1 + static_cast<size_t>(i)]) continue;
        const Layout l = LayoutOf(media, i / 2, i % 2);
        const std::vector<uint8_t> data =
            Pattern(l.sectors * (128 << l.n), static_cast<unsigned>(i * 3 + media));
        img.insert(img.end(), data.begin(), data.end());
    }
    return img;
}

TEST(DimImport, MediaRulesForIdsAndDensity) {
    // Expected (R, H, N, mfm) of sector i on cylinder c head h.
    struct Id {
        int r, h, n, mfm;
    };
    auto expect = [](int media, int c, int h, int i) -> Id {
        const bool first = c == 0 && h == 0;
        switch (media) {
            case 1:
                return {first ? (i == 0 ? 1 : 10 + i) : 10 + i, h, 3, 1};
            case 3:
                return {i + 1, (first && i == 0) ? 0 : h + 0x80, 3, 1};
            case 17:
                return {i + 1, h, first ? 0 : 1, first ? 0 : 1};
            default:
                return {i + 1, h, LayoutOf(media, c, h).n, 1};
        }
    };
    const std::vector<int> present = {0, 1, 4, 5, 167};
    for (int media : {0, 1, 2, 3, 9, 17}) {
        SCOPED_TRACE(media);
        const std::vector<uint8_t> img = BuildDIM(media, 0, "", present);
        const std::string f = WriteFile("dim_media.dim", img);
        VDisk d;
        ASSERT_EQ(d.Import(PathOf(f), 1), 1);
        EXPECT_EQ(d.type, VDISK_2HD);
        EXPECT_EQ(d.cylinders, 84);
        EXPECT_EQ(d.heads, 2);
        size_t at = kHdr;
        for (int c = 0; c < 84; c++)
            for (int h = 0; h < 2; h++) {
                const int index = 2 * c + h;
                const bool on = std::find(present.begin(), present.end(), index) != present.end();
                const Layout l = LayoutOf(media, c, h);
                ASSERT_EQ(Count(d, c, h), on ? l.sectors : 0) << index;
                int i = 0;
                for (const VSector* s = d.Track(c, h)->sectors; s; s = s->next, i++) {
                    SCOPED_TRACE(index * 100 + i);
                    const Id id = expect(media, c, h, i);
                    EXPECT_EQ(s->idC, c);
                    EXPECT_EQ(s->idH, id.h);
                    EXPECT_EQ(s->idR, id.r);
                    EXPECT_EQ(s->idN, id.n);
                    EXPECT_EQ(s->mfm, id.mfm);
                    EXPECT_EQ(s->gap2, id.mfm ? 22 : 11);
                    EXPECT_EQ(s->gap3, id.mfm ? Gap3MFM[id.n] : Gap3FM[id.n]);
                    EXPECT_EQ(s->status, 0);
                    ASSERT_EQ(s->length, 128 << id.n);
                    EXPECT_EQ(std::memcmp(s->data, img.data() + at, static_cast<size_t>(s->length)),
                              0);
                    at += static_cast<size_t>(s->length);
                }
            }
        EXPECT_EQ(at, img.size());
        if (media == 17) {
            EXPECT_EQ(d.Track(0, 0)->fmCount, 26);
            EXPECT_EQ(d.Track(0, 1)->mfmCount, 26);
        }
        Remove(f);
    }
}

TEST(DimImport, RejectedHeaders) {
    struct Case {
        const char* what;
        void (*spoil)(std::vector<uint8_t>&);
    };
    const Case cases[] = {
        {"one trailing blank", [](std::vector<uint8_t>& b) { b[0xB7] = 0; }},
        {"no terminating NUL", [](std::vector<uint8_t>& b) { b[0xB8] = ' '; }},
        {"lower case", [](std::vector<uint8_t>& b) { b[0xAB] = 'd'; }},
        {"shorter than a header", [](std::vector<uint8_t>& b) { b.resize(255); }},
        {"track data cut short", [](std::vector<uint8_t>& b) { b.resize(b.size() - 1); }},
    };
    for (const Case& k : cases) {
        SCOPED_TRACE(k.what);
        std::vector<uint8_t> img = BuildDIM(0, 0, "", {0, 3});
        k.spoil(img);
        const std::string f = WriteFile("dim_bad.DIM", img);
        VDisk d;
        EXPECT_EQ(d.ImportDIM(PathOf(f)), 0);
        Remove(f);
    }
    for (int media = 0; media < 256; media++) {
        if (media == 0 || media == 1 || media == 2 || media == 3 || media == 9 || media == 17)
            continue;
        SCOPED_TRACE(media);
        std::vector<uint8_t> img = BuildDIM(0, 0, "", {});
        img[0] = static_cast<uint8_t>(media);
        const std::string f = WriteFile("dim_badmedia.dim", img);
        VDisk d;
        EXPECT_EQ(d.ImportDIM(PathOf(f)), 0);
        Remove(f);
    }
}

TEST(DimImport, CommentShortNameAndWriteProtection) {
    const std::string comment60(60, 'C');
    struct Case {
        const char* comment;
        bool readOnly;
        std::string name;
        int wp;
    };
    const Case cases[] = {
        {"MY COMMENT", false, "MY COMMENT", 0},
        {"", true, "dim_name.dim", 1},
        {comment60.c_str(), false, std::string(59, 'C'), 0},
    };
    for (const Case& k : cases) {
        SCOPED_TRACE(k.name);
        const std::string f = WriteFile("dim_name.dim", BuildDIM(2, 0, k.comment, {}));
        if (k.readOnly) chmod(f.c_str(), 0444);
        VDisk d;
        ASSERT_EQ(d.ImportDIM(PathOf(f)), 1);
        EXPECT_EQ(std::string(d.name), k.name);
        EXPECT_EQ(d.writeProtect, k.wp);
        Remove(f);
    }
}

// A disk laid out as a DIM file of this media would be read.
void DimShapedDisk(VDisk& d, int media, int cyls) {
    const std::string f = WriteFile("dim_shape.dim", BuildDIM(media, cyls, "SHAPED"));
    ASSERT_EQ(d.ImportDIM(PathOf(f)), 1);
    Remove(f);
}

TEST(DimRoundTrip, FileToDiskToFileIsIdentical) {
    struct Case {
        int media, cyls;
        uint8_t overtrack;
    };
    for (const Case& k : {Case{0, 77, 0}, Case{0, 80, 1}, Case{0, 84, 1}, Case{1, 80, 0},
                          Case{3, 82, 0}, Case{2, 80, 0}, Case{9, 84, 0}, Case{17, 77, 0}}) {
        SCOPED_TRACE(k.media * 1000 + k.cyls);
        const std::vector<uint8_t> img = BuildDIM(k.media, k.cyls, "ROUND TRIP", {}, k.overtrack);
        const std::string f = WriteFile("dim_rt_in.dim", img);
        VDisk d;
        ASSERT_EQ(d.Import(PathOf(f), 1), 1);
        const std::string g = ScratchFile("dim_rt_out.DIM");
        ASSERT_EQ(d.Export(PathOf(g)), 1);
        EXPECT_EQ(ReadFile(g), img);
        VDisk back;
        ASSERT_EQ(back.ImportDIM(PathOf(g)), 1);
        ExpectSameSectors(d, back, 84);
        Remove(f);
        Remove(g);
    }
}

TEST(DimExport, ConformanceCountAndRefusals) {
    struct Case {
        const char* what;
        int cyls, count, n;
        void (*spoil)(VDisk&);
        int media;  // -1: refused
        int written;
    };
    const Case cases[] = {
        {"8x1024, 77 cylinders", 77, 8, 3, nullptr, 0, 77},
        {"9x1024, 77 cylinders", 77, 9, 3, nullptr, -1, 0},
        {"9x1024, 80 cylinders", 80, 9, 3, nullptr, 1, 80},
        {"9x1024 with H from 0x80", 80, 9, 3, [](VDisk& d) { d.Track(2, 0)->sectors->idH = 0x80; },
         3, 80},
        {"15x512, 79 cylinders", 79, 15, 2, nullptr, -1, 0},
        {"15x512", 80, 15, 2, nullptr, 2, 80},
        {"18x512", 82, 18, 2, nullptr, 9, 82},
        {"18x1024", 82, 18, 3, nullptr, -1, 0},
        {"8x512", 80, 8, 2, nullptr, -1, 0},
        {"other size on c40h1", 80, 8, 3,
         [](VDisk& d) { d.Track(40, 1)->GetLasttSector()->idN = 2; }, -1, 0},
        {"FM sector on c78h0 drops the rest", 84, 8, 3,
         [](VDisk& d) {
             VTrack* t = d.NewTrack(78, 0);
             for (int r = 1; r <= 8; r++)
                 t->AddSector(NewSector(0, 78, 0, r, 3, Pattern(1024, r), 72));
         },
         0, 78},
        {"cylinder 0 head 0 is not examined", 80, 8, 3, [](VDisk& d) { d.NewTrack(0, 0); }, 0, 80},
        {"empty reference track", 80, 8, 3, [](VDisk& d) { d.NewTrack(0, 1); }, -1, 0},
        {"no reference track", 80, 8, 3, [](VDisk& d) { d.tracks[0][1].reset(); }, -1, 0},
        {"N=1 without an FM first sector", 80, 26, 1, nullptr, -1, 0},
        {"cylinders field 0", 80, 8, 3, [](VDisk& d) { d.cylinders = 0; }, -1, 0},
        {"cylinders beyond the table", 84, 8, 3, [](VDisk& d) { d.cylinders = 200; }, 0, 84},
    };
    for (const Case& k : cases) {
        SCOPED_TRACE(k.what);
        VDisk d;
        FillUniformDisk(d, VDISK_2HD, k.cyls, k.count, k.n, 84);
        std::strcpy(d.name, "A DISK NAME");
        if (k.spoil) k.spoil(d);
        const std::string f = ScratchFile("dim_out.dim");
        Remove(f);
        ASSERT_EQ(d.ExportDIM(PathOf(f)), k.media < 0 ? 0 : 1);
        if (k.media < 0) {
            EXPECT_FALSE(Exists(f));
            continue;
        }
        const std::vector<uint8_t> b = ReadFile(f);
        ASSERT_GE(b.size(), kHdr);
        EXPECT_EQ(b[0], k.media);
        for (int i = 0; i < 170; i++)
            EXPECT_EQ(b[1 + static_cast<size_t>(i)], i < 2 * k.written ? 1 : 0) << i;
        EXPECT_EQ(std::memcmp(b.data() + 0xAB, "DIFC HEADER  \0\0\x04\x21\x03\x22\x01\0\0\0", 23),
                  0);
        EXPECT_EQ(std::string(reinterpret_cast<const char*>(b.data() + 0xC2)), "A DISK NAME");
        for (size_t i = 0xC2 + 11; i < 0xFE; i++) EXPECT_EQ(b[i], 0) << i;
        EXPECT_EQ(b[0xFE], 0x19);
        EXPECT_EQ(b[0xFF], (k.media == 0 && k.written != 77) ? 1 : 0);
        size_t data = 0;
        for (int c = 0; c < k.written; c++)
            for (int h = 0; h < 2; h++)
                for (const VSector* s = d.Track(c, h)->sectors; s; s = s->next) {
                    ASSERT_EQ(std::memcmp(b.data() + kHdr + data, s->data,
                                          static_cast<size_t>(s->length)),
                              0);
                    data += static_cast<size_t>(s->length);
                }
        EXPECT_EQ(b.size(), kHdr + data);
        Remove(f);
    }
}

TEST(DimExport, TwoSdFirstTrackAndLongName) {
    VDisk d;
    DimShapedDisk(d, 17, 80);
    std::memset(d.name, 'L', 59);
    d.name[59] = 0;
    d.Track(0, 0)->sectors->mfm = 1;  // counted as FM still, but no longer FM itself
    const std::string f = ScratchFile("dim_2sd.dim");
    Remove(f);
    EXPECT_EQ(d.ExportDIM(PathOf(f)), 0);
    EXPECT_FALSE(Exists(f));
    d.Track(0, 0)->sectors->mfm = 0;
    ASSERT_EQ(d.ExportDIM(PathOf(f)), 1);
    const std::vector<uint8_t> b = ReadFile(f);
    EXPECT_EQ(b[0], 17);
    EXPECT_EQ(std::string(reinterpret_cast<const char*>(b.data() + 0xC2)), std::string(59, 'L'));
    EXPECT_EQ(b[0xFD], 0);
    Remove(f);
}

}  // namespace

namespace {

TEST(DimImport, CorruptedFilesFailOrStayWithinTheFile) {
    const std::vector<uint8_t> base = BuildDIM(17, 3, "FUZZ");
    uint32_t seed = 777;
    auto next = [&seed] {
        seed = seed * 1103515245u + 12345u;
        return seed >> 8;
    };
    int accepted = 0;
    for (int round = 0; round < 300; round++) {
        std::vector<uint8_t> img = base;
        for (int e = 0; e < 3; e++) img[next() % kHdr] = static_cast<uint8_t>(next());
        if (next() % 4 == 0) img.resize(next() % img.size());
        const std::string f = WriteFile("dim_fuzz.dim", img);
        VDisk d;
        if (d.ImportDIM(PathOf(f)) == 0) continue;
        accepted++;
        size_t bytes = 0;
        for (int c = 0; c < 84; c++)
            for (int h = 0; h < 2; h++)
                for (const VSector* s = d.Track(c, h)->sectors; s; s = s->next)
                    bytes += static_cast<size_t>(s->length);
        EXPECT_LE(bytes + kHdr, img.size());
        EXPECT_LT(std::strlen(d.name), 60u);
    }
    EXPECT_GT(accepted, 0);
}

}  // namespace
