#include <zrbase/exception.h>
#include <zrbase/string_with_format.h>

#include <gtest/gtest.h>

#include <cerrno>
#include <string>

TEST(StringWithFormatTest, FormatsAnyLength) {
    EXPECT_EQ(zrbase::string_with_format("%d-%s", 5, "x"), "5-x");
    EXPECT_EQ(zrbase::string_with_format("%s", ""), "");
    EXPECT_EQ(zrbase::string_with_format("%s", std::string(10000, 'y').c_str()).size(), 10000u);
}
