// KryoFlux stream sets: one file a track side, trackNN.S.raw, in one folder.
// A stream is a byte code sequence of flux values with out-of-band blocks for
// the index pulses, the device's clocks and the end of the stream.
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "fileio/fieldio.h"
#include "fileio/fileio.h"
#include "zebdisk/fluxcapture.h"
#include "zebdisk/trackpool.h"
#include "zebdisk/zebdisk.h"

namespace {

// Byte codes of the stream.
namespace kfcode {
constexpr uint8_t kFlux2Last = 0x07;  // 0x00-0x07: code x 256 + next byte
constexpr uint8_t kNop1 = 0x08;
constexpr uint8_t kNop2 = 0x09;
constexpr uint8_t kNop3 = 0x0A;
constexpr uint8_t kOvl16 = 0x0B;  // adds 65536 to the next flux
constexpr uint8_t kFlux3 = 0x0C;  // next two bytes, big-endian
constexpr uint8_t kOob = 0x0D;
// 0x0E-0xFF: Flux1, the value is the code
}  // namespace kfcode

// Out-of-band block: the code, a type byte, a 16-bit size, the payload.
namespace kfoob {
constexpr size_t kType = 1;
constexpr size_t kSize = 2;
constexpr size_t kHeader = 4;
constexpr uint8_t kStreamInfo = 1;
constexpr uint8_t kIndex = 2;
constexpr uint8_t kStreamEnd = 3;
constexpr uint8_t kInfo = 4;
constexpr uint8_t kEof = 0x0D;
}  // namespace kfoob

// Payloads.
namespace kfinfo {
constexpr size_t kStreamPos = 0;
constexpr size_t kSize = 8;
}  // namespace kfinfo
namespace kfindex {
constexpr size_t kStreamPos = 0;
constexpr size_t kSampleCounter = 4;
constexpr size_t kSize = 12;  // the index counter follows at 8
}  // namespace kfindex
namespace kfend {
constexpr size_t kStreamPos = 0;
constexpr size_t kResult = 4;
constexpr size_t kSize = 8;
}  // namespace kfend

// 18,432,000 x 73 / 14 / 2 Hz unless the stream names its own clock.
constexpr double kDefaultSampleClock = 18432000.0 * 73.0 / 14.0 / 2.0;
// A stream file is a few revolutions of one track; anything far larger is not one.
constexpr int64_t kMaxStreamFile = 8 << 20;
// More revolutions than this add nothing but time.
constexpr size_t kMaxRevolutions = 16;

struct IndexMark {
    uint32_t streamPos;
    uint32_t sampleCounter;
};

struct Stream {
    std::vector<uint32_t> flux;
    std::vector<IndexMark> indexes;
    // Where each index fell: the flux it fell in (the flux count when after the
    // last) and the clock units from that flux's start.
    struct At {
        size_t flux;
        uint64_t within;
    };
    std::vector<At> indexAt;
    double sampleClock = kDefaultSampleClock;
    bool ended = false;        // an end-of-file block was met
    bool cut = false;          // the bytes stopped inside a code or block
    bool posMismatch = false;  // a block's stream position disagrees with the data
    uint32_t result = 0;       // the stream end block's result code
};

// The value of `name=` in a KF info text, as a clock in Hz; 0 when absent or unusable.
double InfoClock(const std::string& text, const char* name) {
    const size_t at = text.find(name);
    if (at == std::string::npos) return 0;
    const std::string rest = text.substr(at + std::strlen(name), 32);
    char* end = nullptr;
    const double v = std::strtod(rest.c_str(), &end);
    return end != rest.c_str() && v > 1e6 && v < 1e9 ? v : 0;
}

void ParseOob(Stream& s, uint8_t type, const uint8_t* payload, size_t size, uint32_t pos) {
    FieldReader p(payload, size);
    switch (type) {
        case kfoob::kStreamInfo:
            if (size >= kfinfo::kSize && p.U32(kfinfo::kStreamPos) != pos) s.posMismatch = true;
            break;
        case kfoob::kIndex:
            if (size >= kfindex::kSize)
                s.indexes.push_back({p.U32(kfindex::kStreamPos), p.U32(kfindex::kSampleCounter)});
            break;
        case kfoob::kStreamEnd:
            if (size >= kfend::kSize) {
                if (p.U32(kfend::kStreamPos) != pos) s.posMismatch = true;
                s.result = p.U32(kfend::kResult);
            }
            break;
        case kfoob::kInfo: {
            const std::string text(reinterpret_cast<const char*>(payload),
                                   strnlen(reinterpret_cast<const char*>(payload), size));
            if (const double sck = InfoClock(text, "sck=")) s.sampleClock = sck;
            break;
        }
        default:
            break;
    }
}

// Walks the codes of a stream: flux(value, position of its code, overflows
// before it) for every flux, oob(type, payload, size, position) for every
// block. Returns the bytes walked: less than the stream when it stops inside a
// code or a block, or at an end-of-file block.
template <class OnFlux, class OnOob>
size_t Walk(const uint8_t* b, size_t n, OnFlux&& flux, OnOob&& oob) {
    uint32_t pos = 0;  // bytes outside out-of-band blocks
    uint32_t overflow = 0;
    size_t i = 0;
    constexpr uint64_t kOnes = 0x0101010101010101ULL;
    while (i < n) {
        // Eight Flux1 codes in a row, the usual case, go in one step: no byte
        // of the word is below the first Flux1 code.
        if (n - i >= 8) {
            uint64_t w;
            std::memcpy(&w, b + i, 8);
            if (!((w - kOnes * (kfcode::kOob + 1)) & ~w & (kOnes * 0x80))) {
                flux(b[i], pos, overflow);
                overflow = 0;
                for (uint32_t k = 1; k < 8; k++) flux(b[i + k], pos + k, 0);
                i += 8;
                pos += 8;
                continue;
            }
        }
        const uint8_t c = b[i];
        size_t len;
        if (c >= kfcode::kOob + 1) {  // Flux1, by far the most common
            len = 1;
            flux(c, pos, overflow);
            overflow = 0;
        } else if (c <= kfcode::kFlux2Last) {
            len = 2;
            if (i + len > n) break;
            flux((uint32_t{c} << 8) | b[i + 1], pos, overflow);
            overflow = 0;
        } else if (c == kfcode::kNop1 || c == kfcode::kNop2 || c == kfcode::kNop3) {
            len = size_t{c} - kfcode::kNop1 + 1;
            if (i + len > n) break;
        } else if (c == kfcode::kOvl16) {
            len = 1;
            overflow++;
        } else if (c == kfcode::kFlux3) {
            len = 3;
            if (i + len > n) break;
            flux((uint32_t{b[i + 1]} << 8) | b[i + 2], pos, overflow);
            overflow = 0;
        } else {  // kOob
            if (i + kfoob::kHeader > n) break;
            const uint8_t type = b[i + kfoob::kType];
            if (type == kfoob::kEof) {
                oob(type, nullptr, 0, pos);
                return i;
            }
            const size_t size = b[i + kfoob::kSize] | (size_t{b[i + kfoob::kSize + 1]} << 8);
            if (i + kfoob::kHeader + size > n) break;
            oob(type, b + i + kfoob::kHeader, size, pos);
            i += kfoob::kHeader + size;
            continue;  // outside the stream positions
        }
        i += len;
        pos += static_cast<uint32_t>(len);
    }
    return i;
}

// The second pass of Parse: stores every flux and notes where each index
// falls. Its state is its own, so the loop keeps it in registers.
struct StoreFlux {
    uint32_t* out;
    const std::vector<IndexMark>* idx;
    std::vector<Stream::At>* at;
    size_t k = 0;                   // fluxes stored
    size_t next = 0;                // the next index to place
    uint64_t nextPos = UINT64_MAX;  // and its stream position

