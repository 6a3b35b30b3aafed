#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "vdisk_testutil.h"

using namespace vdtest;

namespace {

// A plain file whose every sector holds distinct bytes: byte i of the file.
std::vector<uint8_t> PlainBytes(size_t size) {
    std::vector<uint8_t> b(size);
    for (size_t i = 0; i < size; i++) b[i] = static_cast<uint8_t>((i * 7) ^ (i >> 9) ^ (i >> 17));
    return b;
}

TEST(FixFormatTable, RowsAreExact) {
    const FixFormatEntry expect[11] = {
        {1261568, 77, 8, 3, 116, 7}, {0, 80, 8, 3, 116, 7}, {0, 80, 9, 3, 52, 7},
        {1228800, 80, 15, 2, 84, 7}, {0, 80, 9, 3, 53, 7},  {1474560, 80, 18, 2, 84, 7},
        {0, 77, 26, 1, 51, 7},       {0, 77, 26, 1, 51, 7}, {737280, 80, 9, 2, 84, 3},
        {36840, 40, 9, 2, 84, 1},    {-1, 0, 0, 0, 0, 0},
    };
    for (int i = 0; i < 11; i++) {
        SCOPED_TRACE(i);
        const FixFormatEntry& r = VDisk::FixFormat[i];
        EXPECT_EQ(r.size, expect[i].size);
        EXPECT_EQ(r.cylinders, expect[i].cylinders);
        EXPECT_EQ(r.sectors, expect[i].sectors);
        EXPECT_EQ(r.n, expect[i].n);
        EXPECT_EQ(r.gap3, expect[i].gap3);
        EXPECT_EQ(r.type, expect[i].type);
    }
}

TEST(FixImport, EveryReadableRowBySize) {
    struct Case {
        const char* file;
        size_t size;
        int row;
    };
    const Case cases[] = {
        {"fix_r0.hdm", 1261568, 0},
        {"fix_r3.2hc", 1228800, 3},
        {"fix_r5.xdf", 1474560, 5},
        {"fix_r8.2dd", 737280, 8},
    };
    for (const Case& k : cases) {
        SCOPED_TRACE(k.file);
        const FixFormatEntry& row = VDisk::FixFormat[k.row];
        const std::vector<uint8_t> bytes = PlainBytes(k.size);
        const std::string f = WriteFile(k.file, bytes);
        VDisk d;
        ASSERT_EQ(d.ImportFIX(PathOf(f)), 1);
        EXPECT_EQ(d.type, row.type);
        EXPECT_EQ(d.cylinders, row.cylinders);
        EXPECT_EQ(d.heads, 2);
        EXPECT_STREQ(d.name, k.file);
        EXPECT_EQ(d.writeProtect, 0);
        EXPECT_EQ(d.Track(row.cylinders, 0), nullptr);
        const int len = 128 << row.n;
        size_t at = 0;
        for (int c = 0; c < row.cylinders; c++)
            for (int h = 0; h < 2; h++) {
                const VTrack* t = d.Track(c, h);
                ASSERT_NE(t, nullptr);
                ASSERT_EQ(t->mfmCount, row.sectors);
                ASSERT_EQ(t->fmCount, 0);
                int r = 1;
                for (const VSector* s = t->sectors; s; s = s->next, r++) {
                    ASSERT_EQ(s->mfm, 1);
                    ASSERT_EQ(s->idC, c);
                    ASSERT_EQ(s->idH, h);
                    ASSERT_EQ(s->idR, r);
                    ASSERT_EQ(s->idN, row.n);
                    ASSERT_EQ(s->length, len);
                    ASSERT_EQ(s->gap2, 22);
                    ASSERT_EQ(s->gap3, row.gap3);
                    ASSERT_EQ(s->status, 0);
                    ASSERT_EQ(std::memcmp(s->data, bytes.data() + at, static_cast<size_t>(len)), 0);
                    at += static_cast<size_t>(len);
                }
            }
        EXPECT_EQ(at, k.size);
        Remove(f);
    }
}

TEST(FixImport, SizesThatAreNotPlainImages) {
    // The empty file picks the first geometry-only row and fails on its first
    // read; 36,840 bytes pick the 2D row and run short; the rest match no row.
    for (size_t size : {size_t{0}, size_t{36840}, size_t{368640}, size_t{1261567}, size_t{1024}}) {
        SCOPED_TRACE(size);
        const std::string f = WriteFile("fix_notplain.img", PlainBytes(size));
        VDisk d;
        EXPECT_EQ(d.ImportFIX(PathOf(f)), 0);
        Remove(f);
    }
    VDisk d;
    EXPECT_EQ(d.ImportFIX(PathOf(ScratchFile("fix_absent.img"))), 0);
}

TEST(FixImport, ReadOnlyFileIsWriteProtectedAndLongNamesAreCut) {
    std::string longName(74, 'n');
    longName.replace(70, 4, ".2dd", 4);
    const std::string f = WriteFile(longName, PlainBytes(737280));
    chmod(f.c_str(), 0444);
    VDisk d;
    ASSERT_EQ(d.ImportFIX(PathOf(f)), 1);
    EXPECT_EQ(d.writeProtect, 1);
    EXPECT_EQ(std::strlen(d.name), 59u);
    EXPECT_EQ(std::string(d.name), longName.substr(0, 59));
    Remove(f);
}

TEST(FixImport, ReplacesWhateverTheDiskHeld) {
    VDisk d;
    FillUniformDisk(d, VDISK_2HD, 84, 3, 0, 24);
    d.writeProtect = 1;
    const std::string f = WriteFile("fix_replace.2dd", PlainBytes(737280));
    ASSERT_EQ(d.ImportFIX(PathOf(f)), 1);
    EXPECT_EQ(d.Track(80, 0), nullptr);
    EXPECT_EQ(d.Track(83, 1), nullptr);
    EXPECT_EQ(Count(d, 0, 0), 9);
    EXPECT_EQ(d.writeProtect, 0);
    Remove(f);
}

TEST(FixExport, RefusalsLeaveNoFile) {
    struct Case {
        const char* what;
        int row;
        int cyls;
        int count;
        int n;
        void (*spoil)(VDisk&);
    };
    const Case cases[] = {
        {"geometry-only row", 1, 80, 8, 3, nullptr},
        {"twin row 7", 7, 77, 26, 1, nullptr},
        {"end marker", 10, 80, 8, 3, nullptr},
        {"row below table", -1, 80, 8, 3, nullptr},
        {"row past table", 11, 80, 8, 3, nullptr},
        {"too few cylinders", 0, 76, 8, 3, nullptr},
        {"wrong count", 5, 80, 15, 2, nullptr},
        {"16 sectors on c0h1", 3, 80, 15, 2,
         [](VDisk& d) {
             d.Track(0, 1)->AddSector(NewSector(1, 0, 1, 16, 2, Pattern(512, 1), 84));
         }},
        {"one sector of another N", 8, 80, 9, 2,
         [](VDisk& d) { d.Track(79, 1)->GetLasttSector()->idN = 3; }},
        {"single-sided", 8, 80, 9, 2,
         [](VDisk& d) {
             for (int c = 0; c < 80; c++) d.tracks[c][1].reset();
         }},
    };
    for (const Case& k : cases) {
        SCOPED_TRACE(k.what);
        VDisk d;
        FillUniformDisk(d, VDISK_2HD, k.cyls, k.count, k.n, 84);
        if (k.spoil) k.spoil(d);
        const std::string f = ScratchFile("fix_refused.img");
        Remove(f);
        EXPECT_EQ(d.ExportFIX(k.row, PathOf(f)), 0);
        EXPECT_FALSE(Exists(f));
    }
}

TEST(FixExport, ListOrderOwnLengthsAndExtraCylindersDropped) {
    VDisk d;
    FillUniformDisk(d, VDISK_2HD, 82, 8, 3, 116);
    // Reverse the sectors of cylinder 0 head 0 and shorten one of them.
    VTrack* t = d.Track(0, 0);
    std::vector<VSector*> list;
    for (VSector* s = t->sectors; s; s = s->next) list.push_back(s);
    t->sectors = nullptr;
    t->mfmCount = 0;
    for (auto it = list.rbegin(); it != list.rend(); ++it) t->AddSector(*it);
    t->GetSectorByIndex(2)->SetData(Pattern(100, 77).data(), 100);
    // Density and status are not looked at.
    d.Track(5, 1)->sectors->status = SECT_DATACRC;

    const std::string f = ScratchFile("fix_order.hdm");
    ASSERT_EQ(d.ExportFIX(0, PathOf(f)), 1);
    const std::vector<uint8_t> got = ReadFile(f);
    std::vector<uint8_t> expect;
    for (int c = 0; c < 77; c++)
        for (int h = 0; h < 2; h++)
            for (const VSector* s = d.Track(c, h)->sectors; s; s = s->next) {
                const std::vector<uint8_t> data = DataOf(s);
                expect.insert(expect.end(), data.begin(), data.end());
            }
    EXPECT_EQ(expect.size(), 1261568u - 1024u + 100u);
    EXPECT_EQ(got, expect);
    Remove(f);
}

TEST(FixRoundTrip, WrittenImagesReadBackIdentically) {
    struct Case {
        int row;
        const char* file;
    };
    for (const Case& k : {Case{0, "fix_rt.hdm"}, Case{3, "fix_rt.2hc"}, Case{5, "fix_rt.2hq"},
                          Case{8, "fix_rt.2dd"}}) {
        SCOPED_TRACE(k.file);
        const FixFormatEntry& row = VDisk::FixFormat[k.row];
        VDisk d;
        FillUniformDisk(d, row.type, row.cylinders, row.sectors, row.n, row.gap3);
        const std::string f = ScratchFile(k.file);
        ASSERT_EQ(d.ExportFIX(k.row, PathOf(f)), 1);
        EXPECT_EQ(FileSize(f), row.size);
        VDisk back;
        ASSERT_EQ(back.Import(PathOf(f), 1), 1);
        EXPECT_EQ(back.type, row.type);
        EXPECT_EQ(back.cylinders, row.cylinders);
        ExpectSameSectors(d, back, row.cylinders);
        Remove(f);
    }
}

}  // namespace
