// zebconv's command line: option parsing, banner and usage, the property block
// and the exit status of every stage.
#include <gtest/gtest.h>

#include <cstdio>
#include <regex>
#include <sstream>
#include <tuple>
#include <vector>

#include "driver/driver.h"
#include "driver/driver_run.h"
#include "zebdisk/zebdisk.h"

using namespace drivertest;

namespace {

ToolRun Zebconv(const std::string& args, const std::string& tag) {
    return RunTool(ZEBCONV_PATH, args, "cli_" + tag);
}

// Checks the version line and the rest of the banner; returns what follows.
std::string AfterBanner(const std::string& out) {
    static const std::regex banner(
        "ZEBKIT version 2\\.1\\.0\\([A-Z][a-z]{2} [ 123][0-9] [0-9]{4}, "
        "[0-9]{2}:[0-9]{2}:[0-9]{2}\\)\n[^\n]*\nFloppy image convert utility\n\n");
    std::smatch m;
    EXPECT_TRUE(std::regex_search(out, m, banner, std::regex_constants::match_continuous)) << out;
    return m.empty() ? out : m.suffix().str();
}

std::string Properties(const char* type, const char* name, int cyls, int rate, int rpm, bool wp) {
    char buf[512];
    std::snprintf(buf, sizeof buf,
                  "DIsk Type          : %s\nName               : %s\nCylinders          : %d\n"
                  "Heads              : 2\nRate               : %d kbps\nRPM                : %d\n"
                  "Write Protect      : %s\n",
                  type, name, cyls, rate, rpm, wp ? "ON" : "OFF");
    return buf;
}

void SaveDisk(const std::string& name, int type, int raw, const char* diskName, int wp) {
    ZEBDisk d;
    ASSERT_TRUE(d.Init(type == 5 ? ZEB_2DD : type, 0, 0, raw));
    d.SetName(diskName);
    d.SetHeaderInt(zebhdr::kWriteProtect, wp);
    if (type == 5) d.SetHeaderInt(zebhdr::kType, 5);
    ASSERT_TRUE(d.Save(PathOf(name), 1));
}

TEST(ParseArgument, OptionsFallBackAsDocumented) {
    // {arguments, accepted, raw mode, MB8877 rules, disk number}
    // clang-format off
    const std::tuple<const char*, bool, int, int, int> cases[] = {
        {"-i a.zeb -o b.zeb", true, 0, 0, 1}, {"-i a.zeb -o b.zeb -n 32", true, 0, 0, 32},
        {"-n 0 -i a.zeb -o b.zeb", true, 0, 0, 1}, {"-n 33 -i a.zeb -o b.zeb", true, 0, 0, 1},
        {"-n abc -i a.zeb -o b.zeb", true, 0, 0, 1},
        {"-n 3x -n -5 -n 3x -i a.zeb -o b.zeb", true, 0, 0, 3},
        {"-f Raw -f encode -i a.zeb -o b.zeb", true, 1, 0, 1},
        {"-f r -i a.zeb -o b.zeb", true, 1, 0, 1}, {"-f x -i a.zeb -o b.zeb -q", true, 0, 0, 1},
        {"-a M -i a.zeb -o b.zeb", true, 0, 1, 1},
        {"-a mb -a upd765 -i a.zeb -o b.zeb", true, 0, 0, 1},
        {"-a 8877 -i a.zeb -o b.zeb -a mb8877", true, 0, 1, 1},
        {"-o b.zeb", false, 0, 0, -1}, {"-i a.zeb -f raw -a m", false, 1, 1, -1},
        {"-i", false, 0, 0, -1}};
    // clang-format on
    for (const auto& [line, ok, raw, mb, disk] : cases) {
        std::vector<std::string> args = {"zebconv"};
        std::istringstream in(line);
        for (std::string w; in >> w;) args.push_back(w);
        std::vector<char*> argv;
        for (std::string& a : args) argv.push_back(a.data());
        argv.push_back(nullptr);
        diskno = -1;
        EXPECT_EQ(std::tuple(ParseArgument(static_cast<int>(args.size()), argv.data()), rawmode,
                             mb8877, diskno),
                  std::tuple(ok, raw, mb, disk))
            << line;
    }
    EXPECT_STREQ(fpInfile.GetPath(), "a.zeb");
}

TEST(ZebconvCli, BannerUsageAndExitStatuses) {
    SaveDisk("cli_src.zeb", ZEB_2DD, 0, "SRC", 0);
    std::remove("cli_out.zeb");
    const std::string usage =
        " -i SRCFILE [-n DISKNO] -o DESTFILE [-f FORMAT] [-a ANALYZE]\n\n"
        " SRCFILE is source image file path.\n"
        " DISKNO is disk number of multi image format, Default is 1.\n"
        " DESTFILE is destination image file path.\n"
        " FORMAT is data format {encode|raw} when DESTFILE is ZEB. Default is encode.\n"
        " ANALYZE is analyze mode {upd765|mb8877}, Default is upd765.\n\n";
    const std::string tool = ZEBCONV_PATH, prog = tool.substr(tool.rfind(' ') + 1);
    const std::tuple<const char*, int, const char*> cases[] = {
        {"", 0, ""},
        {"-o cli_out.zeb", 22, "Error : Invalid source image file path\n"},
        {"-i cli_src.zeb -z", 22, "Error : Invalid destination image file path\n"},
        {"-i cli_none.zeb -o cli_out.zeb", 2,
         "Error : cli_none.zeb: No such file or directory\nResult             : Load failed\n"},
        {"-i cli_none.d88 -o cli_out.zeb", 2,
         "Error : cli_none.d88: No such file or directory\nResult             : Import failed\n"},
        {"-i cli_src.zeb -o cli_out.zeb", 0, "Result             : Success\n"},
    };
    for (const auto& [args, status, err] : cases) {
        SCOPED_TRACE(args);
        const ToolRun r = Zebconv(args, "status");
        EXPECT_EQ(r.status, status);
        EXPECT_EQ(r.err, err);
        const std::string rest = AfterBanner(r.out);
        EXPECT_EQ(rest, !*args ? "Usage: " + prog + usage : status ? "" : rest);
    }
    EXPECT_EQ(Slurp("cli_out.zeb"), Slurp("cli_src.zeb"));
}

TEST(ZebconvCli, PropertyBlockBeforeAndAfter) {
    SaveDisk("cli_props.zeb", ZEB_2HD, 0, "CLI DISK", 1);
    const std::string props = Properties("2HD", "CLI DISK", 84, 1000, 360, true);
    ToolRun r = Zebconv("-i cli_props.zeb -o cli_props_out.ZEB -a mb8877", "props");
    EXPECT_EQ(AfterBanner(r.out), "Input file         : cli_props.zeb\n" + props +
                                      "\nOutput file        : cli_props_out.ZEB\n" + props);
    r = Zebconv("-i cli_props.zeb -o cli_props_out.D88 -a Mb", "export");
    EXPECT_EQ(AfterBanner(r.out), "Input file         : cli_props.zeb\n" + props +
                                      "\nExport file        : cli_props_out.D88\n"
                                      "Analyze mode       : MB8877\n");
    // A raw disk asked to stay raw is saved without conversion.
    for (const auto& [type, raw, name, rate] : {std::tuple{int{ZEB_2D}, 0, "2D", 500},
                                                {ZEB_2DD, 1, "RAW", 4000},
                                                {5, 0, "UNKNOWN", 500}}) {
        SaveDisk("cli_type.zeb", type, raw, "T", 0);
        r = Zebconv(std::string("-i cli_type.zeb -o cli_type_out.zeb") + (raw ? " -f R" : ""),
                    "type");
        const std::string p = Properties(name, "T", type == ZEB_2D ? 42 : 84, rate, 300, false);
        EXPECT_EQ(AfterBanner(r.out), "Input file         : cli_type.zeb\n" + p +
                                          "\nOutput file        : cli_type_out.zeb\n" + p);
        EXPECT_EQ(Slurp("cli_type_out.zeb"), Slurp("cli_type.zeb"));
    }
}

}  // namespace
