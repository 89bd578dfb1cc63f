#include "support/MediaPipeline.h"

#include <cm/CMQueue.h>
#include <cm/CMQueueRW.h>
#include <zr/RURI.h>

#include <fcntl.h>

#include <thread>
#include <vector>

using ZR::RPtr;
using namespace ZR::CM;

namespace cmtest {

RPtr<RStream> fileStream(const std::string& path, unsigned int flags) {
    return RStream::getStream(ZR::RURI(path.c_str()), flags, 0);
}

int openOn(RImporter& importer, const std::string& path) {
    std::vector<RQueue*> none;
    importer.init(fileStream(path, O_RDONLY), none);
    return importer.openSource();
}

int runPipeline(Pipeline& p, const std::string& input, const std::string& output) {
    RPtr<RQueue> first(new RQueue(p.lowLimit, p.highLimit, ZR::CString("imported")));
    RPtr<RQueue> second(new RQueue(p.lowLimit, p.highLimit, ZR::CString("filtered")));
    std::vector<RQueue*> importerOut{first.addr()};
    std::vector<RQueue*> exporterIn{p.filter ? second.addr() : first.addr()};
    std::vector<RQueue*> filterOut{second.addr()};

    p.importer->init(fileStream(input, O_RDONLY), importerOut);
    p.importer->configure(p.importerConfiguration);
    if (p.filter) {
        p.filter->init(importerOut, filterOut);
    }
    p.exporter->init(exporterIn, fileStream(output, O_RDWR | O_CREAT | O_TRUNC));
    p.exporter->configure(p.exporterConfiguration);

    const int opened = p.importer->openSource();
    if (opened == 0) {
        p.exporter->start(nullptr);
        if (p.filter) {
            p.filter->start(p.filterArgument);
        }
        p.importer->start(nullptr);
        p.importer->join();
        if (p.filter) {
            p.filter->join();
        }
        p.exporter->join();
    }
    p.importer->reset();
    if (p.filter) {
        p.filter->reset();
    }
    p.exporter->reset();
    return opened;
}

namespace {

// Puts the description (unless null) and the frames into the queue, then ends it.
void feed(RQueue& queue, const RDescription* description, const std::vector<RPtr<RFrame>>& frames) {
    RPtr<RQFrameWriter> writer(new RQFrameWriter(&queue, nullptr));
    if (description) {
        writer->setDescriptionP(description);
    }
    for (const RPtr<RFrame>& frame : frames) {
        writer->putP(frame.addr());
    }
    writer->end();
}

}  // namespace

CComponentStatus exportFrames(RExporter& exporter, const std::string& path,
                              const RDescription* description,
                              const std::vector<RPtr<RFrame>>& frames) {
    RPtr<RQueue> queue(new RQueue(1, 2, ZR::CString("frames")));
    std::vector<RQueue*> inputs{queue.addr()};
    exporter.init(inputs, fileStream(path, O_RDWR | O_CREAT | O_TRUNC));
    exporter.start(nullptr);
    feed(*queue, description, frames);
    exporter.join();
    const CComponentStatus status = exporter.getStatus();
    exporter.reset();
    return status;
}

Filtered filterFrames(CMMultipleQueueComponent& filter, zrbase::object_refcount* argument,
                      const RDescription* description, const std::vector<RPtr<RFrame>>& frames) {
    RPtr<RQueue> in(new RQueue(1, 2, ZR::CString("in")));
    RPtr<RQueue> out(new RQueue(1, 2, ZR::CString("out")));
    std::vector<RQueue*> inputs{in.addr()}, outputs{out.addr()};
    filter.init(inputs, outputs);
    RPtr<RQFrameReader> reader(new RQFrameReader(out.addr(), nullptr));
    filter.start(argument);
    Filtered result;
    std::thread feeder([&] { feed(*in, description, frames); });
    while (RPtr<RFrame> frame = reader->nextFrame()) {
        result.frames.push_back(frame);
    }
    feeder.join();
    filter.join();
    result.description = static_cast<const RDescription*>(out->getDescription().addr());
    filter.reset();
    return result;
}

testing::AssertionResult endedWith(const CComponentStatus& status, int result,
                                   const std::string& says) {
    const std::string info = status.mInfo.c_str();
    if (status.mExtra == static_cast<unsigned int>(result) &&
        info.find(says) != std::string::npos) {
        return testing::AssertionSuccess();
    }
    return testing::AssertionFailure() << "ended with " << status.mExtra << " \"" << info
                                       << "\", not " << result << " and \"" << says << "\"";
}

}  // namespace cmtest
