// One sector of a track: its ID field, data, gaps, status and (after decoding)
// its positions in the track's cell stream.
#pragma once

#include <cstdint>

enum : uint8_t {
    SECT_NODAM = 1,
    SECT_DELETED = 4,
    SECT_IDCRC = 8,
    SECT_DATACRC = 16,
};

class VSector {
public:
    VSector();
    VSector(const VSector&) = delete;
    VSector& operator=(const VSector&) = delete;
    virtual ~VSector();

    // Default GAP3 in bytes for size code n (clamped to 0..3) and density.
    int32_t CalcGAP3(int mfmDensity, int n) const;

    // Replaces data with a new copy of len bytes of src (zeros when src is null).
    void SetData(const uint8_t* src, int len);

    int32_t mfm;
    uint8_t idC;
    uint8_t idH;
    uint8_t idR;
    uint8_t idN;
    int32_t gap2;
    int32_t length;
    uint8_t* data;  // owned, new[]
    int32_t gap3;
    uint8_t status;
    uint8_t idCrc[2];
    uint8_t dataCrc[2];
    int32_t idPos;
    int32_t damPos;
    int32_t dataPos;
    int32_t endPos;
    int32_t dataCells;
    int32_t timeDev;
    VSector* next;
};

extern const int32_t Gap3MFM[4];
extern const int32_t Gap3FM[4];
