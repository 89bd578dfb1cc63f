#include "av.importer/AvImporter.h"

#include <gtest/gtest.h>

#include "common/CodedMedia.h"

#include <cm/CMComponentStatus.h>
#include <cm/CMSysConf.h>

#include "support/CodedPipelines.h"
#include "support/HttpServers.h"
#include "support/MediaPipeline.h"
#include "support/MediaSamples.h"
#include "support/MediaTools.h"
#include "support/TestSupport.h"

#include <fcntl.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <string>
#include <vector>

using ZR::RPtr;
using namespace ZR::CM;
using cmcomponents::CodedFormat;
using cmcomponents::fourccText;
using cmcomponents::RAvImporter;

namespace {

// Sources of a fraction of a second: a 64x48 test picture at 25 fps and a 1 kHz tone.
const std::string kPicture = "-f lavfi -i testsrc=s=64x48:r=25:d=0.4 ";
const std::string kTone = "-f lavfi -i sine=f=1000:d=0.4 ";

// What an importer made of the stream: openSource()'s result, its status after the run
// and the frames of each queue.
struct Imported {
    int opened = -1;
    CComponentStatus status;
    std::vector<cmtest::Track> tracks;
};

Imported import(RPtr<RStream> stream, std::size_t queues,
                const RImporterConfiguration& configuration = {}) {
    RPtr<RAvImporter> importer(new RAvImporter);
    Imported out;
    out.opened =
        cmtest::importTracks(*importer, std::move(stream), queues, out.tracks, configuration);
    out.status = importer->getStatus();
    return out;
}

Imported import(const std::string& path, std::size_t queues) {
    return import(cmtest::fileStream(path, O_RDONLY), queues);
}

double seconds(const std::string& text) {
    return text == "N/A" ? NAN : std::strtod(text.c_str(), nullptr);
}

// A stream that fails every read once `good` bytes have been read.
class FailingStream : public RStream {
public:
    FailingStream(RPtr<RStream> inner, long long good) : mInner(std::move(inner)), mLeft(good) {}
    int open() override { return mInner->open(); }
    int close() override { return mInner->close(); }
    long long read(unsigned char* buffer, long long length) override {
        if (mLeft <= 0) {
            return -1;
        }
        const long long n = mInner->read(buffer, std::min(length, mLeft));
        mLeft -= n > 0 ? n : 0;
        return n;
    }
    long long write(unsigned char*, long long) override { return -1; }
    long long lseek(long long offset, unsigned char whence) override {
        return mInner->lseek(offset, whence);
    }
    long long size() override { return mInner->size(); }
    int getType() override { return 1; }
    ZR::RString getURI() override { return mInner->getURI(); }

private:
    RPtr<RStream> mInner;
    long long mLeft;
};

}  // namespace

