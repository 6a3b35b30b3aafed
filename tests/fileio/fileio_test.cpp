#include "fileio/fileio.h"

#include "fileio/atomicfile.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cstdint>
#include <cstdio>
#include <fstream>
#include <iterator>
#include <string>
#include <tuple>
#include <vector>

namespace {

using Strings = std::vector<std::string>;

void Spit(const char* name, const std::string& data) {
    std::ofstream(name, std::ios::binary) << data;
}

TEST(Filepath, SplitsIntoParts) {
    const std::string n70(70, 'n');
    const Strings cases[] = {
        {"/a/b/disk.d88", "/a/b/", "disk", ".d88", "disk.d88"},
        {"/a/b/disk", "/a/b/", "disk", "", "disk"},
        {"dir.x/disk", "dir.x/", "disk", "", "disk"},
        {"arc.tar.gz", "./", "arc.tar", ".gz", "arc.tar.gz"},
        {"/tmp/" + n70 + ".d88", "/tmp/", n70, ".d88", n70.substr(0, 59)},
    };
    for (const Strings& c : cases) {
        Filepath p;
        p.SetPath(c[0].c_str());
        const Filepath q(p);  // a copy splits again; parts: dir, fname, ext, shortName
        EXPECT_EQ((Strings{q.GetPath(), q.dir, q.fname, q.GetExt(), q.GetShort()}), c);
    }
}

TEST(Filepath, ExtensionsAndRebuiltPaths) {
    Filepath p;
    p.SetPath("x/disk.zEb");
    EXPECT_TRUE(p.HasExt(".ZEB") && !p.HasExt("ZEB"));
    std::snprintf(p.ext, sizeof(p.ext), ".HFE");
    p.Make();
    EXPECT_STREQ(p.GetPath(), "x/disk.HFE");
    const std::string huge = "/" + std::string(400, 'd') + "/" + std::string(300, 'f') + ".zeb";
    p.SetPath(huge.c_str());
    EXPECT_EQ(p.GetPath(), huge.substr(0, sizeof(p.path) - 1));
}

TEST(Fileio, OpenModes) {
    chmod("fio_modes.bin", 0644);  // left read-only by an earlier run
    Spit("fio_modes.bin", "0123456789");
    Fileio f;
    EXPECT_FALSE(f.Open("", Fileio::ReadOnly) || f.Open("fio_missing.bin", Fileio::ReadOnly) ||
                 f.Open("fio_modes.bin", static_cast<Fileio::OpenMode>(7)));
    EXPECT_TRUE(f.Open("fio_modes.bin", Fileio::WriteOnly) && f.Write("abc", 3));  // truncates
    // Opening closes the previous file first and starts at 0.
    EXPECT_TRUE(f.Open("fio_modes.bin", Fileio::Append) && f.GetFilePos() == 0 && f.Write("de", 2));
    char c = 0;
    EXPECT_TRUE(f.Open("fio_modes.bin", Fileio::ReadWrite) && f.Seek(1, 0) && f.Write("X", 1) &&
                f.Read(&c, 1) && c == 'c');
    f.Close();
    std::ifstream in("fio_modes.bin");
    EXPECT_EQ(std::string(std::istreambuf_iterator<char>(in), {}), "aXcde");
    // Read-write needs the owner-write bit, even for root; refused, it takes no descriptor.
    ASSERT_EQ(chmod("fio_modes.bin", 0444), 0);
    ASSERT_TRUE(f.Open("fio_modes.bin", Fileio::ReadOnly));
    const int next = f.fd;
    EXPECT_FALSE(f.Open("fio_modes.bin", Fileio::ReadWrite));
    EXPECT_EQ(f.fd, -1);
    EXPECT_TRUE(f.Open("fio_modes.bin", Fileio::ReadOnly));
    EXPECT_EQ(f.fd, next);
}

// Seeks move the tracked position; reads at an offset leave it alone and refuse what the
// file does not hold.
TEST(Fileio, SeekAndReadAtRules) {
    Spit("fio_seek.bin", "abcdefghij");
    Fileio f;
    char buf[4] = {};
    EXPECT_TRUE(f.Seek(0, 0));  // no move needed: true even without a file
    EXPECT_FALSE(f.Seek(1, 0) || f.ReadAt(buf, 1, 0));
    ASSERT_TRUE(f.Open("fio_seek.bin", Fileio::ReadOnly));
    const std::tuple<int64_t, int, bool, int64_t> steps[] = {
        // {offset, relative, result, position after}
        {4, 0, true, 4},     {2, 1, true, 6},          {-3, 1, true, 3}, {0, 1, true, 3},
        {-100, 1, false, 3}, {INT64_MAX, 1, false, 3}, {7, 0, true, 7},
    };
    for (const auto& [offset, relative, ok, after] : steps) {
        EXPECT_EQ(f.Seek(offset, relative), ok) << offset;
        EXPECT_EQ(f.GetFilePos(), after) << offset;
    }
    EXPECT_EQ(f.GetFileSize(), 10);
    char c = 0;  // the size query went back to the tracked position
    EXPECT_TRUE(f.Read(&c, 1) && c == 'h');
    const std::tuple<int64_t, int, bool, const char*> rows[] = {
        {0, 3, true, "abc"}, {7, 3, true, "hij"}, {8, 3, false, ""},
        {-1, 1, false, ""},  {4, 0, true, ""},
    };
    for (const auto& [at, n, ok, want] : rows) {
        char got[4] = {};
        EXPECT_EQ(f.ReadAt(got, n, at), ok) << at;
        EXPECT_STREQ(ok ? got : "", want) << at;
        EXPECT_EQ(f.GetFilePos(), 8) << at;
    }
}

TEST(Fileio, TransfersAreAllOrNothing) {
    Filepath p, bad;
    p.SetPath("fio_load.bin");
    bad.SetPath("fio_no_such_dir/x.bin");
    Fileio f;
    char buf[8] = {};
    EXPECT_TRUE(f.Save(p, "hello", 5) && f.Load(p, buf, 5));
    EXPECT_STREQ(buf, "hello");
    EXPECT_FALSE(f.Save(bad, "x", 1) || f.Load(p, buf, 6));  // the file holds 5
}

// Small pieces come from the read-ahead buffer, large ones straight from the
// file; seeks land inside, before and past the buffered bytes.
TEST(Fileio, PieceByPieceReadsGiveTheFileAsItIs) {
    std::string data(200000, 0);
    uint32_t x = 1;
    for (char& ch : data) x = x * 1103515245u + 12345u, ch = static_cast<char>(x >> 24);
    Spit("fio_pieces.bin", data);
    Fileio f;
    ASSERT_TRUE(f.Open("fio_pieces.bin", Fileio::ReadOnly));
    const std::tuple<int64_t, int> steps[] = {
        // {seek to (-1: read on), bytes}
        {-1, 16},    {-1, 1},     {-1, 65000}, {-1, 700},  {100, 20000}, {70000, 3},
        {65530, 12}, {131072, 8}, {-1, 16384}, {5, 16383}, {199990, 10},
    };
    for (const auto& [to, n] : steps) {
        ASSERT_TRUE(to < 0 || f.Seek(to, 0));
        const int64_t at = f.GetFilePos();
        std::string got(static_cast<size_t>(n), 0);
        ASSERT_TRUE(f.Read(got.data(), n)) << at;
        EXPECT_EQ(got, data.substr(static_cast<size_t>(at), static_cast<size_t>(n))) << at;
        EXPECT_EQ(f.GetFilePos(), at + n);
    }
    // Past the end: what there is was read, and the file simply ended.
    char tail[8];
    ASSERT_TRUE(f.Seek(199996, 0));
    EXPECT_FALSE(f.Read(tail, 8));
    EXPECT_EQ(f.GetFilePos(), 200000);
    EXPECT_EQ(f.lastError, 0);
    EXPECT_EQ(std::string(tail, 4), data.substr(199996));
    EXPECT_FALSE(f.Seek(0, 0) && f.Read(tail, -1));
}

// A whole-file write gathers small pieces; large ones, seeks and the commit
// put everything in the file in the order it was written.
TEST(Fileio, GatheredWritesLandInOrder) {
    std::string want;
    Filepath p;
    p.SetPath("fio_gather.bin");
    AtomicFile f;
    ASSERT_TRUE(f.Create(p));
    for (const size_t n : {size_t{16}, size_t{3}, size_t{20000}, size_t{700}, size_t{65536},
                           size_t{1}, size_t{70000}, size_t{9}}) {
        std::string piece(n, static_cast<char>('a' + want.size() % 26));
        ASSERT_TRUE(f.Write(piece.data(), static_cast<int>(n)));
        want += piece;
        EXPECT_EQ(f.GetFilePos(), static_cast<int64_t>(want.size()));
    }
    ASSERT_TRUE(f.Seek(5, 0));  // back over bytes still held, then on
    ASSERT_TRUE(f.Write("XYZ", 3));
    want.replace(5, 3, "XYZ");
    ASSERT_TRUE(f.Seek(static_cast<int64_t>(want.size()), 0));
    ASSERT_TRUE(f.Write("end", 3));
    want += "end";
    EXPECT_EQ(f.GetFileSize(), static_cast<int64_t>(want.size()));
    ASSERT_TRUE(f.Commit());
    std::ifstream in("fio_gather.bin", std::ios::binary);
    EXPECT_EQ(std::string(std::istreambuf_iterator<char>(in), {}), want);
}

TEST(Fileio, ReadLineKeepsNewlineAndCutsLongLines) {
    Spit("fio_lines.bin", "first\nsecond line\nend");
    Fileio f;
    ASSERT_TRUE(f.Open("fio_lines.bin", Fileio::ReadOnly));
    char buf[8];
    for (const char* want : {"first\n", "second ", "line\n", "end"}) {
        EXPECT_TRUE(f.ReadLine(buf, sizeof(buf)));
        EXPECT_STREQ(buf, want);
    }
    EXPECT_FALSE(f.ReadLine(buf, sizeof(buf)));
    EXPECT_STREQ(buf, "");
}

TEST(Fileio, IsExistAndListEntries) {
    ASSERT_TRUE(mkdir("fio_list", 0755) == 0 || Fileio::IsExist("fio_list") == 0);
    for (const char* n : {"fio_list/b.zeb", "fio_list/a.zeb", "fio_list/c.hfe", "fio_list/B.zeb"})
        Spit(n, "x");
    EXPECT_EQ((std::vector<int>{Fileio::IsExist("fio_list"), Fileio::IsExist("fio_list/a.zeb"),
                                Fileio::IsExist("fio_list/none"), Fileio::IsExist("/dev/null")}),
              (std::vector<int>{0, 1, -1, -1}));
    char names[8][260];
    ASSERT_EQ(Fileio::ListEntries("fio_list", ".zeb", names, 8), 3);
    EXPECT_EQ((Strings{names[0], names[1], names[2]}), (Strings{"B.zeb", "a.zeb", "b.zeb"}));
    EXPECT_EQ(Fileio::ListEntries("fio_list", nullptr, names, 8), 4);
    EXPECT_EQ(Fileio::ListEntries("fio_list", "", names, 2), 2);
    EXPECT_EQ(Fileio::ListEntries("fio_list_missing", nullptr, names, 8), 0);
}

}  // namespace
