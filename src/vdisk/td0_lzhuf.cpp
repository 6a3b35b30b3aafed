// The body of a 2.x Teledisk file with advanced compression: LZSS over a
// 4096-byte window, its literals and match lengths in one adaptive Huffman
// code and its match positions in a fixed code. The stream carries no length:
// it is read until its bits run out, and a symbol cut short by the end of the
// input is padding.
#include <algorithm>
#include <array>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "vdisk/td0_format.h"

namespace td0huf {

void Tree::Reset() {
    for (int i = 0; i < kSymbols; i++) {
        freq[i] = 1;
        son[i] = static_cast<uint16_t>(i + kNodes);
        parent[i + kNodes] = static_cast<uint16_t>(i);
    }
    for (int i = 0, j = kSymbols; j <= kRoot; i += 2, j++) {
        freq[j] = static_cast<uint16_t>(freq[i] + freq[i + 1]);
        son[j] = static_cast<uint16_t>(i);
        parent[i] = parent[i + 1] = static_cast<uint16_t>(j);
    }
    freq[kNodes] = 0xFFFF;  // stops the search for a node to swap with
    parent[kRoot] = 0;
}

void Tree::Rebuild() {
    // Leaves first, at half their counts, then the inner nodes inserted where
    // their counts keep the list in order.
    int j = 0;
    for (int i = 0; i < kNodes; i++) {
        if (son[i] < kNodes) continue;
        freq[j] = static_cast<uint16_t>((freq[i] + 1) / 2);
        son[j] = son[i];
        j++;
    }
    for (int i = 0, n = kSymbols; n < kNodes; i += 2, n++) {
        const uint16_t f = static_cast<uint16_t>(freq[i] + freq[i + 1]);
        int k = n - 1;
        while (f < freq[k]) k--;
        k++;
        std::copy_backward(freq + k, freq + n, freq + n + 1);
        freq[k] = f;
        std::copy_backward(son + k, son + n, son + n + 1);
        son[k] = static_cast<uint16_t>(i);
    }
    for (int i = 0; i < kNodes; i++) {
        const int k = son[i];
        parent[k] = static_cast<uint16_t>(i);
        if (k < kNodes) parent[k + 1] = static_cast<uint16_t>(i);
    }
}

void Tree::Update(int symbol) {
    if (freq[kRoot] == kMaxFreq) Rebuild();
    int c = parent[symbol + kNodes];
    do {
        const uint16_t k = ++freq[c];
        int l = c + 1;
        if (k > freq[l]) {
            // Swap with the last node of a lower count, so the counts stay in order.
            while (k > freq[++l]) {
            }
            l--;
            freq[c] = freq[l];
            freq[l] = k;
            const int i = son[c];
            parent[i] = static_cast<uint16_t>(l);
            if (i < kNodes) parent[i + 1] = static_cast<uint16_t>(l);
            const int j = son[l];
            son[l] = static_cast<uint16_t>(i);
            parent[j] = static_cast<uint16_t>(c);
            if (j < kNodes) parent[j + 1] = static_cast<uint16_t>(c);
            son[c] = static_cast<uint16_t>(j);
            c = l;
        }
        c = parent[c];
    } while (c != 0);
}

}  // namespace td0huf

namespace {

using namespace td0huf;

// The upper 6 bits of a position and the length of their code, by the first
// 8 bits of the stream.
struct PositionTable {
    std::array<uint8_t, 256> upper{};
    std::array<uint8_t, 256> bits{};
    constexpr PositionTable() {
        for (int u = 0; u < 64; u++)
            for (int b = PositionCode(u); b < PositionCode(u + 1); b++) {
                upper[static_cast<size_t>(b)] = static_cast<uint8_t>(u);
                bits[static_cast<size_t>(b)] = static_cast<uint8_t>(PositionBits(u));
            }
    }
};
constexpr PositionTable kPositions;

// Most significant bit first.
class BitReader {
public:
    BitReader(const uint8_t* p, size_t n) : p_(p), n_(n) {}
    // Makes k (at most 16) bits ready; false when the input ends first.
    bool Need(int k) {
        while (count_ < k) {
            if (next_ >= n_) return false;
            acc_ = (acc_ << 8) | p_[next_++];
            count_ += 8;
        }
        return true;
    }
    int Take(int k) {
        count_ -= k;
        return static_cast<int>((acc_ >> count_) & ((1u << k) - 1));
    }

private:
    const uint8_t* p_;
    size_t n_;
    size_t next_ = 0;
    uint32_t acc_ = 0;
    int count_ = 0;
};

}  // namespace

bool Td0ExpandLzhuf(const uint8_t* in, size_t size, size_t limit, std::vector<uint8_t>* out,
                    std::string* why) {
    auto tree = std::make_unique<Tree>();
    uint8_t ring[kRing];
    std::fill(ring, ring + kRing, ' ');
    int r = kRing - kLookAhead;
    BitReader bits(in, size);
    for (;;) {
        int node = tree->son[kRoot];
        while (node < kNodes) {
            if (!bits.Need(1)) return true;
            node = tree->son[node + bits.Take(1)];
        }
        const int symbol = node - kNodes;
        tree->Update(symbol);
        if (symbol < 256) {
            if (out->size() >= limit) break;
            out->push_back(static_cast<uint8_t>(symbol));
            ring[r] = static_cast<uint8_t>(symbol);
            r = (r + 1) & (kRing - 1);
            continue;
        }
        if (!bits.Need(8)) return true;
        int code = bits.Take(8);
        const int upper = kPositions.upper[static_cast<size_t>(code)];
        const int extra = kPositions.bits[static_cast<size_t>(code)] - 2;
        if (!bits.Need(extra)) return true;
        code = (code << extra) | bits.Take(extra);
        const int from = r - ((upper << 6) | (code & 0x3F)) - 1;
        const int length = symbol - 255 + kThreshold;
        if (out->size() + static_cast<size_t>(length) > limit) break;
        for (int k = 0; k < length; k++) {
            const uint8_t b = ring[(from + k) & (kRing - 1)];
            out->push_back(b);
            ring[r] = b;
            r = (r + 1) & (kRing - 1);
        }
    }
    *why = "expands past " + std::to_string(limit) + " bytes";
    return false;
}
