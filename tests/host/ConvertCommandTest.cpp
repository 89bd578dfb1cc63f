// cmhost convert on real media: the graph it builds for each kind of conversion, judged by
// ffprobe and ffmpeg (streams, codecs, frames, times, picture and sound), and its one line
// for input it cannot convert. The media are made by ffmpeg from its test sources.
#include <gtest/gtest.h>

#include "support/HttpServers.h"
#include "support/MediaTools.h"
#include "support/RtspServers.h"
#include "support/TestSupport.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <sstream>
#include <string>
#include <vector>

namespace {

// One frame of an AAC encoder's priming, which Matroska and MPEG-TS keep in front of the
// sound (they have no edit list to hide it, and FFmpeg writes no codec delay for AAC):
// 1024 samples at 48 kHz. ffmpeg's own conversions keep it the same way.
constexpr double kAacPriming = 1024 / 48000.0;

// cmhost with a time-out of its own, so that a hang reads as a failure.
cmtest::ToolRun cmhost(const std::string& args) {
    return cmtest::runCapturing("timeout -s KILL 100 " CMHOST_PATH " " + args);
}

// What ffprobe decodes of one stream.
struct Decoded {
    std::string codec;
    int frames = 0;
    double start = INFINITY;  // the time of the first frame
    double end = -INFINITY;   // where the last one ends
};

std::vector<Decoded> decode(const std::string& path) {
    std::vector<Decoded> streams;
    for (const auto& stream : cmtest::probeStreams(path, false)) {
        streams.push_back(Decoded{stream.at("codec_name")});
    }
    const cmtest::ToolRun run = cmtest::runCommand(
        "ffprobe -v error -show_entries frame=stream_index,pts_time,pkt_duration_time "
        "-of csv=p=0 " +
        cmtest::shellQuote(path));
    std::istringstream lines(run.output);
    std::string line;
    while (std::getline(lines, line)) {
        unsigned int index = 0;
        double pts = 0.0, duration = 0.0;
        if (std::sscanf(line.c_str(), "%u,%lf,%lf", &index, &pts, &duration) < 2 ||
            index >= streams.size()) {
            continue;
        }
        Decoded& stream = streams[index];
        ++stream.frames;
        stream.start = std::min(stream.start, pts);
        stream.end = std::max(stream.end, pts + duration);
    }
    return streams;
}

bool isVideo(const Decoded& stream) {
    return stream.codec == "h264" || stream.codec == "hevc" || stream.codec == "vp9";
}

double meanVolume(const std::string& path) {
    const cmtest::ToolRun run = cmtest::runCommand(
        "ffmpeg -nostdin -i " + cmtest::shellQuote(path) + " -af volumedetect -f null - 2>&1");
    const size_t at = run.output.find("mean_volume: ");
    return at == std::string::npos ? NAN : std::strtod(run.output.c_str() + at + 13, nullptr);
}

// One second of a 128x96 test picture at 25 fps in H.264 (with B-frames, so decode and
// presentation times differ) and of a 48 kHz tone in AAC: together and each alone.
struct Sources {
    Sources() {
        const std::string picture = "-f lavfi -i testsrc=s=128x96:r=25:d=1 ";
        const std::string tone = "-f lavfi -i sine=f=440:d=1:r=48000 ";
        const std::string codecs = "-c:v libx264 -preset veryfast -c:a aac";
        EXPECT_TRUE(cmtest::makeWithFfmpeg(picture + tone + codecs, both));
        EXPECT_TRUE(cmtest::makeWithFfmpeg(tone + codecs, audio));
        EXPECT_TRUE(cmtest::makeWithFfmpeg(picture + codecs, video));
    }

    cmtest::TempDir dir;
    const std::string both = dir.file("both.mp4");
    const std::string audio = dir.file("audio.m4a");
    const std::string video = dir.file("video.mp4");
};

}  // namespace

