// End to end through zebconv: HFE files as other writers lay them out, the
// header this program writes, and hostile HFE files.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <functional>
#include <iterator>
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

RunResult Zebconv(const std::string& args, const std::string& tag) {
    const std::string out = tag + ".stdout", err = tag + ".stderr";
    const std::string cmd = std::string(ZEBCONV_PATH) + " " + args + " >" + out + " 2>" + err;
    const int rc = std::system(cmd.c_str());
    RunResult r{-1, Slurp(out), Slurp(err)};
    if (rc != -1 && WIFEXITED(rc)) r.status = WEXITSTATUS(rc);
    return r;
}

void Put16(std::vector<uint8_t>& f, size_t off, unsigned v) {
    f[off] = static_cast<uint8_t>(v);
    f[off + 1] = static_cast<uint8_t>(v >> 8);
}

// A small IBM-style MFM track writer, bit by bit, kept apart from the
// program's own encoder so that the two check each other.
class MfmTrack {
public:
    explicit MfmTrack(size_t cells) : bits_(cells / 8, 0), cap_(cells) {}

    void Byte(uint8_t b) {
        for (int i = 7; i >= 0; i--) {
            const int d = (b >> i) & 1;
            Cell(!(prev_ | d));
            Cell(d);
            prev_ = d;
        }
    }
    void Fill(uint8_t b, int n) {
        for (int i = 0; i < n; i++) Byte(b);
    }
    // A1 or C2 with one clock cell left out.
    void Sync(uint16_t pattern) {
        for (int i = 15; i >= 0; i--) Cell((pattern >> i) & 1);
        prev_ = pattern & 1;
    }
    void Crc(uint16_t crc) {
        Byte(static_cast<uint8_t>(crc >> 8));
        Byte(static_cast<uint8_t>(crc));
    }
    size_t Cells() const { return pos_; }
    // The cells packed first cell in the most significant bit.
    const std::vector<uint8_t>& Data() const { return bits_; }

private:
    void Cell(int v) {
        if (pos_ >= cap_) return;
        if (v) bits_[pos_ / 8] = static_cast<uint8_t>(bits_[pos_ / 8] | (0x80 >> (pos_ % 8)));
        pos_++;
    }
    std::vector<uint8_t> bits_;
    size_t cap_;
    size_t pos_ = 0;
    int prev_ = 0;
};

uint16_t Crc16(const std::vector<uint8_t>& bytes) {
    uint16_t crc = 0xFFFF;
    for (uint8_t b : bytes) {
        crc = static_cast<uint16_t>(crc ^ (b << 8));
        for (int i = 0; i < 8; i++)
            crc = static_cast<uint16_t>((crc & 0x8000) ? (crc << 1) ^ 0x1021 : crc << 1);
    }
    return crc;
}

constexpr uint16_t kSyncA1 = 0x4489;
constexpr uint16_t kSyncC2 = 0x5224;

// One formatted side: sectors 1..n of 512 bytes taken in order from image at *at.
std::vector<uint8_t> FormatSide(size_t cells, int c, int h, int sectors, int gap3,
                                const std::vector<uint8_t>& image, size_t* at) {
    MfmTrack t(cells);
    t.Fill(0x4E, 80);
    t.Fill(0x00, 12);
    for (int i = 0; i < 3; i++) t.Sync(kSyncC2);
    t.Byte(0xFC);
    t.Fill(0x4E, 50);
    for (int r = 1; r <= sectors; r++) {
        t.Fill(0x00, 12);
        for (int i = 0; i < 3; i++) t.Sync(kSyncA1);
        const std::vector<uint8_t> id = {0xA1,
                                         0xA1,
                                         0xA1,
                                         0xFE,
                                         static_cast<uint8_t>(c),
                                         static_cast<uint8_t>(h),
                                         static_cast<uint8_t>(r),
                                         2};
        for (size_t i = 3; i < id.size(); i++) t.Byte(id[i]);
        t.Crc(Crc16(id));
        t.Fill(0x4E, 22);
        t.Fill(0x00, 12);
        for (int i = 0; i < 3; i++) t.Sync(kSyncA1);
        std::vector<uint8_t> field = {0xA1, 0xA1, 0xA1, 0xFB};
        field.insert(field.end(), image.begin() + static_cast<std::ptrdiff_t>(*at),
                     image.begin() + static_cast<std::ptrdiff_t>(*at + 512));
        *at += 512;
        for (size_t i = 3; i < field.size(); i++) t.Byte(field[i]);
        t.Crc(Crc16(field));
        t.Fill(0x4E, gap3);
    }
    while (t.Cells() + 16 <= cells) t.Byte(0x4E);
    return t.Data();
}

