#include "signal/fluxcell.h"

#include <algorithm>
#include <vector>

namespace {

// Two cells last from 1 us (high density in a fast drive) to 12 us (double
// density in a slow one, with room to spare).
constexpr double kMinTwoCells = 1.0e-6;
constexpr double kMaxTwoCells = 12.0e-6;
// A histogram wider than this is coarsened: the peak needs no finer bins.
constexpr uint64_t kMaxBins = 4096;
// Intervals the estimate looks at: a stride through a revolution shows the
// peak and gives the cell time to a fraction of a percent. (A flux reader
// makes it exact from the cells its clock counts over a revolution.)
constexpr size_t kSample = 4096;
// A peak counts when it holds at least this share of the highest one.
constexpr int kPeakShare = 4;
constexpr int kMinIntervals = 32;

}  // namespace

uint64_t FluxCellTime(const uint32_t* intervals, size_t n, double clockHz) {
    if (!intervals || n < static_cast<size_t>(kMinIntervals) || !(clockHz > 0) || !(clockHz < 1e12))
        return 0;
    const uint64_t lo = std::max<uint64_t>(1, static_cast<uint64_t>(kMinTwoCells * clockHz));
    const uint64_t hi = std::max<uint64_t>(lo + 1, static_cast<uint64_t>(kMaxTwoCells * clockHz));
    const uint64_t width = (hi - lo + kMaxBins - 1) / kMaxBins;  // clock units a bin
    const size_t bins = static_cast<size_t>((hi - lo) / width + 1);

    const size_t stride = n > kSample ? n / kSample : 1;
    std::vector<uint32_t> hist(bins + 2);
    if (width == 1) {
        for (size_t i = 0; i < n; i += stride) {
            const uint64_t v = intervals[i] - lo;  // wraps below lo
            if (v <= hi - lo) hist[static_cast<size_t>(v) + 1]++;
        }
    } else {
        for (size_t i = 0; i < n; i += stride) {
            const uint64_t v = intervals[i] - lo;
            if (v <= hi - lo) hist[static_cast<size_t>(v / width) + 1]++;
        }
    }
    // Three-bin sums smooth out jitter that splits a peak between neighbours.
    std::vector<uint32_t> smooth(bins + 2);
    uint32_t top = 0;
    for (size_t b = 1; b <= bins; b++) {
        smooth[b] = hist[b - 1] + hist[b] + hist[b + 1];
        top = std::max(top, smooth[b]);
    }
    if (top < static_cast<uint32_t>(kMinIntervals)) return 0;

    // The first local maximum that stands out; under heavy jitter that can be
    // a ripple on the rising side of the two-cell peak, so the highest bin up
    // to a quarter further than where the peak stands out is taken (the
    // three-cell peak lies half as far again).
    size_t peak = 0, rise = 0;
    for (size_t b = 1; b <= bins && !peak; b++) {
        if (smooth[b] * kPeakShare < top) continue;
        size_t e = b;
        while (e + 1 <= bins && smooth[e + 1] >= smooth[e]) e++;
        peak = e, rise = b;
    }
    if (!peak) return 0;
    const uint64_t reach = (lo + (rise - 1) * width) * 5 / 4;
    for (size_t b = peak + 1; b <= bins && lo + (b - 1) * width <= reach; b++)
        if (smooth[b] > smooth[peak]) peak = b;

    // The mean of the sampled intervals within a fifth of the peak is two
    // cells: the three-cell peak lies half as far again.
    const uint64_t centre = lo + (peak - 1) * width + width / 2;
    const uint64_t from = centre * 4 / 5, span = centre * 6 / 5 - from;
    uint64_t sum = 0, count = 0;
    for (size_t i = 0; i < n; i += stride) {
        const uint64_t v = intervals[i];
        if (v - from <= span) {  // wraps below from
            sum += v;
            count++;
        }
    }
    if (!count) return 0;
    // Then every sampled interval of two to four cells at that cell time
    // counts, each by its cells: not pulled by the rounding of a single peak.
    // Cells an interval spans: v x inverse / 2^32, rounded (2 x count
    // intervals of two cells span sum clock units).
    const uint64_t inverse = ((uint64_t{2} * count) << 32) / sum;
    uint64_t time = 0, cells = 0;
    for (size_t i = 0; i < n; i += stride) {
        const uint64_t v = intervals[i];
        const uint64_t k = (v * inverse + (uint64_t{1} << 31)) >> 32;
        const uint64_t take = k - 2 <= 2 ? ~uint64_t{0} : 0;  // two to four cells
        time += v & take;
        cells += k & take;
    }
    if (!cells) return 0;
    return ((time << kCellTimeShift) + cells / 2) / cells;
}