// Each row converts a source and compares what ffprobe decodes of the output with what it
// decodes of the source: the codecs and number of streams, the video's frames, every
// stream's length within one frame of the source's, audio and video starting together
// (where the container keeps the AAC priming in front of the sound, behind it), the
// picture within 35 dB PSNR, and a stream copy running no decoder or encoder.
TEST(ConvertCommandTest, TranscodeMatrix) {
    const Sources sources;
    cmtest::Nginx nginx(sources.dir.path());
    const struct {
        const char* what;
        std::string input;
        std::string options;
        std::string output;
        std::vector<std::string> codecs;
        double priming;  // of the audio in the output
        bool copies;
    } rows[] = {
        {"to WebM: VP9 and Opus", sources.both, "", "o.webm", {"vp9", "opus"}, 0, false},
        {"to Matroska, video in H.265",
         sources.both,
         "--video h265",
         "o.mkv",
         {"hevc", "aac"},
         kAacPriming,
         false},
        {"to MPEG-TS, both encoded again",
         sources.both,
         "--video h264:crf=20 --audio aac:bitrate=96000",
         "o.ts",
         {"h264", "aac"},
         kAacPriming,
         false},
        {"stream copy", sources.both, "", "copy.mkv", {"h264", "aac"}, kAacPriming, true},
        {"audio alone", sources.audio, "", "a.webm", {"opus"}, 0, false},
        {"video alone", sources.video, "--video vp9", "v.mkv", {"vp9"}, 0, false},
        {"audio left out", sources.both, "--no-audio", "n.webm", {"vp9"}, 0, false},
        {"read over http", nginx.url("/both.mp4"), "", "h.ts", {"h264", "aac"}, kAacPriming, true},
    };
    const std::vector<Decoded> both = decode(sources.both);
    const std::vector<Decoded> audio = decode(sources.audio);
    for (const auto& row : rows) {
        SCOPED_TRACE(row.what);
        const std::string output = sources.dir.file(row.output);
        const cmtest::ToolRun run =
            cmhost("convert " + row.input + " " + output + " " + row.options);
        ASSERT_EQ(run.status, 0) << run.errors;
        EXPECT_EQ(run.errors, "");
        EXPECT_EQ(run.output.find("coder") == std::string::npos, row.copies) << run.output;
        const std::vector<Decoded> made = decode(output);
        ASSERT_EQ(made.size(), row.codecs.size());
        const std::vector<Decoded>& source = row.input == sources.audio ? audio : both;
        for (size_t i = 0; i < made.size(); ++i) {
            const Decoded& out = made[i];
            const Decoded& in = source[i];
            EXPECT_EQ(out.codec, row.codecs[i]);
            const double priming = isVideo(out) ? 0.0 : row.priming;
            const double frame = (out.end - out.start) / out.frames;
            EXPECT_NEAR(out.end - out.start - priming, in.end - in.start, frame + 0.001)
                << out.codec;
            if (isVideo(out)) {
                EXPECT_EQ(out.frames, in.frames);
                EXPECT_GE(cmtest::psnrWithFfmpeg(output, sources.video), 35.0);
            }
        }
        if (made.size() == 2) {
            EXPECT_NEAR(made[0].start, made[1].start + row.priming, 0.001);
        }
    }
}

// gain goes on the audio branch and invert on the video branch: the sound comes out 6 dB
// lower and the picture inverted (against ffmpeg's own inversion of every byte).
TEST(ConvertCommandTest, FiltersWorkOnTheTracksOfTheirMedia) {
    const Sources sources;
    const std::string output = sources.dir.file("filtered.mkv");
    const std::string inverted = sources.dir.file("inverted.mkv");
    const cmtest::ToolRun run = cmhost("convert " + sources.both + " " + output +
                                       " --filter gain:gain-db=-6 --filter invert");
    ASSERT_EQ(run.status, 0) << run.errors;
    EXPECT_NE(run.output.find("video 1 invert.filter"), std::string::npos) << run.output;
    EXPECT_NE(run.output.find("audio 2 gain.filter"), std::string::npos) << run.output;
    EXPECT_NEAR(meanVolume(output) - meanVolume(sources.both), -6.0, 0.5);
    ASSERT_TRUE(cmtest::makeWithFfmpeg(
        "-i " + sources.both + " -an -vf lutyuv=y=255-val:u=255-val:v=255-val -c:v ffv1",
        inverted));
    EXPECT_GE(cmtest::psnrWithFfmpeg(output, inverted), 35.0);
}

