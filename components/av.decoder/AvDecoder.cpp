#include "av.decoder/AvDecoder.h"

#include "av/AvCodecs.h"
#include "av/AvLibrary.h"
#include "common/WavFormat.h"

#include <cm/CMComponentStatus.h>
#include <cm/CMLogger.h>

#include <cstdlib>

using ZR::RPtr;
using ZR::CM::RAudioFrame;
using ZR::CM::RDescription;
using ZR::CM::RFrame;
using ZR::CM::RVideoFrame;

namespace cmcomponents {

namespace {

using Kind = SettingSpec::Kind;
using Target = SettingSpec::Target;

// A frame's block: the data and the 64 bytes behind it that readers may touch.
unsigned char* allocateBlock(unsigned long long size) {
    return static_cast<unsigned char*>(std::malloc(static_cast<std::size_t>(size) + 64));
}

}  // namespace

RAvDecoder::RAvDecoder()
    : RAvCodecStage("decoder",
                    {
                        {"format", Kind::kChoice, 0, 0, "I420 Y42B Y444", Target::kComponent,
                         nullptr, "I420"},
                        {"threads", Kind::kInteger, 0, 64, nullptr, Target::kCodec, "threads", "0"},
                    }) {}

void RAvDecoder::close() {
    mCodec.reset();
    mPacket.reset();
    mFrame.reset();
    mScaler.reset();
    mResampler = CAvResampler();
    mDescribed = false;
    mMade = 0;
    mSkipped = 0;
    mLastEnd = 0.0;
    mOrigin = 0.0;
    mClock = AVRational{1, 1000000};
}

int RAvDecoder::open(const RDescription& description, std::string& why) {
    if (!mInput.setFromDescription(description)) {
        why = "the input is not coded audio or video";
        return ZR::CM::kResultNoDecoder;
    }
    const AVCodec* decoder = avcodec_find_decoder(codecOfFormat(mInput));
    if (!decoder) {
        why = "no decoder for \"" + fourccText(mInput.codec) + "\"";
        return ZR::CM::kResultNoDecoder;
    }
    mCodec.reset(avcodec_alloc_context3(decoder));
    mPacket.reset(av_packet_alloc());
    mFrame.reset(av_frame_alloc());
    AVCodecParameters* parameters = avcodec_parameters_alloc();
    int error = AVERROR(ENOMEM);
    if (mCodec && mPacket && mFrame && parameters &&
        (error = fillParameters(mInput, *parameters)) >= 0) {
        error = avcodec_parameters_to_context(mCodec.get(), parameters);
    }
    avcodec_parameters_free(&parameters);
    if (error < 0) {
        why = "cannot set the decoder up: " + errorText(error);
        return ZR::CM::kResultComponentInitFailed;
    }
    if (mInput.timeBase.isValid()) {
        mClock = toRational(mInput.timeBase);
    }
    mCodec->pkt_timebase = mClock;
    if (mSettings.applyTo(*mCodec, why) < 0) {
        return ZR::CM::kResultSettingParseFailed;
    }
    if ((error = avcodec_open2(mCodec.get(), decoder, nullptr)) < 0) {
        why = std::string("cannot open the ") + decoder->name + " decoder: " + errorText(error);
        return ZR::CM::kResultComponentInitFailed;
    }
    mPicture.chroma = ZR::fourccFromText(mSettings.get("format").c_str());
    return ZR::CM::kResultOK;
}

int RAvDecoder::code(const RFrame& frame, std::string& why) {
    if (frame.type() != mInput.media || frame.getDataFormat() != mInput.codec) {
        why = "a frame that is not \"" + fourccText(mInput.codec) + "\"";
        return ZR::CM::kResultNoValidTracks;
    }
    AVPacket& packet = *mPacket;
    // Not reference counted: the decoder copies what it keeps.
    packet.data = const_cast<std::uint8_t*>(frame.getData());
    packet.size = static_cast<int>(frame.getSize());
    packet.pts = ticksOf(frame.getStartTime(), mClock);
    packet.dts = ticksOf(frame.getAuxTime(), mClock);
    packet.duration = ticksOf(frame.getDuration(), mClock);
    int result = ZR::CM::kResultOK;
    if (writePacketMarks(frame, packet) < 0) {
        why = "out of memory";
        result = ZR::CM::kResultUnspecified;
    } else {
        result = decode(&packet, why);
    }
    av_packet_unref(&packet);
    return result;
}

int RAvDecoder::finish(std::string& why) {
    int result = decode(nullptr, why);
    if (result == ZR::CM::kResultOK && mInput.isAudio() && mDescribed) {
        result = emitConverted(nullptr, why);
    }
    if (result == ZR::CM::kResultOK && mMade == 0 && mSkipped > 0) {
        why = "nothing in the input decodes";
        result = ZR::CM::kResultUnspecified;
    }
    if (!mDescribed) {
        describeFromInput();
    }
    return result;
}

int RAvDecoder::decode(const AVPacket* packet, std::string& why) {
    int error = avcodec_send_packet(mCodec.get(), packet);
    if (error == AVERROR_INVALIDDATA) {
        ++mSkipped;
        ZR::CM::RLogger::getDefault()->logf(ZR::CM::kLogInfo, "%s: skipped a packet: %s",
                                            owner().c_str(), errorText(error).c_str());
    } else if (error < 0) {
        why = "decoding failed: " + errorText(error);
        return ZR::CM::kResultUnspecified;
    }
    while ((error = avcodec_receive_frame(mCodec.get(), mFrame.get())) >= 0) {
        const int result = mInput.isVideo() ? emitPicture(*mFrame, why) : emitSamples(*mFrame, why);
        av_frame_unref(mFrame.get());
        if (result != ZR::CM::kResultOK) {
            return result;
        }
    }
    if (error != AVERROR(EAGAIN) && error != AVERROR_EOF) {
        why = "decoding failed: " + errorText(error);
        return ZR::CM::kResultUnspecified;
    }
    return ZR::CM::kResultOK;
}

int RAvDecoder::emitPicture(const AVFrame& frame, std::string& why) {
    if (!mDescribed) {
        mPicture.width = static_cast<unsigned int>(frame.width);
        mPicture.height = static_cast<unsigned int>(frame.height);
        if (!mPicture.isValid()) {
            why = "a picture of a size the components do not take";
            return ZR::CM::kResultNoValidTracks;
        }
        describe(RPtr<const RDescription>(mPicture.createDescription(mInput.frameRate)));
        mDescribed = true;
    }
    const AVPixelFormat format = pixelFormatOfLayout(mPicture.chroma);
    const int width = static_cast<int>(mPicture.width);
    const int height = static_cast<int>(mPicture.height);
    const unsigned long long size = mPicture.frameBytes();
    unsigned char* block = allocateBlock(size);
    if (!block) {
        why = "out of memory";
        return ZR::CM::kResultUnspecified;
    }
    std::uint8_t* planes[4] = {};
    int lines[4] = {};
    av_image_fill_arrays(planes, lines, block, format, width, height, 1);
    if (frame.format == format && frame.width == width && frame.height == height) {
        av_image_copy(planes, lines, const_cast<const std::uint8_t**>(frame.data), frame.linesize,
                      format, width, height);
    } else {
        mScaler.reset(sws_getCachedContext(mScaler.release(), frame.width, frame.height,
                                           static_cast<AVPixelFormat>(frame.format), width, height,
                                           format, SWS_BICUBIC, nullptr, nullptr, nullptr));
        if (!mScaler) {
            std::free(block);
            why = "cannot convert the decoded pictures";
            return ZR::CM::kResultUnspecified;
        }
        sws_scale(mScaler.get(), frame.data, frame.linesize, 0, frame.height, planes, lines);
    }
    const double fallback = mInput.frameRate > 0.0 ? 1.0 / mInput.frameRate : 0.0;
    const double start = secondsOf(frame.best_effort_timestamp, mClock, mLastEnd);
    const double duration =
        frame.pkt_duration > 0 ? secondsOf(frame.pkt_duration, mClock, 0.0) : fallback;
    mLastEnd = start + duration;
    put(RVideoFrame::createWithData(static_cast<unsigned int>(mMade++), start, duration,
                                    mPicture.chroma, static_cast<unsigned int>(size), block, 0,
                                    ZR::ConstructionAdopt));
    return ZR::CM::kResultOK;
}

int RAvDecoder::emitSamples(const AVFrame& frame, std::string& why) {
    if (!mDescribed) {
        WavFormat wav;
        wav.channels = static_cast<unsigned int>(frame.ch_layout.nb_channels);
        wav.sampleRate = static_cast<unsigned int>(frame.sample_rate);
        wav.bitsPerSample = 16;
        wav.channelMask = speakerMaskOf(frame.ch_layout);
        if (wav.channels == 0 || wav.channels > WavFormat::kMaxChannels || frame.sample_rate <= 0) {
            why = "decoded audio of " + std::to_string(wav.channels) +
                  " channels: the components take 1 to 8";
            return ZR::CM::kResultNoValidTracks;
        }
        channelLayoutFor(wav.channels, wav.channelMask, mSamples.layout);
        mSamples.format = AV_SAMPLE_FMT_S16;
        mSamples.rate = frame.sample_rate;
        mOrigin = secondsOf(frame.best_effort_timestamp, mClock, 0.0);
        describe(RPtr<const RDescription>(wav.createDescription()));
        mDescribed = true;
    }
    SampleShape in;
    in.format = static_cast<AVSampleFormat>(frame.format);
    in.rate = frame.sample_rate;
    if (frame.ch_layout.order == AV_CHANNEL_ORDER_NATIVE) {
        in.layout = frame.ch_layout;
    } else {
        av_channel_layout_default(&in.layout, frame.ch_layout.nb_channels);
    }
    const int error = mResampler.setup(in, mSamples);
    if (error < 0) {
        why = "cannot convert the decoded samples: " + errorText(error);
        return ZR::CM::kResultUnspecified;
    }
    return emitConverted(&frame, why);
}

int RAvDecoder::emitConverted(const AVFrame* in, std::string& why) {
    const int channels = mSamples.layout.nb_channels;
    const int room = mResampler.outputRoom(in ? in->nb_samples : 0);
    if (room <= 0) {
        return ZR::CM::kResultOK;
    }
    unsigned char* block = allocateBlock(static_cast<unsigned long long>(room) * channels * 2);
    if (!block) {
        why = "out of memory";
        return ZR::CM::kResultUnspecified;
    }
    std::uint8_t* out[1] = {block};
    const int made = in ? mResampler.convert(in->extended_data, in->nb_samples, out, room)
                        : mResampler.drain(out, room);
    if (made <= 0) {
        std::free(block);
        if (made < 0) {
            why = "converting the decoded samples failed: " + errorText(made);
            return ZR::CM::kResultUnspecified;
        }
        return ZR::CM::kResultOK;
    }
    const double rate = mSamples.rate;
    put(RAudioFrame::createWithData(
        static_cast<unsigned int>(mMade), mOrigin + mMade / rate, made / rate, kLinearPCM,
        static_cast<unsigned int>(made * channels * 2), block, 0, 0, ZR::ConstructionAdopt));
    mMade += static_cast<unsigned long long>(made);
    return ZR::CM::kResultOK;
}

void RAvDecoder::describeFromInput() {
    if (mInput.isVideo()) {
        mPicture.width = mInput.width;
        mPicture.height = mInput.height;
        if (mPicture.isValid()) {
            describe(RPtr<const RDescription>(mPicture.createDescription(mInput.frameRate)));
        }
        return;
    }
    WavFormat wav;
    wav.channels = mInput.channels;
    wav.sampleRate = mInput.sampleRate;
    wav.bitsPerSample = 16;
    wav.channelMask = mInput.channelMask;
    if (wav.channels > 0 && wav.channels <= WavFormat::kMaxChannels && wav.sampleRate > 0) {
        describe(RPtr<const RDescription>(wav.createDescription()));
    }
}

}  // namespace cmcomponents
