// cmhost end to end: the program as a user runs it, with the components of this build,
// checked by independent tools (ffprobe and ffmpeg read what it writes, and ffmpeg
// receives its RTP stream through the SDP file it writes).
#include <gtest/gtest.h>

#include "support/ComponentDirectory.h"
#include "support/Loopback.h"
#include "support/MediaSamples.h"
#include "support/MediaTools.h"
#include "support/TestSupport.h"

#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

namespace {

using Result = cmtest::ToolRun;

// Runs a shell command line; its standard output and error are captured apart.
Result run(const std::string& command) {
    return cmtest::runCapturing(command);
}

// Whether a process has bound the UDP port, read from the kernel's socket table. Trying to
// bind the port instead would, for that moment, take it from the process about to bind it.
bool udpPortTaken(int port) {
    std::ifstream table("/proc/net/udp");
    char wanted[8];
    std::snprintf(wanted, sizeof wanted, ":%04X", port);
    std::string line;
    std::getline(table, line);  // the column names
    while (std::getline(table, line)) {
        std::istringstream fields(line);
        std::string slot, local;
        fields >> slot >> local;  // local is ADDRESS:PORT in hexadecimal
        if (local.size() > 5 && local.compare(local.size() - 5, 5, wanted) == 0) {
            return true;
        }
    }
    return false;
}

std::string cmhost(const std::string& args) {
    return std::string(CMHOST_PATH) + " " + args;
}

// The decoded samples of a media file as signed 16-bit little-endian bytes.
std::string decodedSamples(const std::string& file) {
    const Result r = run("ffmpeg -v error -i " + file + " -f s16le -acodec pcm_s16le -");
    EXPECT_EQ(r.status, 0) << r.errors;
    return r.output;
}

std::string probe(const std::string& file, const std::string& what) {
    const Result r = run("ffprobe -v error -count_frames -show_entries " + what +
                         " -of default=noprint_wrappers=1 " + file);
    EXPECT_EQ(r.status, 0) << r.errors;
    return r.output;
}

size_t lineCount(const std::string& text) {
    size_t lines = 0;
    for (const char c : text) {
        lines += c == '\n';
    }
    return lines;
}

}  // namespace

// A generated tone goes through the gain filter: at 0 dB the samples come out identical,
// at -6.02 dB (half) every sample is halved; ffprobe sees the format cmhost wrote.
TEST(CmhostTest, ConvertsAudioThroughTheGainFilter) {
    cmtest::TempDir dir;
    const std::string tone = dir.file("tone.wav");
    Result r = run(cmhost("generate tone " + tone + " --seconds 1 --rate 44100"));
    ASSERT_EQ(r.status, 0) << r.errors;
    EXPECT_EQ(probe(tone, "stream=codec_name,sample_rate,channels"),
              "codec_name=pcm_s16le\nsample_rate=44100\nchannels=2\n");

    r = run(cmhost("convert " + tone + " " + dir.file("same.wav") + " --filter gain:gain-db=0"));
    ASSERT_EQ(r.status, 0) << r.errors;
    EXPECT_NE(r.output.find("run: wall"), std::string::npos);
    const std::string original = decodedSamples(tone);
    EXPECT_EQ(original.size(), 44100u * 2 * 2);
    EXPECT_EQ(decodedSamples(dir.file("same.wav")), original);

    r = run(
        cmhost("convert " + tone + " " + dir.file("half.wav") + " --filter gain:gain-db=-6.0206"));
    ASSERT_EQ(r.status, 0) << r.errors;
    const std::string half = decodedSamples(dir.file("half.wav"));
    const cmtest::Bytes in(original.begin(), original.end()), out(half.begin(), half.end());
    ASSERT_EQ(in.size(), out.size());
    long worst = 0;
    for (size_t i = 0; i < in.size() / 2; ++i) {
        worst = std::max(worst,
                         std::labs(cmtest::sampleAt(in, 16, i) / 2 - cmtest::sampleAt(out, 16, i)));
    }
    EXPECT_LE(worst, 1);

    r = run(cmhost("info " + tone));
    ASSERT_EQ(r.status, 0) << r.errors;
    EXPECT_NE(r.output.find("importer: wav.importer"), std::string::npos) << r.output;
    EXPECT_NE(r.output.find("'audi'"), std::string::npos) << r.output;
}

