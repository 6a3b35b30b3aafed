// zebscan on a disk with known defects: the listing, JSON and CSV report
// exactly those defects.
#include <gtest/gtest.h>

#include <map>
#include <sstream>

#include "driver/scan_images.h"

using namespace scantest;

namespace {

// Every sector of the defect disk: status bits and listing letters.
struct SectorWant {
    int c, h, r, status;
    const char* letters;
};
const SectorWant kDefects[] = {
    {1, 0, 2, SECT_IDCRC, "i"},   {1, 0, 3, SECT_DATACRC, "d"}, {1, 0, 4, SECT_NODAM, "m"},
    {1, 0, 5, SECT_DELETED, "x"}, {1, 1, 3, SECT_DELETED, "x"}, {2, 0, 1, 0, "f"},
};

const std::string& DefectImage() {
    static const std::string name = [] {
        ZEBDisk d;
        BuildDefectDisk(d);
        EXPECT_TRUE(d.Save(Path("scan_defects.zeb"), 1));
        return std::string("scan_defects.zeb");
    }();
    return name;
}

const SectorWant* Defect(int c, int h, int r) {
    for (const auto& w : kDefects)
        if (w.c == c && w.h == h && w.r == r) return &w;
    return nullptr;
}

std::vector<std::string> Lines(const std::string& text) {
    std::vector<std::string> out;
    std::istringstream in(text);
    for (std::string l; std::getline(in, l);) out.push_back(l);
    return out;
}

std::vector<std::string> Split(const std::string& row) {
    std::vector<std::string> out(1);
    for (char ch : row) {
        if (ch == ',') {
            out.emplace_back();
        } else {
            out.back().push_back(ch);
        }
    }
    return out;
}

TEST(ScanReport, ListingShowsEachDefectOnItsTrack) {
    ScanRun r = Zebscan(DefectImage(), "text");
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(r.err, "");
    const std::string want[] = {
        "Input file         : scan_defects.zeb\n"
        "DIsk Type          : 2DD\n"
        "Name               : DEFECTS\n"
        "Cylinders          : 42\n"
        "Heads              : 2\n"
        "Rate               : 500 kbps\n"
        "RPM                : 300\n"
        "Write Protect      : OFF\n\n"
        "Analyze mode       : uPD765\n\n"
        "Track Density     Sec  Usual IDs : Sectors in track order\n"
        " 0.0  MFM           9  C0 H0 N2 : 1 2 3 4 5 6 7 8 9\n",
        "\n 0.1  unformatted   0\n",
        "\n 1.0  MFM           8  C1 H0 N2 : 1 2i 3d 4m 5x 6[C7] 8 9  missing 7\n",
        "\n 1.1  FM            9  C1 H1 N0 : 1 2 3x 4 5 6 7 8 9\n",
        "\n 2.0  mixed         9  C2 H0 N1 : 1[N0]f 2 3 4 5 6 7 8 9\n",
        "\n 2.1  MFM           9  C2 H1 N1 : 2 3 4 5 6 7 8 9 1  [no index mark, sector crosses "
        "the index]\n",
        "\n 3.0 .. 41.1  unformatted (78 tracks)\nFlags: ",
        "\nTracks             : 84 scanned, 5 formatted, 79 unformatted\n"
        "Track densities    : 3 MFM, 1 FM, 1 mixed\n"
        "Sectors            : 44 found (34 MFM, 10 FM)\n"
        "Sectors good       : 41\n"
        "Sectors bad        : 3 (1 ID CRC, 1 data CRC, 1 no data mark)\n"
        "Sectors missing    : 1\n"
        "Sectors deleted    : 2\n"
        "Timing deviations  : 0\n",
    };
    for (const auto& w : want)
        EXPECT_NE(r.out.find(w), std::string::npos) << w << "\nin:\n" << r.out;
    EXPECT_EQ(r.out.substr(0, want[0].size()), want[0]);
}

TEST(ScanReport, JsonHoldsEverySectorWithItsStatus) {
    ScanRun r = Zebscan("--json " + DefectImage(), "json");
    ASSERT_EQ(r.status, 0) << r.err;
    int track = -1, c = 0, h = 0, sectors = 0;
    for (const std::string& l : Lines(r.out)) {
        if (l.find("{\"cylinder\":") != std::string::npos) {
            ASSERT_EQ(std::sscanf(l.c_str(), " {\"cylinder\":%d,\"head\":%d", &c, &h), 2) << l;
            track = c * 2 + h;
            for (const char* key :
                 {"\"density\":", "\"recordBits\":", "\"flags\":", "\"flagNames\":", "\"iamPos\":",
                  "\"gap1\":", "\"gap4a\":", "\"gap4b\":", "\"encLen\":100000",
                  "\"mfmCount\":", "\"fmCount\":", "\"missing\":"})
                EXPECT_NE(l.find(key), std::string::npos) << key;
            EXPECT_EQ(l.find("\"missing\":[7]") != std::string::npos, track == 2) << l;
            continue;
        }
        int rr = -1, status = -1;
        const size_t at = l.find("\"r\":");
        if (at == std::string::npos) continue;
        ASSERT_EQ(std::sscanf(l.c_str() + at, "\"r\":%d", &rr), 1);
        ASSERT_EQ(std::sscanf(l.c_str() + l.find("\"status\":"), "\"status\":%d", &status), 1);
        ++sectors;
        const SectorWant* w = Defect(c, h, rr);
        EXPECT_EQ(status, w ? w->status : 0) << l;
        EXPECT_NE(l.find(std::string("\"flags\":\"") + (w ? w->letters : "") + "\""),
                  std::string::npos)
            << l;
        for (const char* key :
             {"\"mfm\":", "\"c\":", "\"h\":", "\"n\":", "\"gap2\":", "\"length\":", "\"gap3\":",
              "\"idCrc\":\"", "\"dataCrc\":\"", "\"idPos\":", "\"damPos\":", "\"dataPos\":",
              "\"endPos\":", "\"dataCells\":", "\"timeDev\":0"})
            EXPECT_NE(l.find(key), std::string::npos) << key;
    }
    EXPECT_EQ(sectors, 44);
    EXPECT_NE(r.out.find("\"good\":41,\"bad\":3,\"missing\":1,"), std::string::npos);
}

TEST(ScanReport, CsvHasOneRowPerSector) {
    ScanRun r = Zebscan("--csv " + DefectImage(), "csv");
    ASSERT_EQ(r.status, 0) << r.err;
    auto rows = Lines(r.out);
    ASSERT_EQ(rows.size(), 45u);
    const auto head = Split(rows[0]);
    ASSERT_EQ(head.size(), 22u);
    EXPECT_EQ(head[7], "r");
    EXPECT_EQ(head[12], "status");
    const char* names[32] = {};
    names[SECT_IDCRC] = "id-crc";
    names[SECT_DATACRC] = "data-crc";
    names[SECT_NODAM] = "no-dam";
    names[SECT_DELETED] = "deleted";
    for (size_t i = 1; i < rows.size(); ++i) {
        const auto f = Split(rows[i]);
        ASSERT_EQ(f.size(), head.size()) << rows[i];
        const SectorWant* w = Defect(std::stoi(f[0]), std::stoi(f[1]), std::stoi(f[7]));
        const int status = w ? w->status : 0;
        EXPECT_EQ(std::stoi(f[12]), status) << rows[i];
        EXPECT_EQ(f[13], status ? names[status] : "") << rows[i];
    }
}

// A raw track whose sector 3 was written 5% slow: flagged, and progress stays
// off standard error when it is not a terminal.
TEST(ScanReport, RawTimingDeviationIsFlagged) {
    std::vector<SectorSpec> specs;
    for (int r = 1; r <= 9; ++r) specs.push_back(Spec(true, r, 2));
    std::vector<dectest::Placed> at;
    const auto cells = Stream(0, 0, specs, kCells, false, &at).Bytes();
    int samples = 0;
    const auto raw = dectest::CellsToRawStretched(cells, kCells, at[2].damPos - 192, at[2].endPos,
                                                  1.05, &samples);
    ZEBDisk d;
    ASSERT_TRUE(d.Init(ZEB_2DD, 0, 0, 1));
    d.SetHeaderInt(zebhdr::kCylinders, 1);
    d.SetHeaderInt(zebhdr::kHeads, 1);
    PutTrack(d, 0, 0, raw, samples);
    ASSERT_TRUE(d.Save(Path("scan_raw.zeb"), 1));

    ScanRun r = Zebscan("scan_raw.zeb", "raw");
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(r.err, "");
    EXPECT_NE(r.out.find(" 0.0  MFM           9  C0 H0 N2 : 1 2 3t 4 5 6 7 8 9\n"),
              std::string::npos)
        << r.out;
    EXPECT_NE(r.out.find("Timing deviations  : 1\n"), std::string::npos);
    ScanRun j = Zebscan("--json scan_raw.zeb", "rawjson");
    int dev = 0;
    const size_t at3 = j.out.find("\"r\":3,");
    ASSERT_NE(at3, std::string::npos);
    ASSERT_EQ(std::sscanf(j.out.c_str() + j.out.find("\"timeDev\":", at3), "\"timeDev\":%d", &dev),
              1);
    EXPECT_NEAR(dev, 50, 4);
}

}  // namespace
