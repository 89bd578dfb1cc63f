// The build tree's components/ directory as the component manager sees it: every
// component's info.xml validates against data/info.dtd and describes it, and the object
// that its format map names is a loadable module whose getComponentInstance() makes the
// component.
#include <gtest/gtest.h>

#include <cm/CMComponentInfo.h>
#include <cm/CMComponentManager.h>
#include <cm/CMExporter.h>
#include <cm/CMImporter.h>

#include "support/MediaPipeline.h"
#include "support/MediaSamples.h"
#include "support/MediaTools.h"
#include "support/TestSupport.h"

#include <dlfcn.h>
#include <libxml/parser.h>
#include <libxml/tree.h>
#include <libxml/valid.h>

#include <memory>
#include <string>

using ZR::RPtr;
using namespace ZR::CM;

namespace {

const char kComponentDirectory[] = CM_BINARY_DIR "/lib/cm/components";

struct DtdFree {
    void operator()(xmlDtd* dtd) const { xmlFreeDtd(dtd); }
};

// The default component manager, looking at the build tree's component directory.
RComponentManager& manager() {
    RComponentManager* m = RComponentManager::getDefault();
    ZR::CString directory(kComponentDirectory);
    m->setComponentDirectory(directory);
    return *m;
}

template <typename Info>
RPtr<RComponentInfo> loadInfo(const char* directory, xmlDtd* dtd) {
    manager();
    RPtr<RComponentInfo> info(new Info(ZR::RString(directory)));
    EXPECT_EQ(info->loadInfoXML(dtd), 0) << directory;
    return info;
}

// The component for a format pair, loaded through the manager from the object's path.
// Null (with a test failure) when any step fails.
RPtr<RComponent> instantiate(RComponentInfo& info, unsigned int in, unsigned int out) {
    const std::string path = info.getComponentPath(in, out).c_str();
    EXPECT_EQ(path, std::string(kComponentDirectory) + "/" + info.directoryName.c_str() + "/" +
                        CM_PLATFORM_DIR + "/" + info.directoryName.c_str() + ".so");
    RComponent* raw = nullptr;
    try {
        raw = manager().loadComponent(&info, in, out);
    } catch (const ZR::CException& e) {
        ADD_FAILURE() << e.getMessage();
        return RPtr<RComponent>();
    }
    RPtr<RComponent> component(raw);
    manager().unloadComponent(raw);  // the manager's reference becomes ours
    return component;
}

class ComponentModulesTest : public ::testing::Test {
protected:
    void SetUp() override {
        mDtd.reset(xmlParseDTD(nullptr, BAD_CAST CM_SOURCE_DIR "/data/info.dtd"));
        ASSERT_TRUE(mDtd);
    }

    std::unique_ptr<xmlDtd, DtdFree> mDtd;
};

}  // namespace

