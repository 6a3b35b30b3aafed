// Helpers for the sector image tests: files in the scratch directory, little-
// endian pokes into crafted images, and disks built sector by sector.
#pragma once

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdint>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "fileio/filepath.h"
#include "vdisk/vdisk.h"

namespace fmtest {

inline std::string ScratchFile(const std::string& fileName) {
    return std::string(ZEBKIT_TESTDATA_DIR) + "/" + fileName;
}

inline Filepath PathOf(const std::string& full) {
    Filepath p;
    p.SetPath(full.c_str());
    return p;
}

// Writes bytes to a fresh scratch file (made writable again first, so a test
// may reuse a name it protected earlier) and returns its full path.
inline std::string WriteFile(const std::string& fileName, const std::vector<uint8_t>& bytes) {
    const std::string full = ScratchFile(fileName);
    chmod(full.c_str(), 0644);
    std::ofstream out(full, std::ios::binary | std::ios::trunc);
    out.write(reinterpret_cast<const char*>(bytes.data()),
              static_cast<std::streamsize>(bytes.size()));
    return full;
}

inline std::vector<uint8_t> ReadFile(const std::string& full) {
    std::ifstream in(full, std::ios::binary);
    return std::vector<uint8_t>(std::istreambuf_iterator<char>(in), {});
}

inline bool Exists(const std::string& full) {
    return access(full.c_str(), F_OK) == 0;
}

inline void Remove(const std::string& full) {
    chmod(full.c_str(), 0644);
    unlink(full.c_str());
}

inline void Put16(std::vector<uint8_t>& b, size_t off, uint32_t v) {
    b.at(off) = static_cast<uint8_t>(v);
    b.at(off + 1) = static_cast<uint8_t>(v >> 8);
}
inline void Put32(std::vector<uint8_t>& b, size_t off, uint32_t v) {
    for (size_t i = 0; i < 4; i++) b.at(off + i) = static_cast<uint8_t>(v >> (8 * i));
}
inline uint32_t Get32(const std::vector<uint8_t>& b, size_t off) {
    uint32_t v = 0;
    for (size_t i = 0; i < 4; i++) v |= static_cast<uint32_t>(b.at(off + i)) << (8 * i);
    return v;
}

// Data whose bytes depend on a seed and the position, so that every sector of
// a test disk is distinct and none is uniform.
inline std::vector<uint8_t> Pattern(int length, unsigned seed) {
    std::vector<uint8_t> d(static_cast<size_t>(length));
    for (size_t i = 0; i < d.size(); i++)
        d[i] = static_cast<uint8_t>(seed * 37u + i * 13u + (i >> 8));
    return d;
}

inline VSector* NewSector(int mfm, int c, int h, int r, int n, const std::vector<uint8_t>& data,
                          int gap3, int status = 0) {
    auto* s = new VSector();
    s->mfm = mfm;
    s->idC = static_cast<uint8_t>(c);
    s->idH = static_cast<uint8_t>(h);
    s->idR = static_cast<uint8_t>(r);
    s->idN = static_cast<uint8_t>(n);
    s->gap2 = mfm ? 22 : 11;
    s->gap3 = gap3;
    s->status = static_cast<uint8_t>(status);
    s->SetData(data.data(), static_cast<int>(data.size()));
    return s;
}

// Fills cylinders [0, cyls) of both heads with `count` MFM sectors R = 1..count
// of size code n and gap3, data from Pattern.
inline void FillUniformDisk(VDisk& d, int type, int cyls, int count, int n, int gap3) {
    d.Init(type, cyls, 2);
    for (int c = 0; c < cyls; c++)
        for (int h = 0; h < 2; h++)
            for (int r = 1; r <= count; r++)
                d.Track(c, h)->AddSector(
                    NewSector(1, c, h, r, n,
                              Pattern(128 << n, static_cast<unsigned>(c * 64 + h * 32 + r)), gap3));
}

// Imports `rounds` damaged copies of a valid image (a few bytes of [from, to)
// replaced, sometimes the file cut short) and checks that every accepted disk
// stays within the track table and holds only sectors with sane data.
using ImportFn = int (VDisk::*)(const Filepath&);
inline void ImportDamaged(ImportFn fn, const std::vector<uint8_t>& image, size_t from, size_t to,
                          const std::string& fileName, int rounds) {
    uint32_t rng = 12345;
    auto next = [&rng] { return rng = rng * 1103515245u + 12345u, rng >> 8; };
    int accepted = 0;
    for (int i = 0; i < rounds; i++) {
        std::vector<uint8_t> b = image;
        const int hits = 1 + static_cast<int>(next() % 4);
        for (int k = 0; k < hits; k++)
            b[from + next() % (to - from)] = static_cast<uint8_t>(next());
        if (next() % 4 == 0) b.resize(next() % b.size());
        VDisk d;
        const int r = (d.*fn)(PathOf(WriteFile(fileName, b)));
        ASSERT_TRUE(r == 0 || r == 1);
        if (!r) continue;
        accepted++;
        ASSERT_GE(d.cylinders, 0);
        ASSERT_LE(d.cylinders, VDisk::kMaxCylinders);
        for (int c = 0; c < VDisk::kMaxCylinders; c++)
            for (int h = 0; h < 2; h++) {
                const VTrack* t = d.Track(c, h);
                if (!t) continue;
                int n = 0;
                for (const VSector* s = t->sectors; s; s = s->next, n++) {
                    ASSERT_GT(s->length, 0);
                    ASSERT_LE(s->length, 16384);
                    ASSERT_NE(s->data, nullptr);
                }
                ASSERT_EQ(n, t->SectorCount());
            }
    }
    // Damage to ignored fields leaves a readable image: both outcomes occur.
    EXPECT_GT(accepted, 0);
    EXPECT_LT(accepted, rounds);
}

}  // namespace fmtest
