// What the sector image writers report: one warning line per kind of loss, and
// the reason for a refusal, both by their text.
#include <gtest/gtest.h>

#include <functional>

#include "vdisk/image_builder.h"

using namespace vdt;

namespace {

struct ReportCase {
    const char* name;
    std::function<void(VDisk&)> build;
    const char* file;
    std::vector<std::string> warnings;  // expected on success
    std::string error;                  // expected reason after the path and ": "; "" = success
};

void Hd(VDisk& d, int cyls) {
    Uniform(d, VDISK_2HD, cyls, 8, 3);
}
// Replaces the sector R of a track by one with the given status and length.
void Mark(VDisk& d, int c, int h, int r, int status, int len = -1) {
    VTrack* t = d.Track(c, h);
    for (VSector* s = t->sectors; s; s = s->next) {
        if (s->idR != r) continue;
        s->status = static_cast<uint8_t>(status);
        if (len >= 0) s->SetData(nullptr, len), s->length = len;
    }
}

const std::string kDimHolds =
    ".DIM holds at least 77 cylinders of 8 x 1024-byte sectors or at least 80 of 9 x 1024, 15 x "
    "512, 18 x 512 or 26 x 256 (track 0.0: 26 x 128 FM), the disk has ";

const ReportCase kCases[] = {
    {"HdmKeeps77Cylinders",
     [](VDisk& d) { Hd(d, 80); },
     "r.hdm",
     {"6 tracks holding 48 sectors were left out, as .HDM keeps 77 cylinders (first: track "
      "77.0)"},
     ""},
    {"TwoDKeepsHalfOfA2DD",
     [](VDisk& d) { Uniform(d, VDISK_2DD, 80, 9, 2); },
     "r.2d",
     {"80 tracks holding 720 sectors were left out, as .2D keeps 40 cylinders (first: track "
      "40.0)"},
     ""},
    {"FddKeeps80Cylinders",
     [](VDisk& d) { Uniform(d, VDISK_2DD, 84, 9, 2); },
     "r.fdd",
     {"8 tracks holding 72 sectors were left out, as .FDD keeps 80 cylinders (first: track "
      "80.0)"},
     ""},
    {"D88Keeps82Cylinders",
     [](VDisk& d) { Uniform(d, VDISK_2DD, 84, 9, 2); },
     "r.d88",
     {"4 tracks holding 36 sectors were left out, as .D88 keeps 82 cylinders (first: track "
      "82.0)"},
     ""},
    {"NfdKeepsTracksUpTo81_0",
     [](VDisk& d) { Uniform(d, VDISK_2DD, 84, 9, 2); },
     "r.nfd",
     {"5 tracks holding 45 sectors were left out, as .NFD keeps tracks up to 81.0 (first: track "
      "81.1)"},
     ""},
    {"DimStopsAtTheFirstUnlikeCylinder",
     [](VDisk& d) {
         Hd(d, 80);
         d.Track(79, 0)->AddSector(Sec(1, 79, 0, 9, 3));
     },
     "r.dim",
     {"2 tracks holding 17 sectors were left out, as .DIM stops at the first cylinder laid out "
      "unlike track 0.1 (first: track 79.0)"},
     ""},
    {"SectorWithoutDataMarkShiftsAPlainImage",
     [](VDisk& d) {
         Hd(d, 77);
         Mark(d, 3, 0, 5, SECT_NODAM, 0);
     },
     "r.hdm",
     {"1 sector was written at a length other than its slot, shifting the rest of the file "
      "(first: track 3.0, R 5, 0 of 1024 bytes)",
      "1 sector with CRC errors or without a data mark loses that status in .HDM (first: track "
      "3.0, R 5)"},
     ""},
    {"ShortSectorsShiftAnFdi",
     [](VDisk& d) {
         Hd(d, 77);
         Mark(d, 2, 1, 3, 0, 512);
         Mark(d, 9, 0, 1, 0, 2048);
     },
     "r.fdi",
     {"2 sectors were written at a length other than their slots, shifting the rest of the file "
      "(first: track 2.1, R 3, 512 of 1024 bytes)"},
     ""},
    {"DimDropsDeletedMarksAndCrcErrors",
     [](VDisk& d) {
         Hd(d, 77);
         Mark(d, 1, 0, 2, SECT_DELETED);
         Mark(d, 4, 1, 8, SECT_DELETED);
         Mark(d, 6, 0, 1, SECT_DATACRC);
     },
     "r.dim",
     {"1 sector with CRC errors or without a data mark loses that status in .DIM (first: track "
      "6.0, R 1)",
      "2 deleted sectors lose their deleted mark in .DIM (first: track 1.0, R 2)"},
     ""},
    {"FddKeepsDeletedMarksButNotCrcErrors",
     [](VDisk& d) {
         Hd(d, 77);
         Mark(d, 1, 0, 2, SECT_DELETED);
         Mark(d, 5, 1, 7, SECT_IDCRC);
         Mark(d, 6, 0, 1, SECT_DATACRC);
     },
     "r.fdd",
     {"2 sectors with CRC errors or without a data mark lose that status in .FDD (first: track "
      "5.1, R 7)"},
     ""},
    {"D88KeepsEveryStatus",
     [](VDisk& d) {
         Hd(d, 77);
         Mark(d, 1, 0, 2, SECT_DELETED);
         Mark(d, 5, 1, 7, SECT_IDCRC | SECT_DATACRC);
         Mark(d, 6, 0, 1, SECT_NODAM, 0);
     },
     "r.d88",
     {},
     ""},
    {"D88CutsLongNames",
     [](VDisk& d) {
         Hd(d, 77);
         std::strcpy(d.name, "A NAME LONGER THAN SIXTEEN");
     },
     "r.d88",
     {"the name \"A NAME LONGER THAN SIXTEEN\" is cut to its first 16 characters in .D88"},
     ""},
    {"ImgIsAlways77By8By1024",
     [](VDisk& d) { Uniform(d, VDISK_2HD, 80, 18, 2); },
     "r.img",
     {},
     ".IMG holds 77 cylinders of 8 x 1024-byte sectors, the disk has 80 cylinders of 18 x "
     "512-byte sectors; .2HQ would fit"},
    {"TooFewCylindersForA2DD",
     [](VDisk& d) { Uniform(d, VDISK_2DD, 40, 9, 2); },
     "r.2dd",
     {},
     ".2DD holds 80 cylinders of 9 x 512-byte sectors, the disk has 40 cylinders of 9 x 512-byte "
     "sectors; .2D would fit"},
    {"UnevenTracksInAPlainImage",
     [](VDisk& d) {
         Hd(d, 77);
         d.NewTrack(5, 1)->AddSector(Sec(1, 5, 1, 1, 3));
     },
     "r.hdm",
     {},
     ".HDM holds 77 cylinders of 8 x 1024-byte sectors, the disk's tracks differ (track 0 holds 8 "
     "x 1024 bytes, track 5.1 holds 1 sector); .D88 would fit"},
    {"DimNeeds77Cylinders",
     [](VDisk& d) { Hd(d, 40); },
     "r.dim",
     {},
     kDimHolds + "40 cylinders of 8 x "
                 "1024-byte MFM sectors; .D88 would fit"},
    {"DimNamesTheTrackThatDiffers",
     [](VDisk& d) {
         Hd(d, 77);
         d.NewTrack(30, 1)->AddSector(Sec(1, 30, 1, 1, 2));
     },
     "r.dim",
     {},
     kDimHolds + "30 cylinders of 8 x "
                 "1024-byte MFM sectors (track 30.1 differs); .D88 would fit"},
    {"DimOfAnEmptyDisk",
     [](VDisk& d) { d.Init(VDISK_2HD, 77, 2); },
     "r.dim",
     {},
     kDimHolds + "no sectors on track 0.1"},
    {"FdiOfAnEmptyFirstTrack",
     [](VDisk& d) {
         Hd(d, 77);
         d.NewTrack(0, 0);
     },
     "r.fdi",
     {},
     ".FDI takes its layout from track 0.0, which holds no sectors"},
    {"FdiOfAnUnevenFirstCylinder",
     [](VDisk& d) {
         Hd(d, 77);
         d.Track(0, 1)->AddSector(Sec(0, 0, 1, 9, 3));
     },
     "r.fdi",
     {},
     ".FDI needs cylinders whose tracks all hold the same MFM sectors; cylinder 0 of the disk "
     "does not (.D88 would fit)"},
    {"FddTrackOf27Sectors",
     [](VDisk& d) { Uniform(d, VDISK_2HD, 2, 27, 0); },
     "r.fdd",
     {},
     "track 0.0 holds 27 sectors, more than the 26 a .FDD track holds (.D88 would fit)"},
    {"NfdTrackOf27Sectors",
     [](VDisk& d) { Uniform(d, VDISK_2HD, 2, 27, 0); },
     "r.nfd",
     {},
     "track 0.0 holds 27 sectors, more than the 26 a .NFD track holds (.D88 would fit)"},
    {"D88SectorLongerThanItsLengthField",
     [](VDisk& d) {
         d.Init(VDISK_2HD, 2, 2);
         d.Track(1, 0)->AddSector(Sec(1, 1, 0, 4, 7, 0, 70000));
     },
     "r.d88",
     {},
     "sector R 4 of track 1.0 holds 70000 bytes, more than .D88 can record (65535)"},
    {"UnknownExtension",
     [](VDisk& d) { Hd(d, 77); },
     "r.xyz",
     {},
     "unknown extension \".xyz\"; known: .XDF .HDM .2HD .DUP .IMG .2HC .2HQ .2DD .2D .D68 .D88 "
     ".D77 .D98 .DIM .FDI .FDD .NFD"},
};

void PrintTo(const ReportCase& c, std::ostream* os) {
    *os << c.name;
}

class ExportReport : public ::testing::TestWithParam<ReportCase> {};

TEST_P(ExportReport, SaysWhatWasLostOrWhyItWasRefused) {
    const ReportCase& c = GetParam();
    VDisk d;
    c.build(d);
    // Cases run in parallel processes: each writes a file of its own.
    const std::string name = std::string(c.name) + "_" + c.file;
    const std::string file = Scratch(name);
    const Bytes written = Written(d, name);
    if (c.error.empty()) {
        EXPECT_FALSE(written.empty());
        EXPECT_EQ(d.report.warnings, c.warnings);
        EXPECT_EQ(d.report.error, "");
    } else {
        EXPECT_TRUE(written.empty());
        EXPECT_EQ(d.report.error, file + ": " + c.error);
        EXPECT_TRUE(d.report.warnings.empty());
    }
}

INSTANTIATE_TEST_SUITE_P(Writers, ExportReport, ::testing::ValuesIn(kCases),
                         [](const auto& p) { return std::string(p.param.name); });

}  // namespace

