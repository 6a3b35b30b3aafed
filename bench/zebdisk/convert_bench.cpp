// Whole-disk conversions end to end, as zebconv runs them: a 1.44 MB plain
// image to an encoded ZEB and to a raw ZEB, a raw ZEB back to a plain image,
// and an HFE file to a plain image and back. Each iteration reads and writes
// real files. The argument is the disk's workers: 1 runs every track on the
// calling thread, 0 one worker per core.
#include <benchmark/benchmark.h>
#include <sys/resource.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <random>
#include <string>
#include <vector>

#include "fileio/filepath.h"
#include "zebdisk/zebdisk.h"

namespace {

std::string g_dir;

std::string In(const char* name) {
    return g_dir + "/" + name;
}

Filepath PathOf(const std::string& name) {
    Filepath p;
    p.SetPath(name.c_str());
    return p;
}

void PeakCounter(benchmark::State& state) {
    rusage ru{};
    getrusage(RUSAGE_SELF, &ru);
    state.counters["peak_rss_MiB"] = static_cast<double>(ru.ru_maxrss) / 1024.0;
}

void Prepare() {
    g_dir = (std::filesystem::temp_directory_path() /
             ("zebkit_convert_bench_" + std::to_string(getpid())))
                .string();
    std::filesystem::create_directories(g_dir);
    std::mt19937 rng(1);
    std::vector<uint8_t> image(1474560);
    for (auto& b : image) b = static_cast<uint8_t>(rng());
    std::ofstream(In("disk.2hq"), std::ios::binary)
        .write(reinterpret_cast<const char*>(image.data()),
               static_cast<std::streamsize>(image.size()));

    ZEBDisk d;
    if (!d.Import(PathOf(In("disk.2hq")), 1) || !d.ExportHFE(PathOf(In("disk.hfe"))) ||
        !d.ConvertRaw() || !d.Save(PathOf(In("raw.zeb")), 1)) {
        std::fprintf(stderr, "could not prepare the sample files in %s\n", g_dir.c_str());
        std::exit(1);
    }
}

void BM_PlainToZeb(benchmark::State& state) {
    for (auto _ : state) {
        ZEBDisk d;
        d.workers = static_cast<int32_t>(state.range(0));
        if (!d.Import(PathOf(In("disk.2hq")), 1) || !d.Save(PathOf(In("out_enc.zeb")), 1))
            state.SkipWithError("conversion failed");
    }
    PeakCounter(state);
}
BENCHMARK(BM_PlainToZeb)
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime()
    ->ArgName("workers")
    ->Arg(1)
    ->Arg(0);

void BM_PlainToRawZeb(benchmark::State& state) {
    for (auto _ : state) {
        ZEBDisk d;
        d.workers = static_cast<int32_t>(state.range(0));
        if (!d.Import(PathOf(In("disk.2hq")), 1) || !d.ConvertRaw() ||
            !d.Save(PathOf(In("out_raw.zeb")), 1))
            state.SkipWithError("conversion failed");
    }
    PeakCounter(state);
}
BENCHMARK(BM_PlainToRawZeb)
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime()
    ->ArgName("workers")
    ->Arg(1)
    ->Arg(0);

void BM_RawZebToPlain(benchmark::State& state) {
    for (auto _ : state) {
        ZEBDisk d;
        d.workers = static_cast<int32_t>(state.range(0));
        if (!d.Load(PathOf(In("raw.zeb")), 0) || !d.Export(PathOf(In("out_from_raw.2hq")), 0))
            state.SkipWithError("conversion failed");
    }
    PeakCounter(state);
}
BENCHMARK(BM_RawZebToPlain)
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime()
    ->ArgName("workers")
    ->Arg(1)
    ->Arg(0);

void BM_HfeToPlain(benchmark::State& state) {
    for (auto _ : state) {
        ZEBDisk d;
        d.workers = static_cast<int32_t>(state.range(0));
        if (!d.Import(PathOf(In("disk.hfe")), 1) || !d.Export(PathOf(In("out_from_hfe.2hq")), 0))
            state.SkipWithError("conversion failed");
    }
    PeakCounter(state);
}
BENCHMARK(BM_HfeToPlain)
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime()
    ->ArgName("workers")
    ->Arg(1)
    ->Arg(0);

void BM_PlainToHfe(benchmark::State& state) {
    for (auto _ : state) {
        ZEBDisk d;
        d.workers = static_cast<int32_t>(state.range(0));
        if (!d.Import(PathOf(In("disk.2hq")), 1) || !d.Export(PathOf(In("out.hfe")), 0))
            state.SkipWithError("conversion failed");
    }
    PeakCounter(state);
}
BENCHMARK(BM_PlainToHfe)
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime()
    ->ArgName("workers")
    ->Arg(1)
    ->Arg(0);

}  // namespace

int main(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    Prepare();
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    std::error_code ec;
    std::filesystem::remove_all(g_dir, ec);
    return 0;
}
