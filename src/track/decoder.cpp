// Track decoder: finds the address marks of one revolution of a cell stream
// (or of a raw signal turned into cells first) and rebuilds the sector list,
// under uPD765 (mode 0) or MB8877 (mode non-zero) rules.
#include <algorithm>
#include <array>
#include <cstdint>
#include <cstring>
#include <memory>
#include <vector>

#include "signal/bfpattern.h"
#include "signal/bitstream.h"
#include "signal/edgemap.h"
#include "signal/rawconv.h"
#include "track/codectables.h"
#include "track/marks.h"
#include "track/vtrack.h"

namespace {

constexpr int kEncBytes = 32768;
constexpr int kEncCells = kEncBytes * 8;
constexpr int kMaxCandidates = 192;  // per density
constexpr int kMaxIdMarks = 96;      // per density, and room in the merged list
constexpr int kMfmCpb = 16;          // cells per byte
constexpr int kFmCpb = 32;
constexpr int kMfmSync = 192;              // sync allowance in cells
constexpr int kFmSync = 384;               // twelve FM bytes: deliberately twice the written sync
constexpr int kMarkOffset = 80;            // mark position inside Bf_AM_MFM / Bf_AM_FM
constexpr int kDamOffset = 64;             // mark position inside the data and index patterns
constexpr int kMfmIdCells = 10 * kMfmCpb;  // A1 A1 A1 mark C H R N CRC CRC
constexpr int kFmIdCells = 7 * kFmCpb;     // mark C H R N CRC CRC
constexpr int kMaxDataLength = 16384;

// Data cells of MFM cells: the second cell of each pair.
constexpr uint64_t MfmCompress(uint64_t v) {
    v &= 0x5555555555555555ull;
    v = (v | (v >> 1)) & 0x3333333333333333ull;
    v = (v | (v >> 2)) & 0x0F0F0F0F0F0F0F0Full;
    v = (v | (v >> 4)) & 0x00FF00FF00FF00FFull;
    return v;
}

// Data cells of FM cells: the third cell of each group of four.
constexpr uint64_t FmCompress(uint64_t v) {
    v = (v >> 1) & 0x1111111111111111ull;
    v = (v | (v >> 3)) & 0x0303030303030303ull;
    v = (v | (v >> 6)) & 0x000F000F000F000Full;
    v = (v | (v >> 12)) & 0x000000FF000000FFull;
    return v;
}

// Read-only view of a cyclic cell stream.
class CellStream {
public:
    CellStream(const uint8_t* cells, int len) : c_(cells), len_(len) {}

    int Fold(int64_t p) const {
        const int64_t r = p % len_;
        return static_cast<int>(r < 0 ? r + len_ : r);
    }

    // n (1..32) cells from pos, first cell in bit n - 1; positions fold round the ends.
    uint32_t Get(int64_t pos, int n) const {
        if (pos >= 0 && pos + n <= len_) {
            const size_t b = static_cast<size_t>(pos >> 3);
            const int sh = static_cast<int>(pos & 7);
            const int bytes = (sh + n + 7) / 8;
            uint64_t v = 0;
            for (int k = 0; k < bytes; ++k) v = (v << 8) | c_[b + static_cast<size_t>(k)];
            v >>= bytes * 8 - sh - n;
            return static_cast<uint32_t>(v & ((uint64_t{1} << n) - 1));
        }
        uint32_t v = 0;
        for (int j = 0; j < n; ++j) {
            const int p = Fold(pos + j);
            v = (v << 1) | ((c_[p >> 3] >> (7 - (p & 7))) & 1u);
        }
        return v;
    }

    // 64 cells from pos; requires 0 <= pos and pos + 64 <= len.
    uint64_t Load64(int pos) const {
        const uint8_t* q = c_ + (pos >> 3);
        const int sh = pos & 7;
        uint64_t v = 0;
        for (int k = 0; k < 8; ++k) v = (v << 8) | q[k];
        if (sh) v = (v << sh) | (q[8] >> (8 - sh));
        return v;
    }

