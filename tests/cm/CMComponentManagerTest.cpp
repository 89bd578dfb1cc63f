#include <cm/CMComponentManager.h>

#include <cm/CMComponent.h>
#include <cm/CMQueue.h>
#include <cm/CMQueueRW.h>
#include <cm/CMSysConf.h>
#include <zr/CException.h>

#include "support/TestComponents.h"
#include "support/TestSupport.h"

#include <gtest/gtest.h>

#include <dirent.h>

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <map>
#include <string>
#include <vector>

using ZR::CException;
using ZR::CString;
using ZR::fourcc;
using ZR::kAnyFourCC;
using ZR::RPtr;
using ZR::RString;
using namespace ZR::CM;

namespace {

// The directory names of a kind list, in list order.
template <typename Info>
std::vector<std::string> namesOf(const std::list<RPtr<Info>>& infos) {
    std::vector<std::string> names;
    for (const auto& info : infos) {
        names.emplace_back(info->directoryName.c_str());
    }
    return names;
}

// The entries of dir containing needle, in the order readdir returns them.
std::vector<std::string> readdirOrder(const std::string& dir, const char* needle) {
    std::vector<std::string> names;
    DIR* listing = opendir(dir.c_str());
    while (const dirent* entry = readdir(listing)) {
        if (std::strstr(entry->d_name, needle)) {
            names.emplace_back(entry->d_name);
        }
    }
    closedir(listing);
    return names;
}

// Each test case runs in a process of its own, so the default manager starts empty.
class ComponentManagerTest : public ::testing::Test {
protected:
    void SetUp() override {
        sys_conf::instance().set_value("common.dtd-path", CM_SOURCE_DIR "/data");
        mManager->setComponentDirectory(CString(mTemp.path().c_str()));
    }

    // Installs a component directory whose info.xml (valid against data/info.dtd unless
    // the caller says otherwise) declares kind and objects, with kindElement last.
    void install(const std::string& name, const std::string& kind, const std::string& objects = "",
                 std::string kindElement = "") {
        if (kindElement.empty()) {
            kindElement = "<" + kind + "/>";
        }
        std::filesystem::create_directories(mTemp.file(name) + "/" CM_PLATFORM_DIR);
        std::ofstream(mTemp.file(name) + "/info.xml")
            << "<?xml version=\"1.0\"?>\n<info><common><name>" << name << "</name><type>" << kind
            << "</type><media>video</media></common><objects>" << objects << "</objects>"
            << kindElement << "</info>\n";
    }
    void installImporter(const std::string& name, int priority) {
        install(name, "importer", "",
                "<importer><priority>" + std::to_string(priority) + "</priority></importer>");
    }
    // Copies a module built by tests/components into name's platform directory as object.
    void installModule(const std::string& name, const std::string& object, const char* module) {
        std::filesystem::copy_file(module, mTemp.file(name) + "/" CM_PLATFORM_DIR "/" + object);
    }

    // Scans with standard error (libxml2's diagnostics) captured into mErrors.
    int scan() {
        testing::internal::CaptureStderr();
        const int result = mManager->loadComponentInformation();
        mErrors = testing::internal::GetCapturedStderr();
        return result;
    }

    cmtest::TempDir mTemp;
    RComponentManager* const mManager = RComponentManager::getDefault();
    std::string mErrors;
};

}  // namespace

