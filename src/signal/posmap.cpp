#include "signal/posmap.h"

#include <algorithm>
#include <climits>
#include <vector>

#include "signal/rawscan.h"

int Enc2RawPosMulti(uchar* raw, int rawLen, int* pos, int count) {
    if (rawLen <= 0) return 0;
    const int first = rawscan::FirstEdge(raw, rawLen);
    if (first < 0) return 0;
    if (count <= 0) return 0;

    VFOState vfo;
    VFO_Init(&vfo);
    const size_t n = static_cast<size_t>(count);
    std::vector<int> result(n, -1);
    // The cell counter never goes back, so the entries fall due in order of
    // their cell position.
    std::vector<int> order(n);
    for (size_t i = 0; i < n; i++) order[i] = static_cast<int>(i);
    std::stable_sort(order.begin(), order.end(), [&](int a, int b) { return pos[a] < pos[b]; });

    int64_t k = first / 8;
    size_t next = 0;
    rawscan::ScanEdges(raw, rawLen, first, [&](int64_t e, int d) {
        rawscan::VfoStep(vfo, d);
        k += vfo.cells;
        while (next < n && pos[order[next]] <= k) {
            // Count back whole cells from the first edge at or after the cell.
            const int64_t s = e - (k - pos[order[next]]) * 8;
            result[static_cast<size_t>(order[next])] =
                static_cast<int>(std::clamp<int64_t>(s, INT_MIN, INT_MAX));
            next++;
        }
        return next < n;
    });
    std::copy(result.begin(), result.end(), pos);
    return static_cast<int>(next);
}
