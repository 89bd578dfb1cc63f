// av.exporter: muxes any number of input tracks of coded media (common/CodedMedia.h) into
// one MP4, MOV, Matroska, WebM or MPEG-TS file with FFmpeg's muxers, written through the
// exporter's stream. The container follows the output's extension (mp4, m4v, m4a, mov,
// mkv, mka, webm, ts, m2ts, mts) unless the "container" setting names it.
//
// Each input becomes one track, in input order, with the codec, numbers, clock and
// private data of its description; each frame keeps its presentation and decode times,
// duration and key-frame mark (converted to the track's clock, which the muxer may
// choose itself). The inputs are read by pumps (common/InputPumps.h), so no input waits on
// another; frames that arrive before every input has shown its description (the header
// needs them all) wait, up to kMaxEarlyBytes, and FFmpeg's interleaving orders the rest.
// An MP4 or MOV stream that cannot seek gets a fragmented file.
//
// Failures: an input that ends without a description, a codec the container does not
// carry, a frame of another format than its track's, or more early frames than allowed:
// kResultNoValidTracks; an extension without a container: kResultNoExporter; a failed
// write: kResultFileWriteFailed; anything else the muxer refuses: kResultUnspecified. After
// a failure every input is still read to its end, so nothing upstream waits on a full
// queue; the stream is closed at the end of every run.
//
// Settings (RExporterConfiguration):
//   "container"  mp4, mov, matroska, webm or mpegts: the container, whatever the extension
//
// Threads: configure() on the application's thread before start(); runloop() on the
// component's thread, with one pump thread per input; getStatus() from any thread.
#ifndef CM_COMPONENTS_AVEXPORTER_H
#define CM_COMPONENTS_AVEXPORTER_H

#include "av/AvObjects.h"
#include "av/AvSettings.h"
#include "av/AvStreamIO.h"
#include "common/CodedMedia.h"
#include "common/InputPumps.h"
#include "common/RunStatus.h"

#include <cm/CMExporter.h>

#include <memory>
#include <string>
#include <vector>

namespace cmcomponents {

class RAvExporter : public ZR::CM::RExporter {
public:
    // What frames that arrive before the header is written may take, in bytes.
    static constexpr unsigned long long kMaxEarlyBytes = 64ull << 20;

    RAvExporter();

    // Clears the status of an earlier run, then as RExporter::init().
    int init(std::vector<ZR::CM::RQueue*>& inputs, ZR::RPtr<ZR::CM::RStream> stream) override;
    int configure(ZR::CM::RExporterConfiguration& configuration) override;
    int runloop(zrbase::object_refcount* arg) override;
    ZR::CM::CComponentStatus getStatus() override { return mRun.snapshot(); }

    // The FFmpeg muxer for a file extension ("mkv" gives "matroska"); null for none.
    static const char* muxerForExtension(const std::string& extension);

private:
    struct Track {
        bool described = false;
        CodedFormat format;
        AVStream* stream = nullptr;
        std::int64_t lastDts = AV_NOPTS_VALUE;
        double delay = 0.0;  // seconds added to every time of the track (see addStream())
        std::vector<ZR::RPtr<const ZR::CM::RFrame>> early;  // arrived before the header
    };

    // Takes one arrival; false (recorded) when the run fails with it.
    bool take(CInputPumps::Arrival& arrival);
    // Opens the muxer, writes the header and the frames that waited for it: 0 or a result
    // code with a line in why.
    int begin(std::string& why);
    // Adds the track's stream to the muxer.
    int addStream(Track& track, const std::string& input, std::string& why);
    int writeHeader(const std::string& muxer, std::string& why);
    int write(Track& track, const ZR::CM::RFrame& frame, std::string& why);
    int finish(std::string& why);
    // The code of a failed write: the stream's fault or the muxer's.
    int writeFailure() const;
    void close() noexcept;
    bool step(int result, const std::string& why);

    CRunStatus mRun;
    CAvSettings mSettings;
    std::vector<Track> mTracks;
    unsigned long long mEarlyBytes = 0;
    bool mStarted = false;  // the header is written
    // The muxer writes through the I/O context, so it goes first (reverse order).
    std::unique_ptr<CAvStreamIO> mIO;
    OutputContextPtr mContext;
    PacketPtr mPacket;
};

}  // namespace cmcomponents

#endif
