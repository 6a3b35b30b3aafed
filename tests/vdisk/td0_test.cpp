// Teledisk images: real files against their twins, files written here for every data
// encoding, sector flag, density, rate and the comment, each in all three body forms, and
// hostile files refused with their reasons.
#include "image_builder.h"
#include "td0synth.h"

using namespace vdt;
using namespace td0synth;

namespace {

const td0synth::Compression kForms[] = {kNormal, kLzw, kLzhuf};

TEST(Td0Import, RealFilesHoldTheSectorsOfTheirTwins) {
    const std::string dir = std::string(ZEBKIT_REALIMAGES_DIR) + "/archive/";
    std::ifstream probe(dir + "pc-720k.td0");
    if (!probe) GTEST_SKIP() << "no real images at " << dir;
    // {file, its twin, type, cylinders, the disk's name (none: the file's)}
    const std::tuple<std::string, std::string, int, int, const char*> cases[] = {
        {"pc-720k.td0", "pc-720k.img", VDISK_2DD, 80,
         "720K 3.5 inch floppy Test Image Teledisk td0"},
        {"pc-360k-td215-advanced.td0", "pc-360k-td215-normal.td0", VDISK_2D, 41, nullptr},
        {"pc-360k-td105-advanced.td0", "pc-360k-td105-normal.td0", VDISK_2D, 41, nullptr},
        {"pc-360k-td105-normal.td0", "pc-360k-td215-normal.td0", VDISK_2D, 41, nullptr},
    };
    for (const auto& [file, twinFile, type, cyls, name] : cases) {
        SCOPED_TRACE(file);
        VDisk d, twin;
        ExpectImport(d, dir + file, "");
        ExpectImport(twin, dir + twinFile, "");
        EXPECT_EQ(std::tuple(d.type, d.cylinders, d.heads, d.Track(0, 0)->SectorCount()),
                  std::tuple(type, cyls, 2, 9));
        EXPECT_EQ(d.name, std::string(name ? name : file));
        EXPECT_EQ(d.report.warnings, std::vector<std::string>{});
        // A plain image keeps no IDs or gaps: its sectors are compared by R only.
        EXPECT_TRUE(twinFile.ends_with(".img") ? Flat(d) == Flat(twin) : Diff(d, twin).empty());
        EXPECT_EQ(Flat(d).size(), 2u * cyls * 9 * 512);
    }
}

// Sector data that suit an encoding: varied bytes, one repeated word, or runs of one and
// three words between literal stretches.
Bytes DataFor(int encoding, int n, int seed) {
    Bytes d(static_cast<size_t>(128 << n));
    for (size_t i = 0; i < d.size(); i++) {
        const size_t part = i * 4 / d.size();
        d[i] =
            static_cast<uint8_t>(encoding == td0blk::kPattern            ? 0x40 + (i & 1) + seed
                                 : encoding == td0blk::kRaw || part == 0 ? i * 7 + seed + (i >> 5)
                                 : part == 1                             ? 0xE5 + (i & 1)
                                 : part == 2                             ? "ABCDEF"[i % 6]
                                                                         : i >> 4);
    }
    return d;
}

TEST(Td0Import, EncodingsFlagsDensitiesAndRates) {
    using namespace td0sec;
    const std::string at = " (first: track 0.0, R 3)";
    // clang-format off
    const struct {
        int encoding, flags, rate, head, cyl;
        int status, cut, mfm, mfmOf1, type;  // cut: a raw block of that many bytes
        std::string warning;
    } cases[] = {
        {td0blk::kRaw, 0, 0, 0, 0, 0, 0, 1, 1, VDISK_2D, ""},
        {td0blk::kPattern, 0, 1, 0, 0, 0, 0, 1, 1, VDISK_2D, ""},
        {td0blk::kRunLength, 0, 2, 0, 0, 0, 0, 1, 1, VDISK_2HD, ""},
        {td0blk::kRunLength, 0, 0, 0, 50, 0, 0, 1, 1, VDISK_2DD, ""},
        {td0blk::kRaw, 0, 0x80, 0, 0, 0, 0, 0, 0, VDISK_2D, ""},      // the disk is FM
        {td0blk::kRaw, 0, 0x82, 0x80, 0, 0, 0, 0, 1, VDISK_2HD, ""},  // a track is
        {td0blk::kRaw, 0, 0, 0x80, 0, 0, 0, 0, 1, VDISK_2D, ""},
        {td0blk::kRaw, kCrcError, 0, 0, 0, SECT_DATACRC, 0, 1, 1, VDISK_2D, ""},
        {td0blk::kPattern, kDeleted | kCrcError, 0, 0, 0, SECT_DELETED | SECT_DATACRC, 0, 1, 1, VDISK_2D, ""},
        {td0blk::kRaw, kNoData, 0, 0, 0, SECT_NODAM, 0, 1, 1, VDISK_2D, ""},
        {td0blk::kRaw, kSkipped, 0, 0, 0, 0, 0, 1, 1, VDISK_2D, "1 sector not saved as unallocated is filled with zeros" + at},
        {td0blk::kRaw, kNoId, 0, 0, 0, 0, 0, 1, 1, VDISK_2D, "1 sector recorded without an ID field is given the ID the file lists" + at},
        {td0blk::kRunLength, kDuplicate, 0, 0, 0, 0, 0, 1, 1, VDISK_2D, "1 sector flagged as repeated in its track keeps only the copy the file holds" + at},
        {td0blk::kRaw, 0, 0, 0, 0, 0, 100, 1, 1, VDISK_2D, "1 sector holds fewer bytes than its size, filled with zeros" + at},
    };
    // clang-format on
    for (const auto& k : cases) {
        Image img;
        img.rate = k.rate;
        Sector s{k.cyl, 0, 3, 2, k.flags, DataFor(k.encoding, 2, k.flags), k.encoding, {}};
        Bytes want = (k.flags & kNoData) ? Bytes() : (k.flags & kSkipped) ? Bytes(512) : s.data;
        if (k.cut > 0) {
            s.block = {td0blk::kRaw};
            s.block.insert(s.block.end(), s.data.begin(), s.data.begin() + k.cut);
            std::fill(want.begin() + k.cut, want.end(), 0);
            s.data = want;  // its check byte is that of what the sector holds
        }
        img.tracks = {{k.cyl, k.head, {s}},
                      {1, 1, {{1, 1, 1, 1, 0, DataFor(td0blk::kRunLength, 1, 9), 2, {}}}}};
        for (const auto form : kForms) {
            SCOPED_TRACE("row " + std::to_string(&k - cases) + " form " + std::to_string(form));
            VDisk d;
            ExpectImport(d, Put("enc.td0", File(img, form)), "");
            EXPECT_EQ(std::tuple(d.type, d.cylinders, d.heads),
                      std::tuple(k.type, std::max(k.cyl, 1) + 1, 2));
            const VSector* x = d.Track(k.cyl, 0)->sectors;
            ASSERT_NE(x, nullptr);
            EXPECT_EQ(
                std::tuple(x->idC, x->idH, x->idR, x->idN, x->status, x->mfm, x->gap2, x->gap3),
                std::tuple(k.cyl, 0, 3, 2, k.status, k.mfm, k.mfm ? 22 : 11,
                           (k.mfm ? Gap3MFM : Gap3FM)[2]));
            EXPECT_EQ(Bytes(x->data, x->data + x->length), want);
            EXPECT_EQ(std::pair(d.Track(1, 1)->sectors->mfm, d.Track(1, 1)->SectorCount()),
                      std::pair(k.mfmOf1, 1));
            EXPECT_EQ(d.report.warnings, Lines(k.warning));
        }
    }
}

TEST(Td0Import, TheCommentsFirstLineNamesTheDisk) {
    const struct {
        std::string text, name;  // no text: no comment
        bool spoilSum;
        std::vector<std::string> warnings;
    } cases[] = {
        {"", "name.td0", false, {}},
        {std::string("SYSTEM DISK\0\0\0", 14), "SYSTEM DISK", false, {}},
        // clang-format off
        {std::string("LINE ONE\0LINE 2\0", 16), "LINE ONE", false,
         {"6 characters of the comment beyond the disk name were not kept"}},
        {std::string(61, 'x'), std::string(59, 'x'), true,
         {"the comment fails its check sum", "2 characters of the comment beyond the disk name were not kept"}},
        // clang-format on
    };
    for (const auto& k : cases) {
        Image img;
        img.hasComment = !k.text.empty(), img.comment = k.text, img.sides = 1;
        img.tracks = {{0, 0, {{0, 0, 1, 0, 0, Bytes(128, 1), 0, {}}}}};
        for (const auto form : kForms) {
            SCOPED_TRACE("row " + std::to_string(&k - cases) + " form " + std::to_string(form));
            if (k.spoilSum && form != kNormal) continue;
            Bytes f = File(img, form);
            if (k.spoilSum) f[td0hdr::kSize] ^= 1;
            VDisk d;
            ExpectImport(d, Put("name.td0", f), "");
            EXPECT_EQ(std::string(d.name), k.name);
            EXPECT_EQ(d.heads, 1);
            EXPECT_EQ(d.report.warnings, k.warnings);
        }
    }
}

// Runs of LZW codes that each add one byte to the string before: one block spells out
// 1 + 2 + ... + 3840 bytes, then repeats its longest string.
Bytes GrowingLzw(int blocks) {
    Bytes b;
    for (int k = 0; k < blocks; k++) {
        std::vector<int> codes = {'A'};
        for (int c = 256; c < 4096; c++) codes.push_back(c);
        while (codes.size() < 4096) codes.push_back(4095);
        Le16(b, codes.size() * 3);
        for (size_t i = 0; i < codes.size(); i += 2) {
            const int v = codes[i] | codes[i + 1] << 12;
            b.insert(b.end(), {uint8_t(v), uint8_t(v >> 8), uint8_t(v >> 16)});
        }
    }
    return b;
}

TEST(Td0Import, HostileFilesAreRefusedWithTheirReason) {
    Image base;
    base.tracks = {{0, 0, {{0, 0, 1, 0, 0, Bytes(128, 7), 0, {}}}}};
    auto block = [&](int n, Bytes blk) {
        Image i = base;
        i.tracks[0].sectors = {{0, 0, 1, n, 0, Bytes(), 0, blk}};
        return File(i);
    };
    auto patched = [&](size_t at, uint8_t v) {
        Bytes f = File(base);
        f[at] = v;
        if (at < td0hdr::kCrc)
            FieldWriter(f.data(), f.size()).U16(td0hdr::kCrc, Td0Crc(f.data(), td0hdr::kCrc));
        return f;
    };
    auto compressed = [](const char* sig, int version, const Bytes& body) {
        Bytes f = File(Image{}, kNormal);
        f.resize(td0hdr::kSize);
        f[0] = sig[0], f[1] = sig[1], f[td0hdr::kVersion] = static_cast<uint8_t>(version);
        FieldWriter(f.data(), f.size()).U16(td0hdr::kCrc, Td0Crc(f.data(), td0hdr::kCrc));
        f.insert(f.end(), body.begin(), body.end());
        return f;
    };
    Image twice = base, tooMuch = base;
    twice.tracks.push_back(base.tracks[0]);
    tooMuch.tracks[0].sectors = {{0, 0, 1, 7, 0, Bytes(16384, 1), 1, {}},
                                 {0, 0, 2, 7, 0, Bytes(16384, 2), 1, {}}};
    Bytes endless = File(base), cutLzw = File(base, kLzw), cutLzhuf = File(base, kLzhuf);
    endless.resize(endless.size() - 4);
    cutLzw.pop_back();
    cutLzhuf.resize(cutLzhuf.size() / 2);
    const std::pair<Bytes, std::string> cases[] = {
        {patched(0, 'X'), "no Teledisk signature \"TD\" or \"td\""},
        {patched(td0hdr::kCrc + 1, 0xEE), "header check sum 0xEE"},
        {patched(td0hdr::kSequence, 1), "volume 2 of a set split over several files"},
        {compressed("TD", 21, {}),
         "track header: the data end early at offset 12 (4 bytes wanted, 0 left); no end mark"},
        {endless, "no end mark"},
        {cutLzhuf, "of the expanded data"},
        {patched(12 + 1, 90), "gives cylinder 90 head 0"},
        {patched(12 + 2, 2), "gives cylinder 0 head 2"},
        {File(twice), "track 0.0 appears twice (again at offset 153)"},
        {File(tooMuch), "track 0.0: its sectors hold more than 25000 bytes"},
        {block(0, Bytes(130, 0)), "sector 1: 129 bytes of raw data, more than its sector's 128"},
        {block(0, {1, 65, 0, 'a', 'b'}), "a pattern of 130 bytes, more than its sector's 128"},
        {block(0, {1, 2, 0, 'a'}), "a pattern block of 3 bytes (4 are read)"},
        {block(0, {2, 1, 65, 'a', 'b'}), "run-length data that expand past its sector's 128"},
        {block(0, {2, 0, 100, 'a'}), "a run-length chunk cut short at the block's end"},
        {block(0, {2, 3, 10, 'a', 'b'}), "a run-length chunk cut short"},
        {block(0, {3, 1}), "unknown data encoding 3 (0, 1 and 2 are read)"},
        {block(8, {0, 1}), "size code 8 with data (at most 7, 16384 bytes, is read)"},
        {cutLzw, "block 1: "},
        {compressed("td", 11, {3, 0, 0x2C, 0x01}), "block 1: code 300 before it is defined"},
        {compressed("td", 11, {4, 0, 1, 2, 3}), "block 1: 4 half-bytes of codes"},
        {compressed("td", 11, GrowingLzw(2)), "(version 1.x, LZW): expands past 8388608 bytes"},
        {compressed("td", 21, Lzhuf(Bytes((8u << 20) + 100, 0))),
         "(version 2.x, LZSS and Huffman): expands past 8388608 bytes"},
        {compressed("TD", 21, Bytes((8u << 20) + 1, 0)),
         "8388609 bytes after the header, more than a disk holds (8388608 are read)"},
    };
    for (const auto& [file, reason] : cases) {
        SCOPED_TRACE(reason);
        VDisk d;
        const std::string path = Put("hostile.td0", file);
        EXPECT_EQ(d.Import(PathOf(path), 1), 0);
        EXPECT_EQ(d.report.error.rfind(path + ": ", 0), 0u) << d.report.error;
        EXPECT_NE(d.report.error.find(reason), std::string::npos) << d.report.error;
    }
}

}  // namespace
