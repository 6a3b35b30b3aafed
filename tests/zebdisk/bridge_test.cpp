#include <gtest/gtest.h>
#include <sys/stat.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <fstream>
#include <iterator>
#include <random>
#include <string>
#include <vector>

#include "fileio/filepath.h"
#include "vdisk/vdisk.h"
#include "zebdisk/zebdisk.h"

namespace {

void WriteFile(const std::string& name, const std::vector<uint8_t>& data) {
    chmod(name.c_str(), 0644);  // a name protected by an earlier run
    std::ofstream f(name, std::ios::binary | std::ios::trunc);
    f.write(reinterpret_cast<const char*>(data.data()), static_cast<std::streamsize>(data.size()));
}

std::vector<uint8_t> ReadFile(const std::string& name) {
    std::ifstream f(name, std::ios::binary);
    return std::vector<uint8_t>(std::istreambuf_iterator<char>(f), {});
}

Filepath PathOf(const std::string& name) {
    Filepath p;
    p.SetPath(name.c_str());
    return p;
}

std::vector<uint8_t> RandomImage(size_t size, uint32_t seed) {
    std::mt19937 rng(seed);
    std::vector<uint8_t> v(size);
    for (auto& b : v) b = static_cast<uint8_t>(rng());
    return v;
}

std::string NameOf(const ZEBDisk& d) {
    char buf[zebhdr::kNameLen];
    return d.GetName(buf);
}

TEST(BridgeImport, MediumRpmNameAndProtectionFromPlainImages) {
    struct Case {
        const char* file;
        size_t size;
        bool readOnly;
        int type;
        int rate;
        int rpm;
        int usedCylinders;
    };
    const Case cases[] = {
        {"br_imp.hdm", 1261568, false, ZEB_2HD, 1000, 360, 77},
        {"br_imp.2hc", 1228800, true, ZEB_2HD, 1000, 360, 80},
        {"br_imp.2hq", 1474560, false, ZEB_2HD, 1000, 300, 80},
        {"br_imp.2dd", 737280, true, ZEB_2DD, 500, 300, 80},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.file);
        WriteFile(c.file, RandomImage(c.size, 1));
        ASSERT_EQ(chmod(c.file, c.readOnly ? 0444 : 0644), 0);
        ZEBDisk d;
        ASSERT_TRUE(d.Import(PathOf(c.file), 1));
        EXPECT_EQ(d.initialized, 1);
        EXPECT_EQ(d.Type(), c.type);
        EXPECT_EQ(d.Rate(), c.rate);
        EXPECT_EQ(d.Rpm(), c.rpm);
        EXPECT_EQ(d.Cylinders(), 84);
        EXPECT_EQ(d.Heads(), 2);
        EXPECT_EQ(NameOf(d), c.file);
        EXPECT_EQ(d.HeaderInt(zebhdr::kWriteProtect), c.readOnly ? 1 : 0);
        const int nominal = c.rate * 60000 / c.rpm;
        EXPECT_EQ(d.GetTrackLen(0, 0), nominal);
        // A formatted track starts with gap bytes; cylinders the image lacks stay blank.
        const uint8_t* first = d.GetTrackData(0, 1);
        EXPECT_NE(std::count(first, first + nominal / 8, 0), nominal / 8);
        const uint8_t* blank = d.GetTrackData(c.usedCylinders, 0);
        EXPECT_EQ(d.GetTrackLen(c.usedCylinders, 0), nominal);
        EXPECT_EQ(std::count(blank, blank + nominal / 8, 0), nominal / 8);
    }
}

TEST(BridgeImport, FailuresLeaveTheDiskEmpty) {
    WriteFile("br_bad.xyz", RandomImage(737280, 2));  // a plain size: read whatever the name
    WriteFile("br_bad_size.xyz", RandomImage(1000, 2));
    WriteFile("br_bad_size.d88", RandomImage(1000, 2));
    const char* bad[] = {"br_bad_size.xyz", "br_bad_size.d88", "br_no_such_file.2dd",
                         "br_no_such.hfe"};
    for (const char* name : bad) {
        SCOPED_TRACE(name);
        ZEBDisk d;
        ASSERT_TRUE(d.Import(PathOf("br_bad.xyz"), 1));
        EXPECT_FALSE(d.Import(PathOf(name), 1));
        EXPECT_EQ(d.initialized, 0);
        EXPECT_EQ(d.GetTrackData(0, 0), nullptr);
    }
    ZEBDisk d;
    EXPECT_FALSE(d.Import(Filepath(), 1));
    EXPECT_FALSE(d.Export(PathOf("br_never.2dd"), 0));
    EXPECT_FALSE(std::ifstream("br_never.2dd").good());
}

