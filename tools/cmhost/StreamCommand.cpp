// cmhost stream INPUT --rtp HOST:PORT [--sdp FILE] [--audio aac|opus] [--mtu N] [--delay S]
//
// Sends the first video and the first audio track of INPUT over RTP in real time: each
// track on a branch of its own to a packetizer (a decoder and an encoder before it when
// no packetizer takes the track's codec: H.264 for video, AAC or Opus for audio), then one
// rtp.exporter for every branch, which sends stream i to PORT + 2i and its RTCP sender
// reports to the port above. Every component is a format-map answer (Assembly.h).
//
// The session description is written to FILE once every packetizer has described its
// stream, before the first packet leaves; --delay gives a receiver that time to start.
// Its session part comes from the library's CSDPSessionDescription and its media blocks
// from the packetizers' RRTPDescriptions; where their text is not what receivers read,
// sessionText() says so and writes what they do read. The text depends only on the input,
// the destination and the options, so that a receiver may be started from the description
// of an earlier run.
#include "Assembly.h"
#include "CommandLine.h"
#include "Commands.h"
#include "Host.h"
#include "Pipeline.h"

#include <chrono>
#include <cstdio>
#include <fstream>
#include <list>
#include <random>
#include <thread>

namespace cmhost {

namespace {

const char kHelp[] =
    "usage: cmhost stream INPUT --rtp HOST:PORT [--sdp FILE] [--audio aac|opus] [--mtu N]\n"
    "                     [--delay S]\n"
    "\n"
    "  sends the first video and audio track of INPUT over RTP in real time, video to\n"
    "  PORT and audio to PORT+2 (RTCP sender reports to the port above each); a track\n"
    "  no packetizer takes is encoded on the way: video as H.264, audio as AAC or, with\n"
    "  --audio opus, Opus (16-bit PCM goes out as L16)\n"
    "  FILE receives the session description before the first packet is sent, and\n"
    "  --delay (default 0) waits that many seconds more so that a receiver can open it\n"
    "  example: cmhost stream in.mp4 --rtp 127.0.0.1:5004 --sdp in.sdp --delay 2\n"
    "           ffmpeg -protocol_whitelist file,udp,rtp -i in.sdp out.mkv";

constexpr unsigned int kVideo = ZR::fourcc("vide");
constexpr unsigned int kAudio = ZR::fourcc("audi");
constexpr unsigned int kLinearPCM = ZR::fourcc("lpcm");
// The packetizers' output queues hold this many RTP frames. Nothing reads them until every
// packetizer has described its stream from its first frame, which comes only once the
// decoder and encoder before it have taken in what they hold back (the look-ahead of an
// encoder not tuned for zero latency is seconds of pictures). Meanwhile the other branches
// must not block the importer that feeds them all; RTP frames are compressed media, so
// seconds of them are small.
constexpr int kPacketQueueHigh = 1024;
// The first payload type of the streams; stream i gets the next i-th.
constexpr int kFirstPayloadType = 96;

struct Destination {
    std::string host;
    int port;
};

Destination parseDestination(const CommandLine& line) {
    const std::string text = line.value("--rtp");
    const size_t colon = text.rfind(':');
    if (colon == std::string::npos || colon == 0) {
        throw line.error("--rtp wants HOST:PORT, not " + text);
    }
    char* end = nullptr;
    const long port = std::strtol(text.c_str() + colon + 1, &end, 10);
    if (*end != 0 || port < 1 || port > 65535) {
        throw line.error("bad port in " + text);
    }
    return {text.substr(0, colon), static_cast<int>(port)};
}

// One track's way to its packetizer, which is the last stage.
struct Branch {
    std::string name;  // "video 1"
    std::vector<StageChoice> stages;
    ZR::RPtr<ZR::CM::RComponent> packetizer;  // once added
    ZR::CM::RQueue* packets = nullptr;        // the packetizer's output
};

// Whether a packetizer takes the track as it is: any it lists for the codec, except that
// L16 carries 16-bit samples only.
ZR::RPtr<ZR::CM::RComponentInfo> packetizerFor(const FormatRoutes& routes,
                                               const ZR::CM::RTrackInfo& track) {
    const unsigned int codec = track.mTrackValue;
    const auto* audio = dynamic_cast<const ZR::CM::RAudioTrackInfo*>(&track);
    if (codec == kLinearPCM && (!audio || audio->mKindValue2 != 16)) {
        return nullptr;
    }
    return routes.find(kPacketizerKind, codec, ZR::kAnyFourCC);
}

Branch planBranch(const FormatRoutes& routes, const ZR::CM::RTrackInfo& track, unsigned int audio,
                  const Settings& packetizerSettings) {
    const bool video = track.mMediaType == kVideo;
    Branch branch;
    branch.name = (video ? "video " : "audio ") + std::to_string(track.mTrackID);
    unsigned int format = track.mTrackValue;
    ZR::RPtr<ZR::CM::RComponentInfo> packetizer = packetizerFor(routes, track);
    if (!packetizer) {
        const unsigned int target = video ? ZR::fourcc("avc1") : audio;
        if (!routes.route(format, target, false, branch.stages)) {
            throw routes.noRoute(format, target, branch.name);
        }
        if (video) {
            // A live stream: key frames every two seconds or so for receivers that join,
            // an encoder that keeps up, and pictures in presentation order, as soon as they
            // are in. RTP carries presentation times only, so receivers cannot reorder
            // B-frames (ffmpeg hands them on without time stamps).
            branch.stages.back().settings.push_back({"preset", "veryfast"});
            branch.stages.back().settings.push_back({"keyint", "50"});
            branch.stages.back().settings.push_back({"tune", "zerolatency"});
        }
        format = target;
        packetizer = routes.find(kPacketizerKind, format, ZR::kAnyFourCC);
        if (!packetizer) {
            throw HostError(ZR::CM::kResultNoPacketizer,
                            "no packetizer takes " + fourccText(format) + " (" + branch.name + ")");
        }
    }
    std::vector<unsigned int> outs;
    packetizer->formatMap.supportedOutFormats(outs, format);
    branch.stages.push_back(StageChoice{
        packetizer, format, outs.empty() ? ZR::kAnyFourCC : outs.front(), packetizerSettings});
    return branch;
}

// The first RTP exporter that sends streams of every one of formats. Other exporters take
// the same formats into containers, so the query names the sub-type.
ZR::RPtr<ZR::CM::RComponentInfo> rtpExporterFor(const Host& host,
                                                const std::vector<unsigned int>& formats) {
    ZR::CM::RComponentInfoMatch query;
    query.type = ZR::fourcc("expt");
    query.subType = ZR::fourcc("rtp ");
    std::list<ZR::RPtr<ZR::CM::RComponentInfo>> found;
    host.manager().findComponents(query, found);
    for (const unsigned int format : formats) {
        found.remove_if([format](const ZR::RPtr<ZR::CM::RComponentInfo>& info) {
            return !info->formatMap.supportsFormats(format, ZR::kAnyFourCC);
        });
        if (found.empty()) {
            throw HostError(ZR::CM::kResultNoExporter,
                            "no exporter sends " + fourccText(format) + " streams");
        }
    }
    return found.front();
}

// The description each packetizer publishes on its output, once all have one.
std::vector<ZR::RPtr<const ZR::CM::RRTPDescription>> awaitDescriptions(
    const std::vector<Branch>& branches) {
    std::vector<ZR::RPtr<const ZR::CM::RRTPDescription>> descriptions(branches.size());
    for (size_t i = 0; i < branches.size();) {
        const ZR::RPtr<const ZR::CM::RQDescription> queued = branches[i].packets->getDescription();
        if (const auto* rtp = dynamic_cast<const ZR::CM::RRTPDescription*>(queued.addr())) {
            descriptions[i++] = rtp;
        } else if (branches[i].packetizer->getRunningThreadCount() == 0) {
            throw HostError(ZR::CM::kResultNoPacketizer,
                            "the packetizer of " + branches[i].name + " made no RTP stream");
        } else {
            std::this_thread::sleep_for(std::chrono::milliseconds(5));
        }
    }
    return descriptions;
}

// Replaces every `from` in text with `to`.
std::string replaced(std::string text, const std::string& from, const std::string& to) {
    for (size_t at = text.find(from); at != std::string::npos;
         at = text.find(from, at + to.size())) {
        text.replace(at, from.size(), to);
    }
    return text;
}

// The session description. Where the library's text differs from what receivers read:
// - the origin line is keyed "n=" and ends in a blank; the key is "o=" (RFC 4566), and
//   strict parsers take the blank for an empty seventh field;
// - the session part ends without a line end, and the media blocks end their lines in
//   "\n" alone where the session part uses CR LF; a receiver wants every line ended, and
//   RFC 4566 ends them in CR LF.
// The rest is as the library writes it: the "c=" line (without a TTL, which only multicast
// needs), the "m=", "a=rtpmap:" and "a=fmtp:" lines.
std::string sessionText(const Destination& to,
                        const std::vector<ZR::RPtr<const ZR::CM::RRTPDescription>>& streams) {
    ZR::CM::CSDPSessionDescription session(ZR::CString("cmhost stream"), ZR::CString("-"));
    session.mAddress = to.host.c_str();
    session.mConnection.mAddress = to.host.c_str();
    std::string text = session.getSDP()->c_str();
    text = replaced(text, "\r\nn=", "\r\no=");
    text = replaced(text, " \r\ns=", "\r\ns=");
    text += "\r\n";
    for (const auto& stream : streams) {
        text += replaced(stream->getSDP().c_str(), "\n", "\r\n");
    }
    return text;
}

}  // namespace

int runStream(const GlobalOptions& global, const Words& args) {
    const CommandLine line(args, kHelp, {"--rtp", "--sdp", "--mtu", "--delay", "--audio"});
    if (line.has("--help")) {
        std::puts(kHelp);
        return 0;
    }
    line.expectPositionals({"INPUT"});
    if (!line.has("--rtp")) {
        throw line.error("missing --rtp HOST:PORT");
    }
    const Destination to = parseDestination(line);
    const double delay = line.number("--delay", 0, 0, 600);
    const std::string mtu = std::to_string(static_cast<int>(line.number("--mtu", 1400, 256, 9000)));
    const std::string audioName = line.value("--audio", "aac");
    if (audioName != "aac" && audioName != "opus") {
        throw line.error("--audio is aac or opus, not " + audioName);
    }
    const unsigned int audio = audioName == "aac" ? ZR::fourcc("mp4a") : ZR::fourcc("Opus");
    const std::string sdpPath = line.value("--sdp");

    const Host host(global.config, global.verbose);
    Input source = openInput(host, line.positional(0, "INPUT"));
    std::vector<const ZR::CM::RTrackInfo*> tracks;
    for (const unsigned int media : {kVideo, kAudio}) {
        for (const ZR::CM::RTrackInfo* track : source.movie->mTracks) {
            if (track->mMediaType == media) {
                tracks.push_back(track);
                break;
            }
        }
    }
    if (tracks.empty()) {
        throw HostError(ZR::CM::kResultNoValidTracks,
                        "no video or audio to stream in " + withoutCredentials(source.media));
    }
    const FormatRoutes routes(host);
    std::random_device random;
    std::vector<Branch> branches;
    std::string kept;  // the importer's "tracks" setting
    for (size_t i = 0; i < tracks.size(); ++i) {
        branches.push_back(
            planBranch(routes, *tracks[i], audio,
                       {{"mtu", mtu},
                        {"port", std::to_string(to.port + 2 * static_cast<int>(i))},
                        {"payload-type", std::to_string(kFirstPayloadType + static_cast<int>(i))},
                        {"ssrc", std::to_string(random())}}));
        kept += (kept.empty() ? "" : ",") + std::to_string(tracks[i]->mTrackID);
    }
    std::vector<unsigned int> formats;
    for (const Branch& branch : branches) {
        formats.push_back(branch.stages.back().out);
    }
    const ZR::RPtr<ZR::CM::RComponentInfo> exporter = rtpExporterFor(host, formats);
    Pipeline pipeline;
    std::vector<ZR::CM::RQueue*> imported, ends;
    for (const Branch& branch : branches) {
        imported.push_back(pipeline.addQueue(branch.name, "import"));
    }
    addImporter(
        host, pipeline, source, imported,
        tracks.size() == source.movie->mTracks.size() ? Settings() : Settings{{"tracks", kept}});
    for (size_t i = 0; i < branches.size(); ++i) {
        Branch& branch = branches[i];
        const std::vector<StageChoice> before(branch.stages.begin(), branch.stages.end() - 1);
        ZR::CM::RQueue* queue = addChain(host, pipeline, branch.name, before, imported[i]);
        branch.packets = pipeline.addQueue(branch.name, "packetize", kPacketQueueHigh);
        const StageChoice& packetizer = branch.stages.back();
        branch.packetizer =
            addStage(host, pipeline, branch.name + " " + packetizer.info->directoryName.c_str(),
                     packetizer, queue, branch.packets);
        ends.push_back(branch.packets);
    }
    addExporter(host, pipeline, *exporter, nullptr,
                {{"host", to.host}, {"port", std::to_string(to.port)}}, ends);

    return runPipeline(pipeline, "stream to " + line.value("--rtp"), [&] {
        const std::string text = sessionText(to, awaitDescriptions(branches));
        if (!sdpPath.empty()) {
            std::ofstream sdp(sdpPath, std::ios::binary | std::ios::trunc);
            sdp << text;
            if (!sdp.flush()) {
                throw HostError(ZR::CM::kResultFileWriteFailed, "cannot write " + sdpPath);
            }
        }
        std::this_thread::sleep_for(std::chrono::duration<double>(delay));
    });
}

}  // namespace cmhost
