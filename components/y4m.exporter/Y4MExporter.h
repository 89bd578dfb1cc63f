// y4m.exporter: writes the pictures of its first input queue as a YUV4MPEG2 file: the
// stream header from the description (PlanarPicture.h; the frame rate becomes the nearest
// fraction n:d, so 30000/1001 comes back as F30000:1001), then "FRAME\n" and the planes of
// every picture.
//
// The description must be a valid picture (PlanarPicture::isValid) with a positive frame
// rate, and every frame must be video of the description's layout and exactly one
// picture's size; otherwise the run fails with kResultNoValidTracks. A failed write fails
// it with kResultFileWriteFailed.
//
// Configuration (RExporterConfiguration): no keys.
#ifndef CM_COMPONENTS_Y4MEXPORTER_H
#define CM_COMPONENTS_Y4MEXPORTER_H

#include "common/FileExporter.h"
#include "common/Y4MFormat.h"

namespace cmcomponents {

class RY4MExporter : public RFileExporter {
public:
    int configure(ZR::CM::RExporterConfiguration& configuration) override;

    const Y4MFormat& getFormat() const noexcept { return mFormat; }

protected:
    int begin(const ZR::CM::RDescription& description, std::string& why) override;
    int writeFrame(const ZR::CM::RFrame& frame, std::string& why) override;
    int finish(std::string& why) override;

private:
    Y4MFormat mFormat;
    unsigned int mFramesWritten = 0;
};

}  // namespace cmcomponents

#endif
