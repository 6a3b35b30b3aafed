#include "signal/posmap.h"

#include <algorithm>
#include <climits>
#include <vector>

#include "signal/edgemap.h"
#include "signal/rawscan.h"

namespace {

// The indices of the n entries in order of their cell position, equal ones in
// their given order. The cell counter never goes back, so the entries fall due
// in this order.
std::vector<int> OrderByCell(const int* pos, size_t n) {
    std::vector<int> order(n);
    for (size_t i = 0; i < n; i++) order[i] = static_cast<int>(i);
    std::stable_sort(order.begin(), order.end(), [&](int a, int b) { return pos[a] < pos[b]; });
    return order;
}

}  // namespace

int Enc2RawPosMulti(uchar* raw, int rawLen, int* pos, int count) {
    if (rawLen <= 0) return 0;
    const int first = rawscan::FirstEdge(raw, rawLen);
    if (first < 0) return 0;
    if (count <= 0) return 0;

    rawscan::Separator sep;
    const size_t n = static_cast<size_t>(count);
    std::vector<int> result(n, -1);
    const std::vector<int> order = OrderByCell(pos, n);
    // -1 also marks an entry not yet placed, so one placed at sample -1 is
    // placed again (and counted again) at the next edge.
    std::vector<int> retry;

    int64_t k = first / 8;
    size_t next = 0;
    int64_t nextPos = pos[order[0]];
    int64_t translated = 0;
    // The scan stops at the 32-sample word boundary after the last entry was
    // placed; words start at the first byte boundary at or after the first edge.
    const int64_t wordBase = (static_cast<int64_t>(first) + 7) & ~int64_t{7};
    int64_t stopAt = INT64_MAX;

    auto place = [&](int i, int64_t e) {
        const int64_t s = e - (k - pos[i]) * 8;
        const int v = static_cast<int>(std::clamp<int64_t>(s, INT_MIN, INT_MAX));
        result[static_cast<size_t>(i)] = v;
        translated++;
        if (v == -1) retry.push_back(i);
    };
    rawscan::ScanEdges(raw, rawLen, first, [&](int64_t e, int d) {
        if (e >= stopAt) return false;
        k += sep.Step(d).cells;
        if (!retry.empty()) {
            std::vector<int> again;
            again.swap(retry);
            for (int i : again) place(i, e);
        }
        while (k >= nextPos) {
            place(order[next++], e);
            nextPos = next < n ? pos[order[next]] : INT64_MAX;
        }
        if (translated >= count && stopAt == INT64_MAX)
            stopAt = wordBase + ((e - wordBase) / 32 + 1) * 32;
        return true;
    });
    std::copy(result.begin(), result.end(), pos);
    return static_cast<int>(std::min<int64_t>(translated, INT_MAX));
}

int RawEdgePosMulti(const RawEdgeMap& map, int* pos, int count) {
    if (map.first < 0 || count <= 0) return 0;
    const std::vector<RawEdge>& edges = map.edges;
    const size_t n = static_cast<size_t>(count);
    std::vector<int> result(n, -1);
    const std::vector<int> order = OrderByCell(pos, n);

    // The same placing as the scan's, visiting only the edges where something
    // falls due: the first edge at or past each entry's cell, and every edge
    // while an entry placed at sample -1 (so still unplaced) waits for the next.
    std::vector<int> retry;
    std::vector<int> again;
    int64_t translated = 0;
    const int64_t wordBase = (static_cast<int64_t>(map.first) + 7) & ~int64_t{7};
    int64_t stopAt = INT64_MAX;
    size_t next = 0;
    size_t from = 0;  // edges before this one are done
    for (;;) {
        size_t u;
        if (!retry.empty()) {
            u = from;
        } else if (next < n) {
            const int64_t want = pos[order[next]];
            u = static_cast<size_t>(
                std::lower_bound(edges.begin() + static_cast<std::ptrdiff_t>(from), edges.end(),
                                 want, [](const RawEdge& r, int64_t w) { return r.cell < w; }) -
                edges.begin());
        } else {
            break;
        }
        if (u >= edges.size() || edges[u].sample >= stopAt) break;
        const int64_t k = edges[u].cell;
        const int64_t e = edges[u].sample;
        auto place = [&](int i) {
            const int64_t s = e - (k - pos[i]) * 8;
            const int v = static_cast<int>(std::clamp<int64_t>(s, INT_MIN, INT_MAX));
            result[static_cast<size_t>(i)] = v;
            translated++;
            if (v == -1) retry.push_back(i);
        };
        again.clear();
        again.swap(retry);
        for (int i : again) place(i);
        while (next < n && k >= pos[order[next]]) place(order[next++]);
        if (translated >= count && stopAt == INT64_MAX)
            stopAt = wordBase + ((e - wordBase) / 32 + 1) * 32;
        from = u + 1;
    }
    std::copy(result.begin(), result.end(), pos);
    return static_cast<int>(std::min<int64_t>(translated, INT_MAX));
}
