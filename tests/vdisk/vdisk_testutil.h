// Helpers for the disk, plain, D68 and DIM tests on top of the shared image
// test helpers: file metadata and checks over a disk's tracks.
#pragma once

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

#include "formats_testutil.h"
#include "vdisk/vdisk.h"

namespace vdtest {

using namespace fmtest;

inline int64_t FileSize(const std::string& full) {
    struct stat st {};
    if (stat(full.c_str(), &st) != 0) return -1;
    return static_cast<int64_t>(st.st_size);
}

// Number of sectors in a slot, -1 for a null slot.
inline int Count(const VDisk& d, int c, int h) {
    const VTrack* t = d.Track(c, h);
    return t ? t->SectorCount() : -1;
}

inline std::vector<uint8_t> DataOf(const VSector* s) {
    if (!s || !s->data) return {};
    return std::vector<uint8_t>(s->data, s->data + s->length);
}

// Expects two disks to hold the same sectors, field by field, in the same order.
inline void ExpectSameSectors(const VDisk& a, const VDisk& b, int cyls) {
    for (int c = 0; c < cyls; c++)
        for (int h = 0; h < 2; h++) {
            const VTrack* ta = a.Track(c, h);
            const VTrack* tb = b.Track(c, h);
            const VSector* sa = ta ? ta->sectors : nullptr;
            const VSector* sb = tb ? tb->sectors : nullptr;
            int i = 0;
            for (; sa && sb; sa = sa->next, sb = sb->next, i++) {
                char where[48];
                std::snprintf(where, sizeof(where), "c%d h%d #%d", c, h, i);
                SCOPED_TRACE(where);
                EXPECT_EQ(sa->mfm != 0, sb->mfm != 0);
                EXPECT_EQ(sa->idC, sb->idC);
                EXPECT_EQ(sa->idH, sb->idH);
                EXPECT_EQ(sa->idR, sb->idR);
                EXPECT_EQ(sa->idN, sb->idN);
                EXPECT_EQ(sa->length, sb->length);
                EXPECT_EQ(sa->status, sb->status);
                EXPECT_EQ(DataOf(sa), DataOf(sb));
            }
            EXPECT_TRUE(sa == nullptr && sb == nullptr)
                << "sector lists differ in length at c" << c << " h" << h;
        }
}

}  // namespace vdtest
