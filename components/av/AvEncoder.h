// RAvEncoder: the FFmpeg encoders, one component per codec. Each encoder component
// (h264.encoder, vp9.encoder, aac.encoder, ...) is this class with an EncoderSpec: the
// FFmpeg encoder it drives, the FourCC it makes, and the settings it takes.
//
// Video: planar pictures ("I420", "Y42B", "Y444", common/PlanarPicture.h) go to the
// encoder in their own layout, which every video encoder here takes; their times count
// in the clock of the description's frame rate (1/90000 s when it has none). Audio:
// "lpcm" samples of 8, 16 or 24 bits (common/WavFormat.h) are converted to the encoder's
// sample format and, where it does not take the input's rate, to the nearest rate it
// takes above (or its highest), and cut into the frames the encoder wants; their clock is
// the sample rate and they are stamped contiguously from the first input frame's time.
//
// Output: coded frames and description of common/CodedMedia.h, the description published
// as soon as the encoder is open (before the first frame), with the codec's private data
// made out of band (the encoder's global header), so that any container can take it.
//
// Failures: an input of another kind or layout fails with kResultNoValidTracks, an
// encoder that does not open with the settings given (a profile that does not fit the
// input, say) with kResultComponentConfigureFailed, an encoding error with
// kResultUnspecified. An unknown setting or a value out of range is refused by
// configure() with kResultSettingParseFailed.
//
// Threads: those of RAvCodecStage; the video encoders run threads of their own as their
// "threads" setting says.
#ifndef CM_COMPONENTS_AV_AVENCODER_H
#define CM_COMPONENTS_AV_AVENCODER_H

#include "av/AvCodecStage.h"
#include "av/AvObjects.h"
#include "av/AvResampler.h"
#include "common/CodedMedia.h"
#include "common/PlanarPicture.h"

#include <string>
#include <vector>

namespace cmcomponents {

struct EncoderSpec {
    std::string owner;    // the component in messages: "h264 encoder"
    const char* encoder;  // FFmpeg's encoder: "libx264"
    unsigned int media;   // "vide" or "audi"
    unsigned int format;  // the FourCC it makes
    std::vector<SettingSpec> settings;
};

// The speed presets of libx264 and libx265, fastest first.
constexpr char kX26xPresets[] =
    "ultrafast superfast veryfast faster fast medium slow slower veryslow placebo";

// The settings every video encoder takes besides its own: "bitrate" (bits per second),
// "keyint" (frames between key frames), "threads".
std::vector<SettingSpec> videoEncoderSettings(std::vector<SettingSpec> own);
// The one every audio encoder takes besides its own: "bitrate".
std::vector<SettingSpec> audioEncoderSettings(long long minBitrate, long long maxBitrate,
                                              std::vector<SettingSpec> own);

class RAvEncoder : public RAvCodecStage {
public:
    explicit RAvEncoder(const EncoderSpec& encoder);

    unsigned int type() const override { return ZR::fourcc("cmpr"); }

protected:
    int open(const ZR::CM::RDescription& description, std::string& why) override;
    int code(const ZR::CM::RFrame& frame, std::string& why) override;
    int finish(std::string& why) override;
    void close() override;

private:
    // Sets the context up for the input; open() then opens it with the settings.
    int setUpVideo(const ZR::CM::RDescription& description, std::string& why);
    int setUpAudio(const ZR::CM::RDescription& description, std::string& why);
    // Once the encoder is open: the conversion of the samples into its format.
    int prepareSamples(std::string& why);
    // Publishes the description of what the open encoder makes.
    void describeOutput(const ZR::CM::RDescription& input);
    int encodePicture(const ZR::CM::RFrame& frame, std::string& why);
    int encodeSamples(const ZR::CM::RFrame& frame, std::string& why);
    // Moves converted samples into the queue of whole encoder frames.
    int queueConverted(const std::uint8_t* const* in, int count, std::string& why);
    // Encodes the queued samples in frames of the encoder's size; with all, the rest too.
    int encodeQueued(bool all, std::string& why);
    // Hands a frame (null: the end) to the encoder and puts every packet it gives back.
    int send(const AVFrame* frame, std::string& why);

    const EncoderSpec mSpec;
    const AVCodec* mEncoder = nullptr;
    CodecContextPtr mCodec;
    PacketPtr mPacket;
    FramePtr mFrame;
    unsigned int mPackets = 0;
    std::int64_t mNextPts = AV_NOPTS_VALUE;  // audio: of the next frame; video: the last + 1
    // Video.
    PlanarPicture mPicture;
    double mFrameDuration = 0.0;
    // Audio.
    unsigned int mInputBytes = 0;  // bytes of one input sample
    unsigned int mInputRate = 0;
    unsigned int mChannels = 0;
    CAvResampler mResampler;
    AudioFifoPtr mQueue;
    FramePtr mConverted;              // room for what the resampler makes
    std::vector<std::int32_t> mWide;  // 24-bit input widened to 32 bits
};

}  // namespace cmcomponents

#endif
