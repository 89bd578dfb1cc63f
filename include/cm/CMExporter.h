// RExporter: the base of the sink end of a pipeline. An exporter reads frames from its
// input queues and writes a media stream.
//
// It holds the stream and one reader per input queue, and defines the defaults of what
// concrete exporter modules override: configure(), getMovieInformation() and the run
// function runloop(). It ignores "rstr". reset() releases the stream and the readers,
// after which init() may be called again.
//
// Threads: init() and configure() come from the application's thread before start();
// runloop() runs on the component's thread.
#ifndef CM_CMEXPORTER_H
#define CM_CMEXPORTER_H

#include <cm/CMComponent.h>
#include <cm/CMComponentConfiguration.h>
#include <cm/CMStream.h>
#include <cm/CMTrackInfo.h>

#include <vector>

namespace ZR {
namespace CM {

class RExporter : public RComponent {
public:
    RExporter() = default;
    ~RExporter() override;

    unsigned int type() const override { return fourcc("expt"); }
    // Releases the readers and the stream; no-throw.
    int componentWillReset() override;
    // Registers with the notification center, takes the stream and makes one reader per
    // input queue. The queues come first here, unlike the importer's init().
    virtual int init(std::vector<RQueue*>& inputs, RPtr<RStream> stream);
    virtual int configure(RExporterConfiguration& configuration) = 0;
    // The movie this exporter wrote; here a new, empty one.
    virtual RPtr<RMovieInfo> getMovieInformation();

    RPtr<RStream> getStream() const { return mStream; }
    int getReaderCount() const noexcept { return mReaderCount; }
    RQFrameReader* getReader(int index) const noexcept;

protected:
    std::vector<RQueue*> mInputQueues;
    RPtr<RStream> mStream;
    int mReaderCount = 0;
    RQFrameReader** mReaders = nullptr;  // malloc'd; each retained once
};

}  // namespace CM
}  // namespace ZR

#endif