    void operator()(uint32_t v, uint32_t pos, uint32_t ovl) {
        const uint64_t value = v + (uint64_t{ovl} << 16);
        if (pos >= nextPos) Place(pos, ovl, value);
        out[k++] = static_cast<uint32_t>(std::min<uint64_t>(value, UINT32_MAX));
    }
    // The indexes at or before this flux's code fall inside it.
    void Place(uint32_t pos, uint32_t ovl, uint64_t value) {
        const std::vector<IndexMark>& ix = *idx;
        for (; next < ix.size() && ix[next].streamPos <= pos; next++) {
            const uint32_t first = pos - std::min(pos, ovl);
            uint64_t within = ix[next].sampleCounter;
            if (ix[next].streamPos > first)
                within += uint64_t{std::min(ix[next].streamPos - first, ovl)} << 16;
            at->push_back({k, std::min(within, value)});
        }
        nextPos = next < ix.size() ? ix[next].streamPos : UINT64_MAX;
    }
};

// Decodes the stream into s, whose vectors are reused from file to file. The
// first pass gathers the blocks and counts the fluxes; the second stores the
// fluxes and places each index in time. An index falls inside the flux whose
// code follows its stream position, its sample counter after that flux began,
// plus the overflows (written just before the flux's code) that came before it.
void Parse(const std::vector<uint8_t>& bytes, Stream& s) {
    s.indexes.clear();
    s.indexAt.clear();
    s.sampleClock = kDefaultSampleClock;
    s.ended = s.posMismatch = false;
    s.result = 0;
    const uint8_t* b = bytes.data();
    const size_t n = bytes.size();

    size_t count = 0;
    const size_t walked = Walk(
        b, n, [&](uint32_t, uint32_t, uint32_t) { count++; },
        [&](uint8_t type, const uint8_t* payload, size_t size, uint32_t pos) {
            if (type == kfoob::kEof)
                s.ended = true;
            else
                ParseOob(s, type, payload, size, pos);
        });
    s.cut = !s.ended && walked < n;
    // Index blocks come in stream order; one that goes back is dropped.
    std::vector<IndexMark>& idx = s.indexes;
    idx.erase(std::unique(
                  idx.begin(), idx.end(),
                  [](const IndexMark& a, const IndexMark& c) { return c.streamPos < a.streamPos; }),
              idx.end());

    s.flux.resize(count);
    StoreFlux store{s.flux.data(), &idx, &s.indexAt};
    store.nextPos = idx.empty() ? UINT64_MAX : idx[0].streamPos;
    Walk(b, walked, store, [](uint8_t, const uint8_t*, size_t, uint32_t) {});
    // Indexes after the last flux: the counter ran on from it.
    for (size_t next = store.next; next < idx.size(); next++)
        s.indexAt.push_back({store.k, idx[next].sampleCounter});
}

// Cuts the stream into revolutions at its index marks.
void Revolutions(Stream& s, std::vector<FluxRevolution>& revs) {
    revs.clear();
    const size_t n = s.flux.size();

    // The index times, from the start of the stream, in one pass over the flux.
    std::vector<uint64_t> marks;
    uint64_t total = 0;
    size_t f = 0;
    for (const Stream::At& a : s.indexAt) {
        for (; f < a.flux && f < n; f++) total += s.flux[f];
        const uint64_t at = total + a.within;
        if (marks.empty() || at > marks.back()) marks.push_back(at);
    }
    for (; f < n; f++) total += s.flux[f];

    // Cut where the time passes each mark.
    std::vector<uint64_t> cuts;
    bool whole = true;
    if (marks.size() >= 2) {
        const size_t count = std::min(marks.size() - 1, kMaxRevolutions);
        cuts.assign(marks.begin(), marks.begin() + static_cast<std::ptrdiff_t>(count) + 1);
    } else if (total > 0) {
        cuts = {marks.empty() ? 0 : std::min(marks[0], total), total};
        whole = false;
    } else {
        return;
    }
    revs.resize(cuts.size() - 1);
    uint64_t t = 0;
    size_t k = 0;
    while (k < n && t + s.flux[k] <= cuts[0]) t += s.flux[k++];
    for (size_t r = 0; r + 1 < cuts.size(); r++) {
        FluxRevolution& rev = revs[r];
        rev.whole = whole;
        rev.length = cuts[r + 1] - cuts[r];
        // Transitions after the index and up to the next one.
        const size_t from = k;
        uint64_t end = t;
        while (k < n && end + s.flux[k] <= cuts[r + 1]) end += s.flux[k++];
        // The first interval counts from the index, not from the transition
        // before it: that flux belongs to no other revolution, so it is cut in place.
        if (k > from) s.flux[from] = static_cast<uint32_t>(t + s.flux[from] - cuts[r]);
        rev.intervals = s.flux.data() + from;
        rev.count = k - from;
        t = end;
    }
}

bool ReadWhole(const std::string& name, std::vector<uint8_t>& out, bool* tooLarge) {
    Fileio f;
    *tooLarge = false;
    if (!f.Open(name.c_str(), Fileio::ReadOnly)) return false;
    const int64_t size = f.GetFileSize();
    if (size < 0) return false;
    if (size > kMaxStreamFile) {
        *tooLarge = true;
        return false;
    }
    out.resize(static_cast<size_t>(size));
    return size == 0 || f.Read(out.data(), static_cast<int>(size));
}

// "track", "00", "0" from "track00.0": the prefix, then two or more digits, a
// dot and the side.
bool SplitStreamName(const char* fname, std::string* prefix) {
    const std::string s(fname);
    const size_t n = s.size();
    if (n < 4 || s[n - 2] != '.' || (s[n - 1] != '0' && s[n - 1] != '1')) return false;
    size_t d = n - 2;
    while (d > 0 && s[d - 1] >= '0' && s[d - 1] <= '9') d--;
    if (n - 2 - d < 2) return false;
    *prefix = s.substr(0, d);
    return true;
}

// What a worker reuses from one stream file to the next.
struct WorkerBuffers {
    std::vector<uint8_t> bytes;
    Stream stream;
    std::vector<FluxRevolution> revs;
};
thread_local WorkerBuffers t_buffers;

// A kind of trouble met in the set: how often, and the first track it hit.
struct Tally {
    int count = 0, c = 0, h = 0;
    void Add(int cylinder, int head) {
        if (!count++) c = cylinder, h = head;
    }
};

// "2 streams end early (first: track 5.1)", singular for one.
std::string Counted(const Tally& t, const char* one, const char* many, const char* rest) {
    return std::to_string(t.count) + " " + (t.count == 1 ? one : many) + rest + " (first: track " +
           std::to_string(t.c) + "." + std::to_string(t.h) + ")";
}

}  // namespace

