#include <zrcore/plugins.h>
#include <zrcore/reader.h>

#include "support/Plugins.h"
#include "support/TestSupport.h"

#include <gtest/gtest.h>

#include <sys/stat.h>
#include <unistd.h>

#include <string>
#include <vector>

namespace {

using cmtest::writeDescriptor;
using cmtest::writeScriptedPlugin;
using Ids = std::vector<std::string>;

// The text a scripted reader serves before it is opened: its identifier.
std::string contentOf(const ZR::RPtr<zrcore::plugin>& object) {
    auto* reader = dynamic_cast<zrcore::reader*>(object.addr());
    if (!reader) {
        return "not a reader";
    }
    char buffer[256];
    return std::string(buffer, reader->read(buffer, sizeof buffer));
}

TEST(PluginsTest, FindsIdentifiersByWholeMatchInRegistryOrder) {
    cmtest::TempDir first;
    cmtest::TempDir second;
    // Descriptors count in name order, whatever order they were written in.
    writeScriptedPlugin(first.path(), "b", {"io/read/beta/one", "io/read/alpha/one"});
    writeScriptedPlugin(first.path(), "a", {"io/read/alpha/two"});
    writeScriptedPlugin(second.path(), "c", {"io/read/alpha/three", "io/read/alpha/two"});
    zrcore::plugins registry(cmtest::pluginDtdDirectory());
    EXPECT_EQ(registry.load_plugins(first.path()), 3u);
    EXPECT_EQ(registry.load_plugins(second.path()), 1u);  // alpha/two is already provided
    EXPECT_EQ(registry.load_plugins(first.path() + "/missing"), 0u);

    EXPECT_EQ(registry.find_plugins("io/read/alpha/.+"),
              (Ids{"io/read/alpha/two", "io/read/alpha/one", "io/read/alpha/three"}));
    EXPECT_EQ(registry.find_plugins(".*"), (Ids{"io/read/alpha/two", "io/read/beta/one",
                                                "io/read/alpha/one", "io/read/alpha/three"}));
    EXPECT_TRUE(registry.find_plugins("alpha").empty());  // the whole identifier must match
    EXPECT_TRUE(registry.find_plugins("io/read/(").empty());
    // A pattern built from a hostile URI's scheme: refused, not compiled into a deep
    // recursion.
    EXPECT_TRUE(registry.find_plugins("io/read/" + std::string(200000, 'a') + "/.+").empty());
}

TEST(PluginsTest, SkipsDescriptorsThatDoNotValidateOrReachOutside) {
    cmtest::TempDir dir;
    writeScriptedPlugin(dir.path(), "good", {"io/read/good/one"});
    writeDescriptor(dir.path(), "broken", "<plugin library=\"scripted.so\"><provides");
    writeDescriptor(dir.path(), "unknown",
                    "<plugin library=\"scripted.so\"><provides id=\"io/read/u/1\"/><extra/>"
                    "</plugin>");
    writeDescriptor(dir.path(), "empty", "<plugin library=\"scripted.so\"></plugin>");
    writeDescriptor(dir.path(), "root", "<provides id=\"io/read/root/1\"/>");
    writeDescriptor(dir.path(), "nolibrary", "<plugin><provides id=\"io/read/n/1\"/></plugin>");
    writeDescriptor(dir.path(), "outside",
                    "<plugin library=\"../scripted.so\"><provides id=\"io/read/o/1\"/></plugin>");
    writeDescriptor(dir.path(), "longid",
                    "<plugin library=\"scripted.so\"><provides id=\"" + std::string(5000, 'x') +
                        "\"/></plugin>");
    // A FIFO would block a reader that opened it for reading without care.
    ASSERT_EQ(::mkfifo(dir.file("fifo.plugin.xml").c_str(), 0600), 0);
    ASSERT_EQ(::mkdir(dir.file("dir.plugin.xml").c_str(), 0700), 0);

    zrcore::plugins registry(cmtest::pluginDtdDirectory());
    EXPECT_EQ(registry.load_plugins(dir.path()), 1u);
    EXPECT_EQ(registry.find_plugins(".*"), Ids{"io/read/good/one"});

    // Without its document type the registry trusts no descriptor.
    zrcore::plugins blind(dir.path());
    EXPECT_EQ(blind.load_plugins(dir.path()), 0u);
    EXPECT_TRUE(blind.find_plugins(".*").empty());
}

TEST(PluginsTest, CreatesObjectsThatOutliveTheRegistry) {
    cmtest::TempDir dir;
    writeScriptedPlugin(
        dir.path(), "scripted",
        {"io/read/x/one", "io/read/x/notreader", "io/read/x/null", "io/read/x/throws"});
    writeDescriptor(dir.path(), "missing",
                    "<plugin library=\"absent.so\"><provides id=\"io/missing\"/></plugin>");
    // A shared object without the entry point: libzr itself.
    ASSERT_EQ(::symlink(CM_BINARY_DIR "/lib/libzr.so", dir.file("noentry.so").c_str()), 0);
    writeDescriptor(dir.path(), "noentry",
                    "<plugin library=\"noentry.so\"><provides id=\"io/noentry\"/></plugin>");

    ZR::RPtr<zrcore::plugin> first;
    ZR::RPtr<zrcore::plugin> second;
    {
        zrcore::plugins registry(cmtest::pluginDtdDirectory());
        ASSERT_EQ(registry.load_plugins(dir.path()), 6u);
        first = registry.create_with_id("io/read/x/one");
        second = registry.create_with_id("io/read/x/one");
        const auto plain = registry.create_with_id("io/read/x/notreader");
        ASSERT_TRUE(plain);
        EXPECT_EQ(dynamic_cast<zrcore::reader*>(plain.addr()), nullptr);
        EXPECT_FALSE(registry.create_with_id("io/read/x/null"));
        EXPECT_FALSE(registry.create_with_id("io/read/x/throws"));
        EXPECT_FALSE(registry.create_with_id("io/read/x/unregistered"));
        EXPECT_FALSE(registry.create_with_id("io/missing"));
        EXPECT_FALSE(registry.create_with_id("io/noentry"));
    }
    ASSERT_TRUE(first);
    EXPECT_NE(first, second);
    EXPECT_EQ(first->retain_count(), 1);
    // The registry is gone; the objects' code must still be there.
    EXPECT_EQ(contentOf(first), "io/read/x/one");
    EXPECT_EQ(contentOf(second), "io/read/x/one");
}

TEST(PluginsTest, ConcurrentCreationGivesEveryThreadItsOwnReader) {
    // Eight threads create readers of two identifiers of one library that none has loaded
    // yet, while looking identifiers up; each must get a working object of its own.
    cmtest::TempDir dir;
    writeScriptedPlugin(dir.path(), "scripted", {"io/read/x/even", "io/read/x/odd"});
    zrcore::plugins registry(cmtest::pluginDtdDirectory());
    ASSERT_EQ(registry.load_plugins(dir.path()), 2u);
    std::vector<std::string> seen(8);
    cmtest::runConcurrently(8, [&](int index) {
        const std::string id = index % 2 ? "io/read/x/odd" : "io/read/x/even";
        if (registry.find_plugins(id).size() == 1) {
            seen[index] = contentOf(registry.create_with_id(id));
        }
    });
    for (int index = 0; index < 8; ++index) {
        EXPECT_EQ(seen[index], index % 2 ? "io/read/x/odd" : "io/read/x/even");
    }
}

}  // namespace
