// Decoding a whole 2HD disk, from cells and from raw samples. One iteration
// decodes every track of the disk.
#include <benchmark/benchmark.h>

#include <cstdint>
#include <vector>

#include "track/decoder_stream.h"
#include "track/vtrack.h"

namespace {

struct Disk {
    int cells;
    int raw;
    std::vector<std::vector<uint8_t>> tracks;
};

Disk MakeDisk(int tracks, int count, uint8_t n, int gap3, int cells, int raw) {
    Disk d{cells, raw, {}};
    for (int tr = 0; tr < tracks; ++tr) {
        VTrack t;
        for (int i = 0; i < count; ++i) {
            auto* s = new VSector;
            s->mfm = 1;
            s->idC = static_cast<uint8_t>(tr / 2);
            s->idH = static_cast<uint8_t>(tr % 2);
            s->idR = static_cast<uint8_t>(i + 1);
            s->idN = n;
            s->gap2 = 22;
            s->gap3 = gap3;
            const auto data = dectest::Pattern(128 << n, tr * 64 + i);
            s->SetData(data.data(), static_cast<int>(data.size()));
            t.AddSector(s);
        }
        const int len = raw ? cells * 8 : cells;
        std::vector<uint8_t> buf(static_cast<size_t>(raw ? cells : (cells + 7) / 8), 0);
        t.Encode(raw, buf.data(), len);
        t.Cleanup();
        d.tracks.push_back(std::move(buf));
    }
    return d;
}

void DecodeDisk(benchmark::State& state, Disk& d, int expectSectors) {
    VTrack t;
    for (auto _ : state) {
        int sectors = 0;
        for (auto& tr : d.tracks) {
            t.Decode(d.raw, tr.data(), d.raw ? d.cells * 8 : d.cells, 0);
            sectors += t.SectorCount();
        }
        if (sectors != expectSectors) state.SkipWithError("sectors lost");
        benchmark::DoNotOptimize(sectors);
    }
    t.Cleanup();
}

void BM_DecodeCells_8x1024(benchmark::State& state) {
    static Disk d = MakeDisk(154, 8, 3, 116, 166666, 0);
    DecodeDisk(state, d, 154 * 8);
}
void BM_DecodeCells_18x512(benchmark::State& state) {
    static Disk d = MakeDisk(160, 18, 2, 84, 200000, 0);
    DecodeDisk(state, d, 160 * 18);
}
void BM_DecodeRaw_8x1024(benchmark::State& state) {
    static Disk d = MakeDisk(154, 8, 3, 116, 166666, 1);
    DecodeDisk(state, d, 154 * 8);
}
void BM_DecodeRaw_18x512(benchmark::State& state) {
    static Disk d = MakeDisk(160, 18, 2, 84, 200000, 1);
    DecodeDisk(state, d, 160 * 18);
}

BENCHMARK(BM_DecodeCells_8x1024)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_DecodeCells_18x512)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_DecodeRaw_8x1024)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_DecodeRaw_18x512)->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
