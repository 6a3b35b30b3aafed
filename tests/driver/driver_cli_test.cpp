// Runs the built zebconv and checks what it prints, writes and returns.
#include <gtest/gtest.h>
#include <sys/wait.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <regex>
#include <string>

#include "zebdisk/zebdisk.h"
#include "zebdisk/zebdisk_file_builder.h"

using namespace zebtest;

namespace {

struct RunResult {
    std::string out, err;
    int status = -1;
};

std::string Text(const Bytes& b) {
    return std::string(b.begin(), b.end());
}

// ZEBCONV_PATH may be a whole command prefix (an emulator and its options).
RunResult RunZebconv(const std::string& args, const std::string& tag) {
    const std::string out = "cli_" + tag + ".stdout", err = "cli_" + tag + ".stderr";
    const std::string cmd = std::string(ZEBCONV_PATH) + " " + args + " >" + out + " 2>" + err;
    RunResult r;
    int rc = std::system(cmd.c_str());
    if (rc != -1 && WIFEXITED(rc)) r.status = WEXITSTATUS(rc);
    r.out = Text(Slurp(out));
    r.err = Text(Slurp(err));
    return r;
}

std::string ProgramName() {
    std::string cmd = ZEBCONV_PATH;
    size_t sp = cmd.rfind(' ');
    return sp == std::string::npos ? cmd : cmd.substr(sp + 1);
}

const char kBannerTail[] =
    "Copyright (C) 2026 ZEBKIT developers\n"
    "Floppy image convert utility\n"
    "\n";

// Checks the version line and returns what follows the banner.
std::string AfterBanner(const std::string& out) {
    static const std::regex version(
        R"(ZEBKIT version 2\.1\.0\([A-Z][a-z]{2} [ 123][0-9] [0-9]{4}, [0-9]{2}:[0-9]{2}:[0-9]{2}\)\n)");
    size_t nl = out.find('\n');
    EXPECT_NE(nl, std::string::npos);
    if (nl == std::string::npos) return out;
    EXPECT_TRUE(std::regex_match(out.substr(0, nl + 1), version)) << out.substr(0, nl);
    std::string rest = out.substr(nl + 1);
    EXPECT_EQ(rest.substr(0, sizeof(kBannerTail) - 1), kBannerTail);
    return rest.size() >= sizeof(kBannerTail) - 1 ? rest.substr(sizeof(kBannerTail) - 1) : "";
}

std::string Properties(const char* type, const char* name, int cyls, int heads, int rate, int rpm,
                       bool wp) {
    char buf[512];
    std::snprintf(buf, sizeof(buf),
                  "DIsk Type          : %s\n"
                  "Name               : %s\n"
                  "Cylinders          : %d\n"
                  "Heads              : %d\n"
                  "Rate               : %d kbps\n"
                  "RPM                : %d\n"
                  "Write Protect      : %s\n",
                  type, name, cyls, heads, rate, rpm, wp ? "ON" : "OFF");
    return buf;
}

bool Exists(const std::string& name) {
    FILE* f = std::fopen(name.c_str(), "rb");
    if (f) std::fclose(f);
    return f != nullptr;
}

// What the converter must write for a file built by ZebFile whose tracks all
// have a whole number of bytes and a byte-aligned index.
Bytes ExpectedCopy(const ZebFile& z) {
    const int rate = z.version == 3 ? z.rate : z.rate * 2;
    const int nominal = rate * 60000 / z.rpm;
    const int cyls = z.cylinders > 42 ? 84 : 42;
    int len = z.bitLength, index = z.indexOffset;
    if (z.version == 1) len = z.v1Bytes * 8, index = 0;
    if (z.version == 2) len *= 8, index *= 8;
    const int block = ((std::max(len, nominal) + 7) / 8 + 528) / 512 * 512;

    Bytes f = z.Build();
    f.resize(256);
    FieldWriter w(f.data(), f.size());
    w.U8(3, 3);
    w.I32(72, cyls);
    w.I32(76, 2);
    w.I32(80, rate);
    w.I32(96, 0);
    w.I32(100, block);
    for (int c = 0; c < cyls; c++) {
        for (int h = 0; h < 2; h++) {
            Bytes rec(16 + static_cast<size_t>(std::max(block, z.block)));
            FieldWriter rw(rec.data(), rec.size());
            rw.I32(0, c);
            rw.I32(4, h);
            if (c < z.cylinders && h < z.heads) {
                rw.I32(12, len);
                for (size_t i = 0; i + 16 < static_cast<size_t>(z.block); i++)
                    rec[16 + i] = Pattern(c * 2 + h, i);
                std::rotate(rec.begin() + 16, rec.begin() + 16 + index / 8,
                            rec.begin() + 16 + len / 8);
            } else {
                rw.I32(12, nominal);
            }
            f.insert(f.end(), rec.begin(), rec.begin() + block);
        }
    }
    return f;
}

}  // namespace

