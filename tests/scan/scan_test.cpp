// zebscan on a disk with known defects: the listing, JSON, CSV and the picture
// report exactly those defects; and its exit statuses.
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <map>
#include <regex>
#include <sstream>
#include <tuple>

#include "driver/driver_run.h"
#include "scan/scan_svg.h"
#include "track/decoder_stream.h"
#include "vdisk/imagecommon.h"
#include "vdisk/vdisk.h"
#include "zebdisk/zebdisk.h"

using namespace drivertest;

namespace {

ToolRun Zebscan(const std::string& args, const std::string& tag) {
    return RunTool(ZEBSCAN_PATH, args, "scan_" + tag);
}

dectest::SectorLayout Layout(bool mfm, int c, int h, int r, int n) {
    return {mfm,           uint8_t(c),   uint8_t(h),
            uint8_t(r),    uint8_t(n),   dectest::Pattern(128 << n, r),
            mfm ? 22 : 11, mfm ? 54 : 27};
}

// Sectors after an index mark (none when rotate >= 0, the stream then turned
// to start rotate cells after sector 1's data mark), as a 100000-cell track.
void PutTrack(ZEBDisk& d, int c, int h, const std::vector<dectest::SectorLayout>& layouts,
              int rotate = -1) {
    dectest::StreamBuilder b;
    const bool mfm = layouts.back().mfm;
    if (rotate < 0) mfm ? b.MfmHeader() : b.FmHeader();
    const int damPos = b.Sector(layouts[0]).damPos;
    for (size_t i = 1; i < layouts.size(); ++i) b.Sector(layouts[i]);
    b.PadTo(100000, mfm);
    const std::vector<uint8_t> bytes = rotate < 0 ? b.Bytes() : b.Rotated(damPos + rotate);
    d.NewRecord(c * 2 + h, static_cast<int>(bytes.size()) + 17, c, h, 100000);
    std::copy(bytes.begin(), bytes.end(), d.GetTrackData(c, h));
}

// A 2DD disk of 3 cylinders:
//   0.0  9 MFM sectors written by the encoder      0.1  no bits at all
//   1.0  MFM: 2 ID CRC error, 3 data CRC error, 4 no data mark, 5 deleted,
//        6 carries C 7, 7 absent
//   1.1  9 FM sectors of 128 bytes, 3 deleted      2.0  FM sector 1, MFM 2..9
//   2.1  9 MFM sectors, no index mark, sector 1 crossing the index
void SaveDefectDisk(const std::string& name) {
    ZEBDisk d;
    ASSERT_TRUE(d.Init(ZEB_2DD, 0, 0, 0));
    d.SetHeaderInt(zebhdr::kCylinders, 3);
    d.SetName("DEFECTS");
    VTrack good;
    for (int r = 1; r <= 9; ++r)
        good.AddSector(MakeSector(1, 0, 0, r, 2, dectest::Pattern(512, r).data(), 512, 22, 84, 0));
    d.SetRecordInt(0, zebrec::kBitLength, good.Encode(0, d.GetTrackData(0, 0), 100000));
    d.SetRecordInt(1, zebrec::kBitLength, 0);
    std::vector<dectest::SectorLayout> t10, t11, t20{Layout(false, 2, 0, 1, 0)}, t21;
    for (int r : {1, 2, 3, 4, 5, 6, 8, 9}) t10.push_back(Layout(true, r == 6 ? 7 : 1, 0, r, 2));
    t10[1].badIdCrc = t10[2].badDataCrc = t10[3].noDam = t10[4].deleted = true;
    for (int r = 1; r <= 9; ++r) {
        t11.push_back(Layout(false, 1, 1, r, 0));
        if (r > 1) t20.push_back(Layout(true, 2, 0, r, 1));
        t21.push_back(Layout(true, 2, 1, r, 1));
    }
    t11[2].deleted = true;
    PutTrack(d, 1, 0, t10), PutTrack(d, 1, 1, t11), PutTrack(d, 2, 0, t20);
    PutTrack(d, 2, 1, t21, 1000);
    ASSERT_TRUE(d.Save(PathOf(name), 1));
}

// Sectors that are not good: status bits, listing letters and picture colour.
const std::map<std::tuple<int, int, int>, std::tuple<int, std::string, uint32_t>> kDefects = {
    {{1, 0, 2}, {SECT_IDCRC, "i", 0xd62728}},   {{1, 0, 3}, {SECT_DATACRC, "d", 0xd62728}},
    {{1, 0, 4}, {SECT_NODAM, "m", 0xff7f0e}},   {{1, 0, 5}, {SECT_DELETED, "x", 0x1f77b4}},
    {{1, 1, 3}, {SECT_DELETED, "x", 0x1f77b4}}, {{2, 0, 1}, {0, "f", 0x2ca02c}}};

std::tuple<int, std::string, uint32_t> Want(int c, int h, int r) {
    const auto it = kDefects.find({c, h, r});
    return it == kDefects.end() ? std::tuple(0, std::string(), 0x2ca02cu) : it->second;
}

class Scan : public testing::Test {
protected:
    // Each test may run in its own process: the image appears whole, by rename.
    static void SetUpTestSuite() {
        const std::string tmp = "scan_defects_" + std::to_string(getpid()) + ".zeb";
        SaveDefectDisk(tmp);
        std::rename(tmp.c_str(), "scan_defects.zeb");
    }
};

// Errors by their opening words; a run that succeeds says nothing on standard
// error but what the import left out.
TEST_F(Scan, ExitStatusesAndWarnings) {
    Spit("scan_junk.d88", std::string(3000, 'Z'));
    VDisk v;
    v.Init(VDISK_2D, 1, 2);
    const std::vector<uint8_t> data(4096, 0x5A);
    for (int r = 1; r <= 4; r++)  // a 2D track holds one 4096-byte sector
        v.Track(0, 0)->AddSector(MakeFormattedSector(1, 0, 0, r, 5, data.data(), 4096, 0));
    ASSERT_EQ(v.Export(PathOf("scan_long.d88")), 1);
    // clang-format off
    for (const auto& [args, status, err] : {
             std::tuple{"", 22, "Usage: "},
             {"--bogus scan_defects.zeb", 22, "Error : unknown option --bogus"},
             {"-n 33 scan_defects.zeb", 22, "Error : disk number must be 1..32: 33 (see "},
             {"--tracks 5-2 scan_defects.zeb", 22, "Error : tracks must be C or C0-C1 within 0..83: 5-2"},
             {"scan_missing.d88", 2, "Error : scan_missing.d88: No such file or directory\n"},
             {"scan_junk.d88", 2, "Error : scan_junk.d88: unknown media byte 0x5A (0x00, 0x10 and 0x20 are read)\n"},
             {"--map scan_nodir/map.svg scan_defects.zeb", 14, "Error : cannot create scan_nodir/map.svg: No such file or directory\n"},
             {"--help", 0, ""},
             {"-a MB8877 --tracks=0 --head 1 scan_defects.zeb", 0, ""},
             {"scan_long.d88", 0, "Warning : 3 of 4 sectors do not fit their tracks and were left out (first: track 0.0, R 2)\n"},
         }) {
        // clang-format on
        const ToolRun r = Zebscan(args, "exit");
        EXPECT_EQ(r.status, status) << args;
        EXPECT_EQ(status ? r.err.substr(0, std::string(err).size()) : r.err, err) << args;
    }
}

TEST_F(Scan, ListingShowsEachDefectOnItsTrack) {
    const ToolRun r = Zebscan("scan_defects.zeb", "text");
    ASSERT_EQ(r.status, 0) << r.err;
    const std::string want =
        "Input file         : scan_defects.zeb\nDIsk Type          : 2DD\n"
        "Name               : DEFECTS\nCylinders          : 42\nHeads              : 2\n"
        "Rate               : 500 kbps\nRPM                : 300\nWrite Protect      : OFF\n\n"
        "Analyze mode       : uPD765\n\n"
        "Track Density     Sec  Usual IDs : Sectors in track order\n"
        " 0.0  MFM           9  C0 H0 N2 : 1 2 3 4 5 6 7 8 9\n"
        " 0.1  unformatted   0\n"
        " 1.0  MFM           8  C1 H0 N2 : 1 2i 3d 4m 5x 6[C7] 8 9  missing 7\n"
        " 1.1  FM            9  C1 H1 N0 : 1 2 3x 4 5 6 7 8 9\n"
        " 2.0  mixed         9  C2 H0 N1 : 1[N0]f 2 3 4 5 6 7 8 9\n"
        " 2.1  MFM           9  C2 H1 N1 : 2 3 4 5 6 7 8 9 1  [no index mark, sector crosses "
        "the index]\n"
        " 3.0 .. 41.1  unformatted (78 tracks)\n";
    EXPECT_EQ(r.out.substr(0, want.size()), want);
    EXPECT_NE(r.out.find("\nTracks             : 84 scanned, 5 formatted, 79 unformatted\n"
                         "Track densities    : 3 MFM, 1 FM, 1 mixed\n"
                         "Sectors            : 44 found (34 MFM, 10 FM)\n"
                         "Sectors good       : 41\n"
                         "Sectors bad        : 3 (1 ID CRC, 1 data CRC, 1 no data mark)\n"
                         "Sectors missing    : 1\nSectors deleted    : 2\n"
                         "Timing deviations  : 0\n"),
              std::string::npos)
        << r.out;
}

TEST_F(Scan, JsonAndCsvGiveEachSectorItsStatus) {
    const ToolRun j = Zebscan("--json scan_defects.zeb", "json");
    const ToolRun v = Zebscan("--csv scan_defects.zeb", "csv");
    ASSERT_EQ(j.status + v.status, 0);
    static const std::regex track(R"re(\{"cylinder":(\d+),"head":(\d+),)re"),
        sector(R"re(\{"mfm":\d,"c":\d+,"h":\d+,"r":(\d+),.*"status":(\d+),.*"flags":"(\w*)"\})re"),
        row(R"re((\d+),(\d+),\d+,\w+,\d,\d+,\d+,(\d+),(?:\d+,){4}(\d+),([\w -]*),.*)re");
    std::istringstream js(j.out), cs(v.out);
    int c = -1, h = -1, sectors = 0, rows = 0;
    for (std::string l; std::getline(js, l);) {
        std::smatch m;
        if (std::regex_search(l, m, track)) c = std::stoi(m[1]), h = std::stoi(m[2]);
        if (!std::regex_search(l, m, sector)) continue;
        const auto [status, letters, colour] = Want(c, h, std::stoi(m[1]));
        EXPECT_EQ(std::tuple(std::stoi(m[2]), m[3].str()), std::tuple(status, letters)) << l;
        ++sectors;
    }
    std::map<int, std::string> names = {
        {0, ""}, {1, "no-dam"}, {4, "deleted"}, {8, "id-crc"}, {16, "data-crc"}};
    for (std::string l; std::getline(cs, l);) {
        std::smatch m;
        if (!std::regex_match(l, m, row)) continue;
        const int status = std::get<0>(Want(std::stoi(m[1]), std::stoi(m[2]), std::stoi(m[3])));
        EXPECT_EQ(std::tuple(std::stoi(m[4]), m[5].str()), std::tuple(status, names[status])) << l;
        ++rows;
    }
    EXPECT_EQ(std::tuple(sectors, rows), std::tuple(44, 44));
    EXPECT_NE(j.out.find(R"("good":41,"bad":3,"missing":1,)"), std::string::npos);
}

TEST_F(Scan, PictureHasOneSegmentPerSectorInItsStateColour) {
    ASSERT_EQ(Zebscan("--tracks 0-2 --map scan_map.svg scan_defects.zeb", "map").status, 0);
    const std::string svg = Slurp("scan_map.svg");
    static const std::regex seg(
        R"re(<path class="sector" data-c="(\d+)" data-h="(\d+)" data-r="(\d+)" fill="#(\w{6})")re");
    std::map<std::pair<int, int>, int> count;
    for (auto it = std::sregex_iterator(svg.begin(), svg.end(), seg); it != std::sregex_iterator();
         ++it) {
        const int c = std::stoi((*it)[1]), h = std::stoi((*it)[2]), r = std::stoi((*it)[3]);
        ++count[{c, h}];
        EXPECT_EQ(std::stoul((*it)[4], nullptr, 16), std::get<2>(Want(c, h, r))) << c << h << r;
    }
    EXPECT_EQ(count, (std::map<std::pair<int, int>, int>{
                         {{0, 0}, 9}, {{1, 0}, 8}, {{1, 1}, 9}, {{2, 0}, 9}, {{2, 1}, 9}}));
    EXPECT_NE(svg.find(R"(<circle class="unformatted" data-c="0" data-h="1")"), std::string::npos);
    // Where a browser is installed, it draws every sector in its colour at the sector's
    // centre: the page draws the picture and reads those pixels back.
    if (std::system("command -v chromium >/dev/null 2>&1") != 0)
        GTEST_SKIP() << "chromium is not installed (Debian package chromium): picture not rendered";
    ScanOptions opt;
    opt.lastCyl = 2;
    ZEBDisk d;
    ASSERT_TRUE(LoadScanImage("scan_defects.zeb", 1, &d));
    const ScanReport rep = BuildScanReport(d, opt, nullptr);
    std::ostringstream page, want;
    page << "<!DOCTYPE html><pre id=out></pre><script>const points = [";
    for (const auto& t : rep.tracks)
        for (size_t i = 0; i < t.sectors.size(); ++i) {
            const MapPoint p = MapLayout(rep).SectorCentre(t, i);
            const uint32_t c = std::get<2>(Want(t.cylinder, t.head, t.sectors[i].r));
            page << '[' << int(p.x) << ',' << int(p.y) << "],";
            want << (c >> 16) << ' ' << (c >> 8 & 0xFF) << ' ' << (c & 0xFF) << '\n';
        }
    page << "];\nconst img = new Image(); img.onload = () => {\n"
            "const c = document.createElement('canvas'), g = c.getContext('2d');\n"
            "c.width = img.width, c.height = img.height, g.drawImage(img, 0, 0);\n"
            "for (const [x, y] of points) out.textContent += "
            "g.getImageData(x, y, 1, 1).data.slice(0, 3).join(' ') + '\\n';\n"
            "}; img.src = 'scan_map.svg';</script>";
    Spit("scan_render.html", page.str());
    const std::string colours = want.str(), dir = std::filesystem::current_path().string();
    ASSERT_EQ(std::count(colours.begin(), colours.end(), '\n'), 44);
    const std::string cmd =
        "timeout 120 chromium --headless --no-sandbox --disable-gpu --no-first-run "
        "--disable-background-networking --disable-component-update "
        "--allow-file-access-from-files --virtual-time-budget=10000 --user-data-dir=" +
        dir + "/scan_profile --dump-dom file://" + dir + "/scan_render.html >scan_render.out 2>&1";
    ASSERT_EQ(std::system(cmd.c_str()), 0) << Slurp("scan_render.out");
    std::system("rm -rf scan_profile");
    const std::string out = Slurp("scan_render.out");
    const size_t at = out.find("<pre id=\"out\">");
    ASSERT_NE(at, std::string::npos) << out;
    EXPECT_EQ(out.substr(at + 14, colours.size()), colours);
}

// The tracks are analysed on several workers; the report is the one a single
// worker gives, for cell tracks and for the same disk as raw signal.
TEST_F(Scan, ReportOfThePoolIsTheSingleWorkersReport) {
    for (const bool raw : {false, true}) {
        std::string json[2];
        for (const int workers : {1, 4}) {
            ZEBDisk d;
            ASSERT_TRUE(LoadScanImage("scan_defects.zeb", 1, &d) && (!raw || d.ConvertRaw()));
            d.workers = workers;
            json[workers > 1] = ScanJson(BuildScanReport(d, ScanOptions{}, nullptr));
        }
        // The track of no bits, in cells and raw: unformatted, no sectors.
        static const std::regex none(R"(\{"cylinder":0,"head":1,"density":"unformatted",)"
                                     R"("recordBits":0,"flags":32768,[^{]*\{[^}]*\},"missing":)"
                                     R"(\[\],"sectors":\[\]\})");
        EXPECT_TRUE(std::regex_search(json[0], none)) << raw << json[0];
        EXPECT_NE(json[0].find("\"deleted\""), std::string::npos) << raw;
        EXPECT_EQ(json[0], json[1]) << raw;
    }
}

}  // namespace
