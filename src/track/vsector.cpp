#include "track/vsector.h"

#include <algorithm>
#include <cstring>

const int32_t Gap3MFM[4] = {24, 54, 84, 116};
const int32_t Gap3FM[4] = {27, 42, 58, 72};

VSector::VSector()
    : mfm(0),
      idC(0),
      idH(0),
      idR(0),
      idN(0),
      gap2(0),
      length(0),
      data(nullptr),
      gap3(0),
      status(0),
      idCrc{0, 0},
      dataCrc{0, 0},
      idPos(0),
      damPos(0),
      dataPos(0),
      endPos(0),
      dataCells(0),
      timeDev(0),
      next(nullptr) {}

VSector::~VSector() {
    delete[] data;
}

int32_t VSector::CalcGAP3(int mfmDensity, int n) const {
    const int idx = std::clamp(n, 0, 3);
    return mfmDensity ? Gap3MFM[idx] : Gap3FM[idx];
}

void VSector::SetData(const uint8_t* src, int len) {
    if (len < 0) len = 0;
    uint8_t* fresh = nullptr;
    if (len > 0) {
        fresh = new uint8_t[static_cast<size_t>(len)];
        if (src) {
            std::memcpy(fresh, src, static_cast<size_t>(len));
        } else {
            std::memset(fresh, 0, static_cast<size_t>(len));
        }
    }
    delete[] data;
    data = fresh;
    length = len;
}
