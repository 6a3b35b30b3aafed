// HFE version 3 opcode streams turned into plain cells.
#include "zebdisk/zebhfe3.h"

#include <cstring>

#include "vdisk/imagecommon.h"

namespace hfe3 {
namespace {

// Appends cells, first cell in the top bit, never past its capacity. The
// cells after the write position in its byte are always clear.
class CellSink {
public:
    CellSink(uint8_t* p, size_t cap) : p_(p), capBits_(static_cast<int64_t>(cap) * 8) {}
    int64_t Pos() const { return pos_; }

    // The top k cells of v.
    void Bits(unsigned v, int k) {
        if (k <= 0 || pos_ + k > capBits_) return;
        v &= (0xFF00u >> k) & 0xFFu;
        const size_t b = static_cast<size_t>(pos_ >> 3);
        const int s = static_cast<int>(pos_ & 7);
        if (s == 0) {
            p_[b] = static_cast<uint8_t>(v);
        } else {
            p_[b] = static_cast<uint8_t>(p_[b] | (v >> s));
            if (s + k > 8) p_[b + 1] = static_cast<uint8_t>(v << (8 - s));
        }
        pos_ += k;
    }

    // n whole bytes of cells: one copy while the position is byte-aligned,
    // as it is until a skipped-bits opcode moves it.
    void Bytes(const uint8_t* src, size_t n) {
        const int64_t room = (capBits_ - pos_) / 8;
        if (static_cast<int64_t>(n) > room) n = static_cast<size_t>(room);
        if (n == 0) return;
        uint8_t* d = p_ + (pos_ >> 3);
        const int s = static_cast<int>(pos_ & 7);
        if (s == 0) {
            std::memcpy(d, src, n);
        } else {
            for (size_t i = 0; i < n; i++) {
                d[i] = static_cast<uint8_t>(d[i] | (src[i] >> s));
                d[i + 1] = static_cast<uint8_t>(src[i] << (8 - s));
            }
        }
        pos_ += static_cast<int64_t>(n) * 8;
    }

private:
    uint8_t* p_;
    int64_t capBits_;
    int64_t pos_ = 0;
};

// True when one of the eight bytes of v has its top four bits set: only such
// bytes can be opcodes.
inline bool MayHoldOpcode(uint64_t v) {
    return (v & (v << 1) & (v << 2) & (v << 3) & 0x8080808080808080ull) != 0;
}

const Opcode* Find(uint8_t b) {
    for (const Opcode& op : kOpcodes)
        if (op.code == b) return &op;
    return nullptr;
}

}  // namespace

Side DecodeSide(const uint8_t* in, size_t n, uint8_t* out, size_t cap, int rateCode) {
    Side side;
    CellSink sink(out, cap);
    size_t run = 0;  // first byte of cells not yet written
    size_t i = 0;
    while (i < n) {
        // Cells go eight bytes a step until a byte may be an opcode.
        uint64_t v;
        while (i + 8 <= n && (std::memcpy(&v, in + i, 8), !MayHoldOpcode(v))) i += 8;
        const size_t stop = i + 8 <= n ? i + 8 : n;
        const Opcode* op = nullptr;
        for (; i < stop && !(op = Find(in[i])); i++) {
        }
        if (!op) continue;
        if (op->argBytes > n - i - 1) {
            side.error = "opcode " + HexByte(op->code) + " (" + op->name + ") at byte " +
                         std::to_string(i) + " is cut off by the end of the side's " +
                         std::to_string(n) + " bytes";
            return side;
        }
        sink.Bytes(in + run, i - run);
        const uint8_t* arg = in + i + 1;
        switch (op->code) {
            case kSetIndex:
                if (side.index < 0) side.index = sink.Pos();
                break;
            case kSetBitRate:
                if (arg[0] != rateCode && side.otherRate < 0) side.otherRate = arg[0];
                break;
            case kSkipBits:
                if (arg[0] > 8) {
                    side.error = "opcode " + HexByte(op->code) + " (" + op->name + ") at byte " +
                                 std::to_string(i) + " skips " + std::to_string(arg[0]) +
                                 " cells of a byte of 8";
                    return side;
                }
                sink.Bits(static_cast<unsigned>(arg[1]) << arg[0], 8 - arg[0]);
                break;
            case kRand:
                sink.Bits(0, 8);
                side.weakCells += 8;
                break;
            default:  // no-op
                break;
        }
        i += 1 + op->argBytes;
        run = i;
    }
    sink.Bytes(in + run, n - run);
    side.cells = sink.Pos();
    return side;
}

void RotateCells(const uint8_t* src, int64_t cells, int64_t index, uint8_t* dst) {
    const size_t bytes = static_cast<size_t>((cells + 7) / 8);
    if (index <= 0 || index >= cells) {
        std::memcpy(dst, src, bytes);
        if (cells & 7) dst[bytes - 1] &= static_cast<uint8_t>(0xFF00 >> (cells & 7));
        return;
    }
    CellSink sink(dst, bytes);
    // Eight cells from bit p of src: src holds a byte past the last cell.
    auto at = [&](int64_t p) {
        const size_t b = static_cast<size_t>(p >> 3);
        const int s = static_cast<int>(p & 7);
        return s ? static_cast<unsigned>(((src[b] << s) | (src[b + 1] >> (8 - s))) & 0xFF) : src[b];
    };
    auto copy = [&](int64_t from, int64_t count) {
        for (; count >= 8; from += 8, count -= 8) sink.Bits(at(from), 8);
        if (count > 0) sink.Bits(at(from), static_cast<int>(count));
    };
    copy(index, cells - index);
    copy(0, index);
}

std::string Summarize(const std::vector<Side>& sides, int bitRate, Report& report) {
    auto name = [](size_t t) {
        return TrackLabel(static_cast<int>(t / 2), static_cast<int>(t % 2));
    };
    int rated = 0, weak = 0;
    size_t firstRated = 0, firstWeak = 0;
    int64_t weakCells = 0;
    for (size_t t = 0; t < sides.size(); t++) {
        const Side& s = sides[t];
        if (!s.error.empty()) return name(t) + ": " + s.error;
        if (s.otherRate >= 0 && rated++ == 0) firstRated = t;
        if (s.weakCells > 0 && weak++ == 0) firstWeak = t;
        weakCells += s.weakCells;
    }
    // A track record holds cells at the disk's one rate, and fixed ones.
    if (rated > 0) {
        const int to = sides[firstRated].otherRate;
        report.Warn(Counted(rated, "track switches", "tracks switch") + " from the file's " +
                    std::to_string(bitRate) + " kbit/s to another bit rate, which a track " +
                    "cannot hold here, and " + (rated == 1 ? "was" : "were") +
                    " kept at one rate (first: " + name(firstRated) + ", " +
                    (to ? std::to_string(RateKbps(to)) + " kbit/s" : "rate byte 0") + ")");
    }
    if (weak > 0)
        report.Warn(Counted(weak, "track holds", "tracks hold") + " " + std::to_string(weakCells) +
                    " random (weak) cells in all, which a track " +
                    "cannot hold here; they were written as cells without flux (first: " +
                    name(firstWeak) + ")");
    return "";
}

}  // namespace hfe3
