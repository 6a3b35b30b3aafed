#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <map>
#include <string>
#include <vector>

#include "vdisk_testutil.h"

using namespace vdtest;

namespace {

constexpr size_t kHdr = 0x2B0;

struct CraftSector {
    int c, h, r, n;
    int length;
    uint8_t density = 0x00;
    uint8_t deleted = 0x00;
    uint8_t status = 0x00;
    int count = -1;  // sector count field; -1: the track's real count
};

struct CraftDisk {
    uint8_t media = 0x20;
    uint8_t protect = 0x00;
    std::string name;
    bool fullTable = true;                           // first track right after the header
    std::map<int, std::vector<CraftSector>> tracks;  // by table index 2c + h
};

std::vector<uint8_t> SectorData(const CraftSector& s) {
    return Pattern(s.length, static_cast<unsigned>(s.c * 97 + s.h * 31 + s.r));
}

// Builds one disk. Without a full table the tracks start 0x20 bytes after the
// table, as in files whose table is cut short.
std::vector<uint8_t> BuildD68(const CraftDisk& d) {
    std::vector<uint8_t> img(kHdr + (d.fullTable ? 0 : 0x20), 0);
    std::memcpy(img.data(), d.name.data(), std::min<size_t>(d.name.size(), 17));
    img[0x1A] = d.protect;
    img[0x1B] = d.media;
    for (const auto& [index, secs] : d.tracks) {
        Put32(img, 0x20 + 4 * static_cast<size_t>(index), static_cast<uint32_t>(img.size()));
        for (const CraftSector& s : secs) {
            uint8_t h[16] = {};
            h[0] = static_cast<uint8_t>(s.c);
            h[1] = static_cast<uint8_t>(s.h);
            h[2] = static_cast<uint8_t>(s.r);
            h[3] = static_cast<uint8_t>(s.n);
            const int count = s.count >= 0 ? s.count : static_cast<int>(secs.size());
            h[4] = static_cast<uint8_t>(count);
            h[5] = static_cast<uint8_t>(count >> 8);
            h[6] = s.density;
            h[7] = s.deleted;
            h[8] = s.status;
            h[14] = static_cast<uint8_t>(s.length);
            h[15] = static_cast<uint8_t>(s.length >> 8);
            img.insert(img.end(), h, h + 16);
            const std::vector<uint8_t> data = SectorData(s);
            img.insert(img.end(), data.begin(), data.end());
        }
    }
    Put32(img, 0x1C, static_cast<uint32_t>(img.size()));
    return img;
}

CraftDisk SampleDisk() {
    CraftDisk d;
    d.media = 0x20;
    d.name = "SAMPLE DISK";
    d.tracks[0] = {{0, 0, 1, 0, 128, 0x40}, {0, 0, 2, 0, 128, 0x40, 0x10, 0x00}};
    d.tracks[1] = {{0, 1, 1, 3, 1024},
                   {0, 1, 9, 1, 256, 0x00, 0x00, 0xB0},
                   {0x45, 0x67, 0xF7, 6, 100, 0x00, 0x10, 0xF0}};
    d.tracks[5] = {{2, 1, 3, 2, 512, 0x00, 0x00, 0x00, 7}};  // count read from first header only
    return d;
}

TEST(D68Import, CraftedDiskFieldByField) {
    const CraftDisk cd = SampleDisk();
    const std::string f = WriteFile("d68_crafted.d88", BuildD68(cd));
    VDisk d;
    // The first header's count of 7 would run off the end of the file.
    EXPECT_EQ(d.ImportD68(PathOf(f), 1), 0);

    CraftDisk ok = cd;
    ok.tracks[5][0].count = 1;
    WriteFile("d68_crafted.d88", BuildD68(ok));
    ASSERT_EQ(d.ImportD68(PathOf(f), 1), 1);
    EXPECT_EQ(d.type, VDISK_2HD);
    EXPECT_EQ(d.cylinders, 82);
    EXPECT_EQ(d.heads, 2);
    EXPECT_STREQ(d.name, "SAMPLE DISK");
    EXPECT_EQ(d.writeProtect, 0);
    for (int c = 0; c < 82; c++)
        for (int h = 0; h < 2; h++) {
            const int index = 2 * c + h;
            const auto it = ok.tracks.find(index);
            const int want = it == ok.tracks.end() ? 0 : static_cast<int>(it->second.size());
            ASSERT_EQ(Count(d, c, h), want) << "track " << index;
        }
    EXPECT_EQ(d.Track(82, 0), nullptr);

    struct Want {
        int mfm, gap2, gap3, status;
    };
    const std::map<int, std::vector<Want>> want = {
        {0, {{0, 11, 27, 0}, {0, 11, 27, SECT_DELETED}}},
        {1, {{1, 22, 116, 0}, {1, 22, 54, 0}, {1, 22, 116, SECT_DELETED}}},
        {5, {{1, 22, 84, 0}}},
    };
    for (const auto& [index, list] : want) {
        const VTrack* t = d.Track(index / 2, index % 2);
        const VSector* s = t->sectors;
        for (size_t i = 0; i < list.size(); i++, s = s->next) {
            SCOPED_TRACE(index * 100 + static_cast<int>(i));
            ASSERT_NE(s, nullptr);
            const CraftSector& cs = ok.tracks[index][i];
            EXPECT_EQ(s->mfm, list[i].mfm);
            EXPECT_EQ(s->idC, cs.c);
            EXPECT_EQ(s->idH, cs.h);
            EXPECT_EQ(s->idR, cs.r);
            EXPECT_EQ(s->idN, cs.n);
            EXPECT_EQ(s->gap2, list[i].gap2);
            EXPECT_EQ(s->gap3, list[i].gap3);
            EXPECT_EQ(s->status, list[i].status);
            EXPECT_EQ(DataOf(s), SectorData(cs));
        }
    }
    EXPECT_EQ(d.Track(0, 0)->fmCount, 2);
    EXPECT_EQ(d.Track(0, 1)->mfmCount, 3);
    Remove(f);
}

TEST(D68Import, MediaByteGeometryAndProtection) {
    struct Case {
        uint8_t media;
        bool fullTable;
        uint8_t protect;
        bool readOnly;
        int type, cyls, wp;  // type 0: refused
    };
    // Only a first table entry of 0x2B0 gives 82 cylinders: a cut table, or a
    // disk whose cylinder 0 head 0 is absent, reads as 80.
    const Case cases[] = {
        {0x00, true, 0x00, false, 1, 42, 0}, {0x00, false, 0x00, false, 1, 42, 0},
        {0x10, true, 0x00, false, 3, 82, 0}, {0x10, false, 0x00, false, 3, 80, 0},
        {0x20, true, 0x10, false, 7, 82, 1}, {0x20, false, 0x01, false, 7, 80, 1},
        {0x20, true, 0x00, true, 7, 82, 1},  {0x30, true, 0x00, false, 0, 0, 0},
        {0x40, true, 0x00, false, 0, 0, 0},  {0x01, true, 0x00, false, 0, 0, 0},
    };
    for (const Case& k : cases) {
        SCOPED_TRACE(static_cast<int>(k.media) * 100 + k.fullTable * 10 + k.readOnly);
        CraftDisk cd;
        cd.media = k.media;
        cd.protect = k.protect;
        cd.fullTable = k.fullTable;
        cd.tracks[0] = {{0, 0, 1, 1, 256}};
        cd.tracks[3] = {{1, 1, 1, 1, 256}};
        const std::string f = WriteFile("d68_media.d77", BuildD68(cd));
        if (k.readOnly) chmod(f.c_str(), 0444);
        VDisk d;
        ASSERT_EQ(d.ImportD68(PathOf(f), 1), k.type ? 1 : 0);
        if (k.type) {
            EXPECT_EQ(d.type, k.type);
            EXPECT_EQ(d.cylinders, k.cyls);
            EXPECT_EQ(d.writeProtect, k.wp);
            EXPECT_EQ(Count(d, 1, 1), 1);
        }
        if (k.type == 7 && k.fullTable) {
            cd.tracks.erase(0);
            WriteFile("d68_media.d77", BuildD68(cd));
            ASSERT_EQ(d.ImportD68(PathOf(f), 1), 1);
            EXPECT_EQ(d.cylinders, 80);
        }
        Remove(f);
    }
}

TEST(D68Import, NameWithoutTerminatorStopsAtFirstZero) {
    CraftDisk cd;
    cd.name = std::string(17, 'N');  // fills 0x00..0x10; reserved bytes follow as zeros
    const std::string f = WriteFile("d68_name.d68", BuildD68(cd));
    VDisk d;
    ASSERT_EQ(d.ImportD68(PathOf(f), 1), 1);
    EXPECT_EQ(std::string(d.name), std::string(17, 'N'));
    Remove(f);
}

TEST(D68MediaOffset, ChainWalkAndLimits) {
    CraftDisk a = SampleDisk();
    a.tracks[5][0].count = 1;
    CraftDisk b;
    b.media = 0x10;
    b.name = "SECOND";
    b.tracks[4] = {{2, 0, 5, 1, 256}};
    const std::vector<uint8_t> da = BuildD68(a);
    const std::vector<uint8_t> db = BuildD68(b);
    std::vector<uint8_t> both = da;
    both.insert(both.end(), db.begin(), db.end());
    const std::string f = WriteFile("d68_multi.d88", both);
    const int total = static_cast<int>(both.size());

    VDisk d;
    EXPECT_EQ(d.GetD68MediaOffset(PathOf(f), -3), 0);
    EXPECT_EQ(d.GetD68MediaOffset(PathOf(f), 0), 0);
    EXPECT_EQ(d.GetD68MediaOffset(PathOf(f), 1), 0);
    EXPECT_EQ(d.GetD68MediaOffset(PathOf(f), 2), static_cast<int>(da.size()));
    EXPECT_EQ(d.GetD68MediaOffset(PathOf(f), 3), total);  // past the last disk
    EXPECT_EQ(d.ImportD68(PathOf(f), 3), 0);

    ASSERT_EQ(d.ImportD68(PathOf(f), 2), 1);
    EXPECT_STREQ(d.name, "SECOND");
    EXPECT_EQ(d.type, VDISK_2DD);
    EXPECT_EQ(Count(d, 2, 0), 1);
    EXPECT_EQ(Count(d, 0, 1), 0);
    EXPECT_EQ(DataOf(d.Track(2, 0)->sectors), SectorData(b.tracks[4][0]));
    ASSERT_EQ(d.ImportD68(PathOf(f), 1), 1);
    EXPECT_STREQ(d.name, "SAMPLE DISK");
    EXPECT_EQ(Count(d, 2, 0), 0);

    // Disk sizes that any header on the way may not hold.
    struct Bad {
        uint32_t size;
        int diskno;
        int expect;
    };
    const Bad bads[] = {
        {511, 2, -1},
        {0x1E0001, 2, -1},
        {512, 2, 512},
        {0x1E0000, 2, -1},  // in range but past the end of the file
        {static_cast<uint32_t>(total), 2, total},
        {static_cast<uint32_t>(total) + 1, 2, -1},
        {0, 2, -1},
    };
    for (const Bad& k : bads) {
        SCOPED_TRACE(k.size);
        std::vector<uint8_t> img = both;
        Put32(img, 0x1C, k.size);
        WriteFile("d68_multi.d88", img);
        EXPECT_EQ(d.GetD68MediaOffset(PathOf(f), k.diskno), k.expect);
    }
    // A bad size in the second header refuses disk 3 but not disk 2.
    std::vector<uint8_t> img = both;
    Put32(img, da.size() + 0x1C, 100);
    WriteFile("d68_multi.d88", img);
    EXPECT_EQ(d.GetD68MediaOffset(PathOf(f), 2), static_cast<int>(da.size()));
    EXPECT_EQ(d.GetD68MediaOffset(PathOf(f), 3), -1);
    Remove(f);

    // Too short for one header, and missing.
    const std::string s = WriteFile("d68_short.d88", std::vector<uint8_t>(600, 0));
    for (int n : {0, 1, 2}) EXPECT_EQ(d.GetD68MediaOffset(PathOf(s), n), -1);
    EXPECT_EQ(d.ImportD68(PathOf(s), 1), 0);
    Remove(s);
    EXPECT_EQ(d.GetD68MediaOffset(PathOf(s), 1), -1);
}

TEST(D68Import, HostileFilesAreRefused) {
    struct Case {
        const char* what;
        void (*spoil)(std::vector<uint8_t>&);
    };
    // The base image: one track at index 2 holding one 256-byte sector.
    const Case cases[] = {
        {"zero sector count", [](std::vector<uint8_t>& b) { b[kHdr + 4] = 0; }},
        {"sector longer than the buffer",
         [](std::vector<uint8_t>& b) {
             Put16(b, kHdr + 14, 16385);
             b.resize(b.size() + 16385, 0);
         }},
        {"track offset past the file", [](std::vector<uint8_t>& b) { Put32(b, 0x28, 0x7FFFFFF0); }},
        {"track offset at the file end",
         [](std::vector<uint8_t>& b) { Put32(b, 0x28, static_cast<uint32_t>(b.size())); }},
        {"data cut short", [](std::vector<uint8_t>& b) { b.resize(b.size() - 1); }},
        {"count beyond the track", [](std::vector<uint8_t>& b) { b[kHdr + 4] = 2; }},
        {"every track on the same data",
         [](std::vector<uint8_t>& b) {
             // 255 sectors of 16 KiB, shared by all 164 table entries.
             std::vector<uint8_t> sec(16 + 16384, 0);
             sec[3] = 7;
             sec[4] = 255;
             Put16(sec, 14, 16384);
             b.resize(kHdr);
             for (int i = 0; i < 255; i++) b.insert(b.end(), sec.begin(), sec.end());
             for (int i = 0; i < 164; i++) Put32(b, 0x20 + 4 * static_cast<size_t>(i), kHdr);
         }},
    };
    for (const Case& k : cases) {
        SCOPED_TRACE(k.what);
        CraftDisk cd;
        cd.tracks[2] = {{1, 0, 1, 1, 256}};
        std::vector<uint8_t> img = BuildD68(cd);
        k.spoil(img);
        const std::string f = WriteFile("d68_hostile.d88", img);
        VDisk d;
        EXPECT_EQ(d.Import(PathOf(f), 1), 0);
        Remove(f);
    }
    // The largest sector the buffer holds is still read.
    CraftDisk cd;
    cd.tracks[2] = {{1, 0, 1, 7, 16384}};
    const std::string f = WriteFile("d68_big.d88", BuildD68(cd));
    VDisk d;
    ASSERT_EQ(d.ImportD68(PathOf(f), 1), 1);
    EXPECT_EQ(d.Track(1, 0)->sectors->length, 16384);
    EXPECT_EQ(d.Track(1, 0)->sectors->gap3, 116);
    Remove(f);
}

VSector* Sec(int mfm, int c, int h, int r, int n, int length, int status) {
    return NewSector(mfm, c, h, r, n, Pattern(length, static_cast<unsigned>(r + 5 * c + 3 * h)),
                     mfm ? 54 : 42, status);
}

TEST(D68Export, HeaderBytesAndMediaByte) {
    struct Case {
        int type, cyls, wp;
        const char* name;
        uint8_t media;
    };
    const Case cases[] = {
        {7, 40, 0, "", 0x20},       {7, 84, 1, "A NAME LONGER THAN SIXTEEN", 0x20},
        {3, 43, 0, "TWO DD", 0x10}, {1, 43, 0, "2D WIDE", 0x10},
        {3, 42, 1, "X", 0x00},      {1, 40, 0, "2D", 0x00},
    };
    for (const Case& k : cases) {
        SCOPED_TRACE(k.name);
        VDisk d;
        d.Init(k.type, k.cyls, 2);
        std::strcpy(d.name, k.name);
        d.writeProtect = k.wp;
        const std::string f = ScratchFile("d68_hdr.d88");
        ASSERT_EQ(d.ExportD68(PathOf(f)), 1);
        const std::vector<uint8_t> b = ReadFile(f);
        ASSERT_EQ(b.size(), kHdr);
        const std::string want = std::string(k.name).substr(0, 16);
        EXPECT_EQ(std::string(reinterpret_cast<const char*>(b.data())), want);
        for (size_t i = want.size(); i < 0x1A; i++) EXPECT_EQ(b[i], 0) << i;
        EXPECT_EQ(b[0x1A], k.wp ? 0x10 : 0x00);
        EXPECT_EQ(b[0x1B], k.media);
        EXPECT_EQ(Get32(b, 0x1C), kHdr);
        for (size_t i = 0x20; i < kHdr; i++) EXPECT_EQ(b[i], 0) << i;
        Remove(f);
    }
}

TEST(D68Export, TrackLayoutSectorHeadersAndStatusPrecedence) {
    VDisk d;
    d.Init(VDISK_2DD, 84, 1);  // single-sided: head-1 slots are null
    struct S {
        int mfm, r, n, length, status;
        uint8_t mark, st;
    };
    const S list[] = {
        {1, 1, 1, 256, 0, 0x00, 0x00},
        {1, 2, 1, 256, SECT_DELETED, 0x10, 0x10},
        {1, 3, 1, 256, SECT_IDCRC, 0x00, 0xA0},
        {1, 4, 1, 256, SECT_IDCRC | SECT_DATACRC, 0x00, 0xB0},
        {0, 5, 0, 128, SECT_DELETED | SECT_NODAM, 0x10, 0xF0},
        {0, 6, 0, 128, SECT_DELETED | SECT_IDCRC, 0x10, 0xA0},
        {1, 7, 2, 0, SECT_NODAM | SECT_DATACRC, 0x00, 0xF0},
        {1, 8, 3, 700, 0, 0x00, 0x00},
    };
    for (const S& s : list)
        d.Track(0, 0)->AddSector(Sec(s.mfm, 0, 0, s.r, s.n, s.length, s.status));
    d.Track(3, 0)->AddSector(Sec(1, 3, 0, 1, 1, 256, 0));
    d.Track(81, 0)->AddSector(Sec(1, 81, 0, 1, 1, 256, 0));
    d.Track(82, 0)->AddSector(Sec(1, 82, 0, 1, 1, 256, 0));  // beyond 82 cylinders: dropped

    const std::string f = ScratchFile("d68_layout.d88");
    ASSERT_EQ(d.Export(PathOf(f)), 1);
    const std::vector<uint8_t> b = ReadFile(f);

    size_t track0 = 0;
    for (const S& s : list) track0 += 16 + static_cast<size_t>(s.length);
    EXPECT_EQ(Get32(b, 0x20), kHdr);
    EXPECT_EQ(Get32(b, 0x24), 0u);
    EXPECT_EQ(Get32(b, 0x20 + 4 * 6), kHdr + track0);
    EXPECT_EQ(Get32(b, 0x20 + 4 * 162), kHdr + track0 + 272);
    for (int i = 0; i < 164; i++) {
        if (i != 0 && i != 6 && i != 162) {
            EXPECT_EQ(Get32(b, 0x20 + 4 * static_cast<size_t>(i)), 0u) << i;
        }
    }
    EXPECT_EQ(Get32(b, 0x1C), kHdr + track0 + 2 * 272);
    ASSERT_EQ(b.size(), kHdr + track0 + 2 * 272);

    size_t at = kHdr;
    const VSector* vs = d.Track(0, 0)->sectors;
    for (const S& s : list) {
        SCOPED_TRACE(s.r);
        EXPECT_EQ(b[at + 0], 0);
        EXPECT_EQ(b[at + 1], 0);
        EXPECT_EQ(b[at + 2], s.r);
        EXPECT_EQ(b[at + 3], s.n);
        EXPECT_EQ(b[at + 4], 8);
        EXPECT_EQ(b[at + 5], 0);
        EXPECT_EQ(b[at + 6], s.mfm ? 0x00 : 0x40);
        EXPECT_EQ(b[at + 7], s.mark);
        EXPECT_EQ(b[at + 8], s.st);
        for (size_t i = 9; i < 14; i++) EXPECT_EQ(b[at + i], 0);
        EXPECT_EQ(b[at + 14] | (b[at + 15] << 8), s.length);
        EXPECT_EQ(std::vector<uint8_t>(b.begin() + static_cast<long>(at) + 16,
                                       b.begin() + static_cast<long>(at) + 16 + s.length),
                  DataOf(vs));
        at += 16 + static_cast<size_t>(s.length);
        vs = vs->next;
    }
    Remove(f);
}

TEST(D68Export, OversizedSectorIsRefusedBeforeTheFileExists) {
    VDisk d;
    d.Init(VDISK_2HD, 1, 2);
    d.Track(0, 1)->AddSector(Sec(1, 0, 1, 1, 7, 70000, 0));
    const std::string f = ScratchFile("d68_oversize.d88");
    Remove(f);
    EXPECT_EQ(d.ExportD68(PathOf(f)), 0);
    EXPECT_FALSE(Exists(f));
}

TEST(D68RoundTrip, MixedDensitiesSizesAndDeletedMarks) {
    VDisk d;
    d.Init(VDISK_2HD, 80, 2);
    std::strcpy(d.name, "ROUNDTRIP");
    d.writeProtect = 1;
    for (int c = 0; c < 80; c++)
        for (int h = 0; h < 2; h++) {
            if (c == 40 && h == 1) continue;  // one empty track
            VTrack* t = d.Track(c, h);
            if (c == 0 && h == 0) {
                for (int r = 1; r <= 26; r++) t->AddSector(Sec(0, c, h, r, 0, 128, 0));
                continue;
            }
            t->AddSector(Sec(1, c, h, 1, 3, 1024, 0));
            t->AddSector(Sec(1, c, h, 2, 2, 512, SECT_DELETED));
            t->AddSector(Sec(1, c ^ 0x55, h + 1, 0xF0, 1, 256, 0));
            t->AddSector(Sec(0, c, h, 4, 0, 128, SECT_DELETED));
        }
    const std::string f = ScratchFile("d68_rt.D98");
    ASSERT_EQ(d.Export(PathOf(f)), 1);
    VDisk back;
    ASSERT_EQ(back.Import(PathOf(f), 1), 1);
    EXPECT_EQ(back.type, VDISK_2HD);
    EXPECT_EQ(back.cylinders, 82);
    EXPECT_STREQ(back.name, "ROUNDTRIP");
    EXPECT_EQ(back.writeProtect, 1);
    EXPECT_EQ(Count(back, 40, 1), 0);
    EXPECT_EQ(Count(back, 81, 1), 0);
    ExpectSameSectors(d, back, 80);

    // And written again, the bytes are the same.
    const std::string g = ScratchFile("d68_rt2.d88");
    back.cylinders = 80;
    ASSERT_EQ(back.ExportD68(PathOf(g)), 1);
    EXPECT_EQ(ReadFile(g), ReadFile(f));
    Remove(f);
    Remove(g);
}

}  // namespace

