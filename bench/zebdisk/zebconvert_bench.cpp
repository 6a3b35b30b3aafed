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

// The argument is the disk's workers: 1 converts every track on the calling
// thread, 0 uses one worker per core.
void BM_ConvertRawWholeDisk(benchmark::State& state) {
    ZEBDisk d;
    MakeDisk(d);
    d.workers = static_cast<int32_t>(state.range(0));
    for (auto _ : state) {
        benchmark::DoNotOptimize(d.ConvertRaw());
        state.PauseTiming();
        d.ConvertEnc();
        state.ResumeTiming();
    }
}
BENCHMARK(BM_ConvertRawWholeDisk)
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime()
    ->ArgName("workers")
    ->Arg(1)
    ->Arg(0);

void BM_ConvertEncWholeDisk(benchmark::State& state) {
    ZEBDisk d;
    MakeDisk(d);
    d.workers = static_cast<int32_t>(state.range(0));
    d.ConvertRaw();
    for (auto _ : state) {
        benchmark::DoNotOptimize(d.ConvertEnc());
        state.PauseTiming();
        d.ConvertRaw();
        state.ResumeTiming();
    }
}
BENCHMARK(BM_ConvertEncWholeDisk)
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime()
    ->ArgName("workers")
    ->Arg(1)
    ->Arg(0);

}  // namespace

BENCHMARK_MAIN();
