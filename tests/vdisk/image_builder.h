// Test images built from code: disks sector by sector, crafted file bytes, scratch files.
#pragma once

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <algorithm>
#include <cstdio>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "fileio/fieldio.h"
#include "vdisk/imagecommon.h"
#include "vdisk/vdisk.h"

namespace vdt {

using Bytes = std::vector<uint8_t>;

// Scratch files live in a directory of their own, apart from other test programs'.
inline std::string Scratch(const std::string& name) {
    static const std::string dir = std::string(ZEBKIT_TESTDATA_DIR) + "/vdisk";
    mkdir(dir.c_str(), 0755);  // fails harmlessly once it exists
    return dir + "/" + name;
}
inline Filepath PathOf(const std::string& full) {
    Filepath p;
    p.SetPath(full.c_str());
    return p;
}
// A fresh scratch file holding b; returns its full path.
inline std::string Put(const std::string& name, const Bytes& b) {
    const std::string full = Scratch(name);
    std::remove(full.c_str());
    std::ofstream(full, std::ios::binary)
        .write(reinterpret_cast<const char*>(b.data()), static_cast<std::streamsize>(b.size()));
    return full;
}
inline FieldWriter W(Bytes& b) {
    return FieldWriter(b.data(), b.size());
}
// No line for "", else the one line.
inline std::vector<std::string> Lines(const std::string& line) {
    return line.empty() ? std::vector<std::string>{} : std::vector<std::string>{line};
}
// Imports disk diskno of file: read when reason is "", else refused naming the file.
inline void ExpectImport(VDisk& d, const std::string& file, const std::string& reason,
                         int diskno = 1) {
    EXPECT_EQ(d.Import(PathOf(file), diskno), reason.empty() ? 1 : 0);
    EXPECT_EQ(d.report.error, reason.empty() ? "" : file + ": " + reason);
}

// A sector with the gaps its readers give back, data 128 << n bytes unless len is given.
inline VSector* Sec(int mfm, int c, int h, int r, int n, int status = 0, int len = -1) {
    Bytes data(static_cast<size_t>(len < 0 ? 128 << n : len));
    for (size_t i = 0; i < data.size(); i++)
        data[i] = static_cast<uint8_t>(c * 7 + h * 5 + r * 3 + i * 13 + (i >> 8));
    return MakeFormattedSector(mfm, c, h, r, n, data.data(), static_cast<int>(data.size()), status);
}

// Both heads of cylinders [0, cyls): count MFM sectors R = 1..count of size code n.
inline void Uniform(VDisk& d, int type, int cyls, int count, int n) {
    d.Init(type, cyls, 2);
    for (int t = 0; t < 2 * cyls; t++)
        for (int r = 1; r <= count; r++)
            d.Track(t / 2, t % 2)->AddSector(Sec(1, t / 2, t % 2, r, n));
}

// Exports to a fresh scratch file and returns its bytes (none when refused).
inline Bytes Written(VDisk& d, const std::string& name) {
    const std::string f = Scratch(name);
    std::remove(f.c_str());
    const int r = d.Export(PathOf(f));
    std::ifstream in(f, std::ios::binary);
    EXPECT_EQ(r, in.is_open()) << "a refused export must leave no file";
    return Bytes(std::istreambuf_iterator<char>(in), {});
}

// A DIM file of a media byte with the listed tracks present and no comment.
inline Bytes DimImage(int media, std::vector<int> present) {
    Bytes b(256, 0);
    b[0] = static_cast<uint8_t>(media);
    for (int t : present) b[1 + static_cast<size_t>(t)] = 1;
    W(b).Bytes(0xAB, "DIFC HEADER  ", 14);
    const int size[18] = {8192, 9216, 7680, 9216, 0, 0, 0, 0, 0, 9216, 0, 0, 0, 0, 0, 0, 0, 6656};
    for (int t : present)
        for (int i = 0; i < (media == 17 && !t ? 26 * 128 : size[media]); i++)
            b.push_back(static_cast<uint8_t>(i * 13 + t + (i >> 8)));
    return b;
}

// Every sector's data in track order, each track's sectors by R: a plain image's contents.
inline Bytes Flat(const VDisk& d) {
    Bytes out;
    for (int t = 0; t < 2 * d.cylinders; t++) {
        std::vector<const VSector*> s;
        for (const VSector* x = d.Track(t / 2, t % 2)->sectors; x; x = x->next) s.push_back(x);
        std::sort(s.begin(), s.end(), [](auto a, auto b) { return a->idR < b->idR; });
        for (const VSector* x : s) out.insert(out.end(), x->data, x->data + x->length);
    }
    return out;
}

// The first sector difference between two disks, or "" (a null slot is an empty track).
inline std::string Diff(const VDisk& a, const VDisk& b) {
    auto key = [](const VSector* s) {
        return std::tuple(!s->mfm, s->idC, s->idH, s->idR, s->idN, s->gap2, s->gap3, s->status,
                          Bytes(s->data, s->data + s->length));
    };
    for (int t = 0; t < 2 * VDisk::kMaxCylinders; t++) {
        const VTrack *ta = a.Track(t / 2, t % 2), *tb = b.Track(t / 2, t % 2);
        const VSector *x = ta ? ta->sectors : nullptr, *y = tb ? tb->sectors : nullptr;
        for (; x && y; x = x->next, y = y->next)
            if (key(x) != key(y))
                return "track " + std::to_string(t) + " R " + std::to_string(x->idR);
        if (x || y) return "track " + std::to_string(t) + " sector count";
    }
    return "";
}

}  // namespace vdt