    // count data bytes from pos, 16 (MFM) or 32 (FM) cells each. Whole 64-cell
    // words are read while inside the stream; only the bytes that cross its end
    // are gathered cell by cell.
    void ReadBytes(int64_t pos, int count, bool mfm, uint8_t* out) const {
        const int cpb = mfm ? kMfmCpb : kFmCpb;
        const int per = mfm ? 4 : 2;
        int i = 0;
        int64_t p = pos;
        while (i < count) {
            int fp = Fold(p);
            if (count - i >= per && fp <= len_ - 64) {
                while (count - i >= per && fp <= len_ - 64) {
                    const uint64_t v = Load64(fp);
                    if (mfm) {
                        const uint64_t d = MfmCompress(v);
                        out[i] = static_cast<uint8_t>(d >> 48);
                        out[i + 1] = static_cast<uint8_t>(d >> 32);
                        out[i + 2] = static_cast<uint8_t>(d >> 16);
                        out[i + 3] = static_cast<uint8_t>(d);
                    } else {
                        const uint64_t d = FmCompress(v);
                        out[i] = static_cast<uint8_t>(d >> 32);
                        out[i + 1] = static_cast<uint8_t>(d);
                    }
                    i += per;
                    fp += 64;
                }
                p = fp;
                continue;
            }
            const uint32_t w = Get(p, cpb);
            out[i++] = static_cast<uint8_t>(mfm ? MfmCompress(w) : FmCompress(w));
            p += cpb;
        }
    }

private:
    const uint8_t* c_;
    int len_;
};

// The search patterns, prepared once.
struct MarkPatterns {
    BfPattern amMfm{marks::Bf_AM_MFM, marks::kMfmPatternBits};
    BfPattern amFm{marks::Bf_AM_FM, marks::kFmPatternBits};
    BfPattern iamMfm{marks::Bf_IAM_MFM, marks::kMfmPatternBits};
    BfPattern iamFm{marks::Bf_IAM_FM, marks::kFmPatternBits};
    // The data marks without their last 8 cells, which tell normal from deleted.
    BfPattern damMfm{marks::Bf_DAM_MFM, marks::kMfmPatternBits - 8};
    BfPattern damFm{marks::Bf_DAM_FM, marks::kFmPatternBits - 8};
};
const MarkPatterns& Patterns() {
    static const MarkPatterns p;
    return p;
}

// Records pos + kMarkOffset for every match of pattern, searching on from just
// past each match; at most kMaxCandidates (later matches are not needed).
int CollectCandidates(const uint8_t* cells, int len, const BfPattern& pattern, int* out) {
    const int bits = pattern.Length();
    int n = 0;
    int start = 0;
    while (start < len && n < kMaxCandidates) {
        const int r = pattern.Find(cells, len, start, len - start);
        if (r < 0) break;
        const int p = start + r;
        out[n++] = p + kMarkOffset;
        start = p + bits;
    }
    return n;
}

// The first normal or deleted data mark within range cells from start, as
// two whole-pattern searches over the range would report it (the deleted one
// wins when it is not after the normal one). Both patterns share all but their
// last 8 cells, so one search for the shared part finds the earlier of the two
// and a look at the last 8 cells tells which it is. Offsets are limited as a
// whole-pattern search limits them: it tries every offset of each 32-cell group
// whose first offset leaves room for the pattern, and at most one lap.
// Returns the offset from start or -1; *deleted tells which mark was found.
int FindDataMark(const CellStream& s, const uint8_t* cells, int len, int start, int range,
                 const BfPattern& prefixPattern, const uint8_t* dam, const uint8_t* ddam, int bits,
                 bool* deleted) {
    *deleted = false;
    if (range < bits) return -1;
    const int maxOff = std::min((range - bits) / 32 * 32 + 31, len - 1);
    const int prefix = prefixPattern.Length();
    const uint32_t damTail = dam[bits / 8 - 1];
    const uint32_t ddamTail = ddam[bits / 8 - 1];
    for (int cur = 0; cur <= maxOff;) {
        const int r = prefixPattern.Find(cells, len, start + cur, maxOff - cur + prefix);
        if (r < 0) return -1;
        const int off = cur + r;
        const uint32_t tail = s.Get(int64_t{start} + off + prefix, 8);
        if (tail == damTail) return off;
        if (tail == ddamTail) {
            *deleted = true;
            return off;
        }
        cur = off + 1;
    }
    return -1;
}

bool IsMfmIdMark(uint32_t w, int mode) {
    if (w == 0x5554) return true;
    return mode != 0 && (w == 0x5555 || w == 0x5551 || w == 0x5552);
}
bool IsFmIdMark(uint32_t w, int mode) {
    if (w == 0x2AA8) return true;
    return mode != 0 && (w == 0x2AAA || w == 0x2A88 || w == 0x2A8A);
}

int DataLength(uint8_t n, int mode) {
    if (mode != 0) return 128 << (n & 3);
    return n >= 7 ? kMaxDataLength : 128 << n;
}

}  // namespace

