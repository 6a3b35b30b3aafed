// A destination that fills up, simulated by a file-size limit (writes past it
// fail with EFBIG): the run ends with status 14 and the system's reason, and
// whatever was at the destination - the source itself, for an in-place
// conversion - stays byte for byte, with no temporary file left behind.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <filesystem>
#include <random>
#include <vector>

#include "driver/driver_run.h"

using namespace drivertest;

namespace {

std::vector<std::string> Entries(const std::string& d) {
    std::vector<std::string> names;
    for (const auto& e : std::filesystem::directory_iterator(d))
        names.push_back(e.path().filename().string());
    std::sort(names.begin(), names.end());
    return names;
}

// zebconv with its output files limited to limit bytes (0: no limit) and
// SIGXFSZ ignored, so that a write past the limit fails instead of killing it.
ToolRun Limited(const std::string& args, rlim_t limit, const std::string& tag) {
    const std::string out = tag + ".stdout", err = tag + ".stderr";
    const std::string cmd = std::string(ZEBCONV_PATH) + " " + args;
    ToolRun r;
    const pid_t pid = fork();
    if (pid == 0) {
        const int o = open(out.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
        const int e = open(err.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
        if (o < 0 || e < 0 || dup2(o, 1) < 0 || dup2(e, 2) < 0) _exit(127);
        if (limit) {
            const rlimit rl{limit, limit};
            if (setrlimit(RLIMIT_FSIZE, &rl) != 0) _exit(127);
        }
        std::signal(SIGXFSZ, SIG_IGN);
        execl("/bin/sh", "sh", "-c", cmd.c_str(), static_cast<char*>(nullptr));
        _exit(127);
    }
    int status = 0;
    if (pid > 0 && waitpid(pid, &status, 0) == pid && WIFEXITED(status))
        r.status = WEXITSTATUS(status);
    r.out = Slurp(out), r.err = Slurp(err);
    return r;
}

std::string Random(size_t size, unsigned seed) {
    std::string b(size, '\0');
    std::mt19937 rng(seed);
    for (char& c : b) c = static_cast<char>(rng());
    return b;
}

// Every format the converter writes and reads back, each as a source.
const char* const kFormats[] = {"zeb", "hfe", "xdf", "hdm", "2hd", "dup", "img", "2hc", "2hq",
                                "2dd", "d68", "d88", "d77", "d98", "dim", "fdi", "fdd", "nfd"};

// Tests run in parallel processes: each gets a fresh directory of its own.
std::string FreshDir(const std::string& name) {
    const std::string d = "fulldisk_" + name;
    std::filesystem::remove_all(d);
    std::filesystem::create_directory(d);
    return d;
}

// A source image of the format: plain images of their own sizes, every other
// format converted from a 77 x 8 x 1,024 one.
std::string MakeSource(const std::string& d, const std::string& ext) {
    const std::string src = d + "/src." + ext;
    for (const auto& [plain, size] : {std::pair{"2hc", 1228800}, {"2hq", 1474560}, {"2dd", 737280}})
        if (ext == plain) {
            Spit(src, Random(static_cast<size_t>(size), 2));
            return src;
        }
    Spit(d + "/base.hdm", Random(1261568, 1));
    EXPECT_EQ(Limited("-i " + d + "/base.hdm -o " + src, 0, d + "/make").status, 0);
    unlink((d + "/base.hdm").c_str());
    return src;
}

class FullDisk : public ::testing::TestWithParam<const char*> {};

TEST_P(FullDisk, InPlaceConversionLeavesTheSourceWhole) {
    const std::string d = FreshDir(std::string("inplace_") + GetParam());
    const std::string src = MakeSource(d, GetParam());
    const std::string before = Slurp(src);
    const std::vector<std::string> files = Entries(d);
    const ToolRun r = Limited("-i " + src + " -o " + src, before.size() / 2, "fd_" + d);
    EXPECT_EQ(r.status, 14);
    const char* result = std::string(GetParam()) == "zeb" ? "Save failed" : "Export failed";
    EXPECT_EQ(r.err, "Error : cannot write " + src +
                         ": File too large\nResult             : " + result + "\n");
    EXPECT_EQ(Slurp(src), before);
    EXPECT_EQ(Entries(d), files);
}

TEST_P(FullDisk, AnExistingDestinationIsUntouched) {
    const std::string d = FreshDir(std::string("existing_") + GetParam());
    const std::string src = MakeSource(d, GetParam());
    const std::string dst = d + "/old." + GetParam();
    Spit(dst, "an older image that must survive");
    const std::vector<std::string> files = Entries(d);
    const ToolRun r = Limited("-i " + src + " -o " + dst, 4096, "fd_" + d);
    EXPECT_EQ(r.status, 14);
    EXPECT_EQ(Slurp(dst), "an older image that must survive");
    EXPECT_EQ(Entries(d), files);
}

INSTANTIATE_TEST_SUITE_P(EveryFormat, FullDisk, ::testing::ValuesIn(kFormats),
                         [](const auto& p) { return std::string(p.param); });

// A destination reached through a link: the link stays, the file it names is
// replaced and keeps its permissions.
TEST(Destination, LinkIsWrittenThroughAndTheTargetKeepsItsMode) {
    const std::string d = FreshDir("link");
    const std::string target = d + "/linked.d88", link = d + "/link.d88";
    Spit(target, "old");
    ASSERT_EQ(chmod(target.c_str(), 0604), 0);
    ASSERT_EQ(symlink("linked.d88", link.c_str()), 0);
    Spit(d + "/plain.hdm", Random(1261568, 3));
    ASSERT_EQ(Limited("-i " + d + "/plain.hdm -o " + link, 0, "fd_link").status, 0);
    struct stat st {};
    ASSERT_EQ(lstat(link.c_str(), &st), 0);
    EXPECT_TRUE(S_ISLNK(st.st_mode));
    ASSERT_EQ(stat(target.c_str(), &st), 0);
    EXPECT_EQ(st.st_mode & 07777, 0604u);
    ASSERT_EQ(Limited("-i " + target + " -o " + d + "/back.hdm", 0, "fd_link").status, 0);
    EXPECT_EQ(Slurp(d + "/back.hdm"), Slurp(d + "/plain.hdm"));
}

}  // namespace
