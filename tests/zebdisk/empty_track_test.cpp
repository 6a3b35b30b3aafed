// A disk whose tracks hold no bits (unformatted) goes through every operation
// that takes a track: analysis, both conversions and every writer. Empty tracks
// stay empty, decode to no sectors, and are written as absent or refused by
// formats that need sectors.
#include <gtest/gtest.h>

#include <string>
#include <tuple>

#include "zebdisk/zebdisk.h"
#include "zebdisk/zebdisk_file_builder.h"

using namespace zebtest;

namespace {

// 2DD, 84 cylinders; every track of no bits.
void EmptyDisk(ZEBDisk& d) {
    ASSERT_TRUE(d.Init(ZEB_2DD, 0, 0, 0));
    for (int slot = 0; slot < ZEBDisk::kSlots; slot++) d.SetRecordInt(slot, zebrec::kBitLength, 0);
}

void ExpectAllEmpty(ZEBDisk& d, const char* stage) {
    SCOPED_TRACE(stage);
    for (int c = 0; c < d.Cylinders(); c++) {
        for (int h = 0; h < d.Heads(); h++) {
            ASSERT_EQ(d.GetTrackLen(c, h), 0) << c << "." << h;
            const auto t = d.Analyze(c, h, c % 2);
            ASSERT_NE(t, nullptr);
            EXPECT_EQ(std::tuple(t->SectorCount(), t->flags), std::tuple(0, TRK_UNFORMATTED));
        }
    }
}

TEST(EmptyTracks, StayEmptyThroughBothConversions) {
    ZEBDisk d;
    EmptyDisk(d);
    ExpectAllEmpty(d, "cells");
    ASSERT_TRUE(d.ConvertRaw());
    ExpectAllEmpty(d, "raw");
    ASSERT_TRUE(d.ConvertEnc());
    ExpectAllEmpty(d, "cells again");
}

// {file, written, its size (0: not checked)}
TEST(EmptyTracks, WrittenAsAbsentOrRefused) {
    const std::tuple<const char*, bool, size_t> cases[] = {
        {"et.d88", true, 688},  {"et.fdd", true, 50172}, {"et.nfd", true, 68112},
        {"et.hfe", true, 1024}, {"et.zeb", true, 0},     {"et.hdm", false, 0},
        {"et.2hq", false, 0},   {"et.2dd", false, 0},    {"et.2d", false, 0},
        {"et.dim", false, 0},   {"et.fdi", false, 0},
    };
    for (const auto& [file, written, size] : cases) {
        SCOPED_TRACE(file);
        ZEBDisk d;
        EmptyDisk(d);
        std::remove(file);
        const bool zeb = std::string(file).ends_with(".zeb");
        EXPECT_EQ(zeb ? d.Save(PathOf(file), 1) : d.Export(PathOf(file), 0), written);
        EXPECT_EQ(d.report.error.empty(), written) << d.report.error;
        const Bytes out = Slurp(file);
        EXPECT_EQ(out.empty(), !written);
        if (size) {
            EXPECT_EQ(out.size(), size);
        }
        if (!zeb || !written) continue;
        ZEBDisk back;  // a saved disk reads back with its tracks still empty
        ASSERT_TRUE(back.Load(PathOf(file), 0)) << back.report.error;
        ExpectAllEmpty(back, "saved");
    }
}

}  // namespace
