#include <gtest/gtest.h>

#include "store/journal.h"

TEST(Journal, Starts) { EXPECT_EQ(sizeof(store::Journal), sizeof(int)); }
