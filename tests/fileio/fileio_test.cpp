#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "fileio/fileio.h"

namespace {

std::string Slurp(const char* name) {
    std::string out;
    FILE* f = std::fopen(name, "rb");
    if (!f) return out;
    char buf[4096];
    size_t n;
    while ((n = std::fread(buf, 1, sizeof(buf), f)) > 0) out.append(buf, n);
    std::fclose(f);
    return out;
}

void Spit(const char* name, const std::string& data) {
    FILE* f = std::fopen(name, "wb");
    ASSERT_NE(f, nullptr);
    std::fwrite(data.data(), 1, data.size(), f);
    std::fclose(f);
}

}  // namespace

TEST(Fileio, OpenRefusesEmptyPathAndUnknownMode) {
    Spit("fio_modes.bin", "abc");
    Fileio f;
    EXPECT_FALSE(f.Open("", Fileio::ReadOnly));
    EXPECT_EQ(f.fd, -1);
    EXPECT_FALSE(f.Open(static_cast<const char*>(nullptr), Fileio::ReadOnly));
    EXPECT_FALSE(f.Open("fio_modes.bin", static_cast<Fileio::OpenMode>(7)));
    EXPECT_FALSE(f.IsOpen());
    EXPECT_FALSE(f.Open("fio_missing_file.bin", Fileio::ReadOnly));
    EXPECT_FALSE(f.Open("fio_missing_file.bin", Fileio::ReadWrite));
}

TEST(Fileio, WriteTruncatesAppendAppendsReadWriteUpdates) {
    Spit("fio_rw.bin", "0123456789");
    Fileio f;
    ASSERT_TRUE(f.Open("fio_rw.bin", Fileio::WriteOnly));
    EXPECT_TRUE(f.Write("abc", 3));
    EXPECT_EQ(f.GetFilePos(), 3);
    f.Close();
    EXPECT_EQ(Slurp("fio_rw.bin"), "abc");

    ASSERT_TRUE(f.Open("fio_rw.bin", Fileio::Append));
    EXPECT_TRUE(f.Write("de", 2));
    f.Close();
    EXPECT_EQ(Slurp("fio_rw.bin"), "abcde");

    ASSERT_TRUE(f.Open("fio_rw.bin", Fileio::ReadWrite));
    EXPECT_TRUE(f.Seek(1, 0));
    EXPECT_TRUE(f.Write("X", 1));
    EXPECT_EQ(f.GetFilePos(), 2);
    char c = 0;
    EXPECT_TRUE(f.Read(&c, 1));
    EXPECT_EQ(c, 'c');
    f.Close();
    EXPECT_EQ(Slurp("fio_rw.bin"), "aXcde");
    EXPECT_EQ(f.GetFilePos(), 0);
}

TEST(Fileio, ReadWriteNeedsOwnerWriteBit) {
    Spit("fio_ro.bin", "data");
    ASSERT_EQ(chmod("fio_ro.bin", 0444), 0);
    Fileio f;
    ASSERT_TRUE(f.Open("fio_ro.bin", Fileio::ReadOnly));
    int before = f.fd;
    f.Close();
    // Refused even for a privileged user, and no descriptor is taken.
    EXPECT_FALSE(f.Open("fio_ro.bin", Fileio::ReadWrite));
    EXPECT_EQ(f.fd, -1);
    Fileio g;
    ASSERT_TRUE(g.Open("fio_ro.bin", Fileio::ReadOnly));
    EXPECT_EQ(g.fd, before);
    g.Close();
    ASSERT_EQ(chmod("fio_ro.bin", 0644), 0);
    EXPECT_TRUE(f.Open("fio_ro.bin", Fileio::ReadWrite));
}

TEST(Fileio, ReadIsAllOrNothing) {
    Spit("fio_short.bin", "12345");
    Fileio f;
    ASSERT_TRUE(f.Open("fio_short.bin", Fileio::ReadOnly));
    char buf[8] = {};
    EXPECT_TRUE(f.Read(buf, 3));
    EXPECT_EQ(std::string(buf, 3), "123");
    EXPECT_FALSE(f.Read(buf, 3));  // only two bytes left
    EXPECT_FALSE(f.Read(buf, -1));
    EXPECT_TRUE(f.Read(buf, 0));
    Fileio closed;
    EXPECT_FALSE(closed.Read(buf, 1));
    EXPECT_FALSE(closed.Write(buf, 1));
}

