// SCP flux images: a header with a table of track offsets, then per track a
// header with one entry a revolution and the flux values as 16-bit big-endian
// times since the previous transition.
#include <algorithm>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "fileio/fieldio.h"
#include "fileio/fileio.h"
#include "zebdisk/fluxcapture.h"
#include "zebdisk/trackpool.h"
#include "zebdisk/zebdisk.h"

namespace {

// File header.
namespace scphdr {
constexpr size_t kSignature = 0;  // "SCP"
constexpr size_t kSignatureLen = 3;
[[maybe_unused]] constexpr size_t kVersion = 3;  // not needed to read
[[maybe_unused]] constexpr size_t kDiskType = 4;
constexpr size_t kRevolutions = 5;
constexpr size_t kStartTrack = 6;
constexpr size_t kEndTrack = 7;
// Flags: index, 96 tpi, 360 rpm, normalised, read-write, footer. None changes
// how the tracks read: the footer only follows them, inside the checksum.
[[maybe_unused]] constexpr size_t kFlags = 8;
constexpr size_t kCellWidth = 9;    // bits a flux value, 0 meaning 16
constexpr size_t kHeads = 10;       // 0 both, 1 side 0 only, 2 side 1 only
constexpr size_t kResolution = 11;  // 25 ns x (n + 1) a clock unit
constexpr size_t kChecksum = 12;    // sum of every byte from kTrackTable on
constexpr size_t kTrackTable = 0x10;
constexpr size_t kTracks = 168;  // 32-bit offsets, 0 for a track not captured
constexpr size_t kSize = kTrackTable + kTracks * 4;
}  // namespace scphdr

// Track header: signature, track number, then one entry a revolution.
namespace scptrk {
constexpr size_t kSignature = 0;  // "TRK"
constexpr size_t kSignatureLen = 3;
constexpr size_t kNumber = 3;
constexpr size_t kRevolutions = 4;
// Revolution entry.
constexpr size_t kDuration = 0;  // index to index, clock units
constexpr size_t kCount = 4;     // flux values
constexpr size_t kOffset = 8;    // of the values, from the track header
constexpr size_t kEntrySize = 12;
}  // namespace scptrk

constexpr double kBaseClock = 40e6;  // 25 ns
constexpr size_t kMaxRevolutions = 16;
// Far beyond the flux of any real revolution (a high density one holds about 100,000).
constexpr uint32_t kMaxFlux = 1 << 20;
// Bytes the checksum sums a job.
constexpr size_t kSumChunk = size_t{4} << 20;

// What a worker reuses from one track to the next: the track's bytes and
// the intervals of each revolution.
struct WorkerBuffers {
    std::vector<uint8_t> bytes;
    std::vector<std::vector<uint32_t>> held;
};
thread_local WorkerBuffers t_buffers;

// The sum of n bytes, eight at a time: four 16-bit lanes take the even and
// the odd bytes of each word, and are added up before they can overflow.
uint32_t ByteSum(const uint8_t* p, size_t n) {
    constexpr uint64_t kLanes = 0x00FF00FF00FF00FFULL;
    constexpr size_t kWordsPerFlush = 128;  // 128 x 2 x 255 stays below 65536
    uint32_t sum = 0;
    size_t i = 0;
    while (n - i >= 8) {
        uint64_t acc = 0;
        for (size_t w = 0; w < kWordsPerFlush && n - i >= 8; w++, i += 8) {
            uint64_t v;
            std::memcpy(&v, p + i, 8);
            acc += (v & kLanes) + ((v >> 8) & kLanes);
        }
        for (int lane = 0; lane < 4; lane++)
            sum += static_cast<uint32_t>((acc >> (16 * lane)) & 0xFFFF);
    }
    for (; i < n; i++) sum += p[i];
    return sum;
}

// 16-bit big-endian values; a zero adds 65536 to the next one. Returns their
// sum in clock units.
uint64_t Intervals(const uint8_t* p, size_t count, std::vector<uint32_t>& out) {
    out.resize(count);
    uint32_t* o = out.data();
    // Zeros are rare: a first pass that has none to handle runs without a
    // branch, eight values at a time.
    uint64_t total = 0;
    uint32_t zeros = 0;
    for (size_t i = 0; i < count; i++) {
        const uint32_t v = (uint32_t{p[2 * i]} << 8) | p[2 * i + 1];
        o[i] = v;
        total += v;
        zeros |= v == 0;
    }
    if (!zeros) return total;
    size_t k = 0;
    uint32_t carry = 0;
    total = 0;
    for (size_t i = 0; i < count; i++) {
        const uint32_t v = (uint32_t{p[2 * i]} << 8) | p[2 * i + 1];
        if (v == 0) {
            carry += 0x10000;
            continue;
        }
        o[k++] = v + carry;
        total += v + carry;
        carry = 0;
    }
    out.resize(k);
    return total;
}

}  // namespace

