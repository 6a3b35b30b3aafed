#include <gtest/gtest.h>

#include <cstdio>
#include <string>

#include "fileio/filepath.h"

TEST(Filepath, ClearPathIsClear) {
    Filepath p;
    EXPECT_TRUE(p.IsClear());
    p.SetPath("/x/y.zeb");
    EXPECT_FALSE(p.IsClear());
    p.Clear();
    EXPECT_TRUE(p.IsClear());
    EXPECT_STREQ(p.GetExt(), "");
}

TEST(Filepath, SplitsIntoParts) {
    struct Case {
        const char* path;
        const char* dir;
        const char* fname;
        const char* ext;
        const char* shortName;
    };
    const Case cases[] = {
        {"/a/b/disk.d88", "/a/b/", "disk", ".d88", "disk.d88"},
        {"/a/b/disk", "/a/b/", "disk", "", "disk"},
        {"dir.x/disk", "dir.x/", "disk", "", "disk"},
        {"arc.tar.gz", "./", "arc.tar", ".gz", "arc.tar.gz"},
        {"disk.ZEB", "./", "disk", ".ZEB", "disk.ZEB"},
        {"rel/sub/a.hfe", "rel/sub/", "a", ".hfe", "a.hfe"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.path);
        Filepath p;
        p.SetPath(c.path);
        EXPECT_STREQ(p.GetPath(), c.path);
        EXPECT_STREQ(p.drive, "");
        EXPECT_STREQ(p.dir, c.dir);
        EXPECT_STREQ(p.fname, c.fname);
        EXPECT_STREQ(p.GetExt(), c.ext);
        EXPECT_STREQ(p.GetShort(), c.shortName);
    }
}

TEST(Filepath, ShortNameIsCutAt59) {
    std::string base(70, 'n');
    Filepath p;
    p.SetPath(("/tmp/" + base + ".d88").c_str());
    EXPECT_EQ(std::string(p.fname), base);
    EXPECT_EQ(std::string(p.GetShort()), std::string(59, 'n'));
}

TEST(Filepath, OverlongPathIsCutSafely) {
    std::string longPath = "/" + std::string(400, 'd') + "/" + std::string(300, 'f') + ".zeb";
    Filepath p;
    p.SetPath(longPath.c_str());
    EXPECT_EQ(std::string(p.GetPath()).size(), sizeof(p.path) - 1);
    EXPECT_LT(std::string(p.dir).size(), sizeof(p.dir));
    EXPECT_LT(std::string(p.GetShort()).size(), sizeof(p.shortName));
}

TEST(Filepath, MakeJoinsPartsAndCopyResplits) {
    Filepath p;
    p.SetPath("/a/b/disk.d88");
    std::snprintf(p.ext, sizeof(p.ext), "%s", ".ZEB");
    p.Make();
    EXPECT_STREQ(p.GetPath(), "/a/b/disk.ZEB");

    Filepath q;
    q = p;
    EXPECT_STREQ(q.GetPath(), "/a/b/disk.ZEB");
    EXPECT_STREQ(q.fname, "disk");
    Filepath r(q);
    EXPECT_STREQ(r.dir, "/a/b/");
}

TEST(Filepath, HasExtIgnoresCase) {
    Filepath p;
    p.SetPath("x/disk.zEb");
    EXPECT_TRUE(p.HasExt(".ZEB"));
    EXPECT_TRUE(p.HasExt(".zeb"));
    EXPECT_FALSE(p.HasExt(".HFE"));
    EXPECT_FALSE(p.HasExt("ZEB"));
}
