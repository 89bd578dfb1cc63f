// CodedMedia: the form in which the components pass coded (compressed) audio and video
// between them. Container importers produce it, decoders and exporters take it, encoders
// produce it again; packetizers and network importers use the same form. Nothing here
// depends on the codec libraries, so any component may include it.
//
// Formats. A coded track is named by its codec's FourCC, the same on its track info
// (mTrackValue), in its description and on every frame (mDataFormat):
//   video  "avc1" H.264, "hvc1" H.265, "vp09" VP9, "vp08" VP8, "av01" AV1, "mp4v" MPEG-4
//          Part 2, "mp2v" MPEG-1/2 video, "jpeg" Motion JPEG, "theo" Theora
//   audio  "mp4a" AAC, "Opus" Opus, "mp3 " MPEG audio layer III, "mp2 " layer II, "fLaC"
//          FLAC, "vorb" Vorbis, "ac-3" AC-3, "ec-3" E-AC-3, "alac" ALAC, and PCM: "lpcm"
//          (the WAV layout of WavFormat.h: 8-bit unsigned, 16- and 24-bit signed, all
//          little-endian), "in32" 32-bit signed, "fl32" and "fl64" IEEE float, little-endian
// Raw pictures keep the planar FourCCs of PlanarPicture.h ("I420", "Y42B", "Y444").
//
// What the frames of some codecs hold, and their private data (below):
//   "avc1", "hvc1"  NAL units. When the private data is an avcC / hvcC record (its first
//                   byte is 1), each NAL unit is preceded by its length in as many bytes as
//                   the record says (4 in practice); otherwise the units are in Annex B form,
//                   each after a 00 00 01 start code, and the private data, if any, holds the
//                   parameter sets in that form too.
//   "mp4a"          raw AAC access units with the AudioSpecificConfig as private data, or
//                   ADTS frames (headers included) without private data.
//   "Opus"          Opus packets; the private data is the OpusHead structure.
//   "fLaC"          FLAC frames; the private data is the 34-byte STREAMINFO block.
//   "vorb"          Vorbis packets; the private data holds the three headers (Xiph lacing).
//   "mp3 ", "mp2 "  MPEG audio frames, headers included; no private data.
//   "vp09", "vp08", "av01"  frames as WebM stores them; private data optional.
//
// Descriptions. An RVideoDescription of coded video says:
//   mVideoInt1, mVideoInt2  width and height in pixels; 0 when the source does not say
//   mVideoInt3              the codec's FourCC (as raw pictures have their layout there)
//   mFrameRate              frames per second; 0 when the source does not say
//   mVideoReal1             width / height of one pixel (the sample aspect ratio); 0 unknown
//   mVideoReal2             unused, 0
// An RAudioDescription of coded audio says:
//   mChannels, mSampleRate  channels and sample frames per second
//   mBytesPerSample         bytes of one sample of one channel where the codec keeps a fixed
//                           size (PCM, FLAC, ALAC), else 0: no consumer may divide by it
//                           without looking
//   mAudioInt               the speaker mask in WAV's bits (front left 1, front right 2,
//                           centre 4, LFE 8, ...), 0 when the channels have no particular
//                           assignment
// Parameters of every coded description, each a ZR::RString:
//   "format"              the codec's FourCC as four characters (for audio this is the only
//                         place that names it; see formatOf())
//   "time-base"           "num/den": the seconds of one tick of the clock the track's times
//                         were counted in ("1/90000"); frame times are whole ticks of it, so
//                         round(seconds * den / num) gives them back exactly
//   "codec-private-data"  the codec's out-of-band set-up (the private data above) as raw
//                         bytes: getLength() of them, followed by a NUL; absent when the
//                         codec has none
// and, where the source says, what some containers write into their own headers (VP9 in
// MP4, for one):
//   "profile", "level"    the codec's profile and level in its own numbering (H.264's
//                         profile_idc 100 and level_idc 30, VP9's profile 0 to 3, ...), as
//                         decimal text
//   "pixel-format"        the layout of the decoded pictures in FFmpeg's naming
//                         ("yuv420p", "yuv420p10le")
//
// Frames. A coded frame is an RVideoFrame or RAudioFrame holding one coded unit (a picture
// or an audio packet) as the container stored it:
//   mStartTime    presentation time, seconds
//   mAuxTime      decode time, seconds; equal to the presentation time when the codec does
//                 not reorder (it may be negative: a stream that reorders starts decoding
//                 before its first picture is shown)
//   mDuration     seconds; 0 when the source does not say
//   mFrameNumber  the frame's index in decode order, from 0
//   mDataFormat   the codec's FourCC
//   key frame     bit 0 (kKeyFrame) of mVideoValue for video, of mAudioValue1 for audio:
//                 the frame decodes without any before it, so decoding may start there
//   discard       bit 1 (kDiscardFrame) of the same value: the frame is decoded for the
//                 frames after it but not presented (the priming before an edit's start)
//   trimming      mAudioValue2 of audio: sample frames the decoder drops from what the
//                 frame decodes to, the low 16 bits at its start and the high 16 bits at
//                 its end (an encoder's delay, Opus's pre-skip, the padding of the last
//                 frame); 0 for most frames
//
// Containers. An exporter's format map pairs each codec it takes with the container it
// writes, named by the container's usual file extension as a FourCC padded with spaces
// ("mp4 ", "mkv ", "webm", "ts  "; see containerFourCC()), so that the question "which
// exporter takes .webm files?" is a format-map query.
//
// Threads: descriptions and frames follow the library's rule: filled by one thread, then
// published and only read.
#ifndef CM_COMPONENTS_COMMON_CODEDMEDIA_H
#define CM_COMPONENTS_COMMON_CODEDMEDIA_H

