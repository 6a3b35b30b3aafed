// A whole-file write replaces its destination only on Commit, through links,
// with the permissions of an ordinary create or of the file it replaces.
#include "fileio/atomicfile.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <set>
#include <string>
#include <tuple>
#include <vector>

namespace {

namespace fs = std::filesystem;
using Names = std::set<std::string>;

// Every test works in a fresh directory of its own, so leftovers can be counted.
std::string Dir(const std::string& name) {
    const fs::path d = fs::path(ZEBKIT_TESTDATA_DIR) / ("af_" + name);
    fs::remove_all(d);
    fs::create_directory(d);
    return d.string() + "/";
}

Names Entries(const std::string& d) {
    Names names;
    for (const auto& e : fs::directory_iterator(d)) names.insert(e.path().filename().string());
    return names;
}

std::string Slurp(const std::string& name) {
    std::ifstream f(name, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(f), {});
}

mode_t ModeOf(const std::string& name) {
    struct stat st {};
    return stat(name.c_str(), &st) == 0 ? st.st_mode & 07777 : 0;
}

// Writes text to the destination and commits it (or lets the object go).
bool WriteAll(const std::string& dest, const std::string& text, bool commit = true) {
    Filepath p;
    p.SetPath(dest.c_str());
    AtomicFile f;
    return f.Create(p) && f.Write(text.data(), static_cast<int>(text.size())) &&
           (!commit || f.Commit());
}

TEST(AtomicFile, NewFileGetsTheModeOfAnOrdinaryCreate) {
    const std::string d = Dir("new");
    for (const mode_t mask : {mode_t{0}, mode_t{027}}) {
        const mode_t old = umask(mask);
        const std::string f = d + std::to_string(mask);
        const bool ok = WriteAll(f, "abc");
        umask(old);
        ASSERT_TRUE(ok);
        EXPECT_EQ(ModeOf(f), 0666 & ~mask) << "umask " << mask;
        EXPECT_EQ(Slurp(f), "abc");
    }
    EXPECT_EQ(Entries(d), (Names{"0", "23"}));
}

// Committed, the old file takes the new bytes and keeps its mode; let go, it stays.
TEST(AtomicFile, ExistingFileKeepsItsModeAndIsReplacedOnlyOnCommit) {
    const std::string d = Dir("keep");
    for (const bool commit : {true, false}) {
        std::ofstream(d + "old.img") << "old contents";
        ASSERT_EQ(chmod((d + "old.img").c_str(), 0640), 0);
        ASSERT_TRUE(WriteAll(d + "old.img", "new", commit));
        EXPECT_EQ(ModeOf(d + "old.img"), 0640u);
        EXPECT_EQ(Slurp(d + "old.img"), commit ? "new" : "old contents");
        EXPECT_EQ(Entries(d), Names{"old.img"});
    }
}

TEST(AtomicFile, LinksAreWrittenThroughAndStay) {
    const std::string d = Dir("link");
    std::ofstream(d + "target.img") << "before";
    // {link name, what it points at, the file that receives the bytes}
    const std::tuple<std::string, std::string, std::string> links[] = {
        {"rel.img", "target.img", "target.img"},
        {"abs.img", d + "target.img", "target.img"},
        {"chain.img", "rel.img", "target.img"},
        {"dangling.img", "made.img", "made.img"},
    };
    for (const auto& [link, to, receiver] : links) {
        SCOPED_TRACE(link);
        ASSERT_EQ(symlink(to.c_str(), (d + link).c_str()), 0);
        ASSERT_TRUE(WriteAll(d + link, "via " + link));
        EXPECT_TRUE(fs::is_symlink(d + link));
        EXPECT_EQ(Slurp(d + receiver), "via " + link);
    }
    EXPECT_EQ(Entries(d).size(), 6u);
}

TEST(AtomicFile, RefusedDestinationsGiveTheSystemsReason) {
    const std::string d = Dir("refuse");
    mkdir((d + "sub.img").c_str(), 0755);
    std::ofstream(d + "ro.img") << "read only";
    chmod((d + "ro.img").c_str(), 0444);
    symlink("loop.img", (d + "loop.img").c_str());
    // {destination, errno}; a privileged user may write a read-only file.
    std::vector<std::pair<std::string, int>> cases = {
        {"sub.img", EISDIR}, {"none/x.img", ENOENT}, {"loop.img", ELOOP}};
    if (geteuid() != 0) cases.push_back({"ro.img", EACCES});
    for (const auto& [dest, err] : cases) {
        Filepath p;
        p.SetPath((d + dest).c_str());
        AtomicFile f;
        EXPECT_FALSE(f.Create(p)) << dest;
        EXPECT_EQ(f.lastError, err) << dest;
    }
    EXPECT_EQ(Slurp(d + "ro.img"), "read only");
    EXPECT_EQ(Entries(d), (Names{"loop.img", "ro.img", "sub.img"}));
}

TEST(AtomicFile, DevicesTakeTheBytesThemselves) {
    ASSERT_TRUE(WriteAll("/dev/null", "abc"));
    EXPECT_TRUE(fs::is_character_file("/dev/null"));
}

}  // namespace
