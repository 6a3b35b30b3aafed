// zebscan's command line: exit statuses, usage, every input format, -n and -a.
#include <gtest/gtest.h>

#include "driver/scan_images.h"
#include "vdisk/vdisk.h"

using namespace scantest;

namespace {

void Write(const std::string& name, const std::string& bytes) {
    std::ofstream(name, std::ios::binary | std::ios::trunc) << bytes;
}

// 77 cylinders of 8 x 1,024 bytes, as every sector format can hold it.
void Build2HD(VDisk& v, const char* name) {
    v.Init(VDISK_2HD, 77, 2);
    for (int c = 0; c < 77; ++c)
        for (int h = 0; h < 2; ++h) {
            VTrack* t = v.NewTrack(c, h);
            for (int r = 1; r <= 8; ++r) {
                auto data = dectest::Pattern(1024, c * 16 + h * 8 + r);
                t->AddSector(MakeSector(1, c, h, r, 3, data.data(), 1024, 22, 116, 0));
            }
        }
    CopyDiskName(v.name, name);
}

TEST(ScanCli, ExitStatuses) {
    {
        ZEBDisk d;
        BuildDefectDisk(d);
        ASSERT_TRUE(d.Save(Path("scan_cli.zeb"), 1));
    }
    Write("scan_junk.d88", std::string(3000, '\x5a'));
    Write("scan_junk.zeb", "ZEB\x03 not a disk");
    const struct {
        std::string args;
        int status;
        const char* out;  // expected in standard output
        const char* err;  // expected in standard error
    } cases[] = {
        {"", 22, "", "Usage: "},
        {"--help", 0, " --map FILE.svg", ""},
        {"-h scan_cli.zeb", 0, "Usage: ", ""},
        {"--bogus scan_cli.zeb", 22, "", "unknown option --bogus"},
        {"-a z80 scan_cli.zeb", 22, "", "upd765 or mb8877"},
        {"-n 33 scan_cli.zeb", 22, "", "1..32"},
        {"-n x scan_cli.zeb", 22, "", "1..32"},
        {"--tracks 5-2 scan_cli.zeb", 22, "", "tracks"},
        {"--tracks 90 scan_cli.zeb", 22, "", "tracks"},
        {"--head 2 scan_cli.zeb", 22, "", "head"},
        {"--json --csv scan_cli.zeb", 22, "", "cannot be combined"},
        {"scan_cli.zeb scan_cli.zeb", 22, "", "one image"},
        {"scan_cli.zeb --map", 22, "", "needs a value"},
        {"--json=1 scan_cli.zeb", 22, "", "takes no value"},
        {"scan_missing.d88", 2, "", "Error : Cannot read image file scan_missing.d88\n"},
        {"scan_junk.d88", 2, "", "Cannot read image"},
        {"scan_junk.zeb", 2, "", "Cannot read image"},
        {"scan_cli.zeb", 0, "Sectors bad        : 3 ", ""},
        {"-a MB8877 -n 1 --tracks=0 scan_cli.zeb", 0, "Analyze mode       : MB8877\n", ""},
        {"--tracks 1-2 --head=1 scan_cli.zeb", 0, "order\n 1.1  FM  ", ""},
        {"--tracks 2 --head 1 scan_cli.zeb", 0, "Tracks             : 1 scanned, 1 formatted", ""},
        {"--map scan_nodir/x.svg scan_cli.zeb", 14, "Sectors", "Cannot write map file"},
    };
    int i = 0;
    for (const auto& c : cases) {
        SCOPED_TRACE(c.args);
        ScanRun r = Zebscan(c.args, "exit" + std::to_string(i++));
        EXPECT_EQ(r.status, c.status) << r.err;
        EXPECT_NE(r.out.find(c.out), std::string::npos) << r.out;
        EXPECT_NE(r.err.find(c.err), std::string::npos) << r.err;
        // Only a read image gets a report; only a failure says something on standard error.
        EXPECT_EQ(r.err.empty(), c.status == 0);
        const bool help = c.args.rfind("-h", 0) == 0 || c.args.rfind("--help", 0) == 0;
        EXPECT_EQ(r.out.find("Input file") != std::string::npos,
                  !help && (c.status == 0 || c.status == 14));
    }
}

// The same disk through every format the converter reads.
TEST(ScanCli, EveryInputFormat) {
    VDisk v;
    Build2HD(v, "FORMATS");
    std::vector<std::string> files;
    for (const char* ext : {".d88", ".hdm", ".dim", ".fdi", ".fdd", ".nfd"}) {
        files.push_back(std::string("scan_fmt") + ext);
        ASSERT_TRUE(v.Export(Path(files.back()))) << ext;
    }
    ZEBDisk d;
    ASSERT_TRUE(d.Import(Path("scan_fmt.hdm"), 1));
    ASSERT_TRUE(d.ExportHFE(Path("scan_fmt.hfe")));
    ASSERT_TRUE(d.Save(Path("scan_fmt.zeb"), 1));
    ASSERT_TRUE(d.ConvertRaw());
    ASSERT_TRUE(d.Save(Path("scan_fmtraw.zeb"), 1));
    files.insert(files.end(), {"scan_fmt.hfe", "scan_fmt.zeb", "scan_fmtraw.zeb"});
    // Two disks in one D88 file: -n picks one.
    CopyDiskName(v.name, "SECOND");
    ASSERT_TRUE(v.Export(Path("scan_fmt2.d88")));
    Write("scan_two.d88", Slurp("scan_fmt.d88") + Slurp("scan_fmt2.d88"));
    files.push_back("-n 2 scan_two.d88");
    for (const auto& f : files) {
        SCOPED_TRACE(f);
        ScanRun r = Zebscan(f, "fmt");
        EXPECT_EQ(r.status, 0) << r.err;
        EXPECT_NE(r.out.find("Sectors            : 1232 found (1232 MFM, 0 FM)\n"
                             "Sectors good       : 1232\n"),
                  std::string::npos)
            << r.out;
        EXPECT_NE(r.out.find("\n76.1  MFM           8  C76 H1 N3 : 1 2 3 4 5 6 7 8\n"),
                  std::string::npos);
    }
    EXPECT_NE(Zebscan("-n 2 scan_two.d88", "fmt").out.find("Name               : SECOND\n"),
              std::string::npos);
    EXPECT_EQ(Zebscan("-n 3 scan_two.d88", "fmt").status, 2);
}

}  // namespace