#include <cm/CMFrame.h>
#include <zr/ZRTypes.h>

#include <cstddef>
#include <string>
#include <vector>

namespace cmcomponents {

// The parameter names of coded descriptions.
extern const char kFormatParameter[];
extern const char kTimeBaseParameter[];
extern const char kPrivateDataParameter[];
extern const char kProfileParameter[];
extern const char kLevelParameter[];
extern const char kPixelFormatParameter[];

// The bits of a coded frame's mVideoValue or mAudioValue1.
constexpr unsigned int kKeyFrame = 1;
constexpr unsigned int kDiscardFrame = 2;

// Ticks of a track's clock: num / den seconds each.
struct TimeBase {
    int num = 0;
    int den = 0;

    bool isValid() const noexcept { return num > 0 && den > 0; }
    double seconds(long long ticks) const noexcept {
        return static_cast<double>(ticks) * num / den;
    }
    // The nearest whole tick; seconds must be finite.
    long long ticks(double seconds) const noexcept;
};

// What a coded track's description holds (see above), as plain values.
struct CodedFormat {
    unsigned int media = 0;  // "vide" or "audi"
    unsigned int codec = 0;  // the codec's FourCC
    // Video.
    unsigned int width = 0;
    unsigned int height = 0;
    double frameRate = 0.0;
    float pixelAspect = 0.0f;
    // Audio.
    unsigned int channels = 0;
    unsigned int sampleRate = 0;
    unsigned int bytesPerSample = 0;
    unsigned int channelMask = 0;

    TimeBase timeBase;
    std::vector<unsigned char> privateData;
    // Unknown: kUnknownProfile, kUnknownLevel, an empty pixel format.
    static constexpr int kUnknownProfile = -99;
    static constexpr int kUnknownLevel = -99;
    int profile = kUnknownProfile;
    int level = kUnknownLevel;
    std::string pixelFormat;

    bool isVideo() const noexcept { return media == ZR::fourcc("vide"); }
    bool isAudio() const noexcept { return media == ZR::fourcc("audi"); }

    // A new description (count 0) of this format.
    ZR::CM::RDescription* createDescription() const;
    // Reads a coded description back; false when it is neither video nor audio or names no
    // format (formatOf() gives 0).
    bool setFromDescription(const ZR::CM::RDescription& description);
};

// The format of the frames a description announces: its "format" parameter, else for
// video mVideoInt3, else for audio "lpcm" (the WAV importer's descriptions say no more);
// 0 for anything else.
unsigned int formatOf(const ZR::CM::RDescription& description);

// The times and marks of one coded frame.
struct CodedFrameTimes {
    double start = 0.0;     // presentation
    double decode = 0.0;    // decode
    double duration = 0.0;  // 0 when unknown
    unsigned int index = 0;
    bool key = false;
    bool discard = false;
    // Audio: sample frames to drop after decoding (each at most 65535).
    unsigned int trimStart = 0;
    unsigned int trimEnd = 0;
};

// A new coded frame (count 0) of the media ("vide" or "audi") holding a copy of the size
// bytes at data. Throws ZR::CException when out of memory, as frames do.
ZR::CM::RFrame* createCodedFrame(unsigned int media, unsigned int codec, const unsigned char* data,
                                 unsigned int size, const CodedFrameTimes& times);
// The marks of a coded video or audio frame.
bool isKeyFrame(const ZR::CM::RFrame& frame);
bool isDiscarded(const ZR::CM::RFrame& frame);
// The trimming of a coded audio frame; 0 and 0 for video.
void trimmingOf(const ZR::CM::RFrame& frame, unsigned int& start, unsigned int& end);

// The FourCC of a file extension ("mp4" gives "mp4 ", "webm" gives "webm"), lower case;
// 0 for an empty extension or one longer than four characters.
unsigned int containerFourCC(const std::string& extension);
// The text of a FourCC, four characters ("mp3 ").
std::string fourccText(unsigned int code);

}  // namespace cmcomponents

#endif
