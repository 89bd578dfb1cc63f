// av.importer: reads any container FFmpeg's demuxers open (MP4, MOV and M4A, Matroska and
// WebM, MPEG-TS, Ogg, FLAC, MP3, WAV with float samples and RF64, and many more) through
// the importer's stream, so that a file, a mapped file or a reader plug-in's URL all
// work, and writes each audio and video track as the container stores it, one output
// queue per track, in the form of common/CodedMedia.h.
//
// Tracks: the audio and video tracks whose codec has a FourCC in CodedMedia.h, in the
// container's order, numbered from 1; other tracks (subtitles, data, cover pictures, codecs
// without a FourCC) are left out and logged. getMovieInfo() reports the movie (its
// duration, named after the stream, with the container's tags and its demuxer's name as
// "container" in the metadata) and each track:
//   mTrackID                      its number
//   mTrackValue                   the codec's FourCC
//   mTrackStart, mTrackDuration   seconds
//   mTrackReal, mKindFixed        video: frames per second; audio: sample rate
//   mTrackSize                    video: pictures (as the container counts them, else
//                                 estimated from duration and rate); audio: sample frames
//   mKindValue1, mKindValue2      video: width and height; audio: channels, and bits of one
//                                 sample where the codec keeps a fixed size (else 0)
//
// Queues: output queue i carries track i, or the i-th of the "tracks" setting; tracks
// without a queue are skipped, and queues without a track end at once without a
// description. Every queue's description is set before the first frame of any.
//
// Settings (RImporterConfiguration):
//   "tracks"  the track numbers for the queues, in queue order, separated by commas ("2,1")
//
// Failures (the result of openSource(), or the status of the run): a stream that cannot
// be opened gives its own code; a read of the stream that fails, kResultFileReadFailed;
// content no demuxer takes (garbage, a truncated or damaged header),
// kResultInputMetaDataParseFailed; no track of a known codec, kResultNoValidTracks; a
// "tracks" setting naming a track that is not there or one twice,
// kResultSettingParseFailed. A stream that fails or turns out damaged during the run
// ends every track where it failed, with kResultFileReadFailed or
// kResultInputMetaDataParseFailed in the status, and so does an MP4 or QuickTime file
// that ends before the frames its header lists (kResultFileReadFailed). FFmpeg's
// allocations are capped (av/AvLibrary.h), so a header claiming huge sizes fails instead
// of taking the memory, and nothing but the stream is read: FFmpeg may not open the files
// or URLs that a playlist or a reference inside the content names.
//
// Threads: openSource(), getMovieInfo() and configure() on the application's thread
// before start(); runloop() on the component's thread; getStatus() from any thread.
#ifndef CM_COMPONENTS_AVIMPORTER_H
#define CM_COMPONENTS_AVIMPORTER_H

#include "av/AvObjects.h"
#include "av/AvSettings.h"
#include "av/AvStreamIO.h"
#include "common/CodedMedia.h"
#include "common/RunStatus.h"

#include <cm/CMImporter.h>

#include <memory>
#include <string>
#include <vector>

namespace cmcomponents {

class RAvImporter : public ZR::CM::RImporter {
public:
    RAvImporter();

    // Clears the status of an earlier run, then as RImporter::init().
    int init(ZR::RPtr<ZR::CM::RStream> stream, std::vector<ZR::CM::RQueue*>& outputs) override;
    // Closes the source too; no-throw.
    int componentWillReset() override;
    int openSource() override;
    ZR::RPtr<ZR::CM::RMovieInfo> getMovieInfo() override;
    int configure(ZR::CM::RImporterConfiguration& configuration) override;
    int runloop(zrbase::object_refcount* arg) override;
    ZR::CM::CComponentStatus getStatus() override { return mRun.snapshot(); }

    bool isOpen() const noexcept { return mContext != nullptr; }

private:
    struct Track {
        int stream;  // FFmpeg's index
        CodedFormat format;
    };

    void close() noexcept;
    // Opens the demuxer and finds the tracks: 0 or a result code with a line in why.
    int openDemuxer(std::string& why);
    // For each output queue, the index of its track in mTracks or -1: 0 or a result code.
    int assignQueues(std::vector<int>& trackOfQueue, std::string& why) const;
    // Reads every packet and writes the frames of the tracks that have a queue.
    void importPackets(const std::vector<int>& queueOfStream);
    // Fails the run when the source ended before frames its index lists (counts: the
    // frames read of each of FFmpeg's streams).
    void checkComplete(const std::vector<unsigned int>& counts);
    // The result code of a failed read: the stream's or the content's fault.
    int readFailure() const;
    static int interrupted(void* importer);
    static int refuseOpen(AVFormatContext* context, AVIOContext** io, const char* url, int flags,
                          AVDictionary** options);

    CRunStatus mRun;
    CAvSettings mSettings;
    // A configuration refused by configure() fails the run.
    int mConfigureResult = ZR::CM::kResultOK;
    std::string mConfigureWhy;
    // The demuxer reads through the I/O context, so it is closed first (members are
    // destroyed in reverse order).
    std::unique_ptr<CAvStreamIO> mIO;
    InputContextPtr mContext;
    std::vector<Track> mTracks;
};

}  // namespace cmcomponents

#endif