// Input that cannot be converted, or a conversion no installed component serves, ends in
// one line on standard error with a non-zero status, without hanging, and leaves no output
// behind; a conversion that failed after the output was made says it removed it.
TEST(ConvertCommandTest, BadInputEndsInOneLineAndLeavesNoOutput) {
    const Sources sources;
    const cmtest::TempDir& dir = sources.dir;
    // Two seconds of noise with the index at the front: big enough that a reader reaches
    // the place where it is cut only once the run has begun.
    ASSERT_TRUE(
        cmtest::makeWithFfmpeg("-f lavfi -i testsrc=s=320x240:d=2,noise=alls=40:allf=t "
                               "-c:v libx264 -preset ultrafast -movflags faststart",
                               dir.file("indexed.mp4")));
    const std::vector<unsigned char> indexed = cmtest::readFile(dir.file("indexed.mp4"));
    const size_t cut = indexed.size() * 3 / 5;
    cmtest::writeFile(dir.file("cut.mp4"),
                      std::vector<unsigned char>(indexed.begin(), indexed.begin() + cut));
    const std::vector<unsigned char> whole = cmtest::readFile(sources.both);
    cmtest::writeFile(dir.file("headless.mp4"),
                      std::vector<unsigned char>(whole.begin(), whole.begin() + whole.size() / 2));
    std::vector<unsigned char> huge = indexed;  // a sample count of 2^31 - 1
    const std::string stsz = "stsz";
    const auto at = std::search(huge.begin(), huge.end(), stsz.begin(), stsz.end());
    ASSERT_NE(at, huge.end());
    std::copy_n("\x7f\xff\xff\xff", 4, at + 12);
    cmtest::writeFile(dir.file("huge.mp4"), huge);
    cmtest::writeFile(dir.file("garbage.mkv"), std::vector<unsigned char>(5000, 0x5a));
    ASSERT_TRUE(cmtest::makeWithFfmpeg("-f lavfi -i testsrc=s=64x48:d=0.2 -c:v ffv1",
                                       dir.file("ffv1.mkv")));
    // Serves the indexed file, and dies where `cut` is.
    const std::string body(indexed.begin(), indexed.end());
    cmtest::ScriptedHttpServer dying([&](const std::string& head) {
        const std::string length = "Content-Length: " + std::to_string(body.size()) + "\r\n";
        long long first = 0, last = 0;
        const size_t range = head.find("\r\nRange: bytes=");
        if (head.rfind("HEAD ", 0) == 0 || range == std::string::npos ||
            std::sscanf(head.c_str() + range + 15, "%lld-%lld", &first, &last) != 2) {
            return cmtest::httpResponse("200 OK", length, "");
        }
        last = std::min<long long>(last, static_cast<long long>(body.size()) - 1);
        const long long sent = std::max(0ll, std::min<long long>(last + 1, cut) - first);
        return cmtest::httpResponse(
            "206 Partial Content",
            "Content-Range: bytes " + std::to_string(first) + "-" + std::to_string(last) + "/" +
                std::to_string(body.size()) +
                "\r\nContent-Length: " + std::to_string(last - first + 1) + "\r\n",
            body.substr(static_cast<size_t>(first), static_cast<size_t>(sent)));
    });
    const struct {
        std::string input;
        std::string options;
        std::string says;
        bool removed;  // the failure came once the output was made
    } rows[] = {
        {dir.file("cut.mp4"), "", "the media ends early: track 1 has ", true},
        {dir.file("headless.mp4"), "", "cannot read ", false},
        {dir.file("huge.mp4"), "", "cannot read ", false},
        {dir.file("garbage.mkv"), "", "no demuxer takes the content", false},
        {dir.file("ffv1.mkv"), "", "(found ffv1)", false},
        {dying.url("/dying.mp4"), "", "failed to read from file", true},
        {sources.both, "--video vp9", "does not write 'vp09' into .ts files", false},
        {sources.audio, "--filter invert", "invert.filter works on 'vide'", false},
    };
    const std::string output = dir.file("out.ts");
    for (const auto& row : rows) {
        SCOPED_TRACE(row.input + " " + row.options);
        const cmtest::ToolRun run =
            cmhost("convert " + row.input + " " + output + " " + row.options);
        EXPECT_EQ(run.status, 1);
        // Before it, the HTTP reader may have said on standard error what went wrong.
        const size_t last = run.errors.rfind('\n', run.errors.size() - 2) + 1;
        EXPECT_EQ(run.errors.find("cmhost: "), last) << run.errors;
        EXPECT_NE(run.errors.find(row.says, last), std::string::npos) << run.errors;
        EXPECT_EQ(run.errors.find("; removed " + output) != std::string::npos, row.removed)
            << run.errors;
        EXPECT_FALSE(std::filesystem::exists(output));
    }
}

