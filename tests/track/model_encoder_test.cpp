// Encoder tests. Expected streams are built bit by bit from the cell rules by a
// small reference writer here, independent of the encoder's tables.
#include <gtest/gtest.h>

#include <cstring>
#include <random>
#include <vector>

#include "signal/rawconv.h"
#include "track/codectables.h"
#include "track/vtrack.h"

namespace {

uint16_t BitCrc(uint16_t crc, uint8_t b) {
    crc = static_cast<uint16_t>(crc ^ (b << 8));
    for (int i = 0; i < 8; ++i) {
        crc = static_cast<uint16_t>((crc & 0x8000) ? (crc << 1) ^ 0x1021 : crc << 1);
    }
    return crc;
}

uint16_t BitCrc(std::initializer_list<uint8_t> bytes, uint16_t crc = 0xFFFF) {
    for (uint8_t b : bytes) crc = BitCrc(crc, b);
    return crc;
}

int Cell(const std::vector<uint8_t>& buf, int64_t pos) {
    return (buf[pos >> 3] >> (7 - (pos & 7))) & 1;
}

uint32_t Cells(const std::vector<uint8_t>& buf, int64_t pos, int n) {
    uint32_t v = 0;
    for (int i = 0; i < n; ++i) v = (v << 1) | static_cast<uint32_t>(Cell(buf, pos + i));
    return v;
}

// Data bits of one byte: every second cell in MFM, the third of four in FM.
uint8_t DataByte(const std::vector<uint8_t>& buf, int64_t pos, bool mfm) {
    unsigned v = 0;
    for (int i = 0; i < 8; ++i)
        v = (v << 1) | static_cast<unsigned>(Cell(buf, pos + (mfm ? 2 * i + 1 : 4 * i + 2)));
    return static_cast<uint8_t>(v);
}

// Bit-level reference of the track layout.
struct RefTrack {
    std::vector<int> bits;
    int last = 0;

