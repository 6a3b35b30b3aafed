// Flux captures to a plain sector image, as zebconv runs them: the real
// 360 KB KryoFlux set (when the folder is on this machine) and a 1.44 MB disk
// captured from code as a KryoFlux set and as an SCP file, three revolutions
// a track. Each iteration reads the capture and writes the image. Peak memory
// is zebconv's own (time -v): making the captures here takes far more.
#include <benchmark/benchmark.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <map>
#include <string>

#include "zebdisk/flux_builder.h"

namespace {

using namespace fluxtest;

std::string g_dir;
const std::string kReal =
    std::string(ZEBKIT_REALIMAGES_DIR) + "/flux/pc-sector-test-360k-kryoflux/track00.0.raw";

void ToImage(benchmark::State& state, const std::string& capture, const char* out) {
    const Filepath in = PathOf(capture), dst = PathOf(g_dir + "/" + out);
    for (auto _ : state) {
        ZEBDisk d;
        if (!d.Import(in, 1) || !d.Export(dst, 0)) {
            state.SkipWithError("conversion failed");
            break;
        }
    }
}

void Prepare() {
    g_dir =
        (std::filesystem::temp_directory_path() / ("zebkit_flux_bench_" + std::to_string(getpid())))
            .string();
    std::filesystem::create_directories(g_dir + "/set");

    // 80 cylinders of 18 x 512 bytes at 1000 kbit/s and 300 rpm.
    VDisk v;
    v.Init(VDISK_2HD, 80, 2);
    for (int c = 0; c < 80; c++)
        for (int h = 0; h < 2; h++) AddTrack(v, c, h, 1, 18, 2);
    Shape s;
    s.cellSeconds = 1e-6;
    s.speed = 1.01;
    const std::map<int, Flux> kf = Capture(v, g_dir + "/orig.d88", s);
    s.clockHz = 40e6;
    const std::map<int, Flux> scp = Capture(v, g_dir + "/orig.d88", s);
    if (kf.size() != 160 || scp.size() != 160) {
        std::fprintf(stderr, "could not encode the sample disk in %s\n", g_dir.c_str());
        std::exit(1);
    }
    for (const auto& [number, f] : kf) Spit(StreamName(g_dir + "/set", number), MakeStream(f));
    Spit(g_dir + "/hd.scp", MakeScp(scp));
}

void BM_RealKryoFlux360KToPlainImage(benchmark::State& state) {
    if (access(kReal.c_str(), R_OK) != 0) {
        state.SkipWithError("the real capture is not on this machine");
        return;
    }
    ToImage(state, kReal, "real.2d");
}
BENCHMARK(BM_RealKryoFlux360KToPlainImage)->Unit(benchmark::kMillisecond);

void BM_KryoFlux2HD3RevolutionsToPlainImage(benchmark::State& state) {
    ToImage(state, g_dir + "/set/track00.0.raw", "kf.2hq");
}
BENCHMARK(BM_KryoFlux2HD3RevolutionsToPlainImage)->Unit(benchmark::kMillisecond);

void BM_Scp2HD3RevolutionsToPlainImage(benchmark::State& state) {
    ToImage(state, g_dir + "/hd.scp", "scp.2hq");
}
BENCHMARK(BM_Scp2HD3RevolutionsToPlainImage)->Unit(benchmark::kMillisecond);

}  // namespace

int main(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    Prepare();
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    if (!std::getenv("ZEBKIT_KEEP_BENCH_FILES")) std::filesystem::remove_all(g_dir);
    return 0;
}