// cmhost info of a real MP4 (H.264 and AAC, written by ffmpeg) lists both tracks with their
// codecs and numbers, read by the FFmpeg importer.
TEST(CmhostTest, InfoShowsTheTracksOfAnMp4) {
    cmtest::TempDir dir;
    const std::string media = dir.file("clip.mp4");
    ASSERT_TRUE(
        cmtest::makeWithFfmpeg("-f lavfi -i testsrc=s=64x48:r=25:d=0.4 -f lavfi "
                               "-i sine=d=0.4 -c:v libx264 -preset ultrafast -c:a aac",
                               media));
    const Result r = run(cmhost("info " + media));
    ASSERT_EQ(r.status, 0) << r.errors;
    EXPECT_EQ(r.errors, "");
    for (const char* line :
         {"importer: av.importer\n", "tracks: 2\n",
          "track 1: 'vide' 'avc1', start 0.000 s, duration 0.400 s, 64x48, 25 fps, 10 pictures\n",
          "track 2: 'audi' 'mp4a', start 0.000 s, duration 0.400 s, 44100 Hz, 1 channels, "
          "17640 sample frames\n"}) {
        EXPECT_NE(r.output.find(line), std::string::npos) << line << r.output;
    }
}

// A generated picture sequence goes through the invert filter; ffmpeg decodes the same
// number of frames, each the inverse of the original.
TEST(CmhostTest, ConvertsVideoThroughTheInvertFilter) {
    cmtest::TempDir dir;
    const std::string video = dir.file("in.y4m"), inverted = dir.file("out.y4m");
    Result r = run(cmhost("generate video " + video +
                          " --seconds 0.4 --width 64 "
                          "--height 48 --fps 25"));
    ASSERT_EQ(r.status, 0) << r.errors;
    EXPECT_EQ(probe(video, "stream=width,height,nb_read_frames"),
              "width=64\nheight=48\nnb_read_frames=10\n");
    r = run(cmhost("convert " + video + " " + inverted + " --filter invert"));
    ASSERT_EQ(r.status, 0) << r.errors;
    EXPECT_EQ(probe(inverted, "stream=width,height,nb_read_frames"),
              "width=64\nheight=48\nnb_read_frames=10\n");
    const Result a = run("ffmpeg -v error -i " + video + " -f rawvideo -");
    const Result b = run("ffmpeg -v error -i " + inverted + " -f rawvideo -");
    ASSERT_EQ(a.output.size(), b.output.size());
    ASSERT_EQ(a.output.size(), 10u * (64 * 48 * 3 / 2));
    for (size_t i = 0; i < a.output.size(); ++i) {
        ASSERT_EQ(static_cast<unsigned char>(b.output[i]),
                  255 - static_cast<unsigned char>(a.output[i]))
            << "byte " << i;
    }
}

