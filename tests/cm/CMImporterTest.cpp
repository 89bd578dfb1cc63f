#include <cm/CMImporter.h>

#include <gtest/gtest.h>

#include <cm/CMQueue.h>
#include <cm/CMQueueRW.h>

#include "support/MediaPipeline.h"
#include "support/TestComponents.h"
#include "support/TestSupport.h"

#include <fcntl.h>

#include <fstream>
#include <string>

using ZR::RPtr;
using namespace ZR::CM;

namespace {

// An importer that supplies only what the base requires.
class MinimalImporter : public RImporter {
public:
    int openSource() override { return mStream->open(); }
    RPtr<RMovieInfo> getMovieInfo() override { return new RMovieInfo; }
    int configure(RImporterConfiguration&) override { return 0; }
    int runloop(zrbase::object_refcount*) override { return 0; }
};

}  // namespace

TEST(ImporterTest, InitKeepsTheLastStreamAndRestartEmptiesOutputs) {
    cmtest::TempDir dir;
    std::ofstream(dir.file("a")) << "a";
    RPtr<MinimalImporter> importer(new MinimalImporter);
    std::vector<RQueue*> none;
    RPtr<RStream> first = cmtest::fileStream(dir.file("a"), O_RDONLY);
    importer->init(first, none);
    EXPECT_EQ(first->retain_count(), 2);
    RPtr<RStream> second = cmtest::fileStream(dir.file("a"), O_RDONLY);
    importer->init(second, none);
    EXPECT_EQ(first->retain_count(), 1);  // released by the second init
    EXPECT_EQ(importer->getStream(), second);
    EXPECT_EQ(importer->getWriterCount(), 0);
    EXPECT_EQ(importer->preconfigure(*RPtr<RImporterConfiguration>(new RImporterConfiguration)),
              -1);
    EXPECT_EQ(importer->setTime(0, 1.0), -1);
    EXPECT_EQ(importer->processNextFrame(0), 0);
    importer->reset();
    EXPECT_EQ(second->retain_count(), 1);

    RPtr<RQueue> a(new RQueue(0, 0, ZR::CString("a"))), b(new RQueue(0, 0, ZR::CString("b")));
    std::vector<RQueue*> outputs{a.addr(), b.addr()};
    importer->init(second, outputs);
    importer->getWriter(0)->put(cmtest::makeNumberedFrame(0, 4));
    importer->getWriter(1)->put(cmtest::makeNumberedFrame(0, 4));
    cmtest::post(CNotification::kRestart, importer.addr());
    importer->handleNotifications();
    EXPECT_EQ(a->getNodeCount(), 0);
    EXPECT_EQ(b->getNodeCount(), 0);
    EXPECT_EQ(importer->getStream(), second);  // untouched by "rstr"

    // Initialised again without outputs, it lets its writers go and counts none.
    importer->init(second, none);
    EXPECT_EQ(importer->getWriterCount(), 0);
    EXPECT_EQ(a->retain_count(), 1);
    importer->reset();
}
