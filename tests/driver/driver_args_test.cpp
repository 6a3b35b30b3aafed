#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "driver/driver.h"

namespace {

struct Parsed {
    bool ok;
    int raw, mb, disk;
    std::string in, out;
};

Parsed Parse(std::vector<std::string> args) {
    args.insert(args.begin(), "zebconv");
    std::vector<char*> argv;
    for (std::string& a : args) argv.push_back(a.data());
    argv.push_back(nullptr);
    diskno = 0;
    bool ok = ParseArgument(static_cast<int>(args.size()), argv.data());
    return {ok, rawmode, mb8877, diskno, fpInfile.GetPath(), fpOutfile.GetPath()};
}

}  // namespace

TEST(ParseArgument, DiskNumberFallsBackToOne) {
    const std::pair<const char*, int> cases[] = {
        {"1", 1},  {"32", 32},  {"0", 1},
        {"33", 1}, {"-5", 1},   {"abc", 1},
        {"3x", 3}, {"017", 17}, {"99999999999999999999", 1},
    };
    for (const auto& [text, want] : cases) {
        SCOPED_TRACE(text);
        Parsed p = Parse({"-i", "a.zeb", "-n", text, "-o", "b.zeb"});
        ASSERT_TRUE(p.ok);
        EXPECT_EQ(p.disk, want);
    }
    EXPECT_EQ(Parse({"-i", "a.zeb", "-o", "b.zeb"}).disk, 1);
    EXPECT_EQ(Parse({"-n", "7", "-n", "9", "-i", "a.zeb", "-o", "b.zeb"}).disk, 9);
}

TEST(ParseArgument, FormatLooksAtFirstLetterAndNeverUndoesRaw) {
    struct Case {
        std::vector<std::string> opts;
        int raw;
    };
    const Case cases[] = {
        {{}, 0},
        {{"-f", "raw"}, 1},
        {{"-f", "Raw"}, 1},
        {{"-f", "r"}, 1},
        {{"-f", "Rubbish"}, 1},
        {{"-f", "encode"}, 0},
        {{"-f", "x"}, 0},
        {{"-f", ""}, 0},
        {{"-f", "raw", "-f", "encode"}, 1},
        {{"-f", "encode", "-f", "raw"}, 1},
    };
    for (const Case& k : cases) {
        std::vector<std::string> args = {"-i", "a.zeb", "-o", "b.zeb"};
        args.insert(args.end(), k.opts.begin(), k.opts.end());
        Parsed p = Parse(args);
        ASSERT_TRUE(p.ok);
        EXPECT_EQ(p.raw, k.raw) << (k.opts.empty() ? "" : k.opts.back());
        EXPECT_EQ(p.mb, 0);
    }
}

TEST(ParseArgument, AnalyzeModeLastOneWins) {
    struct Case {
        std::vector<std::string> opts;
        int mb;
    };
    const Case cases[] = {
        {{"-a", "M"}, 1},
        {{"-a", "mb"}, 1},
        {{"-a", "mb8877"}, 1},
        {{"-a", "upd765"}, 0},
        {{"-a", "8877"}, 0},
        {{"-a", "mb8877", "-a", "upd765"}, 0},
        {{"-a", "upd765", "-a", "m"}, 1},
    };
    for (const Case& k : cases) {
        std::vector<std::string> args = {"-i", "a.zeb", "-o", "b.zeb"};
        args.insert(args.end(), k.opts.begin(), k.opts.end());
        Parsed p = Parse(args);
        ASSERT_TRUE(p.ok);
        EXPECT_EQ(p.mb, k.mb) << k.opts.back();
        EXPECT_EQ(p.raw, 0);
    }
}

TEST(ParseArgument, PathsAndFailures) {
    Parsed p = Parse({"-i", "dir/src.D88", "-q", "-o", "out/dst.zeb", "-f"});
    ASSERT_TRUE(p.ok);
    EXPECT_EQ(p.in, "dir/src.D88");
    EXPECT_EQ(p.out, "out/dst.zeb");
    EXPECT_STREQ(fpInfile.GetExt(), ".D88");
    EXPECT_STREQ(fpOutfile.GetShort(), "dst.zeb");

    // The last of repeated paths wins.
    p = Parse({"-i", "one.zeb", "-i", "two.zeb", "-o", "x.zeb", "-o", "y.zeb"});
    EXPECT_EQ(p.in, "two.zeb");
    EXPECT_EQ(p.out, "y.zeb");

    // Flags reset on every call; a missing path fails.
    rawmode = mb8877 = 1;
    EXPECT_FALSE(Parse({"-o", "b.zeb"}).ok);
    EXPECT_EQ(rawmode, 0);
    EXPECT_EQ(mb8877, 0);
    EXPECT_FALSE(Parse({"-i", "a.zeb"}).ok);
    EXPECT_FALSE(Parse({"-i"}).ok);  // option without its value
    EXPECT_FALSE(Parse({}).ok);
}