namespace {

// Corrupted copies of a valid file: every import either fails or yields a disk
// whose sector bytes all came from the file.
TEST(D68Import, CorruptedFilesNeverReadMoreThanTheFileHolds) {
    CraftDisk cd = SampleDisk();
    cd.tracks[5][0].count = 1;
    const std::vector<uint8_t> base = BuildD68(cd);
    uint32_t seed = 12345;
    auto next = [&seed] {
        seed = seed * 1103515245u + 12345u;
        return seed >> 8;
    };
    int accepted = 0;
    for (int round = 0; round < 400; round++) {
        std::vector<uint8_t> img = base;
        const int edits = 1 + static_cast<int>(next() % 6);
        for (int e = 0; e < edits; e++) {
            // Mostly the fields that steer the reader: header, table, sector headers.
            const size_t span = (next() % 2) ? 0x30 + 8 : img.size();
            const size_t at =
                (next() % 3 == 0) ? kHdr + next() % (img.size() - kHdr) : next() % span;
            img[at] = static_cast<uint8_t>(next());
        }
        if (next() % 5 == 0) img.resize(next() % img.size());
        const std::string f = WriteFile("d68_fuzz.d88", img);
        VDisk d;
        if (d.ImportD68(PathOf(f), 1 + static_cast<int>(next() % 3)) == 0) continue;
        accepted++;
        size_t bytes = 0;
        for (int c = 0; c < d.cylinders; c++)
            for (int h = 0; h < 2; h++)
                for (const VSector* s = d.Track(c, h)->sectors; s; s = s->next)
                    bytes += 16 + static_cast<size_t>(s->length);
        EXPECT_LE(bytes, img.size());
        EXPECT_LE(d.cylinders, 82);
    }
    EXPECT_GT(accepted, 0);
}

}  // namespace