TEST(Fileio, SeekRules) {
    Spit("fio_seek.bin", "abcdefghij");
    Fileio f;
    ASSERT_TRUE(f.Open("fio_seek.bin", Fileio::ReadOnly));
    EXPECT_TRUE(f.Seek(4, 0));
    EXPECT_EQ(f.GetFilePos(), 4);
    EXPECT_TRUE(f.Seek(2, 1));
    EXPECT_EQ(f.GetFilePos(), 6);
    char c = 0;
    ASSERT_TRUE(f.Read(&c, 1));
    EXPECT_EQ(c, 'g');
    EXPECT_TRUE(f.Seek(-3, 1));
    ASSERT_TRUE(f.Read(&c, 1));
    EXPECT_EQ(c, 'e');
    EXPECT_TRUE(f.Seek(0, 1));  // no move
    EXPECT_FALSE(f.Seek(-100, 1));
    EXPECT_EQ(f.GetFilePos(), 5);
    EXPECT_FALSE(f.Seek(INT64_MAX, 1));  // overflowing target
    EXPECT_EQ(f.GetFilePos(), 5);

    EXPECT_EQ(f.GetFileSize(), 10);
    EXPECT_EQ(f.GetFilePos(), 5);
    ASSERT_TRUE(f.Read(&c, 1));
    EXPECT_EQ(c, 'f');  // the descriptor went back to the tracked position
}

TEST(Fileio, LoadAndSaveTransferExactCounts) {
    Filepath p;
    p.SetPath("fio_loadsave.bin");
    Fileio f;
    const char text[] = "hello world";
    EXPECT_TRUE(f.Save(p, text, 11));
    EXPECT_FALSE(f.IsOpen());
    EXPECT_EQ(Slurp("fio_loadsave.bin"), "hello world");
    char buf[32] = {};
    EXPECT_TRUE(f.Load(p, buf, 11));
    EXPECT_EQ(std::string(buf), "hello world");
    EXPECT_FALSE(f.Load(p, buf, 12));
    EXPECT_FALSE(f.IsOpen());
    Filepath missing;
    missing.SetPath("fio_no_such_dir/x.bin");
    EXPECT_FALSE(f.Save(missing, text, 1));
}

TEST(Fileio, ReadLineKeepsNewlineAndCutsLongLines) {
    Spit("fio_lines.bin", "first\nsecond line\nend");
    Fileio f;
    ASSERT_TRUE(f.Open("fio_lines.bin", Fileio::ReadOnly));
    char buf[8];
    ASSERT_TRUE(f.ReadLine(buf, sizeof(buf)));
    EXPECT_STREQ(buf, "first\n");
    ASSERT_TRUE(f.ReadLine(buf, sizeof(buf)));
    EXPECT_STREQ(buf, "second ");  // size - 1 bytes at most
    ASSERT_TRUE(f.ReadLine(buf, sizeof(buf)));
    EXPECT_STREQ(buf, "line\n");
    ASSERT_TRUE(f.ReadLine(buf, sizeof(buf)));
    EXPECT_STREQ(buf, "end");
    EXPECT_FALSE(f.ReadLine(buf, sizeof(buf)));
    EXPECT_STREQ(buf, "");
    EXPECT_FALSE(f.ReadLine(buf, 0));
}

TEST(Fileio, IsExistAndListEntries) {
    ASSERT_TRUE(mkdir("fio_list", 0755) == 0 || Fileio::IsExist("fio_list") == 0);
    for (const char* n : {"fio_list/b.zeb", "fio_list/a.zeb", "fio_list/c.hfe", "fio_list/B.zeb"})
        Spit(n, "x");
    EXPECT_EQ(Fileio::IsExist("fio_list"), 0);
    EXPECT_EQ(Fileio::IsExist("fio_list/a.zeb"), 1);
    EXPECT_EQ(Fileio::IsExist("fio_list/none"), -1);
    EXPECT_EQ(Fileio::IsExist("/dev/null"), -1);

    char names[8][260];
    ASSERT_EQ(Fileio::ListEntries("fio_list", ".zeb", names, 8), 3);
    EXPECT_STREQ(names[0], "B.zeb");
    EXPECT_STREQ(names[1], "a.zeb");
    EXPECT_STREQ(names[2], "b.zeb");
    EXPECT_EQ(Fileio::ListEntries("fio_list", nullptr, names, 8), 4);
    EXPECT_EQ(Fileio::ListEntries("fio_list", "", names, 2), 2);
    EXPECT_EQ(Fileio::ListEntries("fio_list_missing", nullptr, names, 8), 0);
}
