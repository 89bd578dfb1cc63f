// A disk that fills up, or a file-size limit that is reached, while the file log writes and
// while the exporters write their files: each failure is reported, and everything written
// before it stays whole.
#include "support/Faults.h"
#include "support/MediaPipeline.h"
#include "support/MediaSamples.h"
#include "support/MediaTools.h"

#include "wav.exporter/WavExporter.h"
#include "y4m.exporter/Y4MExporter.h"

#include <cm/CMFileLog.h>
#include <cm/CMFrame.h>
#include <cm/CMSysConf.h>

#include <gtest/gtest.h>

#include <cstdlib>
#include <ctime>
#include <string>

using ZR::RPtr;
using namespace ZR::CM;
using cmtest::Bytes;
using cmtest::FullDisk;

namespace {

// 2001-09-09 01:46:40 UTC.
constexpr int kTime = 1000000000;
constexpr char kStamp[] = "Sun Sep  9 01:46:40 2001 ";

std::string lineText(int n) {
    return "message " + std::to_string(n) + " " + std::string(90, 'x');
}

// The end of a long text, for a failure message.
std::string tail(const std::string& text) {
    return text.substr(text.size() - std::min<std::size_t>(text.size(), 200));
}

// The text of lines first..last-1 as the file log writes them.
std::string linesOf(int first, int last) {
    std::string text;
    for (int n = first; n < last; ++n) {
        text += kStamp + lineText(n) + "\n";
    }
    return text;
}

}  // namespace

// The file log writes until the disk is full: the message that does not fit fails, and
// the file ends with the last whole line before it. Once there is room again the log goes
// on after that line. With and without rotation, on a full tmpfs and at a file-size limit.
TEST(DiskFaultTest, FileLogKeepsWholeLinesWhenTheDiskFills) {
    for (const FullDisk::Kind kind : cmtest::fullDiskKinds()) {
        for (const int files : {1, 3}) {
            FullDisk disk(kind, 16 * 1024);
            SCOPED_TRACE(std::string(disk.describe()) + ", files " + std::to_string(files));
            cmtest::configureUtcFileLog(disk.path(), files, 1 << 20);
            RFileLogInterface log;
            ASSERT_TRUE(log.init());
            int written = 0;
            while (written < 1000 && log.log(6, kTime, lineText(written).c_str()) == 0) {
                ++written;
            }
            ASSERT_LT(written, 1000) << "the disk never filled";
            EXPECT_GT(written, 100);
            EXPECT_EQ(log.log(6, kTime, lineText(written).c_str()), -1);  // still no room
            const std::string path = disk.file("app.log");
            std::string text = cmtest::readText(path);
            EXPECT_TRUE(text == linesOf(0, written)) << "the file ends with: " << tail(text);
            EXPECT_EQ(log.getCurrentSize(), linesOf(0, written).size());

            disk.makeRoom();
            EXPECT_EQ(log.log(6, kTime, lineText(written).c_str()), 0);
            text = cmtest::readText(path);
            EXPECT_TRUE(text == linesOf(0, written + 1)) << "the file ends with: " << tail(text);
        }
    }
}

namespace {

RPtr<RAudioDescription> stereo16() {
    RPtr<RAudioDescription> d(new RAudioDescription);
    d->mChannels = 2;
    d->mBytesPerSample = 2;
    d->mSampleRate = 48000;
    return d;
}

RPtr<RVideoDescription> smallVideo() {
    RPtr<RVideoDescription> d(new RVideoDescription);
    d->mVideoInt1 = 64;
    d->mVideoInt2 = 48;
    d->mVideoInt3 = cmcomponents::kPlanar420;
    d->mFrameRate = 25;
    return d;
}

// bytes cut into frames of frameBytes, audio or video.
std::vector<RPtr<RFrame>> framesOf(const Bytes& bytes, std::size_t frameBytes, bool video) {
    std::vector<RPtr<RFrame>> frames;
    for (std::size_t at = 0; at < bytes.size(); at += frameBytes) {
        auto* data = const_cast<unsigned char*>(bytes.data() + at);
        const auto n = static_cast<unsigned int>(frameBytes);
        if (video) {
            frames.emplace_back(RVideoFrame::createWithData(cmcomponents::kPlanar420, n, data, 0,
                                                            ZR::ConstructionCopy));
        } else {
            frames.emplace_back(RAudioFrame::createWithData(cmcomponents::kLinearPCM, n, data, 0, 0,
                                                            ZR::ConstructionCopy));
        }
    }
    return frames;
}

bool startsWith(const Bytes& bytes, const Bytes& prefix) {
    return bytes.size() >= prefix.size() && std::equal(prefix.begin(), prefix.end(), bytes.begin());
}

}  // namespace

