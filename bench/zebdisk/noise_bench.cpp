// Noisy flux captures to D88 images, as zebconv runs them: a 40-cylinder
// single-sided DD disk of three revolutions a track, and an 80-cylinder PC-98
// 2HD disk of two, both with transitions off their cells by 0.03 cells (one
// standard deviation), the speed wobbling and the index anywhere. Each
// iteration reads the capture and writes the image; the captures are made
// once, before. Beside the timings, the share of sectors that come back from
// the noise table's disks under heavy noise. Peak memory: bench/e2e.sh.
#include <benchmark/benchmark.h>
#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <string>

#include "noisecapture.h"

namespace {

using noisecapture::Geometry;

std::string g_dir;
std::string g_dd, g_hd;  // the captures

std::string Make(const Geometry& g, int revolutions) {
    fluxsynth::Noise n;
    n.sigma = 0.03;
    n.revolutions = revolutions;
    VDisk source;
    const std::string file = noisecapture::WriteCapture(g, n, g_dir + "/" + g.name, false, source);
    if (file.empty()) {
        std::fprintf(stderr, "could not encode %s in %s\n", g.name, g_dir.c_str());
        std::exit(1);
    }
    return file;
}

void ToD88(benchmark::State& state, const std::string& capture) {
    const Filepath in = noisecapture::PathOf(capture);
    const Filepath out = noisecapture::PathOf(g_dir + "/out.d88");
    for (auto _ : state) {
        ZEBDisk d;
        if (!d.Import(in, 1) || !d.Export(out, 0)) {
            state.SkipWithError("conversion failed");
            break;
        }
    }
    state.counters["capture_MiB"] =
        static_cast<double>(std::filesystem::file_size(capture)) / (1 << 20);
}

void BM_NoisyScpDD40x1x3RevolutionsToD88(benchmark::State& state) {
    ToD88(state, g_dd);
}
BENCHMARK(BM_NoisyScpDD40x1x3RevolutionsToD88)->Unit(benchmark::kMillisecond);

void BM_NoisyScp2HD80x2x2RevolutionsToD88(benchmark::State& state) {
    ToD88(state, g_hd);
}
BENCHMARK(BM_NoisyScp2HD80x2x2RevolutionsToD88)->Unit(benchmark::kMillisecond);

// Sectors good, in percent, at heavy noise on each disk of the noise table.
void RecoveryTable() {
    std::printf("%-18s", "sectors good");
    const double sigmas[] = {0.03, 0.05, 0.07, 0.09, 0.11, 0.13};
    for (double s : sigmas) std::printf(" %7s%.2f", "sigma ", s);
    std::printf("\n");
    for (const Geometry& g : noisecapture::kNoiseDisks) {
        std::printf("%-18s", g.name);
        for (double s : sigmas) {
            fluxsynth::Noise n;
            n.sigma = s;
            const auto r = noisecapture::Recover(g, n, g_dir + "/table");
            std::printf(" %10.1f%%", r.sectors ? 100.0 * r.good / r.sectors : 0.0);
        }
        std::printf("\n");
    }
    std::fflush(stdout);
}

}  // namespace

int main(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    g_dir = (std::filesystem::temp_directory_path() /
             ("zebkit_noise_bench_" + std::to_string(getpid())))
                .string();
    std::filesystem::create_directories(g_dir);
    g_dd = Make(noisecapture::kBenchDD, 3);
    g_hd = Make(noisecapture::kBench2HD, 2);
    RecoveryTable();
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    if (!std::getenv("ZEBKIT_KEEP_BENCH_FILES")) std::filesystem::remove_all(g_dir);
    return 0;
}