bool ZEBDisk::ImportSCP(const Filepath& path) {
    const std::string name = path.GetShort();
    auto fail = [&](const std::string& why) { return report.Fail(name + ": " + why); };

    Fileio f;
    if (!f.Open(path, Fileio::ReadOnly)) return fail("cannot be read");
    const int64_t fileSize = f.GetFileSize();
    uint8_t hbuf[scphdr::kSize];
    if (fileSize < static_cast<int64_t>(sizeof hbuf) || !f.Read(hbuf, sizeof hbuf))
        return fail("too short for an SCP header");
    const FieldReader hdr(hbuf, sizeof hbuf);
    if (!hdr.Equals(scphdr::kSignature, "SCP", scphdr::kSignatureLen))
        return fail("no SCP signature");
    const unsigned revolutions = hdr.U8(scphdr::kRevolutions);
    const unsigned start = hdr.U8(scphdr::kStartTrack);
    const unsigned end = hdr.U8(scphdr::kEndTrack);
    const unsigned cellWidth = hdr.U8(scphdr::kCellWidth);
    const unsigned heads = hdr.U8(scphdr::kHeads);
    const double clockHz = kBaseClock / (hdr.U8(scphdr::kResolution) + 1);
    if (revolutions == 0) return fail("no revolutions");
    if (start > end || end >= scphdr::kTracks) return fail("track range out of order");
    if (cellWidth != 0 && cellWidth != 16)
        return fail("flux values of " + std::to_string(cellWidth) + " bits");
    if (heads > 2) return fail("heads value " + std::to_string(heads));

    const size_t revs = std::min<size_t>(revolutions, kMaxRevolutions);
    const size_t thSize = scptrk::kRevolutions + revolutions * scptrk::kEntrySize;

    // Every track header is checked first, in order.
    struct Job {
        unsigned t = 0;
        int64_t at = 0;
        size_t extent = 0;  // bytes from the header to the end of its last flux
        std::string why;
        bool ok = true;
    };
    std::vector<Job> jobs;
    std::vector<uint8_t> th(thSize);
    for (unsigned t = start; t <= end; t++) {
        const int64_t at = hdr.U32(scphdr::kTrackTable + 4 * t);
        if (at == 0) continue;
        const std::string label = "track " + std::to_string(t);
        size_t extent = thSize;
        if (at + static_cast<int64_t>(thSize) > fileSize ||
            !f.ReadAt(th.data(), static_cast<int>(thSize), at))
            return fail(label + " header lies outside the file");
        const FieldReader trk(th.data(), thSize);
        if (!trk.Equals(scptrk::kSignature, "TRK", scptrk::kSignatureLen))
            return fail(label + " header has no TRK signature");
        if (trk.U8(scptrk::kNumber) != t)
            return fail(label + " header names track " + std::to_string(trk.U8(scptrk::kNumber)));
        for (size_t r = 0; r < revs; r++) {
            const size_t e = scptrk::kRevolutions + r * scptrk::kEntrySize;
            const uint32_t count = trk.U32(e + scptrk::kCount);
            const int64_t data = at + trk.U32(e + scptrk::kOffset);
            if (count > kMaxFlux) return fail(label + " holds too many flux values");
            if (data + int64_t{count} * 2 > fileSize)
                return fail(label + " flux data lies outside the file");
            extent = std::max(extent, static_cast<size_t>(data - at) + size_t{count} * 2);
        }
        jobs.push_back({t, at, extent, {}, true});
    }

    // Then the tracks are read side by side on the pool, each job reading
    // only its own track, with the checksum's share of the bytes in chunks
    // beside them. Each worker keeps its buffers from job to job.
    const size_t summed = static_cast<size_t>(fileSize) - scphdr::kTrackTable;
    const size_t chunks = (summed + kSumChunk - 1) / kSumChunk;
    std::vector<uint32_t> sums(chunks);
    std::vector<uint8_t> unread(chunks);
    FluxCapture capture;
    trackpool::ForEach(static_cast<int>(jobs.size() + chunks), 0, [&](int i) {
        std::vector<uint8_t>& bytes = t_buffers.bytes;
        std::vector<std::vector<uint32_t>>& held = t_buffers.held;
        if (static_cast<size_t>(i) >= jobs.size()) {
            const size_t k = static_cast<size_t>(i) - jobs.size();
            const size_t n = std::min(kSumChunk, summed - k * kSumChunk);
            bytes.resize(n);
            if (!f.ReadAt(bytes.data(), static_cast<int>(n),
                          static_cast<int64_t>(scphdr::kTrackTable + k * kSumChunk))) {
                unread[k] = 1;
                return;
            }
            sums[k] = ByteSum(bytes.data(), n);
            return;
        }
        Job& job = jobs[static_cast<size_t>(i)];
        bytes.resize(job.extent);
        if (!f.ReadAt(bytes.data(), static_cast<int>(job.extent), job.at)) {
            job.ok = false;
            job.why = "cannot be read";
            return;
        }
        const FieldReader trk(bytes.data(), thSize);
        held.resize(std::max(held.size(), revs));
        std::vector<FluxRevolution> flux(revs);
        for (size_t r = 0; r < revs; r++) {
            const size_t e = scptrk::kRevolutions + r * scptrk::kEntrySize;
            const uint32_t count = trk.U32(e + scptrk::kCount);
            const uint32_t duration = trk.U32(e + scptrk::kDuration);
            const uint8_t* data = bytes.data() + trk.U32(e + scptrk::kOffset);
            const uint64_t total = Intervals(data, count, held[r]);
            flux[r].intervals = held[r].data();
            flux[r].count = held[r].size();
            flux[r].length = duration ? duration : total;
            flux[r].whole = true;
        }
        job.ok = capture.AddTrack(static_cast<int>(job.t / 2), static_cast<int>(job.t % 2), flux,
                                  clockHz, &job.why);
    });
    t_buffers = WorkerBuffers();  // the calling thread's; the pool's went with their threads

    if (std::find(unread.begin(), unread.end(), 1) != unread.end()) return fail("cannot be read");
    uint32_t sum = 0;
    for (uint32_t part : sums) sum += part;
    const uint32_t expected = hdr.U32(scphdr::kChecksum);
    if (sum != expected) {
        char text[96];
        std::snprintf(
            text, sizeof text,
            "checksum mismatch: the header says 0x%08X, the bytes sum to 0x%08X; read anyway",
            static_cast<unsigned>(expected), static_cast<unsigned>(sum));
        report.Warn(text);
    }
    int captured = 0;
    for (const Job& job : jobs) {
        if (!job.ok) return fail("track " + std::to_string(job.t) + ": " + job.why);
        captured++;
    }
    if (captured == 0 || !capture.Build(*this)) return fail("no track holds flux");
    SetName(name.c_str());
    return true;
}