TEST_F(ComponentModulesTest, EveryComponentIsDescribedAndLoadable) {
    const unsigned int lpcm = ZR::fourcc("lpcm"), i420 = ZR::fourcc("I420");
    const unsigned int audio = ZR::fourcc("audi"), video = ZR::fourcc("vide");
    const struct {
        RPtr<RComponentInfo> info;
        unsigned int type, media, in, out;
    } components[] = {
        {loadInfo<RImporterInfo>("wav.importer", mDtd.get()), ZR::fourcc("impt"), audio,
         ZR::kAnyFourCC, lpcm},
        {loadInfo<RExporterInfo>("wav.exporter", mDtd.get()), ZR::fourcc("expt"), audio, lpcm,
         ZR::kAnyFourCC},
        {loadInfo<RImporterInfo>("y4m.importer", mDtd.get()), ZR::fourcc("impt"), video,
         ZR::kAnyFourCC, i420},
        {loadInfo<RExporterInfo>("y4m.exporter", mDtd.get()), ZR::fourcc("expt"), video, i420,
         ZR::kAnyFourCC},
        {loadInfo<RFilterInfo>("gain.filter", mDtd.get()), ZR::fourcc("fltr"), audio, lpcm, lpcm},
        {loadInfo<RFilterInfo>("invert.filter", mDtd.get()), ZR::fourcc("fltr"), video, i420, i420},
    };
    for (const auto& c : components) {
        RComponentInfo& info = *c.info;
        SCOPED_TRACE(info.directoryName.c_str());
        EXPECT_EQ(info.type, c.type);
        EXPECT_EQ(info.media, c.media);
        EXPECT_TRUE(info.formatMap.supportsFormats(c.in, c.out));
        const RPtr<RComponent> component = instantiate(info, c.in, c.out);
        ASSERT_TRUE(component);
        EXPECT_EQ(component->type(), c.type);
        EXPECT_EQ(component->getStatus().mStatusCode, CComponentStatus::kInitialized);
    }
    // Filters keep the format: I420 in, I420 out, and no other pair.
    EXPECT_FALSE(components[5].info->formatMap.supportsFormats(i420, ZR::fourcc("Y444")));
    const auto& wav = static_cast<const RImporterInfo&>(*components[0].info);
    EXPECT_EQ(wav.fileExtensions.count(ZR::RString("wav")), 1u);
    EXPECT_EQ(static_cast<const RImporterInfo&>(*components[2].info)
                  .fileExtensions.count(ZR::RString("y4m")),
              1u);
}

// A host that knows only the library's bases: components made by the modules' entry
// points, the filter configured through its start() argument.
TEST_F(ComponentModulesTest, ModulesRunAPipelineThroughTheBasesAlone) {
    ASSERT_TRUE(cmtest::haveTool("sox") && cmtest::haveTool("ffmpeg"))
        << "sox and ffmpeg are needed: scripts/install-deps.sh";
    const unsigned int lpcm = ZR::fourcc("lpcm");
    RPtr<RComponent> importer =
        instantiate(*loadInfo<RImporterInfo>("wav.importer", mDtd.get()), ZR::kAnyFourCC, lpcm);
    RPtr<RComponent> gain =
        instantiate(*loadInfo<RFilterInfo>("gain.filter", mDtd.get()), lpcm, lpcm);
    RPtr<RComponent> exporter =
        instantiate(*loadInfo<RExporterInfo>("wav.exporter", mDtd.get()), lpcm, ZR::kAnyFourCC);
    cmtest::Pipeline p;
    p.importer = dynamic_cast<RImporter*>(importer.addr());
    p.filter = dynamic_cast<CMMultipleQueueComponent*>(gain.addr());
    p.exporter = dynamic_cast<RExporter*>(exporter.addr());
    ASSERT_TRUE(p.importer && p.filter && p.exporter);
    RPtr<RFilterConfiguration> configuration(new RFilterConfiguration);
    configuration->setFloat("gain-db", -6.0206f);  // a factor of one half, to 1e-5
    p.filterArgument = configuration.addr();

    cmtest::TempDir dir;
    const cmtest::Bytes tone = cmtest::makeTone(16, 2, 2000, 0.5);
    ASSERT_TRUE(cmtest::writeWavWithSox(dir.file("in.wav"), tone, 44100, 16, 2));
    ASSERT_EQ(cmtest::runPipeline(p, dir.file("in.wav"), dir.file("out.wav")), kResultOK);
    EXPECT_EQ(p.filter->getStatus().mExtra, 0u) << p.filter->getStatus().mInfo.c_str();
    EXPECT_EQ(p.exporter->getStatus().mStatusCode, CComponentStatus::kCompleted);
    const cmtest::Bytes out = cmtest::decodeWithFfmpeg(dir.file("out.wav"), "s16le");
    ASSERT_EQ(out.size(), tone.size());
    for (std::size_t i = 0; i < tone.size() / 2; i += 97) {
        EXPECT_NEAR(cmtest::sampleAt(out, 16, i), cmtest::sampleAt(tone, 16, i) / 2.0, 0.51) << i;
    }
}