namespace {

// Names longer than the 59 characters a disk keeps: a plain image's file name,
// an FDD name, an NFD comment.
TEST(ImportReport, LongNamesAreCutTo59Characters) {
    const std::string longName(70, 'n');
    VDisk a;
    Uniform(a, VDISK_2DD, 80, 9, 2);
    std::strcpy(a.name, std::string(59, 'm').c_str());
    Bytes fdd = Written(a, "named.fdd"), nfd = Written(a, "named.nfd");
    W(fdd).Text(0x08, longName.c_str(), 100, 128);
    W(nfd).Text(0x10, longName.c_str(), 100, 256);
    const std::string plain = Put(longName + ".2dd", Written(a, "named.2dd"));
    const std::string cut = "the name \"" + longName + "\" is cut to its first 59 characters";
    for (const auto& [file, warning] :
         {std::pair{plain, "the name \"" + longName + ".2dd\" is cut to its first 59 characters"},
          {Put("named.fdd", fdd), cut},
          {Put("named.nfd", nfd), cut}}) {
        SCOPED_TRACE(file);
        VDisk d;
        ASSERT_EQ(d.Import(PathOf(file), 1), 1);
        EXPECT_EQ(d.report.warnings, std::vector<std::string>{warning});
        EXPECT_EQ(std::string(d.name).size(), 59u);
    }
}

}  // namespace

namespace {

// The D68 family records CRC errors and missing marks, which a sector read
// from it cannot carry; deleted marks it carries.
TEST(ImportReport, D88StatusBytesThatAreNotKept) {
    VDisk a;
    Hd(a, 77);
    Mark(a, 1, 0, 2, SECT_DELETED);
    Mark(a, 4, 1, 6, SECT_IDCRC);
    Mark(a, 9, 0, 3, SECT_NODAM, 0);
    ASSERT_FALSE(Written(a, "status.d88").empty());
    VDisk d;
    ASSERT_EQ(d.Import(PathOf(Scratch("status.d88")), 1), 1);
    EXPECT_EQ(d.report.warnings,
              std::vector<std::string>{"2 sectors marked with CRC errors or a missing mark in the "
                                       "file lose that status on reading (first: track 4.1, R 6)"});
}

}  // namespace
