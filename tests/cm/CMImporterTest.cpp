#include <cm/CMImporter.h>

#include <gtest/gtest.h>

#include <cm/CMExporter.h>
#include <cm/CMQueue.h>
#include <cm/CMQueueRW.h>
#include <zr/RURI.h>

#include "support/TestComponents.h"
#include "support/TestSupport.h"

#include <fcntl.h>

#include <fstream>
#include <string>

using ZR::RPtr;
using namespace ZR::CM;

namespace {

// Reads its stream in chunks of 1000 bytes and writes each as a text frame.
class ChunkImporter : public RImporter {
public:
    int openSource() override { return mStream->open(); }
    RPtr<RMovieInfo> getMovieInfo() override { return new RMovieInfo; }
    int configure(RImporterConfiguration&) override { return 0; }
    int runloop(zrbase::object_refcount*) override {
        unsigned char buffer[1000];
        long long n;
        unsigned int number = 0;
        while ((n = mStream->read(buffer, sizeof buffer)) > 0) {
            getWriter(0)->put(RTextFrame::createWithData(
                number++, 0.0, 0.0, 0, static_cast<unsigned int>(n), buffer, ZR::ConstructionCopy));
        }
        getWriter(0)->end();
        return 0;
    }
};

// Writes every frame of its input to its stream.
class ChunkExporter : public RExporter {
public:
    int configure(RExporterConfiguration&) override { return 0; }
    int runloop(zrbase::object_refcount*) override {
        while (RPtr<RFrame> f = getReader(0)->nextFrame()) {
            mStream->write(f->getData(), f->getSize());
        }
        return mStream->close();
    }
};

RPtr<RStream> fileStream(const std::string& path, unsigned int flags) {
    return RStream::getStream(ZR::RURI(path.c_str()), flags, 0);
}

}  // namespace

// An importer and an exporter wired through one queue copy a file byte for byte.
TEST(ImporterExporterTest, CopyAFileThroughAQueue) {
    cmtest::TempDir dir;
    std::string content;
    for (int i = 0; i < 25000; ++i) {
        content += static_cast<char>('a' + i % 26);
    }
    std::ofstream(dir.file("in")) << content;

    RPtr<RQueue> q(new RQueue(2, 8, ZR::CString("chunks")));
    std::vector<RQueue*> queues{q.addr()};
    RPtr<ChunkImporter> importer(new ChunkImporter);
    RPtr<ChunkExporter> exporter(new ChunkExporter);
    ASSERT_EQ(importer->init(fileStream(dir.file("in"), O_RDONLY), queues), 0);
    ASSERT_EQ(importer->openSource(), 0);
    RPtr<RStream> out = fileStream(dir.file("out"), O_RDWR | O_CREAT);
    ASSERT_EQ(out->open(), 0);
    ASSERT_EQ(exporter->init(queues, out), 0);
    EXPECT_EQ(importer->type(), ZR::fourcc("impt"));
    EXPECT_EQ(exporter->type(), ZR::fourcc("expt"));
    EXPECT_TRUE(exporter->getMovieInformation()->mTracks.empty());

    exporter->start(nullptr);
    importer->start(nullptr);
    importer->join();
    exporter->join();
    std::ifstream copied(dir.file("out"));
    EXPECT_EQ(std::string(std::istreambuf_iterator<char>(copied), {}), content);

    importer->reset();
    exporter->reset();
    EXPECT_FALSE(importer->getStream());
    EXPECT_EQ(importer->getWriterCount(), 0);
    EXPECT_EQ(exporter->getReaderCount(), 0);
    EXPECT_EQ(q->getReaderCount(), 0);
}

TEST(ImporterTest, InitKeepsTheLastStreamAndRestartEmptiesOutputs) {
    cmtest::TempDir dir;
    std::ofstream(dir.file("a")) << "a";
    RPtr<ChunkImporter> importer(new ChunkImporter);
    std::vector<RQueue*> none;
    RPtr<RStream> first = fileStream(dir.file("a"), O_RDONLY);
    importer->init(first, none);
    EXPECT_EQ(first->retain_count(), 2);
    RPtr<RStream> second = fileStream(dir.file("a"), O_RDONLY);
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
    CNotification restart(CNotification::kRestart);
    RNotificationCenter::getDefault()->postNotification(restart, importer.addr());
    importer->handleNotifications();
    EXPECT_EQ(a->getNodeCount(), 0);
    EXPECT_EQ(b->getNodeCount(), 0);
    EXPECT_EQ(importer->getStream(), second);  // untouched by "rstr"
    importer->reset();
}