uint8_t Lsb(uint8_t b) {
    uint8_t r = 0;
    for (int i = 0; i < 8; i++)
        if (b & (0x80 >> i)) r = static_cast<uint8_t>(r | (1 << i));
    return r;
}

// An HFE file as another writer would make it from a sector disk: its own
// header values, 0xFF in unused space, the track list at block 1.
std::vector<uint8_t> OtherToolHfe(const std::vector<uint8_t>& image, int cylinders, int sectors,
                                  int bitRate, int rpm) {
    const size_t cells = static_cast<size_t>(bitRate) * 2 * 60000 / static_cast<size_t>(rpm);
    const size_t per = cells / 8;
    std::vector<uint8_t> f(1024, 0xFF);
    std::memcpy(f.data(), "HXCPICFE", 8);
    f[8] = 0;
    f[9] = static_cast<uint8_t>(cylinders);
    f[10] = 2;
    f[11] = 0;
    Put16(f, 12, static_cast<unsigned>(bitRate));
    Put16(f, 14, static_cast<unsigned>(rpm));
    f[16] = bitRate > 250 ? 0 : 7;
    f[17] = 0xFF;
    Put16(f, 18, 1);
    f[20] = 0xFF;
    f[21] = 0xFF;
    size_t at = 0;
    for (int c = 0; c < cylinders; c++) {
        const size_t block = f.size() / 512;
        Put16(f, 512 + static_cast<size_t>(c) * 4, static_cast<unsigned>(block));
        Put16(f, 514 + static_cast<size_t>(c) * 4, static_cast<unsigned>(per * 2));
        const std::vector<uint8_t> s0 = FormatSide(cells, c, 0, sectors, 84, image, &at);
        const std::vector<uint8_t> s1 = FormatSide(cells, c, 1, sectors, 84, image, &at);
        f.resize(f.size() + (per * 2 + 511) / 512 * 512, 0xFF);
        for (size_t i = 0; i < per; i++) {
            f[(block + i / 256) * 512 + i % 256] = Lsb(s0[i]);
            f[(block + i / 256) * 512 + 256 + i % 256] = Lsb(s1[i]);
        }
    }
    return f;
}

std::vector<uint8_t> RandomImage(size_t size, uint32_t seed) {
    std::mt19937 rng(seed);
    std::vector<uint8_t> v(size);
    for (auto& b : v) b = static_cast<uint8_t>(rng());
    return v;
}

TEST(ConvertHfe, OtherWritersFilesComeBackAsTheSameSectors) {
    struct Case {
        const char* name;
        const char* ext;
        int cylinders;
        int sectors;
        int bitRate;
        int rpm;
        const char* typeLine;
    };
    const Case cases[] = {
        {"cv_other_2dd", ".2dd", 80, 9, 250, 300, "DIsk Type          : 2DD\n"},
        {"cv_other_2hq", ".2hq", 80, 18, 500, 300, "DIsk Type          : 2HD\n"},
        {"cv_other_2hc", ".2hc", 80, 15, 500, 360, "DIsk Type          : 2HD\n"},
    };
    uint32_t seed = 40;
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        const std::vector<uint8_t> image = RandomImage(
            static_cast<size_t>(c.cylinders) * 2 * static_cast<size_t>(c.sectors) * 512, seed++);
        const std::string hfe = std::string(c.name) + ".hfe";
        WriteFile(hfe, OtherToolHfe(image, c.cylinders, c.sectors, c.bitRate, c.rpm));

        const std::string out = std::string(c.name) + "_out" + c.ext;
        RunResult r = Zebconv("-i " + hfe + " -o " + out, c.name);
        ASSERT_EQ(r.status, 0) << r.err;
        EXPECT_NE(r.out.find(c.typeLine), std::string::npos) << r.out;
        EXPECT_NE(r.out.find("RPM                : " + std::to_string(c.rpm) + "\n"),
                  std::string::npos);
        EXPECT_TRUE(ReadFile(out) == image);

        // Through the data separator as well.
        const std::string raw = std::string(c.name) + "_raw.zeb";
        r = Zebconv("-i " + hfe + " -o " + raw + " -f raw", std::string(c.name) + "_r");
        ASSERT_EQ(r.status, 0) << r.err;
        const std::string back = std::string(c.name) + "_back" + c.ext;
        r = Zebconv("-i " + raw + " -o " + back, std::string(c.name) + "_b");
        ASSERT_EQ(r.status, 0) << r.err;
        EXPECT_TRUE(ReadFile(back) == image);
    }
}

