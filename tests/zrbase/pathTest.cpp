#include <zrbase/path.h>

#include <gtest/gtest.h>

namespace {

TEST(PathTest, SplitsAndBuildsPaths) {
    const char* const splits[][4] = {{"/var/log/app.log", "/var/log", "app", ".log"},
                                     {"/var/log/trace", "/var/log", "trace", ""},
                                     {"/a.b/c.tar.gz", "/a.b", "c.tar", ".gz"},
                                     {"/home/.profile", "/home", ".profile", ""},
                                     {"/x.y", "/", "x", ".y"},
                                     {"name", "", "name", ""}};
    for (const auto& s : splits) {
        EXPECT_EQ(zrbase::path_directory(s[0]), s[1]);
        EXPECT_EQ(zrbase::path_name(s[0]), s[2]);
        EXPECT_EQ(zrbase::path_suffix(s[0]), s[3]);
    }
    std::string path;
    zrbase::path_set_directory(path, "/var/log");
    path += '/';
    zrbase::path_set_file(path, "app.log");
    EXPECT_EQ(path, "/var/log/app.log");
    zrbase::path_set_directory(path, "/tmp");
    EXPECT_EQ(path, "/tmp/app.log");
    zrbase::path_append(path, "/x");
    zrbase::path_append(path, "y");
    EXPECT_EQ(path, "/tmp/app.log/x/y");

    EXPECT_EQ(zrbase::url_scheme("RTMP://host/app", true), "rtmp");
    EXPECT_EQ(zrbase::url_scheme("RTMP://host/app", false), "RTMP");
    for (const char* none : {"/tmp/a:b", "1a://x", "rtsp", "a b:c"}) {
        EXPECT_EQ(zrbase::url_scheme(none, true), "") << none;
    }
}

}  // namespace
