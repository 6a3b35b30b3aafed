// A destination that fills up, simulated by a file-size limit (writes past it
// fail with EFBIG): the run ends with status 14 and the system's reason, and
// the source converted in place stays byte for byte, with no temporary file
// left behind. A source that is its own destination is the hardest case: every
// writer must keep the old file until the new one is whole.
#include <gtest/gtest.h>

#include <filesystem>
#include <random>
#include <set>

#include "driver/driver_run.h"

using namespace drivertest;
namespace fs = std::filesystem;

namespace {

// zebconv with its output files limited to blocks of 512 bytes (0: no limit)
// and SIGXFSZ ignored, so that a write past the limit fails instead of killing it.
ToolRun Limited(const std::string& args, size_t blocks, const std::string& tag) {
    const std::string limit = blocks ? "ulimit -f " + std::to_string(blocks) + " && " : "";
    return RunTool(limit + "trap '' XFSZ && " + ZEBCONV_PATH, args, tag);
}

std::set<std::string> Entries(const std::string& d) {
    std::set<std::string> names;
    for (const auto& e : fs::directory_iterator(d)) names.insert(e.path().filename().string());
    return names;
}

// Every format the converter writes and reads back.
const char* const kFormats[] = {"zeb", "hfe", "xdf", "hdm", "2hd", "dup", "img", "2hc", "2hq",
                                "2dd", "d68", "d88", "d77", "d98", "dim", "fdi", "fdd", "nfd"};

class FullDisk : public ::testing::TestWithParam<const char*> {};

TEST_P(FullDisk, InPlaceConversionLeavesTheSourceWhole) {
    // Cases run side by side: each keeps every file in a folder named after
    // it, the source alone in its own folder below, the tool's output and the
    // base image beside that.
    const std::string ext = GetParam(), root = "full_disk_in_place_" + ext, d = root + "/dest";
    const std::string src = d + "/src." + ext, base = root + "/base.hdm";
    fs::remove_all(root);
    fs::create_directories(d);
    // Plain images of their own sizes; every other format from a 77 x 8 x 1,024 one.
    const std::set<std::string> plain = {"2hc", "2hq", "2dd"};
    const size_t size = ext == "2hc"   ? 1228800
                        : ext == "2hq" ? 1474560
                        : ext == "2dd" ? 737280
                                       : 1261568;
    std::string bytes(size, '\0');
    std::mt19937 rng(static_cast<unsigned>(size));
    for (char& c : bytes) c = static_cast<char>(rng());
    Spit(plain.count(ext) ? src : base, bytes);
    if (!plain.count(ext)) {
        ASSERT_EQ(Limited("-i " + base + " -o " + src, 0, root + "/make").status, 0);
    }
    const std::string before = Slurp(src);
    const std::set<std::string> files = Entries(d);
    const ToolRun r = Limited("-i " + src + " -o " + src, before.size() / 1024, root + "/full");
    EXPECT_EQ(r.status, 14);
    EXPECT_EQ(r.err, "Error : cannot write " + src + ": File too large\nResult             : " +
                         (ext == "zeb" ? "Save failed\n" : "Export failed\n"));
    EXPECT_EQ(Slurp(src), before);
    EXPECT_EQ(Entries(d), files);
}

INSTANTIATE_TEST_SUITE_P(EveryFormat, FullDisk, ::testing::ValuesIn(kFormats),
                         [](const auto& p) { return std::string(p.param); });

}  // namespace