// A camera's stream from GStreamer's RTSP server through cmhost: info describes its tracks,
// and a recording ends with a finished file both when --seconds is reached and when SIGINT
// comes first (timeout sends it 3 s after the start, before the 60 s recording is over),
// with all tracks or only those kept.
TEST(ConvertCommandTest, RecordsLiveSourceUntilSecondsOrSignal) {
    cmtest::GStreamerRtspServer server("alice", "s3cret", "digest", "av");
    ASSERT_GT(server.port(), 0) << "GStreamer's RTSP server did not start";
    const std::string url = server.url("alice:s3cret");
    const cmtest::ToolRun info = cmhost("info " + url);
    EXPECT_EQ(info.status, 0) << info.errors;
    EXPECT_NE(info.output.find("avc1"), std::string::npos) << info.output;
    EXPECT_NE(info.output.find("mp4a"), std::string::npos) << info.output;
    EXPECT_EQ(info.output.find("s3cret"), std::string::npos) << info.output;

    cmtest::TempDir dir;
    const std::string output = dir.file("camera.mp4");
    const struct {
        const char* how;
        std::string command;
        double shortest, longest;  // the recording's length
        size_t streams;
    } rows[] = {
        {"--seconds", CMHOST_PATH " convert " + url + " " + output + " --seconds 3", 2.8, 3.2, 2},
        {"SIGINT",
         "timeout --preserve-status -s INT 3 " CMHOST_PATH " convert " + url + " " + output +
             " --seconds 60 --rtsp-transport tcp --no-audio",
         0.5, 3.0, 1},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.how);
        const cmtest::ToolRun run = cmtest::runCapturing("timeout -s KILL 60 " + row.command);
        EXPECT_EQ(run.status, 0) << run.errors;
        const std::vector<Decoded> streams = decode(output);
        ASSERT_EQ(streams.size(), row.streams) << run.errors;
        for (const Decoded& stream : streams) {
            EXPECT_GT(stream.frames, 0) << stream.codec;
            EXPECT_GE(stream.end - std::min(streams[0].start, streams.back().start), row.shortest);
            EXPECT_LE(stream.end, row.longest + 0.2) << stream.codec;
        }
        const cmtest::ToolRun check = cmtest::runCommand(
            "ffmpeg -nostdin -v error -i " + cmtest::shellQuote(output) + " -f null - 2>&1");
        EXPECT_EQ(check.output, "");
    }
}
