// Replays every input that ever made a fuzz target fail through the same entry
// function, so the sanitizer build of the test suite keeps them fixed.
#include <gtest/gtest.h>

#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

#include "../../fuzz/fuzz_entries.h"

namespace {

namespace fs = std::filesystem;

const fs::path kRegressions = fs::path(__FILE__).parent_path() / "../../fuzz/regressions";

const zebfuzz::Entry* FindEntry(const std::string& name) {
    for (const zebfuzz::Entry& e : zebfuzz::kEntries)
        if (name == e.name) return &e;
    return nullptr;
}

TEST(FuzzReplay, EveryRegressionInputRunsCleanThroughItsTarget) {
    ASSERT_TRUE(fs::is_directory(kRegressions)) << kRegressions;
    int replayed = 0;
    for (const fs::directory_entry& dir : fs::directory_iterator(kRegressions)) {
        if (!dir.is_directory()) continue;
        const zebfuzz::Entry* e = FindEntry(dir.path().filename().string());
        ASSERT_NE(e, nullptr) << "no fuzz target named " << dir.path().filename();
        for (const fs::directory_entry& f : fs::directory_iterator(dir.path())) {
            if (!f.is_regular_file()) continue;
            SCOPED_TRACE(f.path().string());
            std::ifstream in(f.path(), std::ios::binary);
            const std::vector<uint8_t> data((std::istreambuf_iterator<char>(in)),
                                            std::istreambuf_iterator<char>());
            e->run(data.data(), data.size());
            replayed++;
        }
    }
    EXPECT_GT(replayed, 0);
}

}  // namespace
