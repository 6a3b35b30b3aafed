// SCP flux images: a header with a table of track offsets, then per track a
// header with one entry a revolution and the flux values as 16-bit big-endian
// times since the previous transition.
#include <algorithm>
#include <cstdio>
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
constexpr size_t kChunk = 1 << 20;

// The header's checksum against the bytes from the track table on; the file
// is read in chunks, whatever its size.
bool ChecksumMatches(Fileio& f, uint32_t expected, uint32_t* sum) {
    std::vector<uint8_t> buf(kChunk);
    uint32_t s = 0;
    int64_t left = f.GetFileSize() - static_cast<int64_t>(scphdr::kTrackTable);
    if (!f.Seek(static_cast<int64_t>(scphdr::kTrackTable), 0)) return false;
    while (left > 0) {
        const size_t n = static_cast<size_t>(std::min<int64_t>(left, kChunk));
        if (!f.Read(buf.data(), static_cast<int>(n))) return false;
        for (size_t i = 0; i < n; i++) s += buf[i];
        left -= static_cast<int64_t>(n);
    }
    *sum = s;
    return s == expected;
}

// 16-bit big-endian values; a zero adds 65536 to the next one. Returns their
// sum in clock units.
uint64_t Intervals(const uint8_t* p, size_t count, std::vector<uint32_t>& out) {
    out.resize(count);
    uint32_t* o = out.data();
    size_t k = 0;
    uint32_t carry = 0;
    uint64_t total = 0;
    for (size_t i = 0; i < count; i++) {
        const uint32_t v = (uint32_t{p[2 * i]} << 8) | p[2 * i + 1];
        if (v == 0) [[unlikely]] {
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

    uint32_t sum = 0;
    const uint32_t expected = hdr.U32(scphdr::kChecksum);
    if (!ChecksumMatches(f, expected, &sum)) {
        if (f.GetFilePos() != fileSize) return fail("cannot be read");
        char text[96];
        std::snprintf(
            text, sizeof text,
            "checksum mismatch: the header says 0x%08X, the bytes sum to 0x%08X; read anyway",
            static_cast<unsigned>(expected), static_cast<unsigned>(sum));
        report.Warn(text);
    }

    const size_t revs = std::min<size_t>(revolutions, kMaxRevolutions);
    const size_t thSize = scptrk::kRevolutions + revolutions * scptrk::kEntrySize;
    std::vector<uint8_t> th(thSize);

    // A few tracks are read at a time, in order, then turned into intervals,
    // resampled and decoded side by side: each job touches only its own track.
    struct Job {
        unsigned t = 0;
        std::vector<std::vector<uint8_t>> data;
        std::vector<uint32_t> duration;
        std::vector<std::vector<uint32_t>> held;
        std::vector<FluxRevolution> flux;
        std::string why;
        bool ok = true;
    };
    constexpr size_t kBatch = 4;
    std::vector<Job> jobs(kBatch);
    for (Job& j : jobs) {
        j.data.resize(revs);
        j.duration.resize(revs);
        j.held.resize(revs);
        j.flux.resize(revs);
    }
    std::vector<unsigned> present;
    for (unsigned t = start; t <= end; t++)
        if (hdr.U32(scphdr::kTrackTable + 4 * t) != 0) present.push_back(t);

    FluxCapture capture;
    int captured = 0;
    for (size_t from = 0; from < present.size(); from += kBatch) {
        const size_t n = std::min(kBatch, present.size() - from);
        for (size_t j = 0; j < n; j++) {
            Job& job = jobs[j];
            const unsigned t = job.t = present[from + j];
            const int64_t at = hdr.U32(scphdr::kTrackTable + 4 * t);
            const std::string label = "track " + std::to_string(t);
            if (at + static_cast<int64_t>(thSize) > fileSize || !f.Seek(at, 0) ||
                !f.Read(th.data(), static_cast<int>(thSize)))
                return fail(label + " header lies outside the file");
            const FieldReader trk(th.data(), th.size());
            if (!trk.Equals(scptrk::kSignature, "TRK", scptrk::kSignatureLen))
                return fail(label + " header has no TRK signature");
            if (trk.U8(scptrk::kNumber) != t)
                return fail(label + " header names track " +
                            std::to_string(trk.U8(scptrk::kNumber)));
            for (size_t r = 0; r < revs; r++) {
                const size_t e = scptrk::kRevolutions + r * scptrk::kEntrySize;
                const uint32_t count = trk.U32(e + scptrk::kCount);
                const int64_t data = at + trk.U32(e + scptrk::kOffset);
                if (count > kMaxFlux) return fail(label + " holds too many flux values");
                if (data + int64_t{count} * 2 > fileSize)
                    return fail(label + " flux data lies outside the file");
                job.data[r].resize(size_t{count} * 2);
                job.duration[r] = trk.U32(e + scptrk::kDuration);
                if (count &&
                    (!f.Seek(data, 0) || !f.Read(job.data[r].data(), static_cast<int>(count * 2))))
                    return fail("cannot be read");
            }
        }
        trackpool::ForEach(static_cast<int>(n), 0, [&](int j) {
            Job& job = jobs[static_cast<size_t>(j)];
            for (size_t r = 0; r < revs; r++) {
                const uint64_t total =
                    Intervals(job.data[r].data(), job.data[r].size() / 2, job.held[r]);
                job.flux[r].intervals = job.held[r].data();
                job.flux[r].count = job.held[r].size();
                job.flux[r].length = job.duration[r] ? job.duration[r] : total;
                job.flux[r].whole = true;
            }
            job.ok = capture.AddTrack(static_cast<int>(job.t / 2), static_cast<int>(job.t % 2),
                                      job.flux, clockHz, &job.why);
        });
        for (size_t j = 0; j < n; j++) {
            if (!jobs[j].ok) return fail("track " + std::to_string(jobs[j].t) + ": " + jobs[j].why);
            captured++;
        }
    }
    if (captured == 0 || !capture.Build(*this)) return fail("no track holds flux");
    SetName(name.c_str());
    return true;
}
