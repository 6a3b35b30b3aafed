// ZEB files built byte by byte for the tests, including hostile ones.
#pragma once

#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

#include "fileio/fieldio.h"
#include "fileio/filepath.h"

namespace zebtest {

using Bytes = std::vector<uint8_t>;

inline Bytes Slurp(const std::string& name) {
    Bytes out;
    FILE* f = std::fopen(name.c_str(), "rb");
    if (!f) return out;
    uint8_t buf[65536];
    size_t n;
    while ((n = std::fread(buf, 1, sizeof(buf), f)) > 0) out.insert(out.end(), buf, buf + n);
    std::fclose(f);
    return out;
}

inline bool Spit(const std::string& name, const Bytes& data) {
    FILE* f = std::fopen(name.c_str(), "wb");
    if (!f) return false;
    bool ok = std::fwrite(data.data(), 1, data.size(), f) == data.size();
    return std::fclose(f) == 0 && ok;
}

inline Filepath PathOf(const std::string& name) {
    Filepath p;
    p.SetPath(name.c_str());
    return p;
}

inline int32_t Le32(const Bytes& b, size_t off) {
    return FieldReader(b.data(), b.size()).I32(off);
}

// Deterministic track contents.
inline uint8_t Pattern(int slot, size_t i) {
    return static_cast<uint8_t>((i * 131u + static_cast<size_t>(slot) * 29u + 7u) ^ (i >> 8));
}

// A ZEB file laid out the way other writers do it.
struct ZebFile {
    int version = 3;
    int type = 1;
    int cylinders = 2;
    int heads = 2;
    int rate = 500;
    int rpm = 300;
    int block = 16384;
    int v1Bytes = 0;  // track length field of version 1 files
    // Per-track record fields as stored (bytes for version 2, bits for version 3).
    int bitLength = 100000;
    int indexOffset = 0;
    int writeProtect = 0;

    Bytes Build() const {
        Bytes f(256);
        FieldWriter w(f.data(), f.size());
        w.Bytes(0, "ZEB", 3);
        w.U8(3, static_cast<uint32_t>(version));
        w.Text(4, "TEST DISK", 59, 60);
        w.I32(68, type);
        w.I32(72, cylinders);
        w.I32(76, heads);
        w.I32(80, rate);
        w.I32(84, rpm);
        w.I32(88, writeProtect);
        w.I32(96, v1Bytes);
        w.I32(100, block);
        if (block < 16 || block > (1 << 20) || cylinders < 0 || heads < 0) return f;
        for (int c = 0; c < cylinders; c++) {
            for (int h = 0; h < heads; h++) {
                Bytes b(static_cast<size_t>(block));
                FieldWriter bw(b.data(), b.size());
                if (version == 1) {
                    for (size_t i = 0; i + 16 < b.size(); i++) b[i] = Pattern(c * 2 + h, i);
                    for (size_t i = b.size() - 16; i < b.size(); i++) b[i] = 0xEE;
                } else {
                    bw.I32(0, c);
                    bw.I32(4, h);
                    bw.I32(8, indexOffset);
                    bw.I32(12, bitLength);
                    for (size_t i = 16; i < b.size(); i++) b[i] = Pattern(c * 2 + h, i - 16);
                }
                f.insert(f.end(), b.begin(), b.end());
            }
        }
        return f;
    }
};

// Headers that claim what does not fit; each must be refused by Load. Claims
// of large or negative sizes are written as a header alone.
struct HostileZeb {
    const char* what;
    void (*edit)(ZebFile&);
    size_t cut;  // bytes removed from the end of the file
};

inline const std::vector<HostileZeb>& HostileZebCases() {
    static const std::vector<HostileZeb> cases = {
        {"version 0", [](ZebFile& z) { z.version = 0; }, 0},
        {"version 4", [](ZebFile& z) { z.version = 4; }, 0},
        {"negative cylinders", [](ZebFile& z) { z.cylinders = -1; }, 0},
        {"85 cylinders", [](ZebFile& z) { z.cylinders = 85; }, 0},
        {"negative heads", [](ZebFile& z) { z.heads = -2; }, 0},
        {"3 heads", [](ZebFile& z) { z.heads = 3; }, 0},
        {"block of 16", [](ZebFile& z) { z.block = 16; }, 0},
        {"negative block", [](ZebFile& z) { z.block = -512; }, 0},
        {"huge block", [](ZebFile& z) { z.block = 0x7FFFFE00; }, 0},
        {"block over the limit",
         [](ZebFile& z) { z.cylinders = 1, z.heads = 1, z.block = 1 << 20; }, 0},
        {"file shorter than its tracks", [](ZebFile&) {}, 1},
        {"zero rate", [](ZebFile& z) { z.rate = 0; }, 0},
        {"negative rpm", [](ZebFile& z) { z.rpm = -300; }, 0},
        {"zero rpm", [](ZebFile& z) { z.rpm = 0; }, 0},
        {"rate overflowing", [](ZebFile& z) { z.rate = 0x7FFFFFFF, z.rpm = 1; }, 0},
        {"nominal beyond block", [](ZebFile& z) { z.rate = 1100; }, 0},
        {"old rate doubling overflows",
         [](ZebFile& z) {
             z.version = 2, z.bitLength = 1, z.rate = 0x40000000, z.rpm = 0x7FFFFFFF;
         },
         0},
        {"negative bit length", [](ZebFile& z) { z.bitLength = -8; }, 0},
        {"zero bit length", [](ZebFile& z) { z.bitLength = 0; }, 0},
        {"bit length beyond data", [](ZebFile& z) { z.bitLength = (16384 - 16) * 8 + 1; }, 0},
        {"v2 bytes beyond data",
         [](ZebFile& z) { z.version = 2, z.rate = 250, z.bitLength = 16369; }, 0},
        {"negative index", [](ZebFile& z) { z.indexOffset = -1; }, 0},
        {"index at length", [](ZebFile& z) { z.indexOffset = 100000; }, 0},
        {"v2 index beyond",
         [](ZebFile& z) {
             z.version = 2, z.rate = 250, z.bitLength = 12500, z.indexOffset = 12500;
         },
         0},
        {"v1 length beyond block",
         [](ZebFile& z) { z.version = 1, z.rate = 250, z.v1Bytes = 16369; }, 0},
        {"v1 negative length", [](ZebFile& z) { z.version = 1, z.rate = 250, z.v1Bytes = -1; }, 0},
        {"v1 huge length", [](ZebFile& z) { z.version = 1, z.rate = 250, z.v1Bytes = 0x20000000; },
         0},
    };
    return cases;
}

inline Bytes HostileZebFile(const HostileZeb& k) {
    ZebFile z;
    z.v1Bytes = 12500;
    k.edit(z);
    Bytes f = z.Build();
    f.resize(f.size() - k.cut);
    return f;
}

}  // namespace zebtest
