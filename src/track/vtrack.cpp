#include "track/vtrack.h"

#include <algorithm>

VTrack::VTrack()
    : flags(0),
      iamPos(0),
      gap1(0),
      gap4a(0),
      gap4b(0),
      encLen(0),
      encData(nullptr),
      sectors(nullptr),
      mfmCount(0),
      fmCount(0),
      leftOut(0),
      densityByFit(0),
      mfmByFit(0) {}

// Owners normally call Cleanup themselves; doing it here as well means a
// track that is dropped without it still releases its sectors and stream.
VTrack::~VTrack() {
    Cleanup();
}

void VTrack::Cleanup() {
    delete[] encData;
    encData = nullptr;
    ClrSector();
    flags = 0;
    iamPos = 0;
    gap1 = 0;
    gap4a = 0;
    gap4b = 0;
    encLen = 0;
    densityByFit = 0;
}

void VTrack::ClrSector() {
    while (sectors) {
        VSector* s = sectors;
        sectors = s->next;
        delete s;
    }
    mfmCount = 0;
    fmCount = 0;
    leftOut = 0;
    mfmByFit = 0;
}

void VTrack::AddSector(VSector* s) {
    if (!s) return;
    if (s->mfm) {
        ++mfmCount;
    } else {
        ++fmCount;
    }
    s->next = nullptr;
    if (!sectors) {
        sectors = s;
        return;
    }
    VSector* last = sectors;
    while (last->next) last = last->next;
    last->next = s;
}

VSector* VTrack::GetSectorByIndex(int i) const {
    VSector* s = sectors;
    for (int k = 0; k < i && s; ++k) s = s->next;
    return s;
}

VSector* VTrack::GetLasttSector() const {
    VSector* s = sectors;
    if (!s) return nullptr;
    while (s->next) s = s->next;
    return s;
}

int32_t VTrack::GetLength() const {
    int64_t sum = 0;
    for (const VSector* s = sectors; s; s = s->next) {
        sum += int64_t{s->length} + 2 + s->gap3 + (s->mfm ? 60 : 31);
    }
    if (sum == 0) return 0;
    sum += mfmCount >= fmCount ? 212 : 106;
    return static_cast<int32_t>(std::clamp<int64_t>(sum, INT32_MIN, INT32_MAX));
}

int VTrack::GetEncData(int pos) const {
    if (encLen <= 0 || !encData) return 0;
    if (pos >= 0 && pos < encLen - 7) {
        const int byte = pos >> 3;
        const int shift = pos & 7;
        unsigned v = encData[byte];
        if (shift) v = (v << shift) | (static_cast<unsigned>(encData[byte + 1]) >> (8 - shift));
        return static_cast<int>(v & 0xFFu);
    }
    // Slow path across either end: the stream is read as a loop.
    unsigned v = 0;
    for (int k = 0; k < 8; ++k) {
        int64_t p = (int64_t{pos} + k) % encLen;
        if (p < 0) p += encLen;
        const unsigned bit = (encData[p >> 3] >> (7 - (p & 7))) & 1u;
        v = (v << 1) | bit;
    }
    return static_cast<int>(v);
}
