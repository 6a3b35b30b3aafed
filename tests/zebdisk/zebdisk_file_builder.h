// File helpers shared by the track-level disk tests.
#pragma once

#include <sys/stat.h>

#include <cstdint>
#include <cstring>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "fileio/fieldio.h"
#include "fileio/filepath.h"

namespace zebtest {

using Bytes = std::vector<uint8_t>;

inline Bytes Slurp(const std::string& name) {
    std::ifstream f(name, std::ios::binary);
    return Bytes(std::istreambuf_iterator<char>(f), {});
}

inline void Spit(const std::string& name, const Bytes& data) {
    chmod(name.c_str(), 0644);  // left read-only by an earlier run
    std::ofstream(name, std::ios::binary | std::ios::trunc)
        .write(reinterpret_cast<const char*>(data.data()),
               static_cast<std::streamsize>(data.size()));
}

inline Filepath PathOf(const std::string& name) {
    Filepath p;
    p.SetPath(name.c_str());
    return p;
}

inline uint8_t Flip(uint8_t b) {
    uint8_t r = 0;
    for (int i = 0; i < 8; i++) r = static_cast<uint8_t>(r | (((b >> i) & 1) << (7 - i)));
    return r;
}

inline void Put16(Bytes& f, size_t off, size_t v) {
    f[off] = static_cast<uint8_t>(v), f[off + 1] = static_cast<uint8_t>(v >> 8);
}

// sides[s][c]: the cells of side s of cylinder c, first cell in the top bit.
inline Bytes MakeHfe(int bitRate, const std::vector<Bytes> (&sides)[2]) {
    Bytes f(1024, 0xFF);
    std::memcpy(f.data(), "HXCPICFE\0", 9);
    f[9] = static_cast<uint8_t>(sides[0].size());
    Put16(f, 12, bitRate), Put16(f, 18, 1);
    for (size_t c = 0; c < sides[0].size(); c++) {
        const size_t per = sides[0][c].size(), block = f.size() / 512;
        Put16(f, 512 + c * 4, block), Put16(f, 514 + c * 4, per * 2);
        f.resize(f.size() + (per * 2 + 511) / 512 * 512, 0xFF);
        for (size_t s = 0; s < 2; s++)
            for (size_t i = 0; i < per; i++)
                f[(block + i / 256) * 512 + s * 256 + i % 256] = Flip(sides[s][c][i]);
    }
    return f;
}

}  // namespace zebtest
