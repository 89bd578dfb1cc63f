// y4m.importer: reads a YUV4MPEG2 file of 8-bit 4:2:0, 4:2:2 or 4:4:4 video of any size
// and frame rate and writes its pictures as one video track to its first output queue
// through an RQVideoFrameWriter. Y4MFormat.h and PlanarPicture.h describe the pictures and
// the RVideoDescription (width, height, chroma layout, frame rate).
//
// openSource() reads the stream header and rejects a malformed or truncated one with
// kResultInputMetaDataParseFailed, and a chroma layout the components do not carry with
// kResultNoValidTracks. getMovieInfo() reports the movie (named after the stream) with one
// RVideoTrackInfo: track 1, mTrackValue the layout's FourCC, mTrackReal and mKindFixed the
// frame rate, mKindValue1 and mKindValue2 width and height, and, when the stream knows its
// size, mTrackSize and the durations estimated from it (as if every frame header were a
// bare "FRAME").
//
// Frames: frame i starts at i / rate seconds and lasts 1 / rate, carries the layout's
// FourCC as its data format, and is labelled with a timecode in the mode that
// timecode_with_framerate gives the rate, starting at 00:00:00:00. The label advances by
// one frame per frame, or, for a rate that its mode counts at a multiple of (12.5 fps in
// the 25 mode, 15 fps in the 30 mode), by that multiple, so labels keep to the clock.
// A frame header that is not "FRAME" ends the track with kResultInputMetaDataParseFailed,
// and a picture cut short by the end of the file (dropped) or a failed read with
// kResultFileReadFailed; the frames before it have gone on.
//
// Configuration (RImporterConfiguration): no keys.
#ifndef CM_COMPONENTS_Y4MIMPORTER_H
#define CM_COMPONENTS_Y4MIMPORTER_H

#include "common/FileImporter.h"
#include "common/Y4MFormat.h"

namespace cmcomponents {

class RY4MImporter : public RFileImporter {
public:
    ZR::RPtr<ZR::CM::RMovieInfo> getMovieInfo() override;
    int configure(ZR::CM::RImporterConfiguration& configuration) override;

    const Y4MFormat& getFormat() const noexcept { return mFormat; }

protected:
    int readHeader(CByteReader& reader, std::string& why) override;
    void importFrames(CByteReader& reader, ZR::CM::RQFrameWriter& writer) override;

private:
    // The next picture as a new frame, or null at the end of the track (a failure is
    // recorded in mRun).
    ZR::CM::RVideoFrame* readFrame(CByteReader& reader, unsigned int index);

    Y4MFormat mFormat;
    long long mFrameEstimate = -1;  // frames the stream's size allows for; -1: unknown
};

}  // namespace cmcomponents

#endif
