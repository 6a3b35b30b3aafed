#include <benchmark/benchmark.h>

#include <vector>

#include "signal/alignraw.h"
#include "signal/bitstream.h"
#include "signal/mfm_synth.h"
#include "signal/posmap.h"
#include "signal/rawconv.h"

namespace {

using benchdata::kTrackCells;
constexpr int kRawLen = kTrackCells * 8;

struct Data {
    benchdata::Track track = benchdata::MakeMfmTrack(1);
    std::vector<uint8_t> raw = std::vector<uint8_t>(kRawLen / 8 + 8);
    Data() { Encode2Raw(track.cells.data(), kTrackCells, raw.data(), kRawLen); }
};
const Data& D() {
    static const Data d;
    return d;
}

void BM_BfFindMissingMark(benchmark::State& state) {
    const auto& d = D();
    const auto ddam = benchdata::MarkPattern(0xF8);  // not on the track: a whole-track scan
    for (auto _ : state)
        benchmark::DoNotOptimize(
            BfFind(d.track.cells.data(), kTrackCells, 0, kTrackCells, ddam.data(), 128));
    state.SetItemsProcessed(state.iterations() * kTrackCells);
}
BENCHMARK(BM_BfFindMissingMark);

void BM_BfFindEveryMark(benchmark::State& state) {
    const auto& d = D();
    const auto idam = benchdata::MarkPattern(0xFE);
    for (auto _ : state) {
        int p = 0, found = 0;
        for (;;) {
            const int r =
                BfFind(d.track.cells.data(), kTrackCells, p, kTrackCells - p, idam.data(), 128);
            if (r < 0) break;
            p += r + 1;
            found++;
        }
        benchmark::DoNotOptimize(found);
    }
    state.SetItemsProcessed(state.iterations() * kTrackCells);
}
BENCHMARK(BM_BfFindEveryMark);

void BM_Raw2Encode(benchmark::State& state) {
    auto raw = D().raw;
    std::vector<uint8_t> enc(32768);
    for (auto _ : state)
        benchmark::DoNotOptimize(Raw2Encode(raw.data(), kRawLen, enc.data(), (32768 - 16) * 8));
    state.SetItemsProcessed(state.iterations() * kRawLen);
}
BENCHMARK(BM_Raw2Encode);

void BM_Enc2RawPosMulti(benchmark::State& state) {
    auto raw = D().raw;
    const auto& marks = D().track.markCells;
    std::vector<int> pos(marks.size());
    for (auto _ : state) {
        pos = marks;
        benchmark::DoNotOptimize(
            Enc2RawPosMulti(raw.data(), kRawLen, pos.data(), static_cast<int>(pos.size())));
    }
    state.SetItemsProcessed(state.iterations() * kRawLen);
}
BENCHMARK(BM_Enc2RawPosMulti);

void BM_AlignRaw(benchmark::State& state) {
    // Every tenth pulse one sample late, so the alignment has work to do.
    auto raw = D().raw;
    int n = 0;
    for (int i = 0; i + 1 < kRawLen / 8; i++)
        if (raw[i] == 0xE0 && ++n % 10 == 0) {
            raw[i] = 0x70;
        }
    const auto start = raw;
    for (auto _ : state) {
        state.PauseTiming();
        raw = start;
        state.ResumeTiming();
        benchmark::DoNotOptimize(AlignRaw(raw.data(), kRawLen));
    }
    state.SetItemsProcessed(state.iterations() * kRawLen);
}
BENCHMARK(BM_AlignRaw);

void BM_Encode2Raw(benchmark::State& state) {
    const auto& cells = D().track.cells;
    std::vector<uint8_t> raw(262144);
    for (auto _ : state)
        benchmark::DoNotOptimize(Encode2Raw(const_cast<uint8_t*>(cells.data()), kTrackCells,
                                            raw.data(), (262144 - 16) * 8));
    state.SetItemsProcessed(state.iterations() * kRawLen);
}
BENCHMARK(BM_Encode2Raw);

void BM_StrechRaw(benchmark::State& state) {
    const auto& raw0 = D().raw;
    std::vector<uint8_t> raw(raw0.size());
    for (auto _ : state) {
        state.PauseTiming();
        raw = raw0;
        state.ResumeTiming();
        benchmark::DoNotOptimize(StrechRaw(raw.data(), kRawLen, kRawLen - kRawLen / 100));
    }
    state.SetItemsProcessed(state.iterations() * kRawLen);
}
BENCHMARK(BM_StrechRaw);

}  // namespace

BENCHMARK_MAIN();