namespace {

// Streams input with cmhost to consecutive ports of 127.0.0.1 while ffmpeg, started with
// the input options `probe`, receives it through the session description and writes what
// it decodes with outputArgs. The description depends only on the input and its
// destination: a first run, with nobody listening, writes the one ffmpeg starts from, and
// the run that counts begins once ffmpeg listens, however long it took to start; it must
// write the same description. ffmpeg hands packets on as they come (loopback does not
// reorder them) and ends a few seconds after the last. Returns ffmpeg's messages and the
// description.
std::string streamToFfmpeg(const cmtest::TempDir& dir, const std::string& input, int streams,
                           const std::string& probe, const std::string& outputArgs) {
    int port = 0;
    for (const int fd : cmtest::loopbackDatagramPorts(2 * streams, &port)) {
        close(fd);
    }
    const std::string first = dir.file("first.sdp"), sdp = dir.file("s.sdp");
    const std::string stream =
        cmhost("stream " + input + " --rtp 127.0.0.1:" + std::to_string(port));
    EXPECT_EQ(run(stream + " --sdp " + first).status, 0);
    cmtest::ToolRun received;
    std::thread receiver([&] {
        received = cmtest::runCommand(
            "timeout -s INT 60 ffmpeg -nostdin -v error -listen_timeout 2 -reorder_queue_size 0 " +
            probe + " -protocol_whitelist file,udp,rtp -i " + first + " " + outputArgs + " 2>&1");
    });
    for (int i = 0; i < 3000 && !udpPortTaken(port + 2 * (streams - 1)); ++i) {
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    const Result sent = run(stream + " --sdp " + sdp);
    EXPECT_EQ(sent.status, 0) << sent.errors;
    receiver.join();
    EXPECT_EQ(cmtest::readText(sdp), cmtest::readText(first));
    return received.output + cmtest::readText(sdp);
}

}  // namespace

// cmhost sends a tone as RTP L16; ffmpeg decodes the same samples.
TEST(CmhostTest, StreamsRtpThatFfmpegDecodes) {
    cmtest::TempDir dir;
    const std::string tone = dir.file("tone.wav"), received = dir.file("received.raw");
    ASSERT_EQ(run(cmhost("generate tone " + tone + " --seconds 1 --rate 8000 --channels 1")).status,
              0);
    const std::string messages =
        streamToFfmpeg(dir, tone, 1, "-analyzeduration 100000 -probesize 32",
                       "-f s16le -acodec pcm_s16le -y " + received);
    const std::string got = cmtest::readText(received);
    const std::string expected = decodedSamples(tone);
    ASSERT_EQ(got.size(), expected.size()) << messages;
    EXPECT_EQ(got, expected);
}

// Video and audio go out on two port pairs, as they are (H.264 and AAC) or encoded on the
// way; ffmpeg decodes about as many pictures and as much sound as the source holds, and
// pictures close to the source's.
TEST(CmhostTest, StreamsVideoAndAudioThatFfmpegDecodes) {
    struct Row {
        const char* name;
        const char* codecs;   // ffmpeg's options for the source's streams
        const char* options;  // cmhost stream's
        double minimumPsnr;
    };
    const Row rows[] = {
        {"H.264 and AAC", "-c:v libx264 -preset ultrafast -g 25 -c:a aac", "", 99},
        {"MPEG-4 and MP3, encoded", "-c:v mpeg4 -q:v 2 -c:a libmp3lame", "", 35},
        {"VP9 and FLAC at 44.1 kHz, encoded to Opus",
         "-c:v libvpx-vp9 -deadline realtime -cpu-used 8 -c:a flac -ar 44100", " --audio opus", 35},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        cmtest::TempDir dir;
        const std::string source = dir.file("source.mkv"), received = dir.file("received.mkv");
        ASSERT_TRUE(
            cmtest::makeWithFfmpeg("-f lavfi -i testsrc=s=320x240:r=25:d=3 -f lavfi -i "
                                   "sine=d=3:r=48000 -pix_fmt yuv420p " +
                                       std::string(row.codecs),
                                   source));
        const std::string messages =
            streamToFfmpeg(dir, source + row.options, 2, "-analyzeduration 1000000",
                           "-map 0:v -c:v ffv1 -map 0:a -c:a pcm_s16le -y " + received);
        const std::string sourceFrames = probe(source, "stream=nb_read_frames");
        const std::string receivedFrames = probe(received, "stream=nb_read_frames");
        ASSERT_FALSE(receivedFrames.empty()) << messages;
        const double pictures = std::stod(sourceFrames.substr(sourceFrames.find('=') + 1));
        EXPECT_NEAR(std::stod(receivedFrames.substr(receivedFrames.find('=') + 1)), pictures,
                    0.02 * pictures)
            << messages;
        // Opus comes back as 48 kHz stereo, so the sound is compared by its length.
        const auto seconds = [&](const std::string& file) {
            return static_cast<double>(
                       run("ffmpeg -v error -i " + file + " -ac 1 -ar 48000 -f s16le -")
                           .output.size()) /
                   (2 * 48000);
        };
        EXPECT_NEAR(seconds(received), seconds(source), 0.02 * seconds(source));
        EXPECT_GE(cmtest::psnrWithFfmpeg(received, source), row.minimumPsnr) << messages;
    }
}

// Nobody listens on the port: every send after the first may report the refusal, and the
// stream still runs to its end, as it must for a receiver that joins late.
TEST(CmhostTest, StreamRunsToItsEndWithoutAReceiver) {
    cmtest::TempDir dir;
    const std::string tone = dir.file("tone.wav");
    ASSERT_EQ(run(cmhost("generate tone " + tone + " --seconds 0.5")).status, 0);
    int port = 0;
    close(cmtest::loopbackServer(SOCK_DGRAM, &port));
    const Result r = run(cmhost("stream " + tone + " --rtp 127.0.0.1:" + std::to_string(port)));
    EXPECT_EQ(r.status, 0) << r.errors;
}

// cmhost rtsp sends one request and prints the reply of a scripted server.
TEST(CmhostTest, RtspPrintsTheResponse) {
    cmtest::TempDir dir;
    int port = 0;
    const int listener = cmtest::loopbackServer(SOCK_STREAM, &port);
    std::string request;
    std::thread server([&] {
        const int peer = accept(listener, nullptr, nullptr);
        char buffer[2048];
        const ssize_t n = recv(peer, buffer, sizeof buffer, 0);
        request.assign(buffer, n > 0 ? static_cast<size_t>(n) : 0);
        const std::string reply = "RTSP/1.0 200 OK\r\nCSeq: 1\r\nContent-Length: 4\r\n\r\nv=0\n";
        send(peer, reply.data(), reply.size(), MSG_NOSIGNAL);
        close(peer);
    });
    const Result r =
        run(cmhost("rtsp rtsp://127.0.0.1:" + std::to_string(port) + "/x --method OPTIONS"));
    server.join();
    close(listener);
    EXPECT_EQ(r.status, 0) << r.errors;
    EXPECT_EQ(request.rfind("OPTIONS rtsp://127.0.0.1:", 0), 0u) << request;
    EXPECT_NE(r.output.find("RTSP/1.0 200 OK"), std::string::npos) << r.output;
    EXPECT_NE(r.output.find("v=0"), std::string::npos) << r.output;
}

// Components are listed by kind, and the ones this build makes pass the install check.
TEST(CmhostTest, ListsComponentsThatPassTheCheck) {
    cmtest::TempDir dir;
    Result r = run(cmhost("components --check"));
    ASSERT_EQ(r.status, 0) << r.errors << r.output;
    for (const char* name : {"wav.importer", "wav.exporter", "y4m.importer", "y4m.exporter",
                             "gain.filter", "invert.filter", "l16.packetizer", "rtp.exporter"}) {
        EXPECT_NE(r.output.find(name), std::string::npos) << name;
    }
    EXPECT_NE(r.output.find("every component loads"), std::string::npos) << r.output;
    r = run(cmhost("components --kind filter"));
    EXPECT_EQ(r.output.find("wav.importer"), std::string::npos);
}

// The install check names each component directory that was left out and each component
// that cannot load, with the reason, and fails; a component that loads is not named.
TEST(CmhostTest, CheckSaysWhyEachBrokenComponentCannotServe) {
    cmtest::TempDir dir;
    cmtest::ComponentDirectory components;
    components.link("wav.exporter");
    components.write("broken.filter", "<info><common></info>");
    components.write("empty.exporter", "");
    components.installFilter("missing.filter", "missing.so", nullptr);
    components.installFilter("needsabsent.filter", "needsabsent.so", CM_TEST_NEEDSABSENT_MODULE);
    components.installFilter("unresolved.filter", "unresolved.so", CM_TEST_UNRESOLVED_MODULE);
    components.installFilter("noentry.filter", "noentry.so", CM_TEST_NOENTRY_MODULE);
    components.installFilter("nullentry.filter", "nullentry.so", CM_TEST_NULLENTRY_MODULE);
    const auto module = [&](const std::string& name, const std::string& object) {
        return components.path() + "/" + name + "/" CM_PLATFORM_DIR "/" + object;
    };

    const Result r = run(cmhost("--config " + components.configuration() + " components --check"));
    EXPECT_EQ(r.status, 1);
    EXPECT_EQ(r.errors, "cmhost: check failed: 2 left out, 5 cannot load\n");
    for (const std::string& reason : {
             std::string("broken.filter: parse error: line 1: "),
             std::string("empty.exporter: info.xml missing"),
             "missing.filter: " + module("missing.filter", "missing.so") +
                 ": No such file or directory",
             std::string("needsabsent.filter: libcm_test_absent.so: cannot open shared object"),
             "unresolved.filter: " + module("unresolved.filter", "unresolved.so") +
                 ": undefined symbol: cmTestUndefinedFunction",
             "noentry.filter: " + module("noentry.filter", "noentry.so") +
                 " has no entry point getComponentInstance",
             "nullentry.filter: getComponentInstance of " +
                 module("nullentry.filter", "nullentry.so") + " made no component",
         }) {
        EXPECT_NE(r.output.find("\n  " + reason), std::string::npos) << reason << "\n" << r.output;
    }
    EXPECT_EQ(r.output.find("wav.exporter:"), std::string::npos) << r.output;
}

// A configuration or component definition that cannot be used fails in one line that names
// the file, where it was looked for and the one installed with cmhost; libxml2's own lines
// go to the log, which -v shows.
TEST(CmhostTest, StartUpFailuresNameTheFileAndTheInstalledOne) {
    cmtest::TempDir dir;
    const std::string installed = CM_BINARY_DIR "/share/cm/";
    // A copy of the installed configuration alone, one with its document type, one with
    // the component definition too (but no components where it says), and an invalid one.
    for (const char* copy : {"alone", "typed/etc", "complete/etc"}) {
        std::filesystem::create_directories(dir.file(copy));
        std::filesystem::copy_file(installed + "cm.conf", dir.file(copy) + "/cm.conf");
    }
    for (const char* copy : {"typed/etc", "complete/etc"}) {
        std::filesystem::copy_file(installed + "cm-config.dtd", dir.file(copy) + "/cm-config.dtd");
    }
    std::filesystem::copy_file(installed + "info.dtd", dir.file("complete/etc/info.dtd"));
    std::ofstream(dir.file("invalid.conf"))
        << "<?xml version=\"1.0\"?>\n<!DOCTYPE cm-config SYSTEM \"" CM_SOURCE_DIR
           "/data/cm-config.dtd\">\n<cm-config><bogus>1</bogus></cm-config>\n";

    const struct {
        std::string args;
        std::string line;
    } cases[] = {
        {"--config " + dir.file("none.conf") + " components",
         "configuration " + dir.file("none.conf") +
             " cannot be read: No such file or directory (the installed one is " + installed +
             "cm.conf)"},
        {"--config " + dir.file("alone/cm.conf") + " components",
         "configuration " + dir.file("alone/cm.conf") + " needs " +
             dir.file("alone/cm-config.dtd") + ", which cannot be read (the installed one is " +
             installed + "cm-config.dtd)"},
        {"--config " + dir.file("invalid.conf") + " components",
         "configuration " + dir.file("invalid.conf") +
             " is invalid: line 3: No declaration for element bogus (the installed one is " +
             installed + "cm.conf)"},
        {"--config " + dir.file("typed/etc/cm.conf") + " components",
         "the component definition " + dir.file("typed/etc/") +
             "/info.dtd cannot be read: No such file or directory (common.dtd-path in " +
             dir.file("typed/etc/cm.conf") + "; the installed one is " + installed + "info.dtd)"},
        {"--config " + dir.file("complete/etc/cm.conf") + " info x.wav",
         "no importer for .wav files: component directory " +
             dir.file("complete/etc/../../lib/cm/components") +
             " cannot be read: No such file or directory (common.component-path in " +
             dir.file("complete/etc/cm.conf") + "; the installed components are in " +
             CM_BINARY_DIR "/lib/cm/components)"},
    };
    for (const auto& c : cases) {
        const Result r = run(cmhost(c.args));
        EXPECT_EQ(r.status, 1) << c.args;
        EXPECT_EQ(r.errors.rfind("cmhost: " + c.line + ": ", 0), 0u) << c.line << "\n" << r.errors;
        EXPECT_EQ(lineCount(r.errors), 1u) << r.errors;
    }
    const Result r = run(cmhost("-v " + cases[1].args));
    EXPECT_NE(
        r.errors.find("failed to load external entity \"" + dir.file("alone/cm-config.dtd") + "\""),
        std::string::npos)
        << r.errors;
}

// Every failure is one line on standard error and a non-zero status; a mistake in the
// command line says what is missing or wrong, and shows the command's usage after it.
TEST(CmhostTest, FailuresAreOneClearLine) {
    cmtest::TempDir dir;
    ASSERT_EQ(run(cmhost("generate tone " + dir.file("t.wav") + " --seconds 0.5")).status, 0);
    std::ofstream(dir.file("bad.wav")) << "RIFF\x10\0\0\0WAVEjunk";
    std::ofstream(dir.file("garbage.mp4")) << std::string(4000, 'x');
    for (const std::string& args : {
             "convert " + dir.file("missing.wav") + " " + dir.file("o.wav"),
             "convert " + dir.file("t.wav") + " " + dir.file("o.wav") + " --filter nosuch",
             "convert " + dir.file("bad.wav") + " " + dir.file("o.wav"),
             "info " + dir.file("t.unknown"),
             "info " + dir.file("garbage.mp4"),
         }) {
        const Result r = run(cmhost(args));
        EXPECT_EQ(r.status, 1) << args << "\n" << r.errors;
        EXPECT_EQ(lineCount(r.errors), 1u) << args << "\n" << r.errors;
        EXPECT_EQ(r.errors.rfind("cmhost: ", 0), 0u) << r.errors;
    }
    const struct {
        std::string args;
        std::string line;
        std::string usage;
    } mistakes[] = {
        {"convert " + dir.file("t.wav"), "missing OUTPUT", "usage: cmhost convert INPUT OUTPUT "},
        {"info", "missing MEDIA", "usage: cmhost info MEDIA"},
        {"generate tone", "missing OUTPUT", "usage: cmhost generate tone OUTPUT "},
        {"stream " + dir.file("t.wav"), "missing --rtp HOST:PORT", "usage: cmhost stream INPUT "},
        {"stream " + dir.file("t.wav") + " --rtp 127.0.0.1:9 --audio mp3",
         "--audio is aac or opus, not mp3", "usage: cmhost stream INPUT "},
        {"convert --bogus a b", "unknown option --bogus", "usage: cmhost convert "},
        {"nosuch", "unknown command nosuch", "usage: cmhost [--config FILE] "},
        {"", "missing COMMAND (cmhost --help lists them)", "usage: cmhost [--config FILE] "},
    };
    for (const auto& m : mistakes) {
        const Result r = run(cmhost(m.args));
        EXPECT_EQ(r.status, 2) << m.args;
        EXPECT_EQ(r.errors.rfind("cmhost: " + m.line + "\n" + m.usage, 0), 0u) << m.args << "\n"
                                                                               << r.errors;
    }
}

// Each command describes itself, and --version names the host and each library it runs on.
TEST(CmhostTest, HelpOfEveryCommandAndVersionOfEachLibrary) {
    cmtest::TempDir dir;
    for (const char* command : {"components", "info", "convert", "generate", "stream", "rtsp"}) {
        const Result r = run(cmhost(std::string(command) + " --help"));
        EXPECT_EQ(r.status, 0) << command;
        EXPECT_EQ(r.output.rfind(std::string("usage: cmhost ") + command, 0), 0u) << r.output;
    }
    const Result r = run(cmhost("--version"));
    EXPECT_EQ(r.status, 0);
    EXPECT_EQ(r.output, "cmhost " CM_VERSION "\nlibzr " CM_VERSION "\nlibzrcore " CM_VERSION
                        "\nlibcm " CM_VERSION "\n");
}
