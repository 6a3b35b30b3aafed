// What the sector image writers report: one warning line per kind of loss, and
// the reason for a refusal, both by their text.
#include <gtest/gtest.h>

#include "vdisk/image_builder.h"

using namespace vdt;

namespace {

// Gives the sector R of a track a status, and a length when len >= 0.
void Mark(VDisk& d, int c, int h, int r, int status, int len = -1) {
    for (VSector* s = d.Track(c, h)->sectors; s; s = s->next)
        if (s->idR == r) {
            s->status = static_cast<uint8_t>(status);
            if (len >= 0) s->SetData(nullptr, len), s->length = len;
        }
}

struct ReportCase {
    const char* name;
    const char* file;
    int type, cyls, count, n;  // a uniform disk ...
    void (*tweak)(VDisk&);     // ... then changed by this
    std::vector<std::string> warnings;
    std::string error;  // the reason after the path and ": "; "" = written
};
void PrintTo(const ReportCase& c, std::ostream* os) {
    *os << c.name;
}

const std::string kDim =
    ".DIM holds at least 77 cylinders of 8 x 1024-byte sectors or at least 80 of 9 x 1024, 15 x "
    "512, 18 x 512 or 26 x 256 (track 0.0: 26 x 128 FM), the disk has ";
const std::string kLeftOut = " were left out, as .";
const std::string kShift = " written at a length other than ";
const std::string kCrc = " with CRC errors or without a data mark lose";
constexpr int k2HD = VDISK_2HD, k2DD = VDISK_2DD;

// clang-format off
const ReportCase kCases[] = {
    {"HdmKeeps77Cylinders", "r.hdm", k2HD, 80, 8, 3, nullptr,
     {"6 tracks holding 48 sectors" + kLeftOut + "HDM keeps 77 cylinders (first: track 77.0)"}, ""},
    {"NfdKeepsTracksUpTo81_0", "r.nfd", k2DD, 84, 9, 2, nullptr,
     {"5 tracks holding 45 sectors" + kLeftOut + "NFD keeps tracks up to 81.0 (first: track 81.1)"},
     ""},
    {"DimStopsAtTheFirstUnlikeCylinder", "r.dim", k2HD, 80, 8, 3,
     [](VDisk& d) { d.Track(79, 0)->AddSector(Sec(1, 79, 0, 9, 3)); },
     {"2 tracks holding 17 sectors" + kLeftOut + "DIM stops at the first cylinder laid out unlike "
      "track 0.1 (first: track 79.0)"}, ""},
    {"SectorWithoutDataMarkShiftsAPlainImage", "r.hdm", k2HD, 77, 8, 3,
     [](VDisk& d) { Mark(d, 3, 0, 5, SECT_NODAM, 0); },
     {"1 sector was" + kShift + "its slot, shifting the rest of the file (first: track 3.0, R 5, "
      "0 of 1024 bytes)", "1 sector" + kCrc + "s that status in .HDM (first: track 3.0, R 5)"}, ""},
    {"ShortSectorsShiftAnFdi", "r.fdi", k2HD, 77, 8, 3,
     [](VDisk& d) { Mark(d, 2, 1, 3, 0, 512), Mark(d, 9, 0, 1, 0, 2048); },
     {"2 sectors were" + kShift + "their slots, shifting the rest of the file (first: track 2.1, "
      "R 3, 512 of 1024 bytes)"}, ""},
    {"DimDropsDeletedMarksAndCrcErrors", "r.dim", k2HD, 77, 8, 3, [](VDisk& d) {
         Mark(d, 1, 0, 2, SECT_DELETED), Mark(d, 4, 1, 8, SECT_DELETED);
         Mark(d, 6, 0, 1, SECT_DATACRC); },
     {"1 sector" + kCrc + "s that status in .DIM (first: track 6.0, R 1)",
      "2 deleted sectors lose their deleted mark in .DIM (first: track 1.0, R 2)"}, ""},
    {"FddKeepsDeletedMarksButNotCrcErrors", "r.fdd", k2HD, 77, 8, 3, [](VDisk& d) {
         Mark(d, 1, 0, 2, SECT_DELETED), Mark(d, 5, 1, 7, SECT_IDCRC);
         Mark(d, 6, 0, 1, SECT_DATACRC); },
     {"2 sectors" + kCrc + " that status in .FDD (first: track 5.1, R 7)"}, ""},
    {"D88KeepsEveryStatus", "r.d88", k2HD, 77, 8, 3, [](VDisk& d) {
         Mark(d, 1, 0, 2, SECT_DELETED), Mark(d, 5, 1, 7, SECT_IDCRC | SECT_DATACRC);
         Mark(d, 6, 0, 1, SECT_NODAM, 0); }, {}, ""},
    {"D88CutsLongNames", "r.d88", k2HD, 77, 8, 3,
     [](VDisk& d) { std::strcpy(d.name, "A NAME LONGER THAN SIXTEEN"); },
     {"the name \"A NAME LONGER THAN SIXTEEN\" is cut to its first 16 characters in .D88"}, ""},
    {"ImgIsAlways77By8By1024", "r.img", k2HD, 80, 18, 2, nullptr, {},
     ".IMG holds 77 cylinders of 8 x 1024-byte sectors, the disk has 80 cylinders of 18 x "
     "512-byte sectors; .2HQ would fit"},
    {"UnevenTracksInAPlainImage", "r.hdm", k2HD, 77, 8, 3,
     [](VDisk& d) { d.NewTrack(5, 1)->AddSector(Sec(1, 5, 1, 1, 3)); }, {},
     ".HDM holds 77 cylinders of 8 x 1024-byte sectors, the disk's tracks differ (track 0 holds 8 "
     "x 1024 bytes, track 5.1 holds 1 sector); .D88 would fit"},
    {"DimNeeds77Cylinders", "r.dim", k2HD, 40, 8, 3, nullptr, {},
     kDim + "40 cylinders of 8 x 1024-byte MFM sectors; .D88 would fit"},
    {"DimNamesTheTrackThatDiffers", "r.dim", k2HD, 77, 8, 3,
     [](VDisk& d) { d.NewTrack(30, 1)->AddSector(Sec(1, 30, 1, 1, 2)); }, {},
     kDim + "30 cylinders of 8 x 1024-byte MFM sectors (track 30.1 differs); .D88 would fit"},
    {"DimOfAnEmptyDisk", "r.dim", k2HD, 77, 0, 0, nullptr, {},
     kDim + "no sectors on track 0.1"},
    {"FdiOfAnEmptyFirstTrack", "r.fdi", k2HD, 77, 8, 3, [](VDisk& d) { d.NewTrack(0, 0); }, {},
     ".FDI takes its layout from track 0.0, which holds no sectors"},
    {"FdiOfAnUnevenFirstCylinder", "r.fdi", k2HD, 77, 8, 3,
     [](VDisk& d) { d.Track(0, 1)->AddSector(Sec(0, 0, 1, 9, 3)); }, {},
     ".FDI needs cylinders whose tracks all hold the same MFM sectors; cylinder 0 of the disk "
     "does not (.D88 would fit)"},
    {"FddTrackOf27Sectors", "r.fdd", k2HD, 2, 27, 0, nullptr, {},
     "track 0.0 holds 27 sectors, more than the 26 a .FDD track holds (.D88 would fit)"},
    {"D88SectorLongerThanItsLengthField", "r.d88", k2HD, 2, 0, 0,
     [](VDisk& d) { d.Track(1, 0)->AddSector(Sec(1, 1, 0, 4, 7, 0, 70000)); }, {},
     "sector R 4 of track 1.0 holds 70000 bytes, more than .D88 can record (65535)"},
    {"UnknownExtension", "r.xyz", k2HD, 77, 8, 3, nullptr, {},
     "unknown extension \".xyz\"; known: .XDF .HDM .2HD .DUP .IMG .2HC .2HQ .2DD .2D .D68 .D88 "
     ".D77 .D98 .DIM .FDI .FDD .NFD .IMD"},
};
// clang-format on

class ExportReport : public ::testing::TestWithParam<ReportCase> {};

TEST_P(ExportReport, SaysWhatWasLostOrWhyItWasRefused) {
    const ReportCase& c = GetParam();
    VDisk d;
    Uniform(d, c.type, c.cyls, c.count, c.n);
    if (c.tweak) c.tweak(d);
    // Cases run in parallel processes: each writes a file of its own.
    const std::string name = std::string(c.name) + "_" + c.file;
    EXPECT_EQ(Written(d, name).empty(), !c.error.empty());
    EXPECT_EQ(d.report.warnings, c.warnings);
    EXPECT_EQ(d.report.error, c.error.empty() ? "" : Scratch(name) + ": " + c.error);
}

INSTANTIATE_TEST_SUITE_P(Writers, ExportReport, ::testing::ValuesIn(kCases),
                         [](const auto& p) { return std::string(p.param.name); });

// Names longer than the 59 characters a disk keeps (a plain image's file name,
// an FDD name, an NFD comment), and D68 statuses a sector read from it cannot
// carry: CRC errors and missing marks (deleted marks it carries).
TEST(ImportReport, NamesCutTo59CharactersAndStatusesNotKept) {
    const std::string n70(70, 'n'), cut = " is cut to its first 59 characters";
    VDisk a, b;
    Uniform(a, k2DD, 80, 9, 2);
    Uniform(b, k2HD, 77, 8, 3);
    Mark(b, 1, 0, 2, SECT_DELETED), Mark(b, 4, 1, 6, SECT_IDCRC), Mark(b, 9, 0, 3, SECT_NODAM, 0);
    Bytes fdd = Written(a, "named.fdd"), nfd = Written(a, "named.nfd");
    W(fdd).Text(0x08, n70.c_str(), 100, 128);
    W(nfd).Text(0x10, n70.c_str(), 100, 256);
    const std::string status =
        "2 sectors marked with CRC errors or a missing mark in the file lose that status on "
        "reading (first: track 4.1, R 6)";
    for (const auto& [file, warning] : {std::pair{Put(n70 + ".2dd", Written(a, "named.2dd")),
                                                  "the name \"" + n70 + ".2dd\"" + cut},
                                        {Put("named.fdd", fdd), "the name \"" + n70 + "\"" + cut},
                                        {Put("named.nfd", nfd), "the name \"" + n70 + "\"" + cut},
                                        {Put("status.d88", Written(b, "status.d88")), status}}) {
        VDisk d;
        ASSERT_EQ(d.Import(PathOf(file), 1), 1) << file;
        EXPECT_EQ(d.report.warnings, std::vector<std::string>{warning}) << file;
        EXPECT_TRUE(warning == status || std::string(d.name).size() == 59u) << file;
    }
}

}  // namespace