bool ZEBDisk::ImportKryoFlux(const Filepath& path) {
    const std::string shortName = path.GetShort();
    std::string prefix;
    if (!SplitStreamName(path.fname, &prefix))
        return report.Fail(shortName + ": not a stream file name of the form trackNN.S.raw");

    // The files present, in track order.
    struct Side {
        int c, h;
        std::string base;
    };
    std::vector<Side> sides;
    bool missing[FluxCapture::kMaxCylinders][2] = {};
    for (int c = 0; c < FluxCapture::kMaxCylinders; c++) {
        for (int h = 0; h < 2; h++) {
            char num[32];  // room for any two ints, which the compiler cannot bound
            std::snprintf(num, sizeof num, "%02d.%d", c, h);
            const std::string base = prefix + num + path.ext;
            if (Fileio::IsExist((std::string(path.dir) + base).c_str()) == 1)
                sides.push_back({c, h, base});
            else
                missing[c][h] = true;
        }
    }

    // The files are read, parsed and their tracks read side by side on the
    // pool, each job touching only its own side; what each found is gathered
    // in track order afterwards.
    struct Job {
        bool read = true, tooLarge = false, ok = true;
        bool cut = false, ended = false, posMismatch = false;
        uint32_t result = 0;
        std::string why;
    };
    std::vector<Job> jobs(sides.size());
    FluxCapture capture;
    trackpool::ForEach(static_cast<int>(sides.size()), 0, [&](int j) {
        Job& job = jobs[static_cast<size_t>(j)];
        const Side& side = sides[static_cast<size_t>(j)];
        WorkerBuffers& w = t_buffers;
        if (!ReadWhole(std::string(path.dir) + side.base, w.bytes, &job.tooLarge)) {
            job.read = false;
            return;
        }
        Parse(w.bytes, w.stream);
        Revolutions(w.stream, w.revs);
        job.ok = capture.AddTrack(side.c, side.h, w.revs, w.stream.sampleClock, &job.why);
        job.cut = w.stream.cut, job.ended = w.stream.ended;
        job.posMismatch = w.stream.posMismatch, job.result = w.stream.result;
    });
    t_buffers = WorkerBuffers();  // the calling thread's; the pool's went with their threads

    int found = 0, first = -1, last = -1;
    Tally cutShort, readErrors, lost;
    bool sideUsed[2] = {};
    for (size_t j = 0; j < sides.size(); j++) {
        const Job& job = jobs[j];
        const Side& side = sides[j];
        if (!job.read)
            return report.Fail(
                side.base + (job.tooLarge ? ": too large for a stream file" : ": cannot be read"));
        if (!job.ok) return report.Fail(side.base + ": " + job.why);
        if (job.cut || !job.ended) cutShort.Add(side.c, side.h);
        if (job.result != 0) readErrors.Add(side.c, side.h);
        if (job.posMismatch) lost.Add(side.c, side.h);
        found++;
        sideUsed[side.h] = true;
        if (first < 0) first = side.c;
        last = side.c;
    }
    if (found == 0) return report.Fail(shortName + ": no stream file of the set can be read");

    Tally gaps;
    for (int c = first; c <= last; c++)
        for (int h = 0; h < 2; h++)
            if (sideUsed[h] && missing[c][h]) gaps.Add(c, h);
    Tally partial;
    for (const Side& side : sides)
        if (capture.Partial(side.c, side.h)) partial.Add(side.c, side.h);
    if (gaps.count)
        report.Warn(Counted(gaps, "track is", "tracks are", " missing from the set, left blank"));
    if (cutShort.count) report.Warn(Counted(cutShort, "stream ends", "streams end", " early"));
    if (readErrors.count)
        report.Warn(Counted(readErrors, "stream reports", "streams report", " a capture error"));
    if (lost.count) report.Warn(Counted(lost, "stream lost", "streams lost", " data in transfer"));
    if (partial.count)
        report.Warn(Counted(partial, "track holds", "tracks hold",
                            " no whole revolution and keeps what was captured"));
    if (!capture.Build(*this)) return report.Fail(shortName + ": no track holds flux");
    // The set is its folder: the disk takes the folder's name.
    std::string folder = path.dir;
    while (!folder.empty() && folder.back() == '/') folder.pop_back();
    const size_t slash = folder.find_last_of('/');
    folder = slash == std::string::npos ? folder : folder.substr(slash + 1);
    SetName(folder.empty() || folder == "." ? shortName.c_str() : folder.c_str());
    return true;
}
