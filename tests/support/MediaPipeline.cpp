#include "support/MediaPipeline.h"

#include <cm/CMQueue.h>
#include <zr/RURI.h>

#include <fcntl.h>

#include <vector>

using ZR::RPtr;
using namespace ZR::CM;

namespace cmtest {

RPtr<RStream> fileStream(const std::string& path, unsigned int flags) {
    return RStream::getStream(ZR::RURI(path.c_str()), flags, 0);
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

}  // namespace cmtest