TEST(ZebconvCli, NoArgumentsPrintsBannerAndUsage) {
    RunResult r = RunZebconv("", "usage");
    EXPECT_EQ(r.status, 0);
    EXPECT_EQ(r.err, "");
    EXPECT_EQ(AfterBanner(r.out),
              "Usage: " + ProgramName() +
                  " -i SRCFILE [-n DISKNO] -o DESTFILE [-f FORMAT] [-a ANALYZE]\n"
                  "\n"
                  " SRCFILE is source image file path.\n"
                  " DISKNO is disk number of multi image format, Default is 1.\n"
                  " DESTFILE is destination image file path.\n"
                  " FORMAT is data format {encode|raw} when DESTFILE is ZEB. Default is encode.\n"
                  " ANALYZE is analyze mode {upd765|mb8877}, Default is upd765.\n"
                  "\n");
}

TEST(ZebconvCli, MissingPathExits22) {
    const std::pair<const char*, const char*> cases[] = {
        {"-o cli_never.zeb", "Error : Invalid source image file path\n"},
        {"-z", "Error : Invalid source image file path\n"},
        {"-i cli_never_src.zeb", "Error : Invalid destination image file path\n"},
        {"-i cli_never_src.zeb -o", "Error : Invalid destination image file path\n"},
    };
    for (const auto& [args, err] : cases) {
        SCOPED_TRACE(args);
        RunResult r = RunZebconv(args, "missing");
        EXPECT_EQ(r.status, 22);
        EXPECT_EQ(r.err, err);
        EXPECT_EQ(AfterBanner(r.out), "");
    }
    EXPECT_FALSE(Exists("cli_never.zeb"));
}

TEST(ZebconvCli, ZebCopyPrintsPropertiesAndKeepsTheDisk) {
    ZEBDisk d;
    ASSERT_TRUE(d.Init(ZEB_2HD, 0, 0, 0));
    d.SetName("CLI DISK");
    d.SetHeaderInt(zebhdr::kWriteProtect, 1);
    d.GetTrackData(5, 1)[100] = 0x44;
    ASSERT_TRUE(d.Save(PathOf("cli_copy_src.zeb"), 1));
    std::remove("cli_copy_dst.ZEB");

    RunResult r = RunZebconv("-i cli_copy_src.zeb -o cli_copy_dst.ZEB -a mb8877", "copy");
    EXPECT_EQ(r.status, 0);
    EXPECT_EQ(r.err, "Result             : Success\n");
    const std::string props = Properties("2HD", "CLI DISK", 84, 2, 1000, 360, true);
    EXPECT_EQ(AfterBanner(r.out), "Input file         : cli_copy_src.zeb\n" + props + "\n" +
                                      "Output file        : cli_copy_dst.ZEB\n" + props);
    const Bytes src = Slurp("cli_copy_src.zeb");
    EXPECT_EQ(src.size(), 256u + 168u * 20992u);
    EXPECT_EQ(Slurp("cli_copy_dst.ZEB"), src);
}

TEST(ZebconvCli, EachVersionConvertsToVersion3) {
    struct Case {
        const char* what;
        ZebFile z;
    };
    Case cases[] = {{"v1", {}}, {"v2", {}}, {"v3", {}}};
    // Version 1: 40 single-sided tracks, data rate and byte length in the header.
    cases[0].z.version = 1;
    cases[0].z.cylinders = 40;
    cases[0].z.heads = 1;
    cases[0].z.rate = 250;
    cases[0].z.block = 12800;
    cases[0].z.v1Bytes = 12500;
    // Version 2: lengths in bytes, an index to rotate out, 43 cylinders.
    cases[1].z.version = 2;
    cases[1].z.cylinders = 43;
    cases[1].z.rate = 250;
    cases[1].z.bitLength = 12000;
    cases[1].z.indexOffset = 100;
    cases[1].z.writeProtect = 1;
    // Version 3: longer than nominal tracks, index in bits.
    cases[2].z.cylinders = 3;
    cases[2].z.bitLength = 120000;
    cases[2].z.indexOffset = 800;
    cases[2].z.type = 0;
    for (const Case& k : cases) {
        SCOPED_TRACE(k.what);
        const std::string src = std::string("cli_ver_") + k.what + ".Zeb";
        const std::string dst = std::string("cli_ver_") + k.what + "_out.zeb";
        ASSERT_TRUE(Spit(src, k.z.Build()));
        std::remove(dst.c_str());
        RunResult r = RunZebconv("-i " + src + " -o " + dst, "ver");
        EXPECT_EQ(r.status, 0);
        EXPECT_EQ(r.err, "Result             : Success\n");
        const Bytes want = ExpectedCopy(k.z);
        const Bytes got = Slurp(dst);
        EXPECT_EQ(got.size(), want.size());
        EXPECT_TRUE(got == want);
        const int cyls = k.z.cylinders > 42 ? 84 : 42;
        const int rate = k.z.version == 3 ? k.z.rate : k.z.rate * 2;
        const std::string props = Properties(k.z.type == 0 ? "2D" : "2DD", "TEST DISK", cyls, 2,
                                             rate, 300, k.z.writeProtect != 0);
        EXPECT_EQ(AfterBanner(r.out), "Input file         : " + src + "\n" + props + "\n" +
                                          "Output file        : " + dst + "\n" + props);
    }
}

