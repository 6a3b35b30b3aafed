// ImageDisk files: real ones against what they hold, the writer's files read back, and
// hostile files refused with their reasons.
#include <regex>

#include "image_builder.h"

using namespace vdt;

namespace {

// Sector counts of a disk: all, FM, IDs without a data mark or data; and the first
// sector's H and R on track 7.1.
std::tuple<int, int, int, int, int> Counts(const VDisk& d) {
    int all = 0, fm = 0, nodam = 0;
    for (int t = 0; t < 2 * d.cylinders; t++)
        for (const VSector* s = d.Track(t / 2, t % 2)->sectors; s; s = s->next)
            all++, fm += !s->mfm, nodam += s->status == SECT_NODAM && !s->length && !s->data;
    const VSector* s = d.Track(7, 1)->sectors;
    return {all, fm, nodam, s->idH, s->idR};
}

TEST(ImdImport, RealFilesHoldTheirDisks) {
    const std::string dir = std::string(ZEBKIT_REALIMAGES_DIR) + "/archive/";
    if (!std::ifstream(dir + "pc-720k.imd")) GTEST_SKIP() << "no real images at " << dir;
    // {file, type, cylinders, {sectors, FM, unavailable, H and R of track 7.1}, warning}
    // clang-format off
    const std::tuple<const char*, int, int, std::tuple<int, int, int, int, int>, const char*> cases[] = {
        {"pc-720k", 3, 80, {1440, 0, 0, 1, 1}, ""},
        {"os9-mixed-modes", 7, 35, {644, 16, 0, 1, 0}, "1 track at 250 or 300 kbit/s is read as 2HD like the other 69 (first: track 0.0)"},
        {"kaypro-unavailable-sectors", 1, 40, {800, 0, 2, 0, 10}, "2 sectors are recorded as unavailable, read as an ID without a data mark (first: track 0.0, R 1)"},
    };
    // clang-format on
    for (const auto& [file, type, cyls, counts, warning] : cases) {
        SCOPED_TRACE(file);
        VDisk d, back;
        ExpectImport(d, dir + file + ".imd", "");
        EXPECT_EQ(std::tuple(d.type, d.cylinders, d.heads), std::tuple(type, cyls, 2));
        EXPECT_EQ(Counts(d), counts);
        EXPECT_EQ(d.report.warnings, Lines(warning));
        // D88 keeps every sector; only the missing data marks are not read back.
        Written(d, "real.d88");
        ExpectImport(back, Scratch("real.d88"), "");
        for (int t = 0; t < 2 * cyls; t++)
            for (VSector* s = d.Track(t / 2, t % 2)->sectors; s; s = s->next)
                s->status &= SECT_DELETED;
        EXPECT_EQ(Diff(d, back), "");
        // The same disk as a plain image: every sector, found by its R.
        if (std::string(file) != "pc-720k") continue;
        ExpectImport(back, dir + file + ".img", "");
        EXPECT_TRUE(Flat(d) == Flat(back));
    }
}

TEST(ImdRoundTrip, EverySampleDiskComesBackWhole) {
    // The geometries of the other formats' round trips; then one sector per track of every
    // kind: FM, deleted, CRC errors, no data mark, a filled sector, IDs unlike the track's,
    // sizes of no size code and tracks of mixed sizes.
    const int cases[][5] = {{7, 80, 18, 2, 7}, {7, 77, 8, 3, 7}, {3, 80, 9, 2, 3},
                            {1, 40, 9, 2, 1},  {7, 84, 0, 0, 7}, {1, 42, 0, 0, 1}};
    const int status[] = {0, SECT_DELETED, SECT_DATACRC, SECT_DELETED | SECT_DATACRC, SECT_NODAM};
    for (const auto& k : cases) {
        SCOPED_TRACE("row " + std::to_string(&k - cases));
        VDisk src, back;
        k[2] ? Uniform(src, k[0], k[1], k[2], k[3]) : src.Init(k[0], k[1], 2);
        for (int t = 0; !k[2] && t < 2 * k[1]; t++) {
            VTrack* trk = src.Track(t / 2, t % 2);
            const int st = status[t % 5], len = st == SECT_NODAM ? 0 : t % 7 == 3 ? 300 : -1;
            const int n = len == 300 ? 2 : t % 8;
            trk->AddSector(Sec(t % 4 != 1, t / 2 + t % 3, t % 2 ? 0 : 9, t, n, st, len));
            if (t % 6 == 0 && st != SECT_NODAM) trk->sectors->SetData(nullptr, 128 << n);
            if (t % 5 == 0) trk->AddSector(Sec(t % 4 != 1, t / 2, t % 2, 200, 1));
        }
        std::snprintf(src.name, sizeof src.name, "Sample disk %d", k[0]);
        const Bytes file = Written(src, "rt.imd");
        EXPECT_EQ(src.report.warnings, Lines(""));
        const std::string text(file.begin(), file.begin() + 47);
        EXPECT_TRUE(std::regex_match(text, std::regex(R"(IMD 1\.18: \d\d/\d\d/\d{4} \d\d:\d\d:\d\d)"
                                                      "\r\nSample disk \\d\r\n\x1A")))
            << text;
        ExpectImport(back, Scratch("rt.imd"), "");
        EXPECT_EQ(std::tuple(back.type, back.cylinders, back.heads), std::tuple(k[4], k[1], 2));
        EXPECT_STREQ(back.name, src.name);
        EXPECT_EQ(Diff(src, back), "");
    }
}

TEST(ImdExport, WhatTheFileCannotKeepIsWarnedOf) {
    const std::string at = " (first: track 1.0, R 2)";
    // clang-format off
    const std::pair<VSector*, std::string> cases[] = {
        {Sec(1, 1, 0, 2, 2, SECT_IDCRC), "1 sector with ID CRC errors loses that status in .IMD" + at},
        {Sec(1, 1, 0, 2, 2, SECT_NODAM), "1 sector without data or a data mark is written as unavailable in .IMD, keeping no data, deleted mark or CRC error" + at},
        {Sec(0, 1, 0, 2, 2), "1 sector of the other density than most of its track is written in the track's density in .IMD" + at},
        {Sec(1, 1, 0, 2, 3, 0, 512), "1 sector whose size code does not match its length loses it in .IMD, which keeps lengths only" + at},
        {Sec(1, 1, 0, 2, 7, 0, 16385), "sector R 2 of track 1.0 holds 16385 bytes, more than .IMD records (16384)"},
    };
    // clang-format on
    for (const auto& [sector, line] : cases) {
        VDisk d;
        Uniform(d, VDISK_2DD, 2, 1, 2);
        d.Track(1, 0)->AddSector(sector);
        const bool refused = Written(d, "loss.imd").empty();
        EXPECT_EQ(refused ? Lines(d.report.error) : d.report.warnings,
                  Lines(refused ? Scratch("loss.imd") + ": " + line : line));
    }
}

// A file of one track record after a header with no comment.
Bytes Imd(Bytes record) {
    const std::string head = "IMD 1.18: 01/02/2003 04:05:06\r\n\x1A";
    record.insert(record.begin(), head.begin(), head.end());
    return record;
}

TEST(ImdImport, HostileFilesAreRefused) {
    const std::string r = "track record at offset 32: ", t = "track 0.1 (record at offset 32): ";
    auto ends = [](int at, int want, int from) {
        return "file ends early at offset " + std::to_string(at) + " (" + std::to_string(want) +
               " bytes wanted from offset " + std::to_string(from) + ")";
    };
    // clang-format off
    const std::pair<Bytes, std::string> cases[] = {
        {{}, "empty file"},
        {{'I', 'M', 'G', ' ', 0x1A}, "no \"IMD \" header line at the start"},
        {{'I', 'M', 'D', ' ', '1'}, "no 0x1A byte ends the header and comment"},
        {Imd({5, 0, 1, 1}), r + ends(36, 5, 32)},
        {Imd({6, 0, 1, 1, 2}), r + "mode 6 (0 to 5 are read)"},
        {Imd({5, 0, 3, 1, 2}), r + "head byte 0x03 (head 0 or 1 with the map flags 0x80 and 0x40 are read)"},
        {Imd({5, 0, 1, 1, 7}), r + "size code 7 (0 to 6 and 0xFF are read)"},
        {Imd({5, 0, 1, 2, 2, 1}), t + "sector numbering map: " + ends(38, 2, 37)},
        {Imd({5, 0, 0xC1, 1, 2, 1, 0}), t + "head map: " + ends(39, 1, 39)},
        {Imd({5, 0, 1, 1, 0xFF, 1, 0}), t + "sector size table: " + ends(39, 2, 38)},
        {Imd({5, 0, 1, 1, 0xFF, 1, 0, 0}), t + "sector 1 of 0 bytes (1 to 16384 are read)"},
        {Imd({5, 0, 1, 1, 0xFF, 1, 0x01, 0x40}), t + "sector 1 of 16385 bytes (1 to 16384 are read)"},
        {Imd({5, 0, 1, 1, 2, 1, 9}), t + "sector 1: record type 9 (0 to 8 are read)"},
        {Imd({5, 0, 1, 1, 2, 1, 1, 0}), t + "sector 1: " + ends(40, 512, 39)},
        {Imd({5, 0, 1, 1, 2, 1, 8}), t + "sector 1: " + ends(39, 1, 39)},
        {Imd({5, 0, 1, 9, 6, 1, 2, 3, 4, 5, 6, 7, 8, 9}), t + "9 sectors of 73728 bytes, more than any track holds (65536 are read)"},
    };
    // clang-format on
    for (const auto& [file, reason] : cases) {
        VDisk d;
        ExpectImport(d, Put("bad.imd", file), reason);
    }
}

}  // namespace
