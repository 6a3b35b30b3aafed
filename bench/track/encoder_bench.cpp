// Whole-disk encoding: 2HD 8 x 1024 (154 tracks, 360 rpm) and 18 x 512 (160 tracks, 300 rpm).
#include <benchmark/benchmark.h>

#include <memory>
#include <vector>

#include "track/vtrack.h"

namespace {

struct Disk {
    std::vector<std::unique_ptr<VTrack>> tracks;
    int cells;
};

Disk MakeDisk(int trackCount, int sectorsPerTrack, int n, int gap3, int cells) {
    Disk d;
    d.cells = cells;
    const int length = 128 << n;
    std::vector<uint8_t> data(static_cast<size_t>(length));
    for (int t = 0; t < trackCount; ++t) {
        auto track = std::make_unique<VTrack>();
        for (int r = 1; r <= sectorsPerTrack; ++r) {
            for (int i = 0; i < length; ++i) data[i] = static_cast<uint8_t>(i * 13 + t * 7 + r);
            auto* s = new VSector;
            s->mfm = 1;
            s->idC = static_cast<uint8_t>(t / 2);
            s->idH = static_cast<uint8_t>(t % 2);
            s->idR = static_cast<uint8_t>(r);
            s->idN = static_cast<uint8_t>(n);
            s->SetData(data.data(), length);
            s->gap2 = 22;
            s->gap3 = gap3;
            track->AddSector(s);
        }
        d.tracks.push_back(std::move(track));
    }
    return d;
}

void EncodeDisk(benchmark::State& state, Disk& disk) {
    std::vector<unsigned char> buf(static_cast<size_t>(disk.cells + 7) / 8);
    for (auto _ : state) {
        for (auto& t : disk.tracks) {
            benchmark::DoNotOptimize(t->Encode(0, buf.data(), disk.cells));
        }
        benchmark::ClobberMemory();
    }
    state.SetItemsProcessed(state.iterations() * static_cast<int64_t>(disk.tracks.size()));
}

void BM_Encode2HD_8x1024(benchmark::State& state) {
    Disk disk = MakeDisk(154, 8, 3, 116, 166666);
    EncodeDisk(state, disk);
}

void BM_Encode2HD_18x512(benchmark::State& state) {
    Disk disk = MakeDisk(160, 18, 2, 84, 200000);
    EncodeDisk(state, disk);
}

}  // namespace

BENCHMARK(BM_Encode2HD_8x1024)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Encode2HD_18x512)->Unit(benchmark::kMillisecond);
BENCHMARK_MAIN();
