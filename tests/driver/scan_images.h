// Disks with known defects for the zebscan tests, and a runner for the tool.
#pragma once

#include <sys/wait.h>

#include <cstdlib>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "track/decoder_stream.h"
#include "vdisk/imagecommon.h"
#include "zebdisk/zebdisk.h"

namespace scantest {

using dectest::SectorSpec;

struct ScanRun {
    int status = -1;
    std::string out, err;
};

inline std::string Slurp(const std::string& name) {
    std::ifstream f(name, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(f), {});
}

// ZEBSCAN_PATH may carry an emulator in front of the program.
inline ScanRun Zebscan(const std::string& args, const std::string& tag) {
    const std::string out = "scan_" + tag + ".stdout", err = "scan_" + tag + ".stderr";
    const int rc =
        std::system((std::string(ZEBSCAN_PATH) + " " + args + " >" + out + " 2>" + err).c_str());
    ScanRun r;
    if (rc != -1 && WIFEXITED(rc)) r.status = WEXITSTATUS(rc);
    r.out = Slurp(out);
    r.err = Slurp(err);
    return r;
}

inline Filepath Path(const std::string& name) {
    Filepath p;
    p.SetPath(name.c_str());
    return p;
}

inline SectorSpec Spec(bool mfm, int r, int n) {
    SectorSpec s;
    s.mfm = mfm;
    s.r = static_cast<uint8_t>(r);
    s.n = static_cast<uint8_t>(n);
    s.data = dectest::Pattern(128 << n, r);
    s.gap2 = mfm ? 22 : 11;
    s.gap3 = mfm ? 54 : 27;
    return s;
}

// Lays the sectors down after an index mark (unless noIndex) and pads to cells.
inline dectest::StreamBuilder Stream(int c, int h, std::vector<SectorSpec> specs, int cells,
                                     bool noIndex = false,
                                     std::vector<dectest::Placed>* placed = nullptr) {
    dectest::StreamBuilder b;
    size_t mfmCount = 0;
    for (const auto& s : specs) mfmCount += s.mfm ? 1 : 0;
    const bool mfm = mfmCount * 2 >= specs.size();
    if (!noIndex) mfm ? b.MfmHeader() : b.FmHeader();
    for (auto& s : specs) {
        s.c = s.c ? s.c : static_cast<uint8_t>(c);
        s.h = static_cast<uint8_t>(h);
        const dectest::Placed p = b.Sector(s);
        if (placed) placed->push_back(p);
    }
    b.PadTo(cells, mfm);
    return b;
}

inline void PutTrack(ZEBDisk& d, int c, int h, const std::vector<uint8_t>& bytes, int bits) {
    d.NewRecord(c * 2 + h, static_cast<int>(bytes.size()) + zebrec::kData + 1, c, h, bits);
    std::copy(bytes.begin(), bytes.end(), d.GetTrackData(c, h));
}

// A 2DD disk of 3 cylinders:
//   0.0  9 MFM sectors written by the encoder, all good
//   0.1  unformatted
//   1.0  MFM: 1 good, 2 ID CRC error, 3 data CRC error, 4 no data mark,
//        5 deleted, 6 carries C 7, 7 absent, 8 and 9 good
//   1.1  9 FM sectors of 128 bytes, 3 deleted
//   2.0  mixed: FM sector 1, MFM sectors 2..9
//   2.1  9 MFM sectors, no index mark, turned so that sector 1 crosses the index
constexpr int kCells = 100000;

inline void BuildDefectDisk(ZEBDisk& d) {
    d.Init(ZEB_2DD, 0, 0, 0);
    d.SetHeaderInt(zebhdr::kCylinders, 3);
    d.SetName("DEFECTS");

    VTrack good;
    for (int r = 1; r <= 9; ++r) {
        auto data = dectest::Pattern(512, r);
        good.AddSector(MakeSector(1, 0, 0, r, 2, data.data(), 512, 22, 84, 0));
    }
    d.SetRecordInt(0, zebrec::kBitLength, good.Encode(0, d.GetTrackData(0, 0), kCells));

    std::vector<SectorSpec> t10;
    for (int r : {1, 2, 3, 4, 5, 6, 8, 9}) t10.push_back(Spec(true, r, 2));
    t10[1].badIdCrc = true;
    t10[2].badDataCrc = true;
    t10[3].noDam = true;
    t10[4].deleted = true;
    t10[5].c = 7;
    PutTrack(d, 1, 0, Stream(1, 0, t10, kCells).Bytes(), kCells);

    std::vector<SectorSpec> t11, t20{Spec(false, 1, 0)}, t21;
    for (int r = 1; r <= 9; ++r) {
        t11.push_back(Spec(false, r, 0));
        if (r > 1) t20.push_back(Spec(true, r, 1));
        t21.push_back(Spec(true, r, 1));
    }
    t11[2].deleted = true;
    PutTrack(d, 1, 1, Stream(1, 1, t11, kCells).Bytes(), kCells);
    PutTrack(d, 2, 0, Stream(2, 0, t20, kCells).Bytes(), kCells);
    std::vector<dectest::Placed> at;
    const auto b = Stream(2, 1, t21, kCells, true, &at);
    PutTrack(d, 2, 1, b.Rotated(at[0].damPos + 1000), kCells);
}

}  // namespace scantest
