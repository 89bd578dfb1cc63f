// The ends of a pipeline: importers read a media stream and write frames into their output
// queues; exporters read frames from their input queues and write a media stream.
//
// RImporter and RExporter hold the stream and the queue endpoints and define the defaults of
// what concrete importer and exporter modules override: the importer's openSource(),
// getMovieInfo() and configure(), the exporter's configure(), and the run function
// runloop() of both. An importer handles "rstr" by emptying its output queues; an
// exporter ignores it. reset() releases the stream and the endpoints, after which init()
// may be called again.
//
// Threads: init() and the configuration calls come from the application's thread before
// start(); runloop() runs on the component's thread.
#ifndef CM_CMIMPORTER_H
#define CM_CMIMPORTER_H

#include <cm/CMComponent.h>
#include <cm/CMComponentConfiguration.h>
#include <cm/CMStream.h>
#include <cm/CMTrackInfo.h>

#include <vector>

namespace ZR {
namespace CM {

class RImporter : public RComponent {
public:
    RImporter() = default;
    ~RImporter() override;

    unsigned int type() const override { return fourcc("impt"); }
    // Releases the writers and the stream; no-throw.
    int componentWillReset() override;
    // "rstr" empties every output queue; the stream is left where it is.
    int handleNotification(CNotification& n) override;
    // Registers with the notification center, takes the stream (releasing any earlier one)
    // and makes one writer per output queue, in order.
    virtual int init(RPtr<RStream> stream, std::vector<RQueue*>& outputs);
    virtual int preconfigure(RImporterConfiguration& configuration);  // -1: not supported
    // Opens the stream and reads what describes the media; 0 on success or a result code.
    virtual int openSource() = 0;
    virtual RPtr<RMovieInfo> getMovieInfo() = 0;
    virtual int configure(RImporterConfiguration& configuration) = 0;
    virtual void stop() {}
    virtual int setTime(unsigned int track, double seconds);  // -1: not supported
    virtual int processNextFrame(unsigned int track) { return (void)track, 0; }

    RPtr<RStream> getStream() const { return mStream; }
    int getWriterCount() const noexcept { return mWriterCount; }
    RQFrameWriter* getWriter(int index) const noexcept;

protected:
    std::vector<RQueue*> mOutputQueues;
    RPtr<RStream> mStream;
    int mWriterCount = 0;
    RQFrameWriter** mWriters = nullptr;  // malloc'd; each retained once
};

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
