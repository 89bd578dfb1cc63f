#include "rtp.exporter/RTPExporter.h"

#include <cm/CMQueueRW.h>
#include <zr/RSocket.h>

#include <cerrno>
#include <chrono>
#include <cstring>
#include <thread>

namespace cmcomponents {

namespace {

using Clock = std::chrono::steady_clock;

// A connected datagram socket reports the port-unreachable answer to an earlier datagram on
// a later send. That only says the receiver is not listening (yet, or for a moment): RTP is
// lossy by design, so the stream goes on rather than ending for every listener to come.
bool receiverAbsent(int error) {
    return error == ECONNREFUSED;
}

}  // namespace

int RRTPExporter::configure(ZR::CM::RExporterConfiguration& configuration) {
    mHost = configuration.getString("host", "127.0.0.1").c_str();
    mPort = configuration.getInt("port", 5004, 1, 65535);
    mRealTime = configuration.getInt("realtime", 1, 0, 1) != 0;
    mRun.setPhase(ZR::CM::CComponentStatus::kConfigured);
    return 0;
}

int RRTPExporter::runloop(zrbase::object_refcount*) {
    mRun.setPhase(ZR::CM::CComponentStatus::kWorking);
    ZR::CM::RQFrameReader* reader = getReader(0);
    const int result = reader ? send(*reader) : ZR::CM::kResultNoValidTracks;
    if (result != 0) {
        if (!reader) {
            mRun.fail(result, "no input queue");
        }
        drainInputs();
        return result;
    }
    mRun.complete();
    return 0;
}

void RRTPExporter::drainInputs() {
    for (int i = 0; i < getReaderCount(); ++i) {
        while (getReader(i)->nextNode()) {
        }
    }
}

int RRTPExporter::send(ZR::CM::RQFrameReader& reader) {
    const auto* description =
        dynamic_cast<const ZR::CM::RRTPDescription*>(reader.getDescriptionP());
    if (!description) {
        mRun.fail(ZR::CM::kResultNoValidTracks, "the input carries no RTP stream");
        return ZR::CM::kResultNoValidTracks;
    }
    const std::string destination = mHost + ":" + std::to_string(mPort);
    ZR::RPtr<ZR::RSocket> socket(new ZR::RSocket(mHost.c_str(), mPort, 2, 2));
    if (socket->connect() != 0) {
        mRun.fail(ZR::CM::kResultFileWriteFailed, "cannot reach " + destination);
        return ZR::CM::kResultFileWriteFailed;
    }
    unsigned char datagram[ZR::CM::RRTPPacket::kPacketBlockSize];
    bool first = true;
    Clock::time_point origin;
    double firstStart = 0;
    while (const ZR::RPtr<const ZR::CM::RFrame> next = reader.nextSharedFrame()) {
        const auto* frame = dynamic_cast<const ZR::CM::RRTPFrame*>(next.addr());
        if (!frame) {
            continue;
        }
        if (first) {
            origin = Clock::now();
            firstStart = frame->getStartTime();
            first = false;
        } else if (mRealTime) {
            std::this_thread::sleep_until(
                origin + std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(
                             double(frame->getStartTime()) - firstStart)));
        }
        for (const auto& packet : frame->getPackets()) {
            if (packet->mLength > sizeof datagram - ZR::CM::RRTPPacket::kHeaderSize) {
                mRun.fail(ZR::CM::kResultFileWriteFailed, "packet larger than a datagram");
                return ZR::CM::kResultFileWriteFailed;
            }
            unsigned int size = 0;
            packet->pack(description, frame, datagram, &size);
            if (socket->send(datagram, static_cast<int>(size)) < 0 && !receiverAbsent(errno)) {
                mRun.fail(ZR::CM::kResultFileWriteFailed,
                          "sending to " + destination + ": " + std::strerror(errno));
                return ZR::CM::kResultFileWriteFailed;
            }
            mRun.addFrame(size);
        }
    }
    return 0;
}

}  // namespace cmcomponents