// Files of every container in the list, written by ffmpeg: the importer finds the tracks
// ffprobe finds, with their codecs and numbers, and hands out exactly the packets ffprobe
// lists, with the same presentation and decode times, durations and key-frame marks.
TEST(AvImporterTest, ImportsEveryContainerPacketForPacket) {
    ASSERT_TRUE(cmtest::haveTool("ffmpeg")) << "ffmpeg is needed: scripts/install-deps.sh";
    const struct {
        const char* file;
        std::string arguments;
        std::string formats;  // each track's code, four characters and a space
    } cases[] = {
        {"a.mp4", kPicture + kTone + "-c:v libx264 -preset ultrafast -c:a aac", "avc1 mp4a"},
        {"a.mov",
         kPicture + kTone + "-c:v libx265 -preset ultrafast -x265-params log-level=error -c:a alac",
         "hvc1 alac"},
        {"a.mkv", kPicture + kTone + "-c:v libvpx-vp9 -deadline realtime -cpu-used 8 -c:a libopus",
         "vp09 Opus"},
        {"a.webm", kPicture + kTone + "-c:v libvpx -c:a libvorbis", "vp08 vorb"},
        {"a.ts", kPicture + kTone + "-c:v libx264 -preset ultrafast -bf 2 -c:a aac", "avc1 mp4a"},
        {"a.ogg", kTone + "-c:a libopus", "Opus"},
        {"a.flac", kTone + "-c:a flac", "fLaC"},
        {"a.mp3", kTone + "-c:a libmp3lame", "mp3 "},
        {"float.wav", kTone + "-c:a pcm_f32le", "fl32"},
        {"rf64.wav", kTone + "-c:a pcm_s24le -rf64 always", "lpcm"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.file);
        cmtest::TempDir dir;
        const std::string path = dir.file(c.file);
        ASSERT_TRUE(cmtest::makeWithFfmpeg(c.arguments, path));
        const auto streams = cmtest::probeStreams(path, false);
        const auto packets = cmtest::probePackets(path);
        ASSERT_EQ(streams.size(), (c.formats.size() + 1) / 5);

        const Imported in = import(path, streams.size());
        ASSERT_EQ(in.opened, kResultOK);
        const auto& tracks = in.tracks;
        for (std::size_t t = 0; t < tracks.size(); ++t) {
            SCOPED_TRACE("track " + std::to_string(t + 1));
            ASSERT_TRUE(tracks[t].description);
            CodedFormat format;
            ASSERT_TRUE(format.setFromDescription(*tracks[t].description));
            auto stream = streams[t];
            EXPECT_EQ(fourccText(format.codec), c.formats.substr(5 * t, 4));
            if (format.isVideo()) {
                EXPECT_EQ(std::to_string(format.width), stream["width"]);
                EXPECT_EQ(std::to_string(format.height), stream["height"]);
            } else {
                EXPECT_EQ(std::to_string(format.sampleRate), stream["sample_rate"]);
                EXPECT_EQ(std::to_string(format.channels), stream["channels"]);
            }
            EXPECT_TRUE(format.timeBase.isValid());

            std::vector<cmtest::ProbedPacket> expected;
            for (const auto& packet : packets) {
                if (packet.stream == static_cast<int>(t)) {
                    expected.push_back(packet);
                }
            }
            const auto& frames = tracks[t].frames;
            ASSERT_EQ(frames.size(), expected.size());
            for (std::size_t i = 0; i < frames.size(); ++i) {
                SCOPED_TRACE("frame " + std::to_string(i));
                const RFrame& frame = *frames[i];
                EXPECT_EQ(frame.getDataFormat(), format.codec);
                EXPECT_EQ(frame.getFrameNumber(), i);
                EXPECT_EQ(cmcomponents::isKeyFrame(frame), expected[i].key);
                const double pts = seconds(expected[i].pts), dts = seconds(expected[i].dts);
                if (!std::isnan(pts)) {
                    EXPECT_NEAR(frame.getStartTime(), pts, 1e-6);
                }
                if (!std::isnan(dts)) {
                    EXPECT_NEAR(frame.getAuxTime(), dts, 1e-6);
                }
                EXPECT_NEAR(
                    frame.getDuration(),
                    std::isnan(seconds(expected[i].duration)) ? 0.0 : seconds(expected[i].duration),
                    1e-6);
            }
        }
    }
}

// The movie carries the container's tags (cmhost's test reads its tracks), and the
// descriptions the private data: an MP4 of H.264 and AAC has the avcC record (its first
// byte is 1) and an AudioSpecificConfig of AAC-LC.
TEST(AvImporterTest, ReportsTagsAndPrivateData) {
    cmtest::TempDir dir;
    const std::string path = dir.file("a.mp4");
    ASSERT_TRUE(cmtest::makeWithFfmpeg(
        kPicture + kTone + "-c:v libx264 -preset ultrafast -c:a aac -metadata title=Tone", path));
    RPtr<RAvImporter> importer(new RAvImporter);
    ASSERT_EQ(cmtest::openOn(*importer, path), kResultOK);
    EXPECT_EQ(importer->getMovieInfo()->getMetaValue("title"), "Tone");
    importer->reset();

    const Imported in = import(path, 2);
    ASSERT_EQ(in.opened, kResultOK);
    CodedFormat h264, aac;
    ASSERT_TRUE(h264.setFromDescription(*in.tracks[0].description));
    ASSERT_TRUE(aac.setFromDescription(*in.tracks[1].description));
    ASSERT_FALSE(h264.privateData.empty());
    EXPECT_EQ(h264.privateData[0], 1);
    ASSERT_GE(aac.privateData.size(), 2u);
    EXPECT_EQ(aac.privateData[0] >> 3, 2);  // the object type: AAC-LC
}

