// End to end through zebconv: plain sector images to ZEB (encoded and raw) and
// HFE and back again.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>

#include <cstdint>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <ostream>
#include <random>
#include <string>
#include <vector>

namespace {

struct RunResult {
    int status;
    std::string out;
    std::string err;
};

std::string Slurp(const std::string& name) {
    std::ifstream f(name, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(f), {});
}

std::vector<uint8_t> ReadFile(const std::string& name) {
    std::ifstream f(name, std::ios::binary);
    return std::vector<uint8_t>(std::istreambuf_iterator<char>(f), {});
}

void WriteFile(const std::string& name, const std::vector<uint8_t>& data) {
    chmod(name.c_str(), 0644);  // a name protected by an earlier run
    std::ofstream f(name, std::ios::binary | std::ios::trunc);
    f.write(reinterpret_cast<const char*>(data.data()), static_cast<std::streamsize>(data.size()));
}

bool Exists(const std::string& name) {
    return std::ifstream(name, std::ios::binary).good();
}

// The command starts with the program's path as given: a cross build puts an
// emulator in front of it.
RunResult Zebconv(const std::string& args, const std::string& tag) {
    const std::string out = tag + ".stdout", err = tag + ".stderr";
    const std::string cmd = std::string(ZEBCONV_PATH) + " " + args + " >" + out + " 2>" + err;
    const int rc = std::system(cmd.c_str());
    RunResult r{-1, Slurp(out), Slurp(err)};
    if (rc != -1 && WIFEXITED(rc)) r.status = WEXITSTATUS(rc);
    return r;
}

std::vector<uint8_t> RandomImage(size_t size, uint32_t seed) {
    std::mt19937 rng(seed);
    std::vector<uint8_t> v(size);
    for (auto& b : v) b = static_cast<uint8_t>(rng());
    return v;
}

int32_t I32At(const std::vector<uint8_t>& f, size_t off) {
    return static_cast<int32_t>(
        static_cast<uint32_t>(f[off]) | (static_cast<uint32_t>(f[off + 1]) << 8) |
        (static_cast<uint32_t>(f[off + 2]) << 16) | (static_cast<uint32_t>(f[off + 3]) << 24));
}

struct Plain {
    const char* ext;
    size_t size;
    int type;  // ZEB disk type
    int rpm;
};

void PrintTo(const Plain& p, std::ostream* os) {
    *os << p.ext;
}

// Every size a plain image is recognised by and can be written back at.
const Plain kPlains[] = {
    {".hdm", 1261568, 2, 360},  // 77 x 2 x 8 x 1024: short first track, 360 rpm
    {".2hc", 1228800, 2, 360},  // 80 x 2 x 15 x 512
    {".2hq", 1474560, 2, 300},  // 80 x 2 x 18 x 512: long first track, 300 rpm
    {".2dd", 737280, 1, 300},   // 80 x 2 x 9 x 512
};

// One case per size, so that the slow raw round trips run side by side.
class ConvertPlainSize : public testing::TestWithParam<Plain> {};

TEST_P(ConvertPlainSize, ToZebEncodedAndRawAndBackByteIdentical) {
    const Plain& p = GetParam();
    const uint32_t seed = 100 + static_cast<uint32_t>(p.size % 1000);
    const std::string base = std::string("cv_plain_") + (p.ext + 1);
    const std::string src = base + "_src" + p.ext;
    const std::vector<uint8_t> image = RandomImage(p.size, seed);
    WriteFile(src, image);

    RunResult r = Zebconv("-i " + src + " -o " + base + "_enc.zeb", base + "_1");
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_NE(r.err.find("Result             : Success\n"), std::string::npos);
    EXPECT_NE(r.out.find("RPM                : " + std::to_string(p.rpm) + "\n"), std::string::npos)
        << r.out;
    const std::vector<uint8_t> zeb = ReadFile(base + "_enc.zeb");
    ASSERT_GE(zeb.size(), 256u);
    EXPECT_EQ(I32At(zeb, 68), p.type);
    EXPECT_EQ(I32At(zeb, 84), p.rpm);
    EXPECT_EQ(std::string(reinterpret_cast<const char*>(zeb.data()) + 4), src);

    r = Zebconv("-i " + src + " -o " + base + "_raw.zeb -f raw", base + "_2");
    ASSERT_EQ(r.status, 0) << r.err;
    const std::vector<uint8_t> raw = ReadFile(base + "_raw.zeb");
    ASSERT_GE(raw.size(), 256u);
    EXPECT_EQ(I32At(raw, 68), 9);
    EXPECT_EQ(I32At(raw, 84), p.rpm);

    r = Zebconv("-i " + base + "_enc.zeb -o " + base + "_from_enc" + p.ext, base + "_3");
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_TRUE(ReadFile(base + "_from_enc" + p.ext) == image);

    // A RAW disk goes through the data separator before it is decoded.
    r = Zebconv("-i " + base + "_raw.zeb -o " + base + "_from_raw" + p.ext, base + "_4");
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_NE(r.out.find("DIsk Type          : RAW\n"), std::string::npos) << r.out;
    EXPECT_TRUE(ReadFile(base + "_from_raw" + p.ext) == image);
}

TEST_P(ConvertPlainSize, ToHfeAndBackByteIdentical) {
    const Plain& p = GetParam();
    const uint32_t seed = 200 + static_cast<uint32_t>(p.size % 1000);
    const std::string base = std::string("cv_hfe_") + (p.ext + 1);
    const std::string src = base + "_src" + p.ext;
    const std::vector<uint8_t> image = RandomImage(p.size, seed);
    WriteFile(src, image);

    RunResult r = Zebconv("-i " + src + " -o " + base + ".hfe", base + "_1");
    ASSERT_EQ(r.status, 0) << r.err;
    const std::vector<uint8_t> hfe = ReadFile(base + ".hfe");
    ASSERT_GE(hfe.size(), 1024u);
    // The rpm travels in the header and comes back from the first track's length.
    EXPECT_EQ(hfe[14] | (hfe[15] << 8), p.rpm);

    r = Zebconv("-i " + base + ".hfe -o " + base + "_back" + p.ext, base + "_2");
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_NE(r.out.find("RPM                : " + std::to_string(p.rpm) + "\n"), std::string::npos)
        << r.out;
    EXPECT_TRUE(ReadFile(base + "_back" + p.ext) == image);

    // HFE to ZEB and back to HFE leaves the file as it was.
    r = Zebconv("-i " + base + ".hfe -o " + base + "_via.zeb", base + "_3");
    ASSERT_EQ(r.status, 0) << r.err;
    r = Zebconv("-i " + base + "_via.zeb -o " + base + "_again.HFE", base + "_4");
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_TRUE(ReadFile(base + "_again.HFE") == hfe);
}

INSTANTIATE_TEST_SUITE_P(EveryRecognisedSize, ConvertPlainSize, testing::ValuesIn(kPlains),
                         [](const testing::TestParamInfo<Plain>& param) {
                             return std::string("size") + std::to_string(param.param.size);
                         });

TEST(ConvertPlain, RawZebToEveryNameOfTheSameLayout) {
    const std::vector<uint8_t> image = RandomImage(1261568, 300);
    WriteFile("cv_names_src.IMG", image);
    RunResult r = Zebconv("-i cv_names_src.IMG -o cv_names_raw.ZEB -f r", "cv_names_1");
    ASSERT_EQ(r.status, 0) << r.err;
    for (const char* ext : {".xdf", ".2HD", ".dup", ".Img", ".hdm"}) {
        SCOPED_TRACE(ext);
        const std::string out = std::string("cv_names_out") + ext;
        r = Zebconv("-i cv_names_raw.ZEB -o " + out + " -a mb8877",
                    std::string("cv_names_") + (ext + 1));
        ASSERT_EQ(r.status, 0) << r.err;
        EXPECT_TRUE(ReadFile(out) == image);
    }
    // The layout decides what fits: 8 x 1024 sectors cannot be written as 18 x 512.
    r = Zebconv("-i cv_names_raw.ZEB -o cv_names_out.2hq", "cv_names_2hq");
    EXPECT_EQ(r.status, 14);
    EXPECT_NE(r.err.find("Result             : Export failed\n"), std::string::npos);
    EXPECT_FALSE(Exists("cv_names_out.2hq"));
}

}  // namespace
