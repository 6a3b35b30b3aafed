// The one real capture at hand: a KryoFlux set of a 360 KB IBM PC disk, three
// revolutions a track, against the sector image made from the same disk.
#include <gtest/gtest.h>
#include <unistd.h>

#include <string>

#include "zebdisk/flux_builder.h"

namespace {

const std::string kFolder = std::string(ZEBKIT_REALIMAGES_DIR) + "/flux";

TEST(RealCapture, KryoFluxSetDecodesToItsSectorImage) {
    const std::string set = kFolder + "/pc-sector-test-360k-kryoflux/track00.0.raw";
    const std::string image = kFolder + "/pc-sector-test-360k.img";
    if (access(set.c_str(), R_OK) != 0 || access(image.c_str(), R_OK) != 0)
        GTEST_SKIP() << "the real flux capture is not on this machine (" << kFolder << ")";

    ZEBDisk z;
    ASSERT_TRUE(z.Import(fluxtest::PathOf(set), 1)) << z.report.error;
    EXPECT_TRUE(z.report.warnings.empty());
    EXPECT_EQ(z.Type(), ZEB_RAW);
    EXPECT_EQ(z.Rate(), 4000);
    EXPECT_EQ(z.Rpm(), 300);
    EXPECT_EQ(z.Cylinders(), 42);
    char name[zebhdr::kNameLen];
    EXPECT_STREQ(z.GetName(name), "pc-sector-test-360k-kryoflux");  // the set's folder

    const std::string out = fluxtest::Scratch("real_360k.2d");
    ASSERT_TRUE(z.Export(fluxtest::PathOf(out), 0));
    const fluxtest::Bytes got = fluxtest::Slurp(out), want = fluxtest::Slurp(image);
    ASSERT_EQ(got.size(), 368640u);
    EXPECT_TRUE(got == want);
}

}  // namespace