// What goes wrong says what it is, and nothing waits, crashes or takes unbounded memory:
// garbage and empty files named as media, an MP4 cut before its index, an MP4 whose
// sample table claims a billion entries, a codec the components have no name for.
TEST(AvImporterTest, BadInputFailsWithAClearResult) {
    cmtest::TempDir dir;
    const std::string good = dir.file("good.mp4");
    ASSERT_TRUE(cmtest::makeWithFfmpeg(kPicture + "-c:v libx264 -preset ultrafast", good));
    const cmtest::Bytes mp4 = cmtest::readFile(good);

    cmtest::Bytes garbage(3000);
    for (std::size_t i = 0; i < garbage.size(); ++i) {
        garbage[i] = static_cast<unsigned char>(i * 7919 % 251);
    }
    cmtest::writeFile(dir.file("garbage.mp4"), garbage);
    cmtest::writeFile(dir.file("empty.mkv"), {});
    // ffmpeg writes the index (moov) after the media: half a file has none.
    cmtest::writeFile(dir.file("truncated.mp4"),
                      cmtest::Bytes(mp4.begin(), mp4.begin() + mp4.size() / 2));
    cmtest::Bytes huge = mp4;
    const std::string stsz = "stsz";
    const auto at = std::search(huge.begin(), huge.end(), stsz.begin(), stsz.end());
    ASSERT_NE(at, huge.end());
    // version and flags, sample size 0, then the entry count.
    const std::size_t count = static_cast<std::size_t>(at - huge.begin()) + 4 + 4 + 4;
    huge[count] = 0x3F;
    huge[count + 1] = 0xFF;
    cmtest::writeFile(dir.file("huge.mp4"), huge);
    ASSERT_TRUE(cmtest::makeWithFfmpeg(kTone + "-c:a adpcm_ima_wav", dir.file("adpcm.wav")));

    const struct {
        const char* file;
        int result;
        const char* says;
    } cases[] = {
        {"garbage.mp4", kResultInputMetaDataParseFailed, "no demuxer takes the content"},
        {"empty.mkv", kResultInputMetaDataParseFailed, "no demuxer takes the content"},
        {"truncated.mp4", kResultInputMetaDataParseFailed, "no demuxer takes the content"},
        {"huge.mp4", kResultInputMetaDataParseFailed, "no demuxer takes the content"},
        {"adpcm.wav", kResultNoValidTracks, "(found adpcm_ima_wav)"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.file);
        const Imported in = import(dir.file(c.file), 1);
        EXPECT_EQ(in.opened, c.result);
        EXPECT_TRUE(cmtest::endedWith(in.status, c.result, c.says));
    }
}

// A stream that fails while the header is read fails the open with kResultFileReadFailed;
// one that fails later ends the tracks where it failed, with the same code in the status.
TEST(AvImporterTest, AStreamFailingMidReadIsAReadFailure) {
    cmtest::TempDir dir;
    const std::string path = dir.file("a.mkv");
    ASSERT_TRUE(cmtest::makeWithFfmpeg(
        "-f lavfi -i testsrc=s=64x48:r=25:d=2 -c:v libx264 -preset ultrafast", path));
    const long long size = static_cast<long long>(cmtest::readFile(path).size());
    for (const long long good : {100LL, size - 1000}) {
        SCOPED_TRACE(good);
        const Imported in =
            import(RPtr<RStream>(new FailingStream(cmtest::fileStream(path, O_RDONLY), good)), 1);
        EXPECT_EQ(in.status.mExtra, static_cast<unsigned int>(kResultFileReadFailed))
            << in.status.mInfo.c_str();
        if (good == 100) {
            EXPECT_EQ(in.opened, kResultFileReadFailed);
        } else {
            EXPECT_EQ(in.opened, kResultOK);
            EXPECT_GT(in.tracks[0].frames.size(), 0u);
            EXPECT_LT(in.tracks[0].frames.size(), 50u);
        }
    }
}

