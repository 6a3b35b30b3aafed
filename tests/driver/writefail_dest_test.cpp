// Destinations that cannot be written end the run with the save or export
// failure and status 14, and the source file stays as it was, also when the
// source is the destination.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <random>

#include "driver/driver_run.h"

using namespace drivertest;

namespace {

ToolRun Zebconv(const std::string& src, const std::string& dst) {
    return RunTool(ZEBCONV_PATH, "-i " + src + " -o " + dst, "wf_run");
}

TEST(WriteFailure, UnwritableDestinationsFailWithStatus14AndSourcesStayIntact) {
    // A 2DD plain image of random bytes and the ZEB and D88 files made from it.
    std::string img(737280, '\0');
    std::mt19937 rng(14);
    for (char& b : img) b = static_cast<char>(rng());
    Spit("wf_src.2dd", img);
    ASSERT_EQ(
        Zebconv("wf_src.2dd", "wf_src.zeb").status + Zebconv("wf_src.2dd", "wf_src.d88").status, 0);
    mkdir("wf_dir.d88", 0755);
    mkdir("wf_dir.zeb", 0755);
    // The full device accepts the open and fails every write.
    for (const char* name : {"wf_full.zeb", "wf_full.hfe"})
        unlink(name), symlink("/dev/full", name);
    // No write can create a file in /proc even for root, nor in a read-only directory.
    mkdir("wf_ro", 0555), chmod("wf_ro", 0555);
    const std::string ro = geteuid() == 0 ? "/proc/wf_out.nfd" : "wf_ro/wf_out.nfd";
    const std::string roWhy = geteuid() == 0 ? "No such file or directory" : "Permission denied";
    const std::string full = ": No space left on device";
    // {source, destination, result, the reason printed before it}
    const std::tuple<const char*, std::string, const char*, std::string> cases[] = {
        {"wf_src.2dd", "wf_dir.d88", "Export", "cannot create wf_dir.d88: Is a directory"},
        {"wf_src.2dd", "wf_dir.zeb", "Save", "cannot create wf_dir.zeb: Is a directory"},
        {"wf_src.2dd", "wf_full.zeb", "Save", "cannot write wf_full.zeb" + full},
        {"wf_src.zeb", "wf_full.hfe", "Export", "cannot write wf_full.hfe" + full},
        {"wf_src.2dd", ro, "Export", "cannot create " + ro + ": " + roWhy},
        {"wf_src.d88", "wf_missing/wf_out.fdd", "Export",
         "cannot create wf_missing/wf_out.fdd: No such file or directory"}};
    for (const auto& [src, dst, result, why] : cases) {
        const std::string before = Slurp(src);
        const ToolRun r = Zebconv(src, dst);
        EXPECT_EQ(r.status, 14) << dst;
        EXPECT_EQ(r.err, "Error : " + why + "\nResult             : " + result + " failed\n");
        EXPECT_EQ(Slurp(src), before) << dst;
    }
    // {copied to the name that is both source and destination, that name, status}; 2DD
    // bytes under a 2HD name are read by size and refused by the 2HD writer.
    for (const auto& [from, same, status] : {std::tuple{"wf_src.2dd", "wf_same.2hd", 14},
                                             {"wf_src.zeb", "wf_same.zeb", 0},
                                             {"wf_src.d88", "wf_same.d88", 0},
                                             {"wf_src.2dd", "wf_same.2dd", 0}}) {
        const std::string before = Slurp(from);
        Spit(same, before);
        EXPECT_EQ(Zebconv(same, same).status, status) << same;
        EXPECT_EQ(Slurp(same), before) << same;
    }
}

}  // namespace
