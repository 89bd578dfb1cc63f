#include <zrbase/exception.h>
#include <zrbase/string_with_format.h>

#include <gtest/gtest.h>

#include <cerrno>
#include <string>

TEST(ZrbaseExceptionTest, CallCarriesErrnoAndPlace) {
    try {
        zrbase::e::call::raise(ENOENT, "lib/zrbase/src/stream_file", 294, "/no/such");
        FAIL() << "raise returned";
    } catch (const zrbase::e::base& e) {
        const auto& call = dynamic_cast<const zrbase::e::call&>(e);
        EXPECT_EQ(call.error(), ENOENT);
        EXPECT_STREQ(call.file(), "lib/zrbase/src/stream_file");
        EXPECT_EQ(call.line(), 294u);
        EXPECT_EQ(e.description(),
                  "lib/zrbase/src/stream_file:294: No such file or directory: /no/such");
    }
    try {
        zrbase::e::call::raise(EACCES, "f", 1, nullptr);
    } catch (const zrbase::e::call& e) {
        EXPECT_STREQ(e.what(), "f:1: Permission denied");
    }
}

TEST(StringWithFormatTest, FormatsAnyLength) {
    EXPECT_EQ(zrbase::string_with_format("%d-%s", 5, "x"), "5-x");
    EXPECT_EQ(zrbase::string_with_format("%s", ""), "");
    EXPECT_EQ(zrbase::string_with_format("%s", std::string(10000, 'y').c_str()).size(), 10000u);
}
