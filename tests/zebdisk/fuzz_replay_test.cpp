// Replays every input that ever made a fuzz target fail through the same entry
// function, so the sanitizer build of the test suite keeps them fixed.
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>

#include "../../fuzz/fuzz_entries.h"
#include "zebdisk/zebdisk_file_builder.h"

namespace {

namespace fs = std::filesystem;

TEST(FuzzReplay, EveryRegressionInputRunsCleanThroughItsTarget) {
    const fs::path regressions = fs::path(__FILE__).parent_path() / "../../fuzz/regressions";
    ASSERT_TRUE(fs::is_directory(regressions)) << regressions;
    int replayed = 0;
    for (const fs::directory_entry& dir : fs::directory_iterator(regressions)) {
        if (!dir.is_directory()) continue;
        const auto e =
            std::find_if(std::begin(zebfuzz::kEntries), std::end(zebfuzz::kEntries),
                         [&](const zebfuzz::Entry& x) { return dir.path().filename() == x.name; });
        ASSERT_NE(e, std::end(zebfuzz::kEntries)) << "no fuzz target named " << dir.path();
        for (const fs::directory_entry& f : fs::directory_iterator(dir.path())) {
            SCOPED_TRACE(f.path().string());
            const zebtest::Bytes data = zebtest::Slurp(f.path().string());
            e->run(data.data(), data.size());
            replayed++;
        }
    }
    EXPECT_GT(replayed, 0);
}

}  // namespace
