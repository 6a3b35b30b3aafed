#include <gtest/gtest.h>

#include <memory>
#include <vector>

#include "track/vtrack.h"

namespace {

VSector* MakeSector(int mfm, uint8_t r, int length, int gap3) {
    auto* s = new VSector;
    s->mfm = mfm;
    s->idR = r;
    s->SetData(nullptr, length);
    s->gap3 = gap3;
    return s;
}

TEST(VSectorTest, NewSectorIsZeroed) {
    VSector s;
    EXPECT_EQ(s.mfm, 0);
    EXPECT_EQ(s.length, 0);
    EXPECT_EQ(s.data, nullptr);
    EXPECT_EQ(s.next, nullptr);
    EXPECT_EQ(s.status, 0);
    EXPECT_EQ(s.gap2, 0);
    EXPECT_EQ(s.gap3, 0);
    EXPECT_EQ(s.timeDev, 0);
}

TEST(VSectorTest, CalcGap3ClampsSizeCode) {
    struct Case {
        int mfm, n, gap3;
    };
    const Case cases[] = {{1, 0, 24},  {1, 1, 54}, {1, 2, 84}, {1, 3, 116}, {1, 7, 116},
                          {1, -4, 24}, {0, 0, 27}, {0, 1, 42}, {0, 2, 58},  {0, 3, 72},
                          {0, -1, 27}, {0, 9, 72}, {5, 2, 84}};
    VSector s;
    for (const Case& c : cases) {
        EXPECT_EQ(s.CalcGAP3(c.mfm, c.n), c.gap3) << "mfm " << c.mfm << " n " << c.n;
    }
}

TEST(VSectorTest, SetDataCopiesOrZeroesAndReplaces) {
    VSector s;
    const uint8_t src[3] = {1, 2, 3};
    s.SetData(src, 3);
    ASSERT_NE(s.data, nullptr);
    EXPECT_EQ(s.length, 3);
    EXPECT_EQ(std::vector<uint8_t>(s.data, s.data + 3), std::vector<uint8_t>({1, 2, 3}));
    s.SetData(nullptr, 5);
    EXPECT_EQ(s.length, 5);
    EXPECT_EQ(std::vector<uint8_t>(s.data, s.data + 5), std::vector<uint8_t>(5, 0));
    s.SetData(src, 0);
    EXPECT_EQ(s.length, 0);
    EXPECT_EQ(s.data, nullptr);
}

TEST(VTrackTest, AddSectorAppendsAndCountsByDensity) {
    VTrack t;
    t.AddSector(MakeSector(1, 1, 0, 0));
    t.AddSector(MakeSector(1, 2, 0, 0));
    VSector* fm = MakeSector(0, 3, 0, 0);
    fm->next = fm;  // a stale link must not survive adding
    t.AddSector(fm);
    EXPECT_EQ(t.mfmCount, 2);
    EXPECT_EQ(t.fmCount, 1);
    EXPECT_EQ(t.SectorCount(), 3);
    std::vector<int> order;
    for (VSector* s = t.sectors; s; s = s->next) order.push_back(s->idR);
    EXPECT_EQ(order, std::vector<int>({1, 2, 3}));
    EXPECT_EQ(t.GetLasttSector(), fm);
    t.Cleanup();
}

TEST(VTrackTest, GetSectorByIndex) {
    VTrack t;
    EXPECT_EQ(t.GetSectorByIndex(-5), nullptr);
    EXPECT_EQ(t.GetSectorByIndex(0), nullptr);
    EXPECT_EQ(t.GetSectorByIndex(3), nullptr);
    EXPECT_EQ(t.GetLasttSector(), nullptr);
    for (uint8_t r = 1; r <= 3; ++r) t.AddSector(MakeSector(1, r, 0, 0));
    struct Case {
        int index, r;
    };
    const Case cases[] = {{-5, 1}, {0, 1}, {1, 2}, {2, 3}, {3, 0}, {100, 0}};
    for (const Case& c : cases) {
        VSector* s = t.GetSectorByIndex(c.index);
        if (c.r == 0) {
            EXPECT_EQ(s, nullptr) << c.index;
        } else {
            ASSERT_NE(s, nullptr) << c.index;
            EXPECT_EQ(s->idR, c.r) << c.index;
        }
    }
}

TEST(VTrackTest, GetLength) {
    VTrack empty;
    EXPECT_EQ(empty.GetLength(), 0);

    VTrack fm;
    fm.AddSector(MakeSector(0, 1, 128, 27));
    EXPECT_EQ(fm.GetLength(), 31 + 128 + 2 + 27 + 106);

    VTrack mixed;
    mixed.AddSector(MakeSector(1, 1, 256, 54));
    mixed.AddSector(MakeSector(1, 2, 256, 54));
    mixed.AddSector(MakeSector(0, 3, 128, 27));
    EXPECT_EQ(mixed.GetLength(), 2 * (60 + 256 + 2 + 54) + (31 + 128 + 2 + 27) + 212);

    // 2HD, 8 x 1024: the 300/360 rpm split lies at 11000 bytes.
    VTrack hd;
    for (uint8_t r = 1; r <= 8; ++r) hd.AddSector(MakeSector(1, r, 1024, 116));
    EXPECT_EQ(hd.GetLength(), 8 * (60 + 1024 + 2 + 116) + 212);
}

TEST(VTrackTest, ClrSectorKeepsStreamCleanupClearsAll) {
    VTrack t;
    t.encLen = 16;
    t.encData = new unsigned char[2]{0x12, 0x34};
    t.flags = 0x4;
    t.gap1 = 50;
    t.AddSector(MakeSector(1, 1, 512, 84));
    t.AddSector(MakeSector(0, 2, 128, 27));
    t.ClrSector();
    EXPECT_EQ(t.sectors, nullptr);
    EXPECT_EQ(t.mfmCount, 0);
    EXPECT_EQ(t.fmCount, 0);
    EXPECT_EQ(t.encLen, 16);
    ASSERT_NE(t.encData, nullptr);
    EXPECT_EQ(t.flags, 0x4u);
    EXPECT_EQ(t.gap1, 50);

    t.AddSector(MakeSector(1, 1, 512, 84));
    t.iamPos = 10;
    t.Cleanup();
    EXPECT_EQ(t.sectors, nullptr);
    EXPECT_EQ(t.encData, nullptr);
    EXPECT_EQ(t.encLen, 0);
    EXPECT_EQ(t.flags, 0u);
    EXPECT_EQ(t.gap1, 0);
    EXPECT_EQ(t.iamPos, 0);
    EXPECT_EQ(t.mfmCount + t.fmCount, 0);
}

TEST(VTrackTest, GetEncDataReadsRoundTheEnd) {
    VTrack t;
    // 20 cells: 1011 0011 1000 1111 0101 (last nibble of the third byte unused).
    t.encLen = 20;
    t.encData = new unsigned char[3]{0xB3, 0x8F, 0x50};
    struct Case {
        int pos, value;
    };
    const Case cases[] = {
        {0, 0xB3},  {8, 0x8F},      {3, 0x9C},  // 1 0011 100
        {12, 0xF5},                             // last 8 cells, no wrap
        {17, 0xB6},                             // last 3 cells (101) then first 5 (10110)
        {-2, 0x6C},                             // cells 18,19 (01) then 0..5 (101100)
        {20, 0xB3}, {40 + 8, 0x8F}, {-20, 0xB3},
    };
    for (const Case& c : cases) EXPECT_EQ(t.GetEncData(c.pos), c.value) << c.pos;
    t.Cleanup();
}

TEST(VTrackTest, DestructorReleasesWithoutCleanup) {
    // Under the sanitizer build a leak here fails the run.
    auto t = std::make_unique<VTrack>();
    t->AddSector(MakeSector(1, 1, 512, 84));
    t->encData = new unsigned char[4]();
    t->encLen = 32;
}

}  // namespace