TEST_F(ComponentManagerTest, ImportersSortByPriorityKeepingScanOrderForTies) {
    // Many ties, so that an unstable sort or one by name would show; the expected order is
    // the order this directory really lists in, sorted stably.
    std::map<std::string, int> priorities;
    for (int i = 0; i < 24; ++i) {
        const std::string name = "i" + std::to_string(i) + ".importer";
        priorities[name] = i % 3 == 0 ? 200 : i % 3 == 1 ? 100 : 50;
        installImporter(name, priorities[name]);
        install("d" + std::to_string(i) + ".decoder", "decompressor");
    }
    ASSERT_EQ(scan(), 0);

    std::vector<std::string> expected = readdirOrder(mTemp.path(), ".importer");
    std::stable_sort(expected.begin(), expected.end(),
                     [&](const auto& a, const auto& b) { return priorities[a] > priorities[b]; });
    EXPECT_EQ(namesOf(mManager->getImporters()), expected);
    EXPECT_EQ(namesOf(mManager->getDecompressors()), readdirOrder(mTemp.path(), ".decoder"));

    // Removing drops the list's reference and keeps the others in order.
    const RPtr<RImporterInfo> second = *std::next(mManager->getImporters().begin());
    EXPECT_EQ(second->retain_count(), 2);
    mManager->removeImporterFromList(second.addr());
    expected.erase(expected.begin() + 1);
    EXPECT_EQ(namesOf(mManager->getImporters()), expected);
    EXPECT_EQ(second->retain_count(), 1);
    mManager->removeImporterFromList(second.addr());
    EXPECT_EQ(mManager->getImporters().size(), expected.size());
}

TEST_F(ComponentManagerTest, BrokenComponentsAndMissingFilesAreLeftOut) {
    install("good.decoder", "decompressor");
    install("wrongkind.decoder", "decompressor", "", "<filter/>");
    install("invalid.decoder", "decompressor", "<object/>");  // name is required
    install("lenient.importer", "importer", "", "<exporter/>");
    std::filesystem::create_directory(mTemp.file("empty.decoder"));
    ASSERT_EQ(scan(), 0);
    EXPECT_EQ(namesOf(mManager->getDecompressors()), std::vector<std::string>{"good.decoder"});
    EXPECT_EQ(namesOf(mManager->getImporters()), std::vector<std::string>{"lenient.importer"});
    EXPECT_NE(mErrors.find("attribute name"), std::string::npos) << mErrors;

    // No definition: nothing is read. A second scan appends a second set.
    sys_conf::instance().set_value("common.dtd-path", mTemp.path().c_str());
    EXPECT_EQ(scan(), -1);
    std::ofstream(mTemp.file("info.dtd")) << "<!ELEMENT info (common";
    EXPECT_EQ(scan(), -1);
    EXPECT_EQ(mManager->getDecompressors().size(), 1u);
    sys_conf::instance().set_value("common.dtd-path", CM_SOURCE_DIR "/data");
    EXPECT_EQ(scan(), 0);
    EXPECT_EQ(mManager->getDecompressors().size(), 2u);

    mManager->setComponentDirectory(CString(mTemp.file("absent").c_str()));
    EXPECT_EQ(scan(), 0);
    EXPECT_EQ(mManager->getDecompressors().size(), 2u);
}

TEST_F(ComponentManagerTest, FindComponentsFallsBackFromConvertersToFilters) {
    install("yuv.converter", "converter",
            "<object name=\"c\"><in>yuv2</in><out>2vuy</out></object>");
    install("scale.filter", "filter", "<object name=\"f\"><in>yuv2</in></object>");
    install("audio.filter", "filter", "<object name=\"a\"><in>lpcm</in></object>");
    ASSERT_EQ(scan(), 0);

    RComponentInfoMatch query;
    query.type = fourcc("conv");
    query.inFormat = fourcc("yuv2");
    std::list<RPtr<RComponentInfo>> found;
    EXPECT_EQ(mManager->findComponents(query, found), 1);
    EXPECT_EQ(namesOf(found), std::vector<std::string>{"yuv.converter"});

    // No converter keeps yuv2 as it is, but a filter does.
    query.outFormat = fourcc("yuv2");
    found.clear();
    EXPECT_EQ(mManager->findComponents(query, found), 1);
    EXPECT_EQ(namesOf(found), std::vector<std::string>{"scale.filter"});
    EXPECT_EQ(query.type, fourcc("conv"));
    // What the caller put in the list counts as found: no fallback.
    EXPECT_EQ(mManager->findComponents(query, found), 0);
    EXPECT_EQ(found.size(), 1u);

    query.type = fourcc("fltr");
    query.inFormat = query.outFormat = kAnyFourCC;
    EXPECT_EQ(mManager->findComponents(query, found), 2);
    EXPECT_EQ(found.size(), 3u);
    query.media = fourcc("audi");
    EXPECT_EQ(mManager->findComponents(query, found), 0);
    for (const unsigned int type : {0u, kAnyFourCC}) {
        RComponentInfoMatch other;
        other.type = type;
        EXPECT_EQ(mManager->findComponents(other, found), 0);
    }
    EXPECT_EQ(found.size(), 3u);
}