// The same frames come through a file, a mapped file and the HTTP reader plug-in.
TEST(AvImporterTest, ReadsFilesMappedFilesAndHttp) {
    ASSERT_TRUE(ZR::CM::sys_conf::instance().load_file(CM_BINARY_DIR "/share/cm/cm.conf",
                                                       CM_BINARY_DIR "/share/cm/"));
    cmtest::TempDir home, root;
    ::setenv("HOME", home.path().c_str(), 1);
    const std::string path = root.file("a.mp4");
    ASSERT_TRUE(cmtest::makeWithFfmpeg(
        kPicture + kTone + "-c:v libx264 -preset ultrafast -c:a aac -movflags faststart", path));
    cmtest::Nginx nginx(root.path());
    // A mapped file stream tells its position before it is open, so an importer cannot see
    // that it is closed: the host opens it, as hosts that map files do.
    const RPtr<RStream> mapped = RStream::getStream(ZR::RURI(path.c_str()), O_RDONLY, 1);
    ASSERT_EQ(mapped->open(), kResultOK);
    const RPtr<RStream> streams[] = {
        cmtest::fileStream(path, O_RDONLY),
        mapped,
        RStream::getStream(ZR::RURI(nginx.url("/a.mp4").c_str()), 0, 0),
    };
    std::vector<std::size_t> first;
    for (const RPtr<RStream>& stream : streams) {
        ASSERT_TRUE(stream);
        SCOPED_TRACE(stream->getURI().c_str());
        const Imported in = import(stream, 2);
        ASSERT_EQ(in.opened, kResultOK);
        EXPECT_EQ(in.status.mExtra, 0u) << in.status.mInfo.c_str();
        const std::vector<std::size_t> counts{in.tracks[0].frames.size(),
                                              in.tracks[1].frames.size()};
        EXPECT_EQ(counts[0], 10u);
        if (first.empty()) {
            first = counts;
        }
        EXPECT_EQ(counts, first);
    }
}

// The "tracks" setting puts the tracks on the queues in its order; one that names a track
// the source does not have, or one twice, is refused.
TEST(AvImporterTest, TracksSettingOrdersTheQueues) {
    cmtest::TempDir dir;
    const std::string path = dir.file("a.mkv");
    ASSERT_TRUE(cmtest::makeWithFfmpeg(
        kPicture + kTone + "-c:v libx264 -preset ultrafast -c:a flac", path));
    const struct {
        const char* tracks;
        std::vector<std::string> formats;  // empty: refused
    } cases[] = {
        {"2", {"fLaC"}},     {"2,1", {"fLaC", "avc1"}},
        {"1", {"avc1", ""}},  // the second queue has no track
        {"3", {}},           {"1,1", {}},
        {"one", {}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.tracks);
        RImporterConfiguration configuration;
        configuration.setString("tracks", c.tracks);
        const std::size_t queues = c.formats.empty() ? 1 : c.formats.size();
        const Imported in = import(cmtest::fileStream(path, O_RDONLY), queues, configuration);
        const CComponentStatus& status = in.status;
        const std::vector<cmtest::Track>& tracks = in.tracks;
        if (c.formats.empty()) {
            EXPECT_EQ(status.mExtra, static_cast<unsigned int>(kResultSettingParseFailed));
            continue;
        }
        EXPECT_EQ(status.mExtra, 0u) << status.mInfo.c_str();
        for (std::size_t q = 0; q < queues; ++q) {
            const std::string format =
                tracks[q].description ? fourccText(cmcomponents::formatOf(*tracks[q].description))
                                      : "";
            EXPECT_EQ(format, c.formats[q]) << "queue " << q;
            EXPECT_EQ(tracks[q].frames.empty(), format.empty()) << "queue " << q;
        }
    }
}
