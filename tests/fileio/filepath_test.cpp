#include <gtest/gtest.h>

#include "fileio/filepath.h"

TEST(Filepath, ClearPathIsClear) {
    Filepath p;
    EXPECT_TRUE(p.IsClear());
}
