// The build tree's components/ directory as the component manager sees it: every
// component's info.xml validates against data/info.dtd and describes it, and the object
// that its format map names is a loadable module whose getComponentInstance() makes the
// component.
#include <gtest/gtest.h>

#include "common/CodedMedia.h"

#include <cm/CMComponentInfo.h>
#include <cm/CMComponent.h>
#include <cm/CMComponentManager.h>
#include <zr/CException.h>

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
        // Who reads .mp4 files, decodes avc1 to I420 and mp4a to lpcm, encodes I420 to each
        // video codec and lpcm to each audio codec, and which exporter takes .webm files.
        {loadInfo<RImporterInfo>("av.importer", mDtd.get()), ZR::fourcc("impt"), ZR::kAnyFourCC,
         ZR::kAnyFourCC, ZR::fourcc("avc1")},
        {loadInfo<RDecompressorInfo>("av.decoder", mDtd.get()), ZR::fourcc("dcmp"),
         ZR::kAnyFourCC, ZR::fourcc("avc1"), i420},
        {loadInfo<RDecompressorInfo>("av.decoder", mDtd.get()), ZR::fourcc("dcmp"),
         ZR::kAnyFourCC, ZR::fourcc("mp4a"), lpcm},
        {loadInfo<RCompressorInfo>("h264.encoder", mDtd.get()), ZR::fourcc("cmpr"), video, i420,
         ZR::fourcc("avc1")},
        {loadInfo<RCompressorInfo>("h265.encoder", mDtd.get()), ZR::fourcc("cmpr"), video, i420,
         ZR::fourcc("hvc1")},
        {loadInfo<RCompressorInfo>("vp9.encoder", mDtd.get()), ZR::fourcc("cmpr"), video, i420,
         ZR::fourcc("vp09")},
        {loadInfo<RCompressorInfo>("aac.encoder", mDtd.get()), ZR::fourcc("cmpr"), audio, lpcm,
         ZR::fourcc("mp4a")},
        {loadInfo<RCompressorInfo>("opus.encoder", mDtd.get()), ZR::fourcc("cmpr"), audio, lpcm,
         ZR::fourcc("Opus")},
        {loadInfo<RExporterInfo>("av.exporter", mDtd.get()), ZR::fourcc("expt"), ZR::kAnyFourCC,
         ZR::fourcc("vp09"), cmcomponents::containerFourCC("webm")},
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
    // The FFmpeg importer reads WAV files too, but after the WAV importer; WebM takes no
    // H.264.
    const auto& av = static_cast<const RImporterInfo&>(*components[6].info);
    EXPECT_EQ(av.fileExtensions.count(ZR::RString("wav")), 1u);
    EXPECT_TRUE(wav < av);
    EXPECT_FALSE(components[14].info->formatMap.supportsFormats(
        ZR::fourcc("avc1"), cmcomponents::containerFourCC("webm")));
}