    void Word(uint32_t w, int n) {
        for (int i = n - 1; i >= 0; --i) bits.push_back((w >> i) & 1);
    }
    void Mfm(uint8_t b) {
        for (int i = 7; i >= 0; --i) {
            const int d = (b >> i) & 1;
            bits.push_back(!last && !d);
            bits.push_back(d);
            last = d;
        }
    }
    void Fm(uint8_t b, uint8_t clock = 0xFF) {
        for (int i = 7; i >= 0; --i) {
            bits.push_back((clock >> i) & 1);
            bits.push_back(0);
            bits.push_back((b >> i) & 1);
            bits.push_back(0);
        }
    }
    void Byte(bool mfm, uint8_t b) { mfm ? Mfm(b) : Fm(b); }
    void Sector(const VSector& s) {
        const bool mfm = s.mfm != 0;
        const uint8_t gap = mfm ? 0x4E : 0xFF;
        const uint8_t dam = (s.status & SECT_DELETED) ? 0xF8 : 0xFB;
        for (int i = 0; i < (mfm ? 12 : 6); ++i) Byte(mfm, 0);
        uint16_t crc = 0xFFFF;
        auto mark = [&](uint8_t m) {
            if (mfm) {
                for (int i = 0; i < 3; ++i) Word(0x4489, 16);
                last = 1;
                Mfm(m);
                crc = BitCrc({0xA1, 0xA1, 0xA1, m});
            } else {
                Fm(m, 0xC7);
                crc = BitCrc({m});
            }
        };
        auto field = [&](uint8_t b) {
            Byte(mfm, b);
            crc = BitCrc(crc, b);
        };
        mark(0xFE);
        for (uint8_t b : {s.idC, s.idH, s.idR, s.idN}) field(b);
        const uint16_t idCrc = crc;
        Byte(mfm, static_cast<uint8_t>(idCrc >> 8));
        Byte(mfm, static_cast<uint8_t>(idCrc));
        for (int i = 0; i < s.gap2; ++i) Byte(mfm, gap);
        for (int i = 0; i < (mfm ? 12 : 6); ++i) Byte(mfm, 0);
        mark(dam);
        for (int i = 0; i < s.length; ++i) field(s.data[i]);
        const uint16_t dataCrc = crc;
        Byte(mfm, static_cast<uint8_t>(dataCrc >> 8));
        Byte(mfm, static_cast<uint8_t>(dataCrc));
        for (int i = 0; i < s.gap3; ++i) Byte(mfm, gap);
    }
    // The whole track at `cells`, background included (buffer bits beyond the
    // background stay as `fill`).
    std::vector<uint8_t> Build(const VTrack& t, int cells, uint8_t fill) {
        const bool mfm = t.mfmCount >= t.fmCount;
        if (mfm) {
            for (int i = 0; i < 80; ++i) Mfm(0x4E);
            for (int i = 0; i < 12; ++i) Mfm(0);
            for (int i = 0; i < 3; ++i) Word(0x5224, 16);
            Word(0x5552, 16);
            last = 0;
            for (int i = 0; i < 50; ++i) Mfm(0x4E);
        } else {
            for (int i = 0; i < 40; ++i) Fm(0xFF);
            for (int i = 0; i < 6; ++i) Fm(0);
            Fm(0xFC, 0xD7);
            for (int i = 0; i < 26; ++i) Fm(0xFF);
        }
        EXPECT_EQ(bits.size(), 2336u);
        last = 0;
        int64_t total = 2336;
        for (const VSector* s = t.sectors; s; s = s->next) {
            total += (s->length + (s->mfm ? 62 : 33) + s->gap3) * (s->mfm ? 16 : 32);
            if (total > cells) break;
            Sector(*s);
        }
        std::vector<uint8_t> out(static_cast<size_t>(cells + 7) / 8, fill);
        const int word = mfm ? 16 : 32;
        const int64_t background = cells / word * word;
        for (int64_t i = 0; i < background; ++i) {
            const int b =
                i < static_cast<int64_t>(bits.size())
                    ? bits[i]
                    : (mfm ? (0x9254 >> (15 - i % 16)) & 1 : (0xAAAAAAAAu >> (31 - i % 32)) & 1);
            if (b) {
                out[i >> 3] |= static_cast<uint8_t>(0x80 >> (i & 7));
            } else {
                out[i >> 3] &= static_cast<uint8_t>(~(0x80 >> (i & 7)));
            }
        }
        return out;
    }
};

VSector* MakeSector(int mfm, uint8_t c, uint8_t h, uint8_t r, uint8_t n, int length, int gap2,
                    int gap3, uint8_t status = 0) {
    auto* s = new VSector;
    s->mfm = mfm;
    s->idC = c;
    s->idH = h;
    s->idR = r;
    s->idN = n;
    std::vector<uint8_t> d(static_cast<size_t>(length));
    for (int i = 0; i < length; ++i) d[i] = static_cast<uint8_t>(i * 7 + r * 31 + c);
    s->SetData(d.data(), length);
    s->gap2 = gap2;
    s->gap3 = gap3;
    s->status = status;
    return s;
}

void AddStandard(VTrack& t, int count, int n, int gap3, int mfm = 1) {
    for (int r = 1; r <= count; ++r) {
        t.AddSector(MakeSector(mfm, 2, 1, static_cast<uint8_t>(r), static_cast<uint8_t>(n),
                               128 << n, mfm ? 22 : 11, gap3));
    }
}

std::vector<uint8_t> EncodeCells(VTrack& t, int cells, uint8_t fill = 0) {
    std::vector<uint8_t> buf(static_cast<size_t>(cells + 7) / 8, fill);
    EXPECT_EQ(t.Encode(0, buf.data(), cells), cells);
    return buf;
}

TEST(CodecTablesTest, PinnedEntriesAndCrc) {
    EXPECT_EQ(MFMTable[0x00], 0xAAAA);
    EXPECT_EQ(MFMTable[0x4E], 0x9254);
    EXPECT_EQ(MFMTable[0xA1], 0x44A9);
    EXPECT_EQ(MFMTable[0xFF], 0x5555);
    EXPECT_EQ(FMTable[0x00], 0x88888888u);
    EXPECT_EQ(FMTable[0xFF], 0xAAAAAAAAu);
    EXPECT_EQ(crctbl[1], 0x1021);
    EXPECT_EQ(CrcUpdate(0xFFFF, 0xA1), 0x443B);
    const uint8_t idam[4] = {0xA1, 0xA1, 0xA1, 0xFE};
    EXPECT_EQ(CrcUpdate(0xFFFF, idam, 4), 0xB230);
    EXPECT_EQ(CrcUpdate(0xFFFF, 0xFE), 0xEF21);
    for (unsigned v = 0; v < 256; ++v) {
        RefTrack r;
        r.Mfm(static_cast<uint8_t>(v));
        r.Fm(static_cast<uint8_t>(v));
        uint32_t mfm = 0, fm = 0;
        for (int i = 0; i < 16; ++i) mfm = (mfm << 1) | static_cast<uint32_t>(r.bits[i]);
        for (int i = 16; i < 48; ++i) fm = (fm << 1) | static_cast<uint32_t>(r.bits[i]);
        ASSERT_EQ(MFMTable[v], mfm) << v;
        ASSERT_EQ(FMTable[v], fm) << v;
        ASSERT_EQ(CrcUpdate(0x1234, static_cast<uint8_t>(v)),
                  BitCrc(0x1234, static_cast<uint8_t>(v)))
            << v;
    }
}

TEST(EncoderBlocksTest, MarksInBothDensities) {
    struct Case {
        const char* name;
        int which;  // 0 IAM, 1 IDAM, 2 DAM, 3 DDAM
        std::vector<uint8_t> mfm, fm;
    };
    const Case cases[] = {
        {"IAM", 0, {0x52, 0x24, 0x52, 0x24, 0x52, 0x24, 0x55, 0x52}, {0xAA, 0x2A, 0x2A, 0x88}},
        {"IDAM", 1, {0x44, 0x89, 0x44, 0x89, 0x44, 0x89, 0x55, 0x54}, {0xAA, 0x22, 0x2A, 0xA8}},
        {"DAM", 2, {0x44, 0x89, 0x44, 0x89, 0x44, 0x89, 0x55, 0x45}, {0xAA, 0x22, 0x28, 0xAA}},
        {"DDAM", 3, {0x44, 0x89, 0x44, 0x89, 0x44, 0x89, 0x55, 0x4A}, {0xAA, 0x22, 0x28, 0x88}},
    };
    VTrack t;
    for (const Case& c : cases) {
        for (int mfm = 0; mfm <= 1; ++mfm) {
            std::vector<uint8_t> out(8, 0xEE);
            int n = c.which == 0   ? t.GenIAM(out.data(), mfm)
                    : c.which == 1 ? t.GenIDAM(out.data(), mfm)
                                   : t.GenDAM(out.data(), c.which == 3, mfm);
            const std::vector<uint8_t>& want = mfm ? c.mfm : c.fm;
            ASSERT_EQ(n, static_cast<int>(want.size())) << c.name;
            EXPECT_EQ(std::vector<uint8_t>(out.begin(), out.begin() + n), want) << c.name << mfm;
            if (!mfm) {
                EXPECT_EQ(out[4], 0xEE) << c.name;
            }
        }
    }
}

TEST(EncoderBlocksTest, FillAndGenApplyTheClockRule) {
    VTrack t;
    std::vector<uint8_t> out(8);
    int last = 1;
    EXPECT_EQ(t.FillMFM(out.data(), 0x00, 2, &last), 4);
    EXPECT_EQ(out, std::vector<uint8_t>({0x2A, 0xAA, 0xAA, 0xAA, 0, 0, 0, 0}));
    EXPECT_EQ(last, 0);
    last = 1;
    t.FillMFM(out.data(), 0x4E, 2, &last);
    EXPECT_EQ(out[0], 0x12);
    EXPECT_EQ(out[1], 0x54);
    EXPECT_EQ(out[2], 0x92);
    uint8_t src[3] = {0x01, 0x00, 0x80};
    last = 0;
    EXPECT_EQ(t.GenMFM(out.data(), src, 3, &last), 6);
    // 01 then 00 after a 1 (first clock dropped), then 80 after a 0.
    EXPECT_EQ(std::vector<uint8_t>(out.begin(), out.begin() + 6),
              std::vector<uint8_t>({0xAA, 0xA9, 0x2A, 0xAA, 0x4A, 0xAA}));
    EXPECT_EQ(last, 0);
    EXPECT_EQ(t.FillFM(out.data(), 0x00, 1), 4);
    EXPECT_EQ(std::vector<uint8_t>(out.begin(), out.begin() + 4),
              std::vector<uint8_t>({0x88, 0x88, 0x88, 0x88}));
    uint8_t ff = 0xFF;
    EXPECT_EQ(t.GenFM(out.data() + 4, &ff, 1), 4);
    EXPECT_EQ(std::vector<uint8_t>(out.begin() + 4, out.end()),
              std::vector<uint8_t>({0xAA, 0xAA, 0xAA, 0xAA}));
}

TEST(EncoderBudgetTest, BudgetsAndShrink) {
    VTrack t;
    AddStandard(t, 9, 2, 84);
    EXPECT_EQ(t.CalcTotalMFM(), 97088);
    EXPECT_EQ(t.CalcTotalFM(), 97088 - 2336 + 1128);
    std::vector<uint8_t> big(100000 / 8);
    t.Encode(0, big.data(), 100000);
    for (VSector* s = t.sectors; s; s = s->next) EXPECT_EQ(s->gap3, 84);

    std::vector<uint8_t> buf(96000 / 8);
    t.Encode(0, buf.data(), 96000);
    std::vector<int> gaps;
    for (VSector* s = t.sectors; s; s = s->next) gaps.push_back(s->gap3);
    EXPECT_EQ(gaps, std::vector<int>({56, 56, 56, 56, 56, 57, 57, 57, 57}));
    EXPECT_LE(t.CalcTotalMFM(), 93120);
}

// Byte-at-a-time statement of the GAP3 shrink rule, to check the encoder's
// faster one against.
int ReferenceShrink(std::vector<int>& gap3, const std::vector<int>& unit, int64_t budget,
                    int64_t target) {
    if (budget <= target) return 1;
    if (gap3.empty()) return 0;
    for (;;) {
        size_t best = 0;
        for (size_t i = 1; i < gap3.size(); ++i) {
            if (gap3[i] > gap3[best]) best = i;
        }
        if (gap3[best] <= 20) return 0;
        --gap3[best];
        budget -= unit[best];
        if (budget <= target) return 1;
    }
}

TEST(EncoderBudgetTest, ShrinkMatchesByteAtATimeRule) {
    std::mt19937 rng(12345);
    for (int round = 0; round < 300; ++round) {
        VTrack t;
        std::vector<int> gap3, unit;
        const int n = 1 + static_cast<int>(rng() % 12);
        for (int i = 0; i < n; ++i) {
            const int mfm = (rng() % 4) != 0;
            const int g = static_cast<int>(rng() % 90);
            auto* s = new VSector;
            s->mfm = mfm;
            s->length = 128 << (rng() % 3);
            s->gap3 = g;
            t.AddSector(s);
            gap3.push_back(g);
            unit.push_back(mfm ? 16 : 32);
        }
        const bool fmBase = rng() % 2;
        const int64_t budget = fmBase ? t.CalcTotalFM() : t.CalcTotalMFM();
        const int target = static_cast<int>(budget - static_cast<int64_t>(rng() % 6000));
        const int want = ReferenceShrink(gap3, unit, budget, target);
        const int got = fmBase ? t.ShrinkGapFM(target) : t.ShrinkGapMFM(target);
        ASSERT_EQ(got, want) << round;
        int i = 0;
        for (VSector* s = t.sectors; s; s = s->next, ++i) ASSERT_EQ(s->gap3, gap3[i]) << round;
    }
}

TEST(EncoderBudgetTest, HugeGap3ShrinksWithoutLongLoop) {
    VTrack t;
    AddStandard(t, 2, 2, 0x7FFFFFF0);
    EXPECT_EQ(t.ShrinkGapMFM(12000), 0);
    for (VSector* s = t.sectors; s; s = s->next) EXPECT_EQ(s->gap3, 20);
    t.ClrSector();
    AddStandard(t, 3, 2, 2000000000);
    EXPECT_EQ(t.ShrinkGapMFM(100000), 1);
    std::vector<int> gaps;
    for (VSector* s = t.sectors; s; s = s->next) gaps.push_back(s->gap3);
    // 2336 + 3 x (574 + g) x 16 <= 100000 -> the three GAP3s sum to at most 4382.
    EXPECT_EQ(gaps, std::vector<int>({1460, 1461, 1461}));
}

TEST(EncoderLayoutTest, EmptyTrackIsZeroCells) {
    VTrack t;
    std::vector<uint8_t> buf(5, 0xFF);
    EXPECT_EQ(t.Encode(0, buf.data(), 36), 36);
    EXPECT_EQ(buf, std::vector<uint8_t>({0, 0, 0, 0, 0x0F}));
    std::fill(buf.begin(), buf.end(), 0xFF);
    EXPECT_EQ(t.Encode(1, buf.data(), 36), 36);
    EXPECT_EQ(buf, std::vector<uint8_t>({0, 0, 0, 0, 0x0F}));
}

TEST(EncoderLayoutTest, MatchesBitLevelReference) {
    struct Case {
        const char* name;
        std::vector<VSector*> sectors;
        int cells;
    };
    std::vector<Case> cases;
    {
        std::vector<VSector*> v;
        for (int r = 1; r <= 9; ++r) v.push_back(MakeSector(1, 0, 0, r, 2, 512, 22, 84));
        cases.push_back({"2DD 9x512", v, 100000});
    }
    {
        std::vector<VSector*> v;
        for (int r = 1; r <= 16; ++r) v.push_back(MakeSector(0, 0, 0, r, 0, 128, 11, 27));
        cases.push_back({"FM 16x128", v, 100000});
    }
    {
        // gap2 0 and gap3 0 after CRCs ending in a 1 bit, odd lengths, deleted marks.
        std::vector<VSector*> v;
        for (int r = 1; r <= 6; ++r) {
            v.push_back(MakeSector(1, 3, 0, r, 1, 100 + r * 37, r % 2 ? 0 : 30, r % 3 ? 0 : 40,
                                   r == 2 ? SECT_DELETED : 0));
        }
        cases.push_back({"MFM odd gaps", v, 50000});
    }
    {
        std::vector<VSector*> v;
        v.push_back(MakeSector(1, 0, 0, 1, 1, 256, 22, 54));
        v.push_back(MakeSector(0, 0, 0, 2, 0, 128, 11, 27, SECT_DELETED));
        v.push_back(MakeSector(1, 0, 0, 3, 1, 256, 0, 0));
        v.push_back(MakeSector(0, 0, 0, 4, 0, 128, 11, 27));
        cases.push_back({"2 MFM + 2 FM", v, 50000});
    }
    {
        std::vector<VSector*> v;
        v.push_back(MakeSector(1, 0, 0, 1, 1, 256, 22, 0));
        for (int r = 2; r <= 4; ++r) v.push_back(MakeSector(0, 0, 0, r, 0, 128, 11, 27));
        v.push_back(MakeSector(1, 0, 0, 5, 1, 256, 22, 53));  // ends mid FM word
        cases.push_back({"3 FM + 2 MFM", v, 50000});
    }
    {
        // Sector 3's budget runs past the cells: it and sector 4 are left out.
        std::vector<VSector*> v;
        for (int r = 1; r <= 4; ++r) v.push_back(MakeSector(1, 0, 0, r, 2, 512, 22, 84));
        cases.push_back({"trailing dropped", v, 2336 + 2 * 658 * 16 + 658 * 16 - 1});
    }
    {
        std::vector<VSector*> v;
        v.push_back(MakeSector(1, 0, 0, 1, 1, 256, 22, 54));
        cases.push_back({"odd cell count", v, 20011});
    }
    for (Case& c : cases) {
        VTrack t;
        for (VSector* s : c.sectors) t.AddSector(s);
        std::vector<uint8_t> got = EncodeCells(t, c.cells, 0x5A);
        RefTrack ref;
        std::vector<uint8_t> want = ref.Build(t, c.cells, 0x5A);
        ASSERT_EQ(got.size(), want.size()) << c.name;
        for (size_t i = 0; i < got.size(); ++i) {
            ASSERT_EQ(got[i], want[i]) << c.name << " byte " << i;
        }
    }
}

TEST(EncoderLayoutTest, FieldsAtExpectedCellOffsets) {
    VTrack t;
    AddStandard(t, 9, 2, 84);
    t.GetSectorByIndex(4)->status = SECT_DELETED | SECT_IDCRC | SECT_DATACRC;
    const std::vector<uint8_t> buf = EncodeCells(t, 100000);
    EXPECT_EQ(Cells(buf, 0, 16), 0x9254u);
    EXPECT_EQ(Cells(buf, 80 * 16 + 12 * 16, 32), 0x52245224u);
    int64_t pos = 2336;
    for (const VSector* s = t.sectors; s; s = s->next) {
        const int64_t idam = pos + 12 * 16;
        EXPECT_EQ(Cells(buf, pos, 16), 0xAAAAu);
        EXPECT_EQ(Cells(buf, idam, 32), 0x44894489u);
        EXPECT_EQ(Cells(buf, idam + 48, 16), 0x5554u);
        uint8_t id[6];
        for (int i = 0; i < 6; ++i) id[i] = DataByte(buf, idam + 64 + 16 * i, true);
        EXPECT_EQ(id[0], 2);
        EXPECT_EQ(id[2], s->idR);
        EXPECT_EQ(id[3], 2);
        const uint16_t idCrc = BitCrc({0xA1, 0xA1, 0xA1, 0xFE, id[0], id[1], id[2], id[3]});
        EXPECT_EQ(id[4] << 8 | id[5], idCrc);
        const int64_t dam = idam + 10 * 16 + 22 * 16 + 12 * 16;
        const bool deleted = s->status & SECT_DELETED;
        EXPECT_EQ(Cells(buf, dam + 48, 16), deleted ? 0x554Au : 0x5545u) << int{s->idR};
        uint16_t crc = BitCrc({0xA1, 0xA1, 0xA1, static_cast<uint8_t>(deleted ? 0xF8 : 0xFB)});
        for (int i = 0; i < 512; ++i) {
            const uint8_t b = DataByte(buf, dam + 64 + 16 * i, true);
            ASSERT_EQ(b, s->data[i]);
            crc = BitCrc(crc, b);
        }
        const int64_t crcPos = dam + 64 + 512 * 16;
        EXPECT_EQ(DataByte(buf, crcPos, true) << 8 | DataByte(buf, crcPos + 16, true), crc);
        pos = crcPos + 32 + 84 * 16;
    }
    EXPECT_EQ(pos, 97088);
    for (int64_t p = pos; p < 100000; p += 16) ASSERT_EQ(Cells(buf, p, 16), 0x9254u) << p;
}

TEST(EncoderLayoutTest, FmTrackFieldsAndIdCrc) {
    VTrack t;
    t.AddSector(MakeSector(0, 0, 0, 1, 2, 512, 11, 58, SECT_DELETED));
    const std::vector<uint8_t> buf = EncodeCells(t, 50000);
    EXPECT_EQ(Cells(buf, 0, 32), 0xAAAAAAAAu);
    EXPECT_EQ(Cells(buf, 40 * 32 + 6 * 32, 32), 0xAA2A2A88u);
    const int64_t idam = 2336 + 6 * 32;
    EXPECT_EQ(Cells(buf, idam - 32, 32), 0x88888888u);
    EXPECT_EQ(Cells(buf, idam, 32), 0xAA222AA8u);
    uint8_t id[6];
    for (int i = 0; i < 6; ++i) id[i] = DataByte(buf, idam + 32 + 32 * i, false);
    EXPECT_EQ(id[2], 1);
    EXPECT_EQ(id[4] << 8 | id[5], BitCrc({0xFE, 0, 0, 1, 2}));
    const int64_t dam = idam + 7 * 32 + 11 * 32 + 6 * 32;
    EXPECT_EQ(Cells(buf, dam, 32), 0xAA222888u);
    uint16_t crc = BitCrc({0xF8});
    for (int i = 0; i < 512; ++i) crc = BitCrc(crc, DataByte(buf, dam + 32 + 32 * i, false));
    EXPECT_EQ(
        DataByte(buf, dam + 32 + 512 * 32, false) << 8 | DataByte(buf, dam + 32 + 513 * 32, false),
        crc);
}

TEST(EncoderLayoutTest, MfmIdCrcOfFirstSector) {
    VTrack t;
    t.AddSector(MakeSector(1, 0, 0, 1, 2, 512, 22, 84));
    const std::vector<uint8_t> buf = EncodeCells(t, 12000);
    const int64_t crcPos = 2336 + 12 * 16 + 8 * 16;
    const uint16_t want = BitCrc({0xA1, 0xA1, 0xA1, 0xFE, 0x00, 0x00, 0x01, 0x02});
    EXPECT_EQ(DataByte(buf, crcPos, true) << 8 | DataByte(buf, crcPos + 16, true), want);
}

TEST(EncoderLayoutTest, HugeGap2NeverWritesPastTheCells) {
    for (int mfm = 0; mfm <= 1; ++mfm) {
        for (int cells : {50000, 50007, 50024, 3000, 100}) {
            VTrack t;
            t.AddSector(MakeSector(mfm, 0, 0, 1, 1, 256, 1000000000, 20));
            const size_t bytes = static_cast<size_t>(cells + 7) / 8;
            std::vector<uint8_t> buf(bytes + 64, 0x5A);
            ASSERT_EQ(t.Encode(0, buf.data(), cells), cells);
            // Only whole words inside the cell count may change.
            const int word = mfm ? 16 : 32;
            const size_t whole = static_cast<size_t>(cells / word * word / 8);
            for (size_t i = whole; i < buf.size(); ++i) {
                ASSERT_EQ(buf[i], 0x5A) << "mfm " << mfm << " cells " << cells << " byte " << i;
            }
            if (cells >= 50000) {
                // The sector is in the budget: its ID field is written intact.
                const int64_t idam = 2336 + (mfm ? 12 * 16 : 6 * 32);
                EXPECT_EQ(Cells(buf, idam, 32), mfm ? 0x44894489u : 0xAA222AA8u);
            }
        }
    }
}

TEST(EncoderLayoutTest, RawOutputGoesThroughEncode2Raw) {
    VTrack t;
    AddStandard(t, 5, 3, 116);
    const int rawLen = 100003 * 8 + 5;
    std::vector<uint8_t> raw(static_cast<size_t>(rawLen + 7) / 8, 0x33);
    const int got = t.Encode(1, raw.data(), rawLen);
    std::vector<uint8_t> cells = EncodeCells(t, 100003);
    std::vector<uint8_t> want(raw.size(), 0x33);
    EXPECT_EQ(got, Encode2Raw(cells.data(), 100003, want.data(), rawLen));
    EXPECT_EQ(raw, want);
}

}  // namespace