// An exporter that runs out of room fails its run with kResultFileWriteFailed, reads its
// input to the end (so the feeding thread is never left waiting) and leaves a file that
// holds exactly what went in up to the failure: a WAV file whose header counts the samples
// that made it to the disk, so that a decoder plays them; a Y4M file whose pictures are
// those of the input.
TEST(DiskFaultTest, ExportersReportAFullDiskAndKeepWhatTheyWrote) {
    ASSERT_TRUE(cmtest::haveTool("ffmpeg")) << "ffmpeg is needed: scripts/install-deps.sh";
    const Bytes tone = cmtest::makeTone(16, 2, 48000, 0.5);  // 192000 bytes
    const Bytes pictures = cmtest::makeGradient(64, 48, "420", 100);
    const std::size_t pictureBytes = cmtest::pictureBytes(64, 48, "420");
    for (const FullDisk::Kind kind : cmtest::fullDiskKinds()) {
        FullDisk disk(kind, 64 * 1024);
        SCOPED_TRACE(disk.describe());

        RPtr<cmcomponents::RWavExporter> wav(new cmcomponents::RWavExporter);
        const std::string wavPath = disk.file("tone.wav");
        CComponentStatus status =
            cmtest::exportFrames(*wav, wavPath, stereo16().addr(), framesOf(tone, 4000, false));
        EXPECT_EQ(status.mExtra, static_cast<unsigned int>(kResultFileWriteFailed));
        EXPECT_NE(std::string(status.mInfo.c_str()).find("failed to write to file: "),
                  std::string::npos)
            << status.mInfo.c_str();
        // The header counts what is in the file (a strict reader plays exactly that).
        const Bytes file = cmtest::readFile(wavPath);
        ASSERT_GT(file.size(), 44u);
        const std::size_t counted = file[40] | file[41] << 8 | file[42] << 16 | file[43] << 24;
        EXPECT_GT(counted, 32u * 1024) << "the samples written are lost";
        EXPECT_EQ(counted, (file.size() - 44) / 4 * 4);
        EXPECT_TRUE(startsWith(tone, Bytes(file.begin() + 44, file.begin() + 44 + counted)));
        EXPECT_EQ(cmtest::decodeWithFfmpeg(wavPath, "s16le").size(), counted);
        std::remove(wavPath.c_str());  // room for the second file on the tmpfs

        RPtr<cmcomponents::RY4MExporter> y4m(new cmcomponents::RY4MExporter);
        const std::string y4mPath = disk.file("video.y4m");
        status = cmtest::exportFrames(*y4m, y4mPath, smallVideo().addr(),
                                      framesOf(pictures, pictureBytes, true));
        EXPECT_EQ(status.mExtra, static_cast<unsigned int>(kResultFileWriteFailed));
        EXPECT_NE(std::string(status.mInfo.c_str()).find("writing frame"), std::string::npos)
            << status.mInfo.c_str();
        const Bytes written = cmtest::readFile(y4mPath);
        const std::string header = "YUV4MPEG2 W64 H48 F25:1";
        EXPECT_TRUE(startsWith(written, Bytes(header.begin(), header.end())));
        const Bytes decoded = cmtest::decodeWithFfmpeg(y4mPath, "rawvideo");
        EXPECT_GT(decoded.size(), 8 * pictureBytes);
        EXPECT_EQ(decoded.size() % pictureBytes, 0u);
        EXPECT_TRUE(startsWith(pictures, decoded)) << decoded.size() << " bytes decoded";
    }
}