TEST(BridgeAnalyze, DecodesOneTrackOrRefusesOutsideTheDisk) {
    const std::vector<uint8_t> image = RandomImage(737280, 3);
    WriteFile("br_an.2dd", image);
    ZEBDisk d;
    EXPECT_EQ(d.Analyze(0, 0, 0), nullptr);
    ASSERT_TRUE(d.Import(PathOf("br_an.2dd"), 1));
    for (int mode : {0, 1}) {
        for (auto [c, h] : {std::pair{0, 0}, std::pair{41, 1}, std::pair{79, 1}}) {
            SCOPED_TRACE(testing::Message() << "mode " << mode << " c" << c << " h" << h);
            std::unique_ptr<VTrack> t = d.Analyze(c, h, mode);
            ASSERT_NE(t, nullptr);
            ASSERT_EQ(t->SectorCount(), 9);
            for (int r = 0; r < 9; r++) {
                const VSector* s = t->GetSectorByIndex(r);
                ASSERT_NE(s, nullptr);
                EXPECT_EQ(s->idC, c);
                EXPECT_EQ(s->idH, h);
                EXPECT_EQ(s->idR, r + 1);
                ASSERT_EQ(s->length, 512);
                const size_t at =
                    (static_cast<size_t>(c * 2 + h) * 9 + static_cast<size_t>(r)) * 512;
                EXPECT_EQ(std::memcmp(s->data, image.data() + at, 512), 0);
            }
        }
    }
    // The blank cylinders the image lacks decode to nothing.
    std::unique_ptr<VTrack> blank = d.Analyze(83, 1, 0);
    ASSERT_NE(blank, nullptr);
    EXPECT_EQ(blank->SectorCount(), 0);
    EXPECT_EQ(d.Analyze(84, 0, 0), nullptr);
    EXPECT_EQ(d.Analyze(0, 2, 0), nullptr);
    EXPECT_EQ(d.Analyze(-1, 0, 0), nullptr);
    EXPECT_EQ(d.Analyze(0, -1, 0), nullptr);
}

TEST(BridgeExport, RawDiskIsConvertedAndStaysConverted) {
    const std::vector<uint8_t> image = RandomImage(737280, 4);
    WriteFile("br_raw.2dd", image);
    ZEBDisk d;
    ASSERT_TRUE(d.Import(PathOf("br_raw.2dd"), 1));
    ASSERT_TRUE(d.ConvertRaw());
    ASSERT_EQ(d.Type(), ZEB_RAW);
    // A raw track decodes directly too.
    std::unique_ptr<VTrack> t = d.Analyze(5, 0, 0);
    ASSERT_NE(t, nullptr);
    EXPECT_EQ(t->SectorCount(), 9);

    ASSERT_TRUE(d.Export(PathOf("br_raw_out.2DD"), 0));
    EXPECT_TRUE(ReadFile("br_raw_out.2DD") == image);
    EXPECT_EQ(d.Type(), ZEB_2DD);
    EXPECT_EQ(d.Rate(), 500);
    // Exporting again needs no further conversion and gives the same file.
    ASSERT_TRUE(d.Export(PathOf("br_raw_out2.2dd"), 1));
    EXPECT_TRUE(ReadFile("br_raw_out2.2dd") == image);
}

TEST(BridgeExport, NameAndWriteProtectionReachTheSectorImage) {
    WriteFile("br_name.2hq", RandomImage(1474560, 5));
    for (int wp : {0, 1}) {
        SCOPED_TRACE(wp);
        ZEBDisk d;
        ASSERT_TRUE(d.Import(PathOf("br_name.2hq"), 1));
        d.SetName("VOLUME-A");
        d.SetHeaderInt(zebhdr::kWriteProtect, wp ? 7 : 0);
        const std::string out = std::string("br_name_") + std::to_string(wp) + ".d88";
        ASSERT_TRUE(d.Export(PathOf(out), 0));
        VDisk v;
        ASSERT_TRUE(v.Import(PathOf(out), 1));
        EXPECT_STREQ(v.name, "VOLUME-A");
        EXPECT_EQ(v.writeProtect, wp);
        EXPECT_EQ(v.type, VDISK_2HD);

        // And back again into a fresh track-level disk.
        ZEBDisk e;
        ASSERT_TRUE(e.Import(PathOf(out), 1));
        EXPECT_EQ(NameOf(e), "VOLUME-A");
        EXPECT_EQ(e.HeaderInt(zebhdr::kWriteProtect), wp);
        EXPECT_EQ(e.Rpm(), 300);
    }
}

}  // namespace
