// Streams of no bits, as an unformatted track has: every function of the signal layer gives a
// defined result, touches nothing it was not given and divides by nothing.
#include <gtest/gtest.h>

#include <functional>
#include <vector>

#include "signal/alignraw.h"
#include "signal/bitstream.h"
#include "signal/posmap.h"
#include "signal/rawconv.h"

namespace {

const uchar kMark[16] = {0xAA, 0xAA, 0xAA, 0xAA, 0xAA, 0xAA, 0xAA, 0xAA,
                         0xAA, 0xAA, 0x44, 0x89, 0x44, 0x89, 0x44, 0x89};

// Each call gets a 64-byte buffer of 0xA5 and an empty stream: {what, call, result, whether it
// zeroes the first 8 bytes it was given as capacity (an output of 64 bits), the rest untouched}.
const std::tuple<const char*, std::function<int(uchar*)>, int, bool> kCalls[] = {
    {"Raw2Encode", [](uchar* b) { return Raw2Encode(b, 0, b, 64); }, 0, true},
    {"Encode2Raw", [](uchar* b) { return Encode2Raw(b, 0, b, 64); }, 0, true},
    {"StrechRaw", [](uchar* b) { return StrechRaw(b, 0, 0); }, 0, false},
    {"AlignRaw", [](uchar* b) { return AlignRaw(b, 0); }, 0, false},
    {"BfFind of a mark", [](uchar* b) { return BfFind(b, 0, 0, 0, kMark, 128); }, -1, false},
    {"BfFind of 12 bits", [](uchar* b) { return BfFind(b, 0, 0, 64, kMark, 12); }, -1, false},
    {"BfGetLong", [](uchar* b) { return static_cast<int>(BfGetLong(b, 0, 5)); }, 0, false},
    {"BfGetBit", [](uchar* b) { return BfGetBit(b, 0, 7); }, 0, false},
    {"BfSetBit", [](uchar* b) { return BfSetBit(b, 0, 3), 0; }, 0, false},
    {"BfFold", [](uchar*) { return BfFold(-9, 0); }, 0, false},
    {"Enc2RawPosMulti",
     [](uchar* b) {  // the positions left as they were
         int pos[2] = {5, 9};
         const int n = Enc2RawPosMulti(b, 0, pos, 2);
         return pos[0] == 5 && pos[1] == 9 ? n : -99;
     },
     0, false},
};

TEST(EmptyStream, EverySignalFunctionHasADefinedResult) {
    for (const auto& [what, call, want, cleared] : kCalls) {
        std::vector<uchar> buf(64, 0xA5);
        EXPECT_EQ(call(buf.data()), want) << what;
        for (size_t i = 0; i < buf.size(); i++)
            ASSERT_EQ(buf[i], cleared && i < 8 ? 0 : 0xA5) << what << i;
    }
}

}  // namespace
