// RImporter: the base of the source end of a pipeline. An importer reads a media stream
// and writes frames into its output queues.
//
// It holds the stream and one writer per output queue, and defines the defaults of what
// concrete importer modules override: openSource(), getMovieInfo(), configure() and the
// run function runloop(). It handles "rstr" by emptying its output queues. reset()
// releases the stream and the writers, after which init() may be called again.
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
    // and makes one writer per output queue, in order, releasing those of an earlier init.
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

}  // namespace CM
}  // namespace ZR

#endif
