// The body of a 1.x Teledisk file with advanced compression: blocks of LZW
// codes, each starting with a fresh dictionary. A block is a 16-bit count of
// the half-bytes its codes take (three a code), then the 12-bit codes, low
// bits first, two to every three bytes. Codes 0..255 are the bytes; each code
// after a block's first adds the previous string plus the first byte of its
// own to the dictionary, until the dictionary holds 4096 entries.
#include <cstdint>
#include <string>
#include <vector>

#include "vdisk/td0_format.h"

namespace {

constexpr int kDictionary = 4096;
constexpr int kMaxBlockCodes = 4096;

struct Dictionary {
    uint16_t prefix[kDictionary];
    uint8_t last[kDictionary];
    uint16_t length[kDictionary];
};

}  // namespace

bool Td0ExpandLzw(const uint8_t* in, size_t size, size_t limit, std::vector<uint8_t>* out,
                  std::string* why) {
    Dictionary dict{};
    for (int i = 0; i < 256; i++) {
        dict.last[i] = static_cast<uint8_t>(i);
        dict.length[i] = 1;
    }
    auto fail = [&](int block, const std::string& text) {
        *why = "block " + std::to_string(block) + ": " + text;
        return false;
    };
    size_t at = 0;
    for (int block = 1; at < size; block++) {
        if (size - at < 2) return fail(block, "its header is cut short");
        const int halves = in[at] | (in[at + 1] << 8);
        at += 2;
        const int codes = halves / 3;
        if (halves % 3 != 0 || codes > kMaxBlockCodes)
            return fail(block, std::to_string(halves) +
                                   " half-bytes of codes, not a whole number of codes up to 4096");
        const size_t bytes = static_cast<size_t>(halves + 1) / 2;
        if (bytes > size - at)
            return fail(block, std::to_string(bytes) + " bytes of codes but " +
                                   std::to_string(size - at) + " left in the file");
        const uint8_t* p = in + at;
        at += bytes;

        int next = 256;
        int prev = -1;
        for (int i = 0; i < codes; i++) {
            const size_t bit = static_cast<size_t>(i) * 12;
            const int pair = p[bit / 8] | (p[bit / 8 + 1] << 8);
            const int code = (pair >> (bit & 7)) & 0xFFF;
            // A code one past the dictionary is the previous string and its
            // own first byte.
            const bool repeat = code == next && prev >= 0;
            if (code >= next && !repeat)
                return fail(block, "code " + std::to_string(code) + " before it is defined");
            const int emit = repeat ? prev : code;
            const size_t length = dict.length[emit] + (repeat ? 1u : 0u);
            const size_t start = out->size();
            if (length > limit || start > limit - length) {
                *why = "expands past " + std::to_string(limit) + " bytes";
                return false;
            }
            out->resize(start + length);
            uint8_t* dst = out->data() + start;
            int k = dict.length[emit] - 1;
            for (int e = emit; k >= 0; e = dict.prefix[e]) dst[k--] = dict.last[e];
            if (repeat) dst[length - 1] = dst[0];
            if (prev >= 0 && next < kDictionary) {
                dict.prefix[next] = static_cast<uint16_t>(prev);
                dict.last[next] = dst[0];
                dict.length[next] = static_cast<uint16_t>(dict.length[prev] + 1);
                next++;
            }
            prev = code;
        }
    }
    return true;
}
