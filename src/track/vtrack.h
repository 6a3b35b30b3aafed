// A track as a list of sectors, with its encoded cell stream once decoded.
// The track owns its sectors and its stream; the destructor releases them too,
// so a track that was never cleaned up does not leak.
#pragma once

#include <cstdint>

#include "track/vsector.h"

class VTrack {
public:
    VTrack();
    VTrack(const VTrack&) = delete;
    VTrack& operator=(const VTrack&) = delete;
    virtual ~VTrack();

    void Cleanup();
    void ClrSector();
    void AddSector(VSector* s);  // takes ownership
    VSector* GetSectorByIndex(int i) const;
    VSector* GetLasttSector() const;
    int32_t GetLength() const;
    int GetEncData(int pos) const;
    int SectorCount() const { return mfmCount + fmCount; }

    // Encoder.
    int Encode(int raw, unsigned char* buf, int len);
    int EncodeMFM(unsigned char* buf, int cells);
    int EncodeFM(unsigned char* buf, int cells);
    int CalcTotalMFM();
    int CalcTotalFM();
    int ShrinkGapMFM(int target);
    int ShrinkGapFM(int target);
    // The sectors Encode would leave out on a track of `cells` cells, its gaps
    // shrunk as Encode shrinks them; the track itself is not changed.
    int LeftOutAt(int cells) const;
    int FillMFM(unsigned char* p, unsigned char b, int count, int* last);
    int GenMFM(unsigned char* p, unsigned char* src, int count, int* last);
    int FillFM(unsigned char* p, unsigned char b, int count);
    int GenFM(unsigned char* p, unsigned char* src, int count);
    int GenIAM(unsigned char* p, int mfmDensity);
    int GenIDAM(unsigned char* p, int mfmDensity);
    int GenDAM(unsigned char* p, int deleted, int mfmDensity);

    // Decoder. mode 0 = uPD765 rules, non-zero = MB8877 rules.
    void Decode(int raw, unsigned char* buf, int len, int mode);
    void DecodeIn(unsigned char* cells, int len, int (*marks)[2], int mfmMajor, int mode);

    uint32_t flags;
    int32_t iamPos;
    int32_t gap1;
    int32_t gap4a;
    int32_t gap4b;
    int32_t encLen;
    unsigned char* encData;  // owned, new[]
    VSector* sectors;
    int32_t mfmCount;
    int32_t fmCount;
    // Sectors at the end of the list that the last encoding could not fit on
    // the track and left out.
    int32_t leftOut;
    // Set by a reader whose density marks cannot be taken at their word: a
    // track marked FM throughout that a track of the encoded length cannot
    // hold in FM, while it can in MFM, is then encoded in MFM (with MFM's
    // gaps), and that encoding sets mfmByFit.
    int32_t densityByFit;
    int32_t mfmByFit;
};

// Track analysis flags set by Decode.
enum : uint32_t {
    TRK_INDEX = 0x1,
    TRK_FM = 0x2,
    TRK_MFM = 0x4,
    TRK_CROSS_INDEX = 0x8,
    TRK_NODAM = 0x100,
    TRK_DATACRC = 0x200,
    TRK_IDCRC = 0xC00,
    TRK_MORE_DAM = 0x2000,
    TRK_OVERLAP = 0x4000,
    TRK_UNFORMATTED = 0x8000,
};
