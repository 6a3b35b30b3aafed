// Teledisk images built from a description: the header, an optional comment,
// tracks of sectors whose data are stored raw, as a 2-byte pattern or
// run-length coded, and both compressed forms of the body. The tests and the
// fuzz seeds of the reader make their files with it.
#pragma once

#include <algorithm>
#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "fileio/fieldio.h"
#include "vdisk/td0_format.h"

namespace td0synth {

using Bytes = std::vector<uint8_t>;

struct Sector {
    int c = 0, h = 0, r = 1, n = 2, flags = 0;
    Bytes data;        // stored unless the flags say the sector has none
    int encoding = 0;  // td0blk::kRaw, kPattern or kRunLength
    Bytes block;       // when not empty: the encoding byte and payload as they are
};
struct Track {
    int c = 0, head = 0;  // head with bit 7 for FM
    std::vector<Sector> sectors;
};
enum Compression { kNormal, kLzw, kLzhuf };
struct Image {
    int rate = 0;  // the header's rate byte, FM bit included
    int sides = 2;
    bool hasComment = false;
    std::string comment;
    std::vector<Track> tracks;
};

inline void Le16(Bytes& b, size_t v) {
    b.push_back(static_cast<uint8_t>(v));
    b.push_back(static_cast<uint8_t>(v >> 8));
}

// Run-length chunks: runs of 1 to 3 repeated 2-byte words (kinds 1 to 3)
// where they repeat, literal runs elsewhere.
inline Bytes RunLength(const Bytes& d) {
    Bytes out, lit;
    auto flush = [&] {
        for (size_t i = 0; i < lit.size(); i += 255) {
            const size_t n = std::min<size_t>(255, lit.size() - i);
            out.push_back(td0blk::kLiteral);
            out.push_back(static_cast<uint8_t>(n));
            out.insert(out.end(), lit.begin() + static_cast<long>(i),
                       lit.begin() + static_cast<long>(i + n));
        }
        lit.clear();
    };
    size_t i = 0;
    while (i < d.size()) {
        size_t bestUnit = 0, bestReps = 0;
        for (size_t unit = 2; unit <= 6; unit += 2) {
            size_t reps = 1;
            while (reps < 255 && i + (reps + 1) * unit <= d.size() &&
                   std::equal(d.begin() + static_cast<long>(i),
                              d.begin() + static_cast<long>(i + unit),
                              d.begin() + static_cast<long>(i + reps * unit)))
                reps++;
            if (reps >= 3 && reps * unit > bestReps * bestUnit) bestUnit = unit, bestReps = reps;
        }
        if (!bestUnit) {
            lit.push_back(d[i++]);
            continue;
        }
        flush();
        out.push_back(static_cast<uint8_t>(bestUnit / 2));
        out.push_back(static_cast<uint8_t>(bestReps));
        out.insert(out.end(), d.begin() + static_cast<long>(i),
                   d.begin() + static_cast<long>(i + bestUnit));
        i += bestUnit * bestReps;
    }
    flush();
    return out;
}

inline Bytes Body(const Image& img) {
    Bytes b;
    if (img.hasComment) {
        Bytes cmt(td0cmt::kSize, 0);
        FieldWriter w(cmt.data(), cmt.size());
        w.U16(td0cmt::kLength, img.comment.size());
        w.Bytes(td0cmt::kYear, "\x7E\x01\x17\x02\x33\x05", 6);
        cmt.insert(cmt.end(), img.comment.begin(), img.comment.end());
        FieldWriter(cmt.data(), cmt.size())
            .U16(td0cmt::kCrc, Td0Crc(cmt.data() + 2, cmt.size() - 2));
        b.insert(b.end(), cmt.begin(), cmt.end());
    }
    for (const Track& t : img.tracks) {
        const uint8_t th[3] = {static_cast<uint8_t>(t.sectors.size()), static_cast<uint8_t>(t.c),
                               static_cast<uint8_t>(t.head)};
        b.insert(b.end(), th, th + 3);
        b.push_back(static_cast<uint8_t>(Td0Crc(th, 3)));
        for (const Sector& s : t.sectors) {
            const uint8_t id[5] = {static_cast<uint8_t>(s.c), static_cast<uint8_t>(s.h),
                                   static_cast<uint8_t>(s.r), static_cast<uint8_t>(s.n),
                                   static_cast<uint8_t>(s.flags)};
            b.insert(b.end(), id, id + 5);
            b.push_back(static_cast<uint8_t>(Td0Crc(s.data.data(), s.data.size())));
            if (s.flags & td0sec::kNoDataBlock) continue;
            Bytes blk = s.block;
            if (blk.empty()) {
                blk.push_back(static_cast<uint8_t>(s.encoding));
                if (s.encoding == td0blk::kPattern) {
                    Le16(blk, s.data.size() / 2);
                    blk.insert(blk.end(), s.data.begin(), s.data.begin() + 2);
                } else {
                    const Bytes p = s.encoding == td0blk::kRaw ? s.data : RunLength(s.data);
                    blk.insert(blk.end(), p.begin(), p.end());
                }
            }
            Le16(b, blk.size());
            b.insert(b.end(), blk.begin(), blk.end());
        }
    }
    b.insert(b.end(), {td0trk::kEnd, 0, 0, 0});
    return b;
}

// LZW codes of the 1.x compression, a fresh dictionary every 4096 codes.
inline Bytes Lzw(const Bytes& in) {
    Bytes out;
    size_t i = 0;
    while (i < in.size()) {
        std::map<std::pair<int, uint8_t>, int> dict;
        std::vector<int> codes;
        int next = 256, w = in[i++];
        while (i < in.size() && codes.size() < 4095) {
            const auto it = dict.find({w, in[i]});
            if (it != dict.end()) {
                w = it->second, i++;
                continue;
            }
            codes.push_back(w);
            if (next < 4096) dict[{w, in[i]}] = next++;
            w = in[i++];
        }
        codes.push_back(w);
        Le16(out, codes.size() * 3);
        Bytes blk((codes.size() * 3 + 1) / 2 + 1, 0);
        for (size_t k = 0; k < codes.size(); k++) {
            const size_t bit = k * 12;
            blk[bit / 8] |= static_cast<uint8_t>(codes[k] << (bit & 7));
            blk[bit / 8 + 1] |= static_cast<uint8_t>(codes[k] >> (8 - (bit & 7)));
        }
        out.insert(out.end(), blk.begin(), blk.end() - 1);
    }
    return out;
}

// LZSS with the adaptive Huffman code of the 2.x compression; matches are
// looked for up to 512 bytes back.
inline Bytes Lzhuf(const Bytes& in) {
    using namespace td0huf;
    Bytes out;
    uint32_t acc = 0;
    int count = 0;
    auto put = [&](uint32_t code, int bits) {
        for (int k = bits - 1; k >= 0; k--) {
            acc = (acc << 1) | ((code >> k) & 1);
            if (++count == 8) out.push_back(static_cast<uint8_t>(acc)), count = 0, acc = 0;
        }
    };
    auto tree = std::make_unique<Tree>();
    auto symbol = [&](int s) {
        std::vector<int> path;
        for (int k = tree->parent[s + kNodes]; k != kRoot; k = tree->parent[k])
            path.push_back(k & 1);
        for (size_t k = path.size(); k-- > 0;) put(static_cast<uint32_t>(path[k]), 1);
        tree->Update(s);
    };
    const size_t pre = kRing - kLookAhead;  // the window starts as spaces
    Bytes v(pre, ' ');
    v.insert(v.end(), in.begin(), in.end());
    for (size_t j = pre; j < v.size();) {
        size_t best = 0, dist = 0;
        for (size_t d = 1; d <= 512 && best < kLookAhead; d++) {
            size_t len = 0;
            while (len < kLookAhead && j + len < v.size() && v[j + len] == v[j + len - d]) len++;
            if (len > best) best = len, dist = d;
        }
        if (best <= kThreshold) {
            symbol(v[j++]);
            continue;
        }
        symbol(static_cast<int>(255 - kThreshold + best));
        const int pos = static_cast<int>(dist - 1), upper = pos >> 6;
        put(static_cast<uint32_t>(PositionCode(upper) >> (8 - PositionBits(upper))),
            PositionBits(upper));
        put(static_cast<uint32_t>(pos & 0x3F), 6);
        j += best;
    }
    if (count) put(0, 8 - count);
    return out;
}

inline Bytes File(const Image& img, Compression how = kNormal) {
    Bytes f(td0hdr::kSize, 0);
    FieldWriter w(f.data(), f.size());
    w.Bytes(td0hdr::kSignature, how == kNormal ? "TD" : "td", 2);
    w.U8(td0hdr::kVersion, how == kLzw ? 11 : 21);
    w.U8(td0hdr::kRate, static_cast<uint32_t>(img.rate));
    w.U8(td0hdr::kStepping, img.hasComment ? td0hdr::kHasComment : 0);
    w.U8(td0hdr::kSides, static_cast<uint32_t>(img.sides));
    w.U16(td0hdr::kCrc, Td0Crc(f.data(), td0hdr::kCrc));
    const Bytes body = Body(img);
    const Bytes packed = how == kNormal ? body : how == kLzw ? Lzw(body) : Lzhuf(body);
    f.insert(f.end(), packed.begin(), packed.end());
    return f;
}

}  // namespace td0synth