void VTrack::Decode(int raw, unsigned char* buf, int len, int mode) {
    delete[] encData;
    encData = nullptr;
    Cleanup();
    flags = 0;
    iamPos = gap1 = gap4a = gap4b = encLen = 0;
    // Each byte of the buffer is written once: the cells, then zeros after them.
    encData = new unsigned char[kEncBytes];
    size_t filled = 0;

    RawEdgeMap edgeMap;
    if (buf && len > 0) {
        if (!raw) {
            // Streams longer than the buffer keep their first 262144 cells.
            const int cells = std::min(len, kEncCells);
            filled = static_cast<size_t>((cells + 7) / 8);
            std::memcpy(encData, buf, filled);
            if (cells & 7) encData[cells / 8] &= static_cast<uint8_t>(0xFF << (8 - (cells & 7)));
            encLen = cells;
        } else {
            // The separator clears the whole buffer before it writes cells.
            filled = kEncBytes;
            // The edge record answers the raw positions of step 9 without a
            // second separator scan.
            encLen =
                std::clamp(Raw2EncodeMapped(buf, len, encData, kEncCells, &edgeMap), 0, kEncCells);
        }
    }
    std::memset(encData + filled, 0, kEncBytes - filled);
    if (encLen < 1) {
        flags |= TRK_UNFORMATTED;
        return;
    }

    const CellStream s(encData, encLen);
    int mfmCand[kMaxCandidates];
    int fmCand[kMaxCandidates];
    const MarkPatterns& pats = Patterns();
    const int nMfmCand = CollectCandidates(encData, encLen, pats.amMfm, mfmCand);
    const int nFmCand = CollectCandidates(encData, encLen, pats.amFm, fmCand);

    // Classify by the mark byte: ID marks are kept (the first 96 of each
    // density), data marks only counted.
    int mfmIds[kMaxIdMarks];
    int fmIds[kMaxIdMarks];
    int nMfm = 0;
    int nFm = 0;
    int nData = 0;
    for (int i = 0; i < nMfmCand; ++i) {
        const uint32_t w = s.Get(int64_t{mfmCand[i]} + 48, 16);
        if (IsMfmIdMark(w, mode)) {
            if (nMfm < kMaxIdMarks) mfmIds[nMfm++] = mfmCand[i];
        } else if (w == 0x554A || w == 0x5545) {
            ++nData;
        }
    }
    for (int i = 0; i < nFmCand; ++i) {
        const uint32_t w = s.Get(int64_t{fmCand[i]} + 16, 16);
        if (IsFmIdMark(w, mode)) {
            if (nFm < kMaxIdMarks) fmIds[nFm++] = fmCand[i];
        } else if (w == 0x2888 || w == 0x28AA) {
            ++nData;
        }
    }

    if (nMfm + nFm == 0) {
        flags |= TRK_UNFORMATTED;
        return;
    }
    if (nMfm + nFm < nData) flags = TRK_MORE_DAM;

    // Merge by position, FM first on a tie. The list has room for 96 marks
    // plus its end pair; marks beyond that (the latest on the track) are dropped.
    int list[kMaxIdMarks + 1][2];
    int m = 0;
    int i = 0;
    int j = 0;
    while ((i < nMfm || j < nFm) && m < kMaxIdMarks) {
        if (j < nFm && (i >= nMfm || fmIds[j] <= mfmIds[i])) {
            list[m][0] = fmIds[j++];
            list[m][1] = 2;
        } else {
            list[m][0] = mfmIds[i++];
            list[m][1] = 1;
        }
        ++m;
    }
    list[m][0] = 0;
    list[m][1] = 0;

    DecodeIn(encData, encLen, list, nFm <= nMfm ? 1 : 0, mode);

    if (!raw || !sectors) return;

    // Length of each data field in the raw signal against its nominal length.
    std::vector<VSector*> measured;
    std::vector<int> pos;
    for (VSector* sc = sectors; sc; sc = sc->next) {
        if (sc->status & SECT_NODAM) continue;
        measured.push_back(sc);
        pos.push_back(sc->damPos - kMfmSync);
        pos.push_back(sc->endPos);
    }
    if (measured.empty()) return;
    RawEdgePosMulti(edgeMap, pos.data(), static_cast<int>(pos.size()));
    for (size_t k = 0; k < measured.size(); ++k) {
        const int rs = pos[2 * k];
        const int re = pos[2 * k + 1];
        if (rs < 0 || re < 0) continue;
        VSector* sc = measured[k];
        int64_t span = int64_t{re} - rs;
        if (span < 0) span += len;
        span /= 8;
        const int64_t nominal = int64_t{sc->length} * (sc->mfm ? kMfmCpb : kFmCpb) + 288;
        if (span == 0) span = nominal;
        const int64_t dev = span * 1000 / nominal - 1000;
        sc->timeDev = static_cast<int32_t>(std::clamp<int64_t>(dev, -300, 300));
    }
}

