// Runs a file importer end to end over a fuzzer's input, as a host would: configure, open
// the source and, when that succeeds, start the importer on its own thread and take every
// frame from its queue until the queue ends. Whatever happens must be told by the status:
// a failed open or run carries its result code and that code's text, and a finished run
// counts exactly the frames and bytes that came out. reset() must let go of the stream.
#ifndef CM_FUZZ_IMPORTRUN_H
#define CM_FUZZ_IMPORTRUN_H

#include "MemoryStream.h"

#include <cm/CMComponentStatus.h>
#include <cm/CMImporter.h>
#include <cm/CMQueue.h>
#include <cm/CMQueueRW.h>
#include <zr/RPtr.h>

#include <cstdlib>
#include <cstring>
#include <vector>

namespace fuzz {

// Aborts unless the status tells result, with the result's text first in its line.
inline void requireResult(const ZR::CM::CComponentStatus& status, int result) {
    if (status.mExtra != static_cast<unsigned int>(result)) {
        std::abort();
    }
    const char* text = ZR::CM::stringWithResultCode(result);
    if (result != ZR::CM::kResultOK &&
        std::strncmp(status.mInfo.c_str(), text, std::strlen(text)) != 0) {
        std::abort();
    }
}

inline void importWhole(ZR::CM::RImporter& importer, ZR::CM::RImporterConfiguration& configuration,
                        const std::uint8_t* data, std::size_t size) {
    using namespace ZR::CM;
    ZR::RPtr<RStream> stream(new MemoryStream(data, size));
    // Small limits, so that the importer's thread waits on the reader now and then.
    ZR::RPtr<RQueue> queue(new RQueue(1, 2, ZR::CString("imported")));
    std::vector<RQueue*> outputs{queue.addr()};
    importer.init(stream, outputs);
    importer.configure(configuration);
    const int opened = importer.openSource();
    if (opened != kResultOK) {
        requireResult(importer.getStatus(), opened);
    } else {
        importer.getMovieInfo();
        ZR::RPtr<RQFrameReader> reader(new RQFrameReader(queue.addr(), nullptr));
        importer.start(nullptr);
        unsigned long long frames = 0, bytes = 0;
        while (ZR::RPtr<RFrame> frame = reader->nextFrame()) {
            ++frames;
            bytes += frame->getSize();
            // Every byte a frame claims must be there.
            for (unsigned int i = 0; i < frame->getSize(); ++i) {
                volatile unsigned char byte = frame->getData()[i];
                (void)byte;
            }
        }
        importer.join();
        const CComponentStatus status = importer.getStatus();
        requireResult(status, static_cast<int>(status.mExtra));
        if (status.mStatusCode != CComponentStatus::kCompleted ||
            static_cast<unsigned long long>(status.mFrames) != frames ||
            static_cast<unsigned long long>(status.mBytes) != bytes) {
            std::abort();
        }
    }
    importer.reset();
    if (stream->retain_count() != 1) {
        std::abort();
    }
}

}  // namespace fuzz

#endif
