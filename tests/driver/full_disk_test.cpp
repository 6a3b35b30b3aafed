// A destination that fills up, simulated by a file-size limit (writes past it
// fail with EFBIG): the run ends with status 14 and the system's reason, and
// whatever was at the destination - the source itself, for an in-place
// conversion - stays byte for byte, with no temporary file left behind.
#include <dirent.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <random>
#include <vector>

#include "driver/driver_run.h"

using namespace drivertest;

namespace {

const std::string kDir = "fulldisk";

std::string In(const std::string& name) {
    return kDir + "/" + name;
}

std::vector<std::string> Entries() {
    std::vector<std::string> names;
    DIR* dir = opendir(kDir.c_str());
    while (const dirent* e = dir ? readdir(dir) : nullptr)
        if (std::string(e->d_name) != "." && std::string(e->d_name) != "..")
            names.push_back(e->d_name);
    if (dir) closedir(dir);
    std::sort(names.begin(), names.end());
    return names;
}

// zebconv with its output files limited to limit bytes (0: no limit) and
// SIGXFSZ ignored, so that a write past the limit fails instead of killing it.
ToolRun Limited(const std::string& args, rlim_t limit) {
    const std::string out = "fd_run.stdout", err = "fd_run.stderr";
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

class FullDisk : public ::testing::TestWithParam<const char*> {
protected:
    static void SetUpTestSuite() {
        mkdir(kDir.c_str(), 0755);
        for (const std::string& n : Entries()) unlink(In(n).c_str());
        // Plain images of their own sizes; every other format from the 77 x 8 x 1,024 one.
        Spit(In("base.hdm"), Random(1261568, 1));
        for (const auto& [ext, size] :
             {std::pair{"2hc", 1228800}, {"2hq", 1474560}, {"2dd", 737280}})
            Spit(In(std::string("src.") + ext), Random(static_cast<size_t>(size), 2));
        for (const char* ext : kFormats) {
            const std::string src = In(std::string("src.") + ext);
            if (access(src.c_str(), F_OK) == 0) continue;
            ASSERT_EQ(Limited("-i " + In("base.hdm") + " -o " + src, 0).status, 0) << ext;
        }
    }
};

TEST_P(FullDisk, InPlaceConversionLeavesTheSourceWhole) {
    const std::string src = In(std::string("src.") + GetParam());
    const std::string before = Slurp(src);
    const std::vector<std::string> files = Entries();
    const ToolRun r = Limited("-i " + src + " -o " + src, before.size() / 2);
    EXPECT_EQ(r.status, 14);
    const char* result = std::string(GetParam()) == "zeb" ? "Save failed" : "Export failed";
    EXPECT_EQ(r.err, "Error : cannot write " + src +
                         ": File too large\nResult             : " + result + "\n");
    EXPECT_EQ(Slurp(src), before);
    EXPECT_EQ(Entries(), files);
}

TEST_P(FullDisk, AnExistingDestinationIsUntouched) {
    const std::string src = In(std::string("src.") + GetParam());
    const std::string dst = In(std::string("old.") + GetParam());
    Spit(dst, "an older image that must survive");
    const std::vector<std::string> files = Entries();
    const ToolRun r = Limited("-i " + src + " -o " + dst, 4096);
    EXPECT_EQ(r.status, 14);
    EXPECT_EQ(Slurp(dst), "an older image that must survive");
    EXPECT_EQ(Entries(), files);
}

INSTANTIATE_TEST_SUITE_P(EveryFormat, FullDisk, ::testing::ValuesIn(kFormats),
                         [](const auto& p) { return std::string(p.param); });

// A destination reached through a link: the link stays, the file it names is
// replaced and keeps its permissions.
TEST(Destination, LinkIsWrittenThroughAndTheTargetKeepsItsMode) {
    mkdir(kDir.c_str(), 0755);
    const std::string target = In("linked.d88"), link = In("link.d88");
    Spit(target, "old");
    ASSERT_EQ(chmod(target.c_str(), 0604), 0);
    unlink(link.c_str());
    ASSERT_EQ(symlink("linked.d88", link.c_str()), 0);
    Spit(In("plain.hdm"), Random(1261568, 3));
    ASSERT_EQ(Limited("-i " + In("plain.hdm") + " -o " + link, 0).status, 0);
    struct stat st {};
    ASSERT_EQ(lstat(link.c_str(), &st), 0);
    EXPECT_TRUE(S_ISLNK(st.st_mode));
    ASSERT_EQ(stat(target.c_str(), &st), 0);
    EXPECT_EQ(st.st_mode & 07777, 0604u);
    ASSERT_EQ(Limited("-i " + target + " -o " + In("back.hdm"), 0).status, 0);
    EXPECT_EQ(Slurp(In("back.hdm")), Slurp(In("plain.hdm")));
}

}  // namespace