void VTrack::DecodeIn(unsigned char* cells, int len, int (*marks)[2], int mfmMajor, int mode) {
    // Far beyond any track; keeps every position sum below the int range.
    constexpr int kMaxCells = 1 << 28;
    if (!cells || len <= 0 || len > kMaxCells) return;
    const CellStream s(cells, len);
    const int majorCpb = mfmMajor ? kMfmCpb : kFmCpb;
    const int majorSync = mfmMajor ? kMfmSync : kFmSync;

    const MarkPatterns& pats = Patterns();
    const int iam = (mfmMajor ? pats.iamMfm : pats.iamFm).Find(cells, len, 0, len);
    const bool haveIndex = iam >= 0;
    if (haveIndex) {
        iamPos = iam + kDamOffset;
        flags |= TRK_INDEX;
    }

    for (int k = 0; marks && marks[k][1] != 0; ++k) {
        const int pos = marks[k][0];
        // Marks come from a search of this stream; anything else is not a mark.
        if (pos < 0 || pos >= len + kMarkOffset) continue;
        const bool mfm = marks[k][1] == 1;
        const int cpb = mfm ? kMfmCpb : kFmCpb;
        auto sc = std::make_unique<VSector>();
        sc->mfm = mfm ? 1 : 0;
        sc->idPos = pos;

        // ID field.
        uint8_t id[10];
        const int idBytes = mfm ? 10 : 7;
        s.ReadBytes(pos, idBytes, mfm, id);
        const uint8_t* chrn = id + idBytes - 6;
        sc->idC = chrn[0];
        sc->idH = chrn[1];
        sc->idR = chrn[2];
        sc->idN = chrn[3];
        sc->idCrc[0] = chrn[4];
        sc->idCrc[1] = chrn[5];
        const uint16_t idCrc = CrcUpdate(kCrcInit, id, static_cast<size_t>(idBytes - 2));
        if (idCrc != ((chrn[4] << 8) | chrn[5])) {
            sc->status |= SECT_IDCRC;
            flags |= TRK_IDCRC;
        }
        const int length = DataLength(sc->idN, mode);

        // Data mark: up to the next ID mark of the same density, else to the end.
        const int idEnd = pos + (mfm ? kMfmIdCells : kFmIdCells);
        const bool nextSame = marks[k + 1][1] != 0 && (marks[k + 1][1] == 1) == mfm;
        const int64_t to = nextSame ? int64_t{marks[k + 1][0]} : int64_t{len};
        const int range = static_cast<int>(std::clamp<int64_t>(to - idEnd, -1, len));
        bool deleted = false;
        const int off =
            mfm ? FindDataMark(s, cells, len, idEnd, range, pats.damMfm, marks::Bf_DAM_MFM,
                               marks::Bf_DDAM_MFM, marks::kMfmPatternBits, &deleted)
                : FindDataMark(s, cells, len, idEnd, range, pats.damFm, marks::Bf_DAM_FM,
                               marks::Bf_DDAM_FM, marks::kFmPatternBits, &deleted);
        if (off < 0) {
            sc->status |= SECT_NODAM;
            flags |= TRK_NODAM;
        } else {
            const int markOff = off + kDamOffset;
            if (deleted) sc->status |= SECT_DELETED;
            sc->gap2 = (markOff - kMfmSync) / cpb;
            sc->damPos = idEnd + markOff;
            sc->dataPos = sc->damPos + (mfm ? 4 * kMfmCpb : kFmCpb);
            sc->endPos = sc->damPos + length * cpb + 96;
            sc->dataCells = length * cpb;
            sc->length = length;

            std::unique_ptr<uint8_t[]> data(new uint8_t[static_cast<size_t>(length)]);
            s.ReadBytes(sc->dataPos, length, mfm, data.get());
            s.ReadBytes(int64_t{sc->dataPos} + int64_t{length} * cpb, 2, mfm, sc->dataCrc);
            const uint8_t mark = deleted ? 0xF8 : 0xFB;
            uint16_t crc = CrcUpdate(mfm ? kCrcAfterA1x3 : kCrcInit, mark);
            crc = CrcUpdate(crc, data.get(), static_cast<size_t>(length));
            if (crc != ((sc->dataCrc[0] << 8) | sc->dataCrc[1])) {
                sc->status |= SECT_DATACRC;
                flags |= TRK_DATACRC;
            }
            sc->data = data.release();
        }
        flags |= mfm ? TRK_MFM : TRK_FM;
        AddSector(sc.release());
    }

    if (!sectors) {
        gap4a = std::max((iamPos - majorSync) / majorCpb, 0);
        return;
    }

    // GAP3: to the next sector's ID sync, or to the end of the stream for the last.
    for (VSector* sc = sectors; sc; sc = sc->next) {
        if (sc->status & SECT_NODAM) continue;
        const int cpb = sc->mfm ? kMfmCpb : kFmCpb;
        const int sync = sc->mfm ? kMfmSync : kFmSync;
        if (sc->next) {
            sc->gap3 = sc->next->idPos > sc->endPos
                           ? std::max((sc->next->idPos - sc->endPos - sync) / cpb, 0)
                           : 0;
        } else {
            sc->gap3 = sc->endPos < len ? (len - sc->endPos) / cpb : 0;
        }
    }

    // What follows the furthest-reaching sector is GAP4b, not a GAP3.
    VSector* furthest = sectors;
    for (VSector* sc = sectors->next; sc; sc = sc->next) {
        if (sc->endPos > furthest->endPos) furthest = sc;
    }
    furthest->gap3 = 0;
    const int g4b = (len - furthest->endPos) / majorCpb;
    if (g4b > 0) gap4b = g4b;

    VSector* lastSector = sectors;
    for (VSector* sc = sectors; sc; sc = sc->next) {
        if (sc->idPos >= len) sc->idPos -= len;
        if (sc->damPos >= len) sc->damPos -= len;
        if (sc->endPos >= len) sc->endPos -= len;
        lastSector = sc;
    }

    const int markCells = mfmMajor ? 4 * kMfmCpb : kFmCpb;
    if (haveIndex) {
        for (VSector* sc = sectors; sc; sc = sc->next) {
            if (sc->idPos > iamPos) {
                gap1 = (sc->idPos - majorSync - iamPos - markCells) / majorCpb;
                break;
            }
        }
    }

    int g4a = ((haveIndex ? iamPos : sectors->idPos) - majorSync) / majorCpb;
    if (lastSector->idPos > lastSector->endPos) g4a -= lastSector->endPos / majorCpb;
    gap4a = std::max(g4a, 0);

    for (VSector* sc = sectors; sc; sc = sc->next) {
        if (sc->idPos > sc->endPos) flags |= TRK_CROSS_INDEX;
    }
    if (!(flags & TRK_OVERLAP)) {
        for (VSector* a = sectors; a && !(flags & TRK_OVERLAP); a = a->next) {
            for (VSector* b = sectors; b; b = b->next) {
                if (a == b) continue;
                const bool idIn = a->idPos >= b->idPos && a->idPos <= b->endPos;
                const bool endIn = a->endPos >= b->idPos && a->endPos <= b->endPos;
                if (idIn || endIn) {
                    flags |= TRK_OVERLAP;
                    break;
                }
            }
        }
    }
}
