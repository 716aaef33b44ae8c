#include <gtest/gtest.h>

#include "store/archive.h"

TEST(Archive, Keeps) {
  store::Archive archive;
  EXPECT_EQ(archive.keep(2), 2);
  EXPECT_EQ(archive.keep(3), 3);
}
