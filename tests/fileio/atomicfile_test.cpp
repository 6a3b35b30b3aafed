// A whole-file write replaces its destination only on Commit, through links,
// with the permissions of an ordinary create or of the file it replaces.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <tuple>
#include <vector>

#include "fileio/atomicfile.h"

namespace {

namespace fs = std::filesystem;

// Every test works in a fresh directory of its own, so leftovers can be counted.
std::string Dir(const std::string& name) {
    const fs::path d = fs::path(ZEBKIT_TESTDATA_DIR) / ("af_" + name);
    fs::remove_all(d);
    fs::create_directory(d);
    return d.string();
}

std::vector<std::string> Entries(const std::string& d) {
    std::vector<std::string> names;
    for (const auto& e : fs::directory_iterator(d)) names.push_back(e.path().filename().string());
    std::sort(names.begin(), names.end());
    return names;
}

std::string Slurp(const std::string& name) {
    std::ifstream f(name, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(f), {});
}

void Spit(const std::string& name, const std::string& bytes) {
    std::ofstream(name, std::ios::binary | std::ios::trunc) << bytes;
}

Filepath PathOf(const std::string& name) {
    Filepath p;
    p.SetPath(name.c_str());
    return p;
}

mode_t ModeOf(const std::string& name) {
    struct stat st {};
    stat(name.c_str(), &st);
    return st.st_mode & 07777;
}

// Writes text to the destination and commits it (or lets the object go).
bool WriteAll(const std::string& dest, const std::string& text, bool commit) {
    AtomicFile f;
    if (!f.Create(PathOf(dest))) return false;
    if (!f.Write(text.data(), static_cast<int>(text.size()))) return false;
    return !commit || f.Commit();
}

TEST(AtomicFile, NewFileGetsTheModeOfAnOrdinaryCreate) {
    const std::string d = Dir("new");
    for (const mode_t mask : {mode_t{022}, mode_t{027}, mode_t{0}}) {
        const mode_t old = umask(mask);
        const std::string f = d + "/new" + std::to_string(mask) + ".img";
        const bool ok = WriteAll(f, "abc", true);
        umask(old);
        ASSERT_TRUE(ok);
        EXPECT_EQ(ModeOf(f), 0666 & ~mask) << "umask " << mask;
        EXPECT_EQ(Slurp(f), "abc");
    }
    EXPECT_EQ(Entries(d).size(), 3u);
}

TEST(AtomicFile, ExistingFileKeepsItsModeAndGetsTheNewBytes) {
    const std::string d = Dir("keep");
    const std::string f = d + "/old.img";
    Spit(f, "old contents");
    ASSERT_EQ(chmod(f.c_str(), 0640), 0);
    ASSERT_TRUE(WriteAll(f, "new", true));
    EXPECT_EQ(ModeOf(f), 0640u);
    EXPECT_EQ(Slurp(f), "new");
    EXPECT_EQ(Entries(d), std::vector<std::string>{"old.img"});
}

TEST(AtomicFile, WithoutCommitTheDestinationStaysAndNoTemporaryRemains) {
    const std::string d = Dir("discard");
    const std::string f = d + "/kept.img";
    Spit(f, "precious");
    ASSERT_TRUE(WriteAll(f, "half a fi", false));
    EXPECT_EQ(Slurp(f), "precious");
    EXPECT_EQ(Entries(d), std::vector<std::string>{"kept.img"});
}

TEST(AtomicFile, LinksAreWrittenThroughAndStay) {
    const std::string d = Dir("link");
    Spit(d + "/target.img", "before");
    // {link name, what it points at, the file that receives the bytes}
    const std::tuple<std::string, std::string, std::string> links[] = {
        {"rel.img", "target.img", "target.img"},
        {"abs.img", d + "/target.img", "target.img"},
        {"chain.img", "rel.img", "target.img"},
        {"dangling.img", "made.img", "made.img"},
    };
    for (const auto& [link, to, receiver] : links) {
        SCOPED_TRACE(link);
        ASSERT_EQ(symlink(to.c_str(), (d + "/" + link).c_str()), 0);
        ASSERT_TRUE(WriteAll(d + "/" + link, "via " + link, true));
        struct stat st {};
        ASSERT_EQ(lstat((d + "/" + link).c_str(), &st), 0);
        EXPECT_TRUE(S_ISLNK(st.st_mode));
        EXPECT_EQ(Slurp(d + "/" + receiver), "via " + link);
    }
    EXPECT_EQ(Entries(d), (std::vector<std::string>{"abs.img", "chain.img", "dangling.img",
                                                    "made.img", "rel.img", "target.img"}));
}

TEST(AtomicFile, RefusedDestinationsGiveTheSystemsReason) {
    const std::string d = Dir("refuse");
    mkdir((d + "/sub.img").c_str(), 0755);
    Spit(d + "/ro.img", "read only");
    chmod((d + "/ro.img").c_str(), 0444);
    symlink("loop.img", (d + "/loop.img").c_str());
    // {destination, errno}; a privileged user may write a read-only file.
    std::vector<std::pair<std::string, int>> cases = {
        {d + "/sub.img", EISDIR}, {d + "/none/x.img", ENOENT}, {d + "/loop.img", ELOOP}};
    if (geteuid() != 0) cases.push_back({d + "/ro.img", EACCES});
    for (const auto& [dest, err] : cases) {
        SCOPED_TRACE(dest);
        AtomicFile f;
        EXPECT_FALSE(f.Create(PathOf(dest)));
        EXPECT_EQ(f.lastError, err);
    }
    EXPECT_EQ(Slurp(d + "/ro.img"), "read only");
    rmdir((d + "/sub.img").c_str());
    EXPECT_EQ(Entries(d), (std::vector<std::string>{"loop.img", "ro.img"}));
}

TEST(AtomicFile, DevicesTakeTheBytesThemselves) {
    AtomicFile f;
    ASSERT_TRUE(f.Create(PathOf("/dev/null")));
    EXPECT_TRUE(f.Write("abc", 3));
    EXPECT_TRUE(f.Commit());
    struct stat st {};
    ASSERT_EQ(stat("/dev/null", &st), 0);
    EXPECT_TRUE(S_ISCHR(st.st_mode));
}

}  // namespace