// The loaded filter runs on its own thread between two queues; frames come out inverted.
TEST_F(ComponentManagerTest, LoadsEachLibraryOnceAndRunsItsComponent) {
    install("invert.filter", "filter",
            "<object name=\"invert.so\"><in>rawv</in><out>invv</out></object>");
    installModule("invert.filter", "invert.so", CM_TEST_INVERT_MODULE);
    ASSERT_EQ(scan(), 0);
    RFilterInfo* info = mManager->getFilters().front().addr();

    RComponent* loaded = mManager->loadComponent(info, fourcc("rawv"), fourcc("invv"));
    RPtr<RComponent> again(info->getComponentInstance(fourcc("rawv"), kAnyFourCC));
    EXPECT_EQ(mManager->getLoadedLibraryCount(), 1);
    EXPECT_NE(loaded, again.addr());
    EXPECT_EQ(loaded->getLibrary(), again->getLibrary());
    EXPECT_EQ(loaded->getComponentInfo(), info);
    EXPECT_EQ(again->getComponentInfo(), info);
    EXPECT_EQ(again->retain_count(), 2);
    EXPECT_EQ(mManager->unloadComponent(again.addr()), 0);
    EXPECT_EQ(again->retain_count(), 1);

    const int liveBefore = cmtest::Tracked::live();
    {
        auto* filter = dynamic_cast<CMMultipleQueueComponent*>(loaded);
        ASSERT_NE(filter, nullptr);
        const RPtr<RQueue> in(new RQueue(0, 0, CString("in")));
        const RPtr<RQueue> out(new RQueue(0, 0, CString("out")));
        cmtest::wire(*filter, {in.addr()}, {out.addr()});
        RQFrameReader reader(out.addr(), nullptr);
        RQFrameWriter feeder(in.addr(), nullptr);
        for (unsigned int i = 0; i < 20; ++i) {
            feeder.put(cmtest::makeNumberedFrame(i, 1 + i * 7));
        }
        feeder.end();
        filter->start(nullptr);
        ASSERT_EQ(filter->join(), 0);

        unsigned int count = 0;
        while (RPtr<ZR::CM::RFrame> frame = reader.nextFrame()) {
            EXPECT_FALSE(cmtest::hasNumberedContent(*frame));
            for (unsigned int i = 0; i < frame->getSize(); ++i) {
                frame->getData()[i] = static_cast<unsigned char>(~frame->getData()[i]);
            }
            EXPECT_TRUE(cmtest::hasNumberedContent(*frame));
            EXPECT_EQ(frame->getFrameNumber(), count++);
        }
        EXPECT_EQ(count, 20u);
        filter->reset();
    }
    EXPECT_EQ(cmtest::Tracked::live(), liveBefore);
    EXPECT_EQ(mManager->unloadComponent(loaded), 0);

    // By name: another path, so another entry.
    std::filesystem::copy_file(CM_TEST_INVERT_MODULE, mTemp.file("byname.so"));
    RComponent* byName = mManager->loadComponent(RString("byname"));
    EXPECT_EQ(byName->type(), fourcc("fltr"));
    EXPECT_EQ(mManager->getLoadedLibraryCount(), 2);
    mManager->unloadComponent(byName);
}
