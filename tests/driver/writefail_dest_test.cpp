// Destinations that cannot be written end the run with the save or export
// failure and status 14, and the source file stays as it was, also when the
// source is the destination.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdint>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <random>
#include <string>
#include <vector>

namespace {

using Bytes = std::vector<uint8_t>;

Bytes ReadFile(const std::string& name) {
    std::ifstream f(name, std::ios::binary);
    return Bytes(std::istreambuf_iterator<char>(f), {});
}

void WriteFile(const std::string& name, const Bytes& data) {
    std::ofstream f(name, std::ios::binary | std::ios::trunc);
    f.write(reinterpret_cast<const char*>(data.data()), static_cast<std::streamsize>(data.size()));
}

struct RunResult {
    int status = -1;
    std::string err;
};

RunResult Zebconv(const std::string& src, const std::string& dst) {
    const std::string err = "wf_run.stderr";
    const std::string cmd =
        std::string(ZEBCONV_PATH) + " -i " + src + " -o " + dst + " >/dev/null 2>" + err;
    const int rc = std::system(cmd.c_str());
    RunResult r;
    if (rc != -1 && WIFEXITED(rc)) r.status = WEXITSTATUS(rc);
    std::ifstream f(err, std::ios::binary);
    r.err.assign(std::istreambuf_iterator<char>(f), {});
    return r;
}

// A 2DD plain image of random bytes and the ZEB file made from it.
void MakeSources() {
    Bytes img(737280);
    std::mt19937 rng(14);
    for (auto& b : img) b = static_cast<uint8_t>(rng());
    WriteFile("wf_src.2dd", img);
    ASSERT_EQ(Zebconv("wf_src.2dd", "wf_src.zeb").status, 0);
    ASSERT_EQ(Zebconv("wf_src.2dd", "wf_src.d88").status, 0);
}

// A directory no write can create a file in: /proc even for root, otherwise
// a directory without write permission.
std::string UnwritableDir() {
    if (geteuid() == 0) return "/proc";
    mkdir("wf_ro", 0755);
    chmod("wf_ro", 0555);
    return "wf_ro";
}

TEST(WriteFailure, UnwritableDestinationsFailWithStatus14AndKeepTheSource) {
    MakeSources();
    mkdir("wf_dir.d88", 0755);
    mkdir("wf_dir.zeb", 0755);
    // The full device accepts the open and fails every write.
    for (const char* name : {"wf_full.zeb", "wf_full.hfe", "wf_full.fdd", "wf_full.2dd"}) {
        unlink(name);
        ASSERT_EQ(symlink("/dev/full", name), 0);
    }
    const std::string ro = UnwritableDir();

    const struct {
        const char* src;
        std::string dst;
        const char* result;
    } cases[] = {
        {"wf_src.2dd", "wf_dir.d88", "Export failed"},
        {"wf_src.2dd", "wf_dir.zeb", "Save failed"},
        {"wf_src.zeb", "wf_dir.zeb", "Save failed"},
        {"wf_src.2dd", ro + "/wf_out.nfd", "Export failed"},
        {"wf_src.2dd", ro + "/wf_out.zeb", "Save failed"},
        {"wf_src.d88", "wf_missing/wf_out.dim", "Export failed"},
        {"wf_src.2dd", "wf_full.zeb", "Save failed"},
        {"wf_src.zeb", "wf_full.hfe", "Export failed"},
        {"wf_src.d88", "wf_full.fdd", "Export failed"},
        {"wf_src.zeb", "wf_full.2dd", "Export failed"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(std::string(c.src) + " -> " + c.dst);
        const Bytes before = ReadFile(c.src);
        const RunResult r = Zebconv(c.src, c.dst);
        EXPECT_EQ(r.status, 14);
        EXPECT_NE(r.err.find(std::string("Result             : ") + c.result + "\n"),
                  std::string::npos)
            << r.err;
        EXPECT_EQ(ReadFile(c.src), before);
    }
    chmod("wf_ro", 0755);
}

TEST(WriteFailure, SourceAsDestinationIsNeverDamaged) {
    MakeSources();
    const struct {
        const char* from;  // copied to the name that is both source and destination
        const char* same;
        int status;
    } cases[] = {
        // 2DD bytes under a 2HD name: read by size, refused by the 2HD writer.
        {"wf_src.2dd", "wf_same.2hd", 14},
        {"wf_src.zeb", "wf_same.zeb", 0},
        {"wf_src.d88", "wf_same.d88", 0},
        {"wf_src.2dd", "wf_same.2dd", 0},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.same);
        const Bytes before = ReadFile(c.from);
        ASSERT_FALSE(before.empty());
        WriteFile(c.same, before);
        EXPECT_EQ(Zebconv(c.same, c.same).status, c.status);
        EXPECT_EQ(ReadFile(c.same), before);
    }
}

}  // namespace
