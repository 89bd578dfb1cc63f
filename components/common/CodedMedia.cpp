#include "common/CodedMedia.h"

#include <algorithm>
#include <cctype>
#include <cmath>
#include <cstdio>
#include <memory>

using ZR::RPtr;
using ZR::RString;
using ZR::CM::RAudioDescription;
using ZR::CM::RAudioFrame;
using ZR::CM::RDescription;
using ZR::CM::RFrame;
using ZR::CM::RVideoDescription;
using ZR::CM::RVideoFrame;

namespace cmcomponents {

const char kFormatParameter[] = "format";
const char kTimeBaseParameter[] = "time-base";
const char kPrivateDataParameter[] = "codec-private-data";
const char kProfileParameter[] = "profile";
const char kLevelParameter[] = "level";
const char kPixelFormatParameter[] = "pixel-format";

namespace {

constexpr unsigned int kVideo = ZR::fourcc("vide");
constexpr unsigned int kAudio = ZR::fourcc("audi");

// The parameter's text, or null when it is absent or not a string. The description keeps
// its own reference, so the string lives as long as the description.
const RString* stringParameter(const RDescription& description, const char* name) {
    return dynamic_cast<const RString*>(description.getParameter(name).addr());
}

// The parameter's number, or fallback when it is absent or not a whole number.
int numberParameter(const RDescription& description, const char* name, int fallback) {
    const RString* text = stringParameter(description, name);
    int value = 0;
    char rest = 0;
    return text && std::sscanf(text->c_str(), "%d%c", &value, &rest) == 1 ? value : fallback;
}

RDescription* newDescription(const CodedFormat& format) {
    if (format.isVideo()) {
        auto* video = new RVideoDescription;
        video->mVideoInt1 = format.width;
        video->mVideoInt2 = format.height;
        video->mVideoInt3 = format.codec;
        video->mFrameRate = format.frameRate;
        video->mVideoReal1 = format.pixelAspect;
        return video;
    }
    auto* audio = new RAudioDescription;
    audio->mChannels = format.channels;
    audio->mSampleRate = format.sampleRate;
    audio->mBytesPerSample = format.bytesPerSample;
    audio->mAudioInt = format.channelMask;
    return audio;
}

}  // namespace

long long TimeBase::ticks(double seconds) const noexcept {
    return std::llround(seconds * den / num);
}

RDescription* CodedFormat::createDescription() const {
    std::unique_ptr<RDescription> description(newDescription(*this));
    description->addParameter(kFormatParameter, new RString(fourccText(codec).c_str()));
    if (timeBase.isValid()) {
        description->addParameter(kTimeBaseParameter, new RString(RString::createWithFormat(
                                                          "%d/%d", timeBase.num, timeBase.den)));
    }
    if (profile != kUnknownProfile) {
        description->addParameter(kProfileParameter,
                                  new RString(RString::createWithFormat("%d", profile)));
    }
    if (level != kUnknownLevel) {
        description->addParameter(kLevelParameter,
                                  new RString(RString::createWithFormat("%d", level)));
    }
    if (!pixelFormat.empty()) {
        description->addParameter(kPixelFormatParameter, new RString(pixelFormat.c_str()));
    }
    if (!privateData.empty()) {
        std::unique_ptr<RString> bytes(new RString);
        bytes->set(static_cast<int>(privateData.size()),
                   const_cast<unsigned char*>(privateData.data()), ZR::ConstructionCopy);
        const unsigned char nul = 0;
        bytes->append(1, &nul);
        description->addParameter(kPrivateDataParameter, bytes.release());
    }
    return description.release();
}

bool CodedFormat::setFromDescription(const RDescription& description) {
    *this = CodedFormat();
    media = description.type();
    codec = formatOf(description);
    if ((media != kVideo && media != kAudio) || codec == 0) {
        return false;
    }
    if (media == kVideo) {
        const auto& video = static_cast<const RVideoDescription&>(description);
        width = video.mVideoInt1;
        height = video.mVideoInt2;
        frameRate = video.mFrameRate;
        pixelAspect = video.mVideoReal1;
    } else {
        const auto& audio = static_cast<const RAudioDescription&>(description);
        channels = audio.mChannels;
        // Rates come as whole numbers; anything else (or out of range) reads as unknown.
        const double rate = audio.mSampleRate;
        sampleRate =
            rate >= 1.0 && rate <= 4.0e9 ? static_cast<unsigned int>(std::lround(rate)) : 0;
        bytesPerSample = audio.mBytesPerSample;
        channelMask = audio.mAudioInt;
    }
    if (const RString* text = stringParameter(description, kTimeBaseParameter)) {
        TimeBase parsed;
        char rest = 0;
        if (std::sscanf(text->c_str(), "%d/%d%c", &parsed.num, &parsed.den, &rest) == 2 &&
            parsed.isValid()) {
            timeBase = parsed;
        }
    }
    profile = numberParameter(description, kProfileParameter, kUnknownProfile);
    level = numberParameter(description, kLevelParameter, kUnknownLevel);
    if (const RString* text = stringParameter(description, kPixelFormatParameter)) {
        pixelFormat = text->c_str();
    }
    if (const RString* bytes = stringParameter(description, kPrivateDataParameter)) {
        const unsigned char* data = bytes->getData();
        privateData.assign(data, data + bytes->getLength());
    }
    return true;
}

unsigned int formatOf(const RDescription& description) {
    if (const RString* text = stringParameter(description, kFormatParameter)) {
        return text->getLength() == 4 ? ZR::fourccFromText(text->c_str()) : 0;
    }
    if (description.type() == kVideo) {
        return static_cast<const RVideoDescription&>(description).mVideoInt3;
    }
    return description.type() == kAudio ? ZR::fourcc("lpcm") : 0;
}

RFrame* createCodedFrame(unsigned int media, unsigned int codec, const unsigned char* data,
                         unsigned int size, const CodedFrameTimes& times) {
    auto* bytes = const_cast<unsigned char*>(data);  // copied, never written
    const unsigned int marks = (times.key ? kKeyFrame : 0) | (times.discard ? kDiscardFrame : 0);
    RFrame* frame = nullptr;
    if (media == kVideo) {
        frame = RVideoFrame::createWithData(times.index, times.start, times.duration, codec, size,
                                            bytes, marks, ZR::ConstructionCopy);
    } else {
        const unsigned int trimming =
            std::min(times.trimStart, 0xFFFFu) | std::min(times.trimEnd, 0xFFFFu) << 16;
        frame = RAudioFrame::createWithData(times.index, times.start, times.duration, codec, size,
                                            bytes, marks, trimming, ZR::ConstructionCopy);
    }
    frame->setAuxTime(times.decode);
    return frame;
}

namespace {

unsigned int marksOf(const RFrame& frame) {
    if (frame.type() == kVideo) {
        return static_cast<const RVideoFrame&>(frame).getVideoValue();
    }
    if (frame.type() == kAudio) {
        return static_cast<const RAudioFrame&>(frame).getAudioValue1();
    }
    return 0;
}

}  // namespace

bool isKeyFrame(const RFrame& frame) {
    return (marksOf(frame) & kKeyFrame) != 0;
}

bool isDiscarded(const RFrame& frame) {
    return (marksOf(frame) & kDiscardFrame) != 0;
}

void trimmingOf(const RFrame& frame, unsigned int& start, unsigned int& end) {
    const unsigned int trimming =
        frame.type() == kAudio ? static_cast<const RAudioFrame&>(frame).getAudioValue2() : 0;
    start = trimming & 0xFFFFu;
    end = trimming >> 16;
}

unsigned int containerFourCC(const std::string& extension) {
    if (extension.empty() || extension.size() > 4) {
        return 0;
    }
    std::string padded = extension;
    for (char& c : padded) {
        c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    }
    padded.resize(4, ' ');
    return ZR::fourccFromText(padded.c_str());
}

std::string fourccText(unsigned int code) {
    const char text[5] = {static_cast<char>(code >> 24), static_cast<char>(code >> 16),
                          static_cast<char>(code >> 8), static_cast<char>(code), 0};
    return std::string(text, 4);
}

}  // namespace cmcomponents