TEST(ZebconvCli, TypeNamesInPropertyBlock) {
    ZEBDisk raw;
    ASSERT_TRUE(raw.Init(ZEB_2DD, 0, 0, 1));
    ASSERT_TRUE(raw.Save(PathOf("cli_raw.zeb"), 1));
    // Raw stays raw: no conversion, the file is copied as it is.
    RunResult r = RunZebconv("-i cli_raw.zeb -o cli_raw_out.zeb -f RAW", "raw");
    EXPECT_EQ(r.status, 0);
    const std::string props = Properties("RAW", "BLANK IMAGE", 84, 2, 4000, 300, false);
    EXPECT_EQ(AfterBanner(r.out), "Input file         : cli_raw.zeb\n" + props + "\n" +
                                      "Output file        : cli_raw_out.zeb\n" + props);
    EXPECT_EQ(Slurp("cli_raw_out.zeb"), Slurp("cli_raw.zeb"));

    const std::pair<int, const char*> types[] = {
        {0, "2D"}, {2, "2HD"}, {5, "UNKNOWN"}, {-1, "UNKNOWN"}, {10, "UNKNOWN"}};
    for (const auto& [type, name] : types) {
        ZebFile z;
        z.type = type;
        ASSERT_TRUE(Spit("cli_type.zeb", z.Build()));
        RunResult t = RunZebconv("-i cli_type.zeb -o cli_type_out.zeb", "type");
        EXPECT_EQ(t.status, 0);
        EXPECT_NE(t.out.find(std::string("DIsk Type          : ") + name + "\n"), std::string::npos)
            << type;
    }
}

TEST(ZebconvCli, HostileZebHeadersFailToLoad) {
    for (const HostileZeb& k : HostileZebCases()) {
        SCOPED_TRACE(k.what);
        ASSERT_TRUE(Spit("cli_hostile.zeb", HostileZebFile(k)));
        std::remove("cli_hostile_out.zeb");
        RunResult r = RunZebconv("-i cli_hostile.zeb -o cli_hostile_out.zeb", "hostile");
        EXPECT_EQ(r.status, 2);
        EXPECT_EQ(r.err, "Result             : Load failed\n");
        EXPECT_EQ(AfterBanner(r.out), "");
        EXPECT_FALSE(Exists("cli_hostile_out.zeb"));
    }
    RunResult r = RunZebconv("-i cli_no_such_file.zeb -o cli_hostile_out.zeb", "nofile");
    EXPECT_EQ(r.status, 2);
    EXPECT_EQ(r.err, "Result             : Load failed\n");
    EXPECT_FALSE(Exists("cli_hostile_out.zeb"));
}

TEST(ZebconvCli, ImportSaveAndExportFailures) {
    RunResult r = RunZebconv("-i cli_no_such_file.d88 -o cli_import_out.zeb", "import");
    EXPECT_EQ(r.status, 2);
    EXPECT_EQ(r.err, "Result             : Import failed\n");
    EXPECT_EQ(AfterBanner(r.out), "");
    EXPECT_FALSE(Exists("cli_import_out.zeb"));

    ZEBDisk d;
    ASSERT_TRUE(d.Init(ZEB_2DD, 0, 0, 0));
    ASSERT_TRUE(d.Save(PathOf("cli_fail_src.zeb"), 1));
    const std::string input = "Input file         : cli_fail_src.zeb\n" +
                              Properties("2DD", "BLANK IMAGE", 84, 2, 500, 300, false) + "\n";

    r = RunZebconv("-i cli_fail_src.zeb -o cli_no_dir/out.zeb", "save");
    EXPECT_EQ(r.status, 14);
    EXPECT_EQ(r.err, "Result             : Save failed\n");
    EXPECT_EQ(AfterBanner(r.out), input + "Output file        : cli_no_dir/out.zeb\n" +
                                      Properties("2DD", "BLANK IMAGE", 84, 2, 500, 300, false));

    const std::pair<const char*, const char*> modes[] = {
        {"", "uPD765"}, {"-a Mb8877", "MB8877"}, {"-a mb -a upd765", "uPD765"}};
    for (const auto& [opt, mode] : modes) {
        r = RunZebconv(std::string("-i cli_fail_src.zeb -o cli_no_dir/out.D88 ") + opt, "export");
        EXPECT_EQ(r.status, 14);
        EXPECT_EQ(r.err, "Result             : Export failed\n");
        EXPECT_EQ(AfterBanner(r.out), input + "Export file        : cli_no_dir/out.D88\n" +
                                          "Analyze mode       : " + mode + "\n");
    }
}
