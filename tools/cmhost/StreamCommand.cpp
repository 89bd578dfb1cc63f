// cmhost stream INPUT --rtp HOST:PORT [--sdp FILE] [--mtu N] [--delay SECONDS]
//
// Imports INPUT, packetizes its audio as RTP L16 (l16.packetizer) and sends the packets
// over UDP to HOST:PORT in real time (rtp.exporter). The SDP that describes the stream
// — a session part that standard players accept, above the media block the packetizer's
// RRTPDescription gives — is written to FILE once the packetizer has made it, before the
// first packet leaves; --delay gives a receiver that time to start.
#include "Assembly.h"
#include "CommandLine.h"
#include "Commands.h"
#include "Host.h"
#include "Pipeline.h"

#include <chrono>
#include <cstdio>
#include <fstream>
#include <thread>

namespace cmhost {

namespace {

const char kHelp[] =
    "usage: cmhost stream INPUT --rtp HOST:PORT [--sdp FILE] [--mtu N] [--delay S]\n"
    "\n"
    "  sends INPUT's audio as RTP L16 over UDP in real time; FILE receives the SDP\n"
    "  before the first packet is sent, and --delay (default 0) waits that many\n"
    "  seconds more so that a receiver can open it";

struct Destination {
    std::string host;
    int port;
};

Destination parseDestination(const std::string& text) {
    const size_t colon = text.rfind(':');
    if (colon == std::string::npos || colon == 0) {
        throw UsageError("--rtp wants HOST:PORT, not " + text);
    }
    char* end = nullptr;
    const long port = std::strtol(text.c_str() + colon + 1, &end, 10);
    if (*end != 0 || port < 1 || port > 65535) {
        throw UsageError("bad port in " + text);
    }
    return {text.substr(0, colon), static_cast<int>(port)};
}

// The description the packetizer publishes on its output, once it has one.
ZR::RPtr<const ZR::CM::RRTPDescription> awaitDescription(ZR::CM::RQueue& queue,
                                                         const ZR::CM::RComponent& packetizer) {
    for (;;) {
        const ZR::RPtr<const ZR::CM::RQDescription> description = queue.getDescription();
        if (const auto* rtp = dynamic_cast<const ZR::CM::RRTPDescription*>(description.addr())) {
            return rtp;
        }
        if (packetizer.getRunningThreadCount() == 0) {
            throw HostError(ZR::CM::kResultNoPacketizer, "the packetizer made no RTP stream");
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
}

std::string sessionDescription(const Destination& to, const ZR::CM::RRTPDescription& rtp) {
    std::string text = "v=0\r\n";
    text += "o=- 0 0 IN IP4 " + to.host + "\r\n";
    text += "s=cmhost\r\n";
    text += "c=IN IP4 " + to.host + "\r\n";
    text += "t=0 0\r\n";
    return text + rtp.getSDP().c_str();
}

}  // namespace

int runStream(const GlobalOptions& global, const Words& args) {
    const CommandLine line(args, kHelp, {"--rtp", "--sdp", "--mtu", "--delay"});
    if (line.has("--help")) {
        std::puts(kHelp);
        return 0;
    }
    line.expectPositionals({"INPUT"});
    if (!line.has("--rtp")) {
        throw line.error("missing --rtp HOST:PORT");
    }
    const Destination to = parseDestination(line.value("--rtp"));
    const double delay = line.number("--delay", 0, 0, 600);
    const std::string mtu = std::to_string(static_cast<int>(line.number("--mtu", 1400, 256, 9000)));
    const std::string sdpPath = line.value("--sdp");

    const Host host(global.config, global.verbose);
    Input source = openInput(host, line.positional(0, "INPUT"));
    Pipeline pipeline;
    ZR::CM::RQueue* audio = pipeline.addQueue("", "audio");
    ZR::CM::RQueue* packets = pipeline.addQueue("", "rtp");
    addImporter(host, pipeline, source, {audio});
    const StageChoice l16{host.componentNamed("l16", "packetizer"),
                          ZR::kAnyFourCC,
                          ZR::kAnyFourCC,
                          {{"mtu", mtu}, {"port", std::to_string(to.port)}}};
    const auto packetizer = addStage(host, pipeline, "l16.packetizer", l16, audio, packets);
    addExporter(host, pipeline, *host.componentNamed("rtp", "exporter"), nullptr,
                {{"host", to.host}, {"port", std::to_string(to.port)}}, {packets});

    return runPipeline(pipeline, "stream to " + line.value("--rtp"), [&] {
        const auto rtp = awaitDescription(*packets, *packetizer);
        if (!sdpPath.empty()) {
            std::ofstream sdp(sdpPath, std::ios::binary | std::ios::trunc);
            sdp << sessionDescription(to, *rtp);
            if (!sdp.flush()) {
                throw HostError(ZR::CM::kResultFileWriteFailed, "cannot write " + sdpPath);
            }
        }
        std::this_thread::sleep_for(std::chrono::duration<double>(delay));
    });
}

}  // namespace cmhost