TEST(ConvertHfe, WrittenHeaderFieldsByteByByte) {
    struct Case {
        const char* name;
        size_t size;
        const char* ext;
        unsigned bitRate;
        unsigned rpm;
        uint8_t mode;
        unsigned length;  // track length, both sides
        bool readOnly;
    };
    const Case cases[] = {
        {"cv_hdr_2hq", 1474560, ".2hq", 500, 300, 1, 50000, false},
        {"cv_hdr_hdm", 1261568, ".hdm", 500, 360, 1, 41666, true},
        {"cv_hdr_2dd", 737280, ".2dd", 250, 300, 7, 25000, false},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        const std::string src = std::string(c.name) + c.ext;
        WriteFile(src, RandomImage(c.size, 9));
        ASSERT_EQ(chmod(src.c_str(), c.readOnly ? 0444 : 0644), 0);
        const std::string dst = std::string(c.name) + ".hfe";
        RunResult r = Zebconv("-i " + src + " -o " + dst, c.name);
        ASSERT_EQ(r.status, 0) << r.err;
        EXPECT_NE(r.out.find(std::string("Write Protect      : ") + (c.readOnly ? "ON" : "OFF")),
                  std::string::npos);
        const std::vector<uint8_t> f = ReadFile(dst);
        const unsigned blocks = (c.length + 511) / 512;
        ASSERT_EQ(f.size(), 1024u + 84u * blocks * 512u);
        std::vector<uint8_t> want(1024, 0xFF);
        std::memcpy(want.data(), "HXCPICFE", 8);
        want[8] = 0;
        want[9] = 84;
        want[10] = 2;
        want[11] = 0;
        Put16(want, 12, c.bitRate);
        Put16(want, 14, c.rpm);
        want[16] = c.mode;
        want[17] = 1;
        Put16(want, 18, 1);
        want[20] = c.readOnly ? 0x00 : 0xFF;
        for (unsigned cyl = 0; cyl < 84; cyl++) {
            Put16(want, 512 + cyl * 4, 2 + cyl * blocks);
            Put16(want, 514 + cyl * 4, c.length);
        }
        for (size_t i = 0; i < want.size(); i++) ASSERT_EQ(f[i], want[i]) << "byte " << i;
    }
}

TEST(ConvertHfe, HostileFilesFailImportAndWriteNothing) {
    const std::vector<uint8_t> image = RandomImage(737280, 77);
    const std::vector<uint8_t> good = OtherToolHfe(image, 80, 9, 250, 300);
    using Mutate = std::function<void(std::vector<uint8_t>&)>;
    struct Case {
        const char* name;
        Mutate mutate;
    };
    const Case cases[] = {
        {"cv_bad_tracks", [](auto& f) { f[9] = 200; }},
        {"cv_bad_list0", [](auto& f) { Put16(f, 18, 0); }},
        {"cv_bad_list_far", [](auto& f) { Put16(f, 18, 5000); }},
        {"cv_bad_offset", [](auto& f) { Put16(f, 512 + 60 * 4, 0x8000); }},
        {"cv_bad_len0", [](auto& f) { Put16(f, 514, 0); }},
        {"cv_bad_len_huge", [](auto& f) { Put16(f, 514 + 79 * 4, 0xFFFF); }},
        {"cv_bad_trunc", [](auto& f) { f.resize(f.size() / 2); }},
        {"cv_bad_sig", [](auto& f) { f[0] = 'h'; }},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        std::vector<uint8_t> f = good;
        c.mutate(f);
        const std::string src = std::string(c.name) + ".hfe";
        WriteFile(src, f);
        for (const char* ext : {".zeb", ".2dd", ".hfe"}) {
            const std::string dst = std::string(c.name) + "_out" + ext;
            RunResult r = Zebconv("-i " + src + " -o " + dst, std::string(c.name) + (ext + 1));
            EXPECT_EQ(r.status, 2);
            EXPECT_NE(r.err.find("Result             : Import failed\n"), std::string::npos)
                << r.err;
            EXPECT_FALSE(Exists(dst));
        }
    }
}

}  // namespace
