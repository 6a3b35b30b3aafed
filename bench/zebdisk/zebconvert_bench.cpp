#include <benchmark/benchmark.h>

#include <cstring>

#include "signal/mfm_synth.h"
#include "zebdisk/zebdisk.h"

namespace {

// A whole 84-cylinder 2HD disk of MFM tracks.
void MakeDisk(ZEBDisk& d) {
    d.Init(ZEB_2HD, 0, 0, 0);
    for (int s = 0; s < ZEBDisk::kSlots; s++) {
        const auto t = benchdata::MakeMfmTrack(static_cast<uint32_t>(s + 1));
        std::memcpy(d.track[s].data() + zebrec::kData, t.cells.data(), t.cells.size());
        d.SetRecordInt(s, zebrec::kBitLength, benchdata::kTrackCells);
    }
}

void BM_ConvertRawWholeDisk(benchmark::State& state) {
    ZEBDisk d;
    MakeDisk(d);
    for (auto _ : state) {
        benchmark::DoNotOptimize(d.ConvertRaw());
        state.PauseTiming();
        d.ConvertEnc();
        state.ResumeTiming();
    }
}
BENCHMARK(BM_ConvertRawWholeDisk)->Unit(benchmark::kMillisecond);

void BM_ConvertEncWholeDisk(benchmark::State& state) {
    ZEBDisk d;
    MakeDisk(d);
    d.ConvertRaw();
    for (auto _ : state) {
        benchmark::DoNotOptimize(d.ConvertEnc());
        state.PauseTiming();
        d.ConvertRaw();
        state.ResumeTiming();
    }
}
BENCHMARK(BM_ConvertEncWholeDisk)->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
