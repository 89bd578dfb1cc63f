#include <cm/CMSysConf.h>

#include <gtest/gtest.h>

#include "support/TestSupport.h"

#include <climits>
#include <fstream>
#include <string>
#include <vector>

using ZR::CM::sys_conf;

namespace {

// Each test case runs in a process of its own, so the instance starts empty every time.
std::string write(const cmtest::TempDir& dir, const std::string& name, const std::string& text) {
    const std::string path = dir.file(name);
    std::ofstream(path) << text;
    return path;
}

const char kDtd[] = R"(<!ELEMENT cfg (common)>
<!ELEMENT common (dir | empty | flag | level | logging)*>
<!ELEMENT dir (#PCDATA)>
<!ELEMENT empty (#PCDATA)>
<!ELEMENT flag (#PCDATA)>
<!ELEMENT level (#PCDATA)>
<!ELEMENT logging (filelog-path)*>
<!ELEMENT filelog-path (#PCDATA)>
)";

}  // namespace

TEST(SysConfTest, FlattensElementsIntoDottedKeysAndAccumulatesRepeats) {
    cmtest::TempDir dir;
    write(dir, "cfg.dtd", kDtd);
    const std::string path = write(dir, "cfg.xml", R"(<?xml version="1.0"?>
<!DOCTYPE cfg SYSTEM "cfg.dtd">
<cfg>
  <common>
    <dir>a</dir>
    <dir>b</dir>
    <logging><filelog-path>@logs</filelog-path></logging>
    <empty></empty>
    <flag>TRUE</flag>
    <level>42abc</level>
  </common>
</cfg>)");
    sys_conf& conf = sys_conf::instance();
    EXPECT_FALSE(conf.is_config_loaded());
    ASSERT_TRUE(conf.load_file(path.c_str(), "/opt/app/"));
    EXPECT_TRUE(conf.is_config_loaded());

    EXPECT_EQ(conf.get_value("common.dir", "x"), "a;b");
    EXPECT_EQ(conf.get_value("common.logging.filelog-path", ""), "/opt/app/logs");
    EXPECT_EQ(conf.get_value("common.empty", "fallback"), "fallback");
    EXPECT_EQ(conf.get_int("common.empty", 7), 7);
    EXPECT_FALSE(conf.get_bool("common.flag", true));  // exact comparison: TRUE is not true
    EXPECT_EQ(conf.get_int("common.level", 0), 42);
    EXPECT_EQ(conf.get_value("cfg.common.dir", "root names no key"), "root names no key");

    // Loaded once per process: another file is not read, until the store is cleared. A
    // self-closing element is entered and never left.
    const std::string other =
        write(dir, "other.xml", "<cfg><common><dir>z</dir><gone/><after>v</after></common></cfg>");
    EXPECT_TRUE(conf.load_file(other.c_str(), "/"));
    EXPECT_EQ(conf.get_value("common.dir", ""), "a;b");
    conf.clear();
    EXPECT_FALSE(conf.is_config_loaded());
    EXPECT_TRUE(conf.values().empty());
    conf.set_validation(false);
    EXPECT_TRUE(conf.load_file(other.c_str(), "/"));
    EXPECT_EQ(conf.get_value("common.dir", ""), "z");
    EXPECT_EQ(conf.get_value("common.gone.after", ""), "v");
}

TEST(SysConfTest, TypedGettersAndSetters) {
    sys_conf& conf = sys_conf::instance();
    conf.set_value("k.text", "avc1");
    conf.set_value("k.five", "abcde");
    EXPECT_EQ(conf.get_fourcc("k.text", "none"), 0x61766331u);
    EXPECT_EQ(conf.get_fourcc("k.missing", "mp4a"), 0x6d703461u);
    EXPECT_EQ(conf.get_fourcc("k.five", "xxxx"), 0u);
    EXPECT_EQ(conf.get_fourcc("k.missing", "abc"), 0u);
    for (const char* yes : {"true", "yes", "1", "on"}) {
        conf.set_value("k.b", yes);
        EXPECT_TRUE(conf.get_bool("k.b", false)) << yes;
    }
    conf.set_value("k.b", "off");
    EXPECT_FALSE(conf.get_bool("k.b", true));

    // Setters store text.
    conf.set_bool("k.b", true);
    conf.set_int("k.i", -17);
    conf.set_float("k.f", 1.0f / 3.0f);
    conf.set_fourcc("k.cc", 0x76696465);
    EXPECT_EQ(conf.get_value("k.b", ""), "true");
    EXPECT_EQ(conf.get_value("k.i", ""), "-17");
    EXPECT_EQ(conf.get_value("k.f", ""), "0.333333");
    EXPECT_FLOAT_EQ(conf.get_float("k.f", 0.0f), 0.333333f);
    EXPECT_EQ(conf.get_value("k.cc", ""), "vide");

    conf.append_value("k.list", "a");
    conf.append_value("k.list", "");
    conf.append_value("k.list", "c");
    conf.set_value("k.trailing", "x;;");
    std::vector<std::string> pieces{"before"};
    conf.get_array(pieces, "k.list", ';');
    EXPECT_EQ(pieces, (std::vector<std::string>{"before", "a", "", "c"}));
    pieces.clear();
    conf.get_array(pieces, "k.trailing", ';');
    conf.get_array(pieces, "k.absent", ';');
    EXPECT_EQ(pieces, (std::vector<std::string>{"x", ""}));
}

// The shipped definition keeps the two log ports under "loggin", as existing files spell
// them, and nowhere else; "@" stands for the root in values.
TEST(SysConfTest, ShippedDefinitionTakesTheLogginPortKeysAndRootSubstitution) {
    cmtest::TempDir dir;
    const std::string head = "<?xml version=\"1.0\"?>\n<!DOCTYPE cm-config SYSTEM \"" CM_SOURCE_DIR
                             "/data/cm-config.dtd\">\n<cm-config><common>";
    sys_conf& conf = sys_conf::instance();
    const std::string misplaced =
        write(dir, "misplaced.xml",
              head + "<logging><tcp-port>1</tcp-port></logging></common></cm-config>");
    testing::internal::CaptureStderr();
    EXPECT_FALSE(conf.load_file(misplaced.c_str(), ""));
    EXPECT_NE(testing::internal::GetCapturedStderr().find("tcp-port"), std::string::npos);

    const std::string path = write(dir, "cm.conf", head + R"(
    <component-path>@components</component-path>
    <logging><udp-host>127.0.0.1</udp-host><tcp-host>localhost</tcp-host></logging>
    <loggin><udp-port>5140</udp-port><tcp-port>6514</tcp-port></loggin>
  </common></cm-config>)");
    ASSERT_TRUE(conf.load_file(path.c_str(), "/srv/cm/"));
    EXPECT_EQ(conf.get_int("common.loggin.udp-port", 0), 5140);
    EXPECT_EQ(conf.get_int("common.loggin.tcp-port", 0), 6514);
    EXPECT_EQ(conf.get_int("common.logging.udp-port", -1), -1);
    EXPECT_EQ(conf.get_value("common.logging.udp-host", ""), "127.0.0.1");
    EXPECT_EQ(conf.get_value("common.component-path", ""), "/srv/cm/components");
}

TEST(ItoaTest, WritesSignedDecimal) {
    char buffer[16];
    const std::pair<int, const char*> cases[] = {
        {0, "0"}, {7, "7"}, {-7, "-7"}, {INT_MAX, "2147483647"}, {INT_MIN, "-2147483648"}};
    for (const auto& c : cases) {
        ZR::CM::itoa(c.first, buffer);
        EXPECT_STREQ(buffer, c.second);
    }
}
