#include "track/vsector.h"

const int32_t Gap3MFM[4] = {24, 54, 84, 116};
const int32_t Gap3FM[4] = {27, 42, 58, 72};

VSector::VSector()
    : mfm(0), idC(0), idH(0), idR(0), idN(0), gap2(0), length(0), data(nullptr), gap3(0),
      status(0), idCrc{0, 0}, dataCrc{0, 0}, idPos(0), damPos(0), dataPos(0), endPos(0),
      dataCells(0), timeDev(0), next(nullptr) {}
VSector::~VSector() { delete[] data; }
int32_t VSector::CalcGAP3(int, int) const { return 0; }
void VSector::SetData(const uint8_t*, int) {}
