#include <zrbase/path.h>

#include <gtest/gtest.h>

namespace {

TEST(PathTest, SplitsDirectoryNameAndSuffix) {
    struct Case {
        const char* path;
        const char* directory;
        const char* name;
        const char* suffix;
    };
    const Case cases[] = {
        {"/var/log/plaiva/plaiva.log", "/var/log/plaiva", "plaiva", ".log"},
        {"/var/log/app/trace", "/var/log/app", "trace", ""},
        {"/a.b/c", "/a.b", "c", ""},
        {"archive.tar.gz", "", "archive.tar", ".gz"},
        {"/home/u/.profile", "/home/u", ".profile", ""},
        {"/root.txt", "/", "root", ".txt"},
        {"dir/", "dir", "", ""},
        {"", "", "", ""},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(zrbase::path_directory(c.path), c.directory) << c.path;
        EXPECT_EQ(zrbase::path_name(c.path), c.name) << c.path;
        EXPECT_EQ(zrbase::path_suffix(c.path), c.suffix) << c.path;
    }
}

TEST(PathTest, BuildsPathsFromPieces) {
    std::string path;
    zrbase::path_set_directory(path, "/var/log/plaiva");
    EXPECT_EQ(path, "/var/log/plaiva");
    path += '/';
    zrbase::path_set_file(path, "plaiva.log");
    EXPECT_EQ(path, "/var/log/plaiva/plaiva.log");
    zrbase::path_set_directory(path, "/tmp");
    EXPECT_EQ(path, "/tmp/plaiva.log");
    zrbase::path_set_directory(path, "/srv/");
    EXPECT_EQ(path, "/srv/plaiva.log");
    zrbase::path_set_file(path, "other");
    EXPECT_EQ(path, "/srv/other");

    const char* const joins[][3] = {{"/home/u", "/Library/Plugins", "/home/u/Library/Plugins"},
                                    {"/home/u/", "/Library", "/home/u/Library"},
                                    {"/home/u/", "Library", "/home/u/Library"},
                                    {"a", "b", "a/b"},
                                    {"", "b", "b"},
                                    {"a", "", "a"}};
    for (const auto& j : joins) {
        std::string joined = j[0];
        zrbase::path_append(joined, j[1]);
        EXPECT_EQ(joined, j[2]);
    }
}

TEST(PathTest, FindsUrlScheme) {
    EXPECT_EQ(zrbase::url_scheme("RTMP://host/app", true), "rtmp");
    EXPECT_EQ(zrbase::url_scheme("RTMP://host/app", false), "RTMP");
    EXPECT_EQ(zrbase::url_scheme("x-a.b+c:rest", true), "x-a.b+c");
    for (const char* none : {"/tmp/a:b", "1ab://x", "rtsp", "", ":x", "a b:c"}) {
        EXPECT_EQ(zrbase::url_scheme(none, true), "") << none;
    }
}

}  // namespace
