#include "rtp.exporter/RTPExporter.h"

#include "rtp.exporter/SenderReport.h"

#include <cm/CMQueue.h>
#include <cm/CMQueueRW.h>
#include <zr/CThread.h>
#include <zr/RSocket.h>

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstring>
#include <mutex>
#include <thread>
#include <utility>
#include <vector>

using ZR::RPtr;
using ZR::CM::RRTPDescription;
using ZR::CM::RRTPFrame;

namespace cmcomponents {

namespace {

// The largest UDP payload over IPv4.
constexpr unsigned int kMaxDatagram = 65507;

// A connected datagram socket reports the port-unreachable answer to an earlier datagram on
// a later send. That only says the receiver is not listening (yet, or for a moment): RTP is
// lossy by design, so the stream goes on rather than ending for every listener to come.
bool receiverAbsent(int error) {
    return error == ECONNREFUSED;
}

std::string hostName() {
    char name[256] = {};
    return gethostname(name, sizeof name - 1) == 0 && name[0] ? name : "localhost";
}

std::uint32_t bigEndian32(const unsigned char* bytes) {
    return std::uint32_t{bytes[0]} << 24 | bytes[1] << 16 | bytes[2] << 8 | bytes[3];
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
    mRun.clear();
    mRun.setPhase(ZR::CM::CComponentStatus::kWorking);
    {
        std::lock_guard<ZR::CMutex> lock(mClockMutex);
        mStarted = false;
    }
    mCname = hostName();
    const int streams = getReaderCount();
    if (streams == 0 || mPort + 2 * streams - 1 > 65535) {
        mRun.fail(ZR::CM::kResultNoValidTracks,
                  streams == 0 ? "no input queue"
                               : "too many streams for the ports above " + std::to_string(mPort));
    }
    std::vector<std::thread> senders;
    for (int i = 0; i < streams; ++i) {
        senders.emplace_back(&RRTPExporter::sendStream, this, i);
    }
    for (std::thread& sender : senders) {
        sender.join();
    }
    checkpoint();  // an abort ends the run here, on the component's own thread
    if (mRun.failed()) {
        return mRun.getResult();
    }
    mRun.complete();
    return 0;
}

void RRTPExporter::sendStream(int input) {
    ZR::CM::RQFrameReader* reader = getReader(input);
    try {
        // A writer publishes its description before its first frame, so once a frame or
        // the end has arrived, the description is there or never comes.
        const RPtr<const ZR::CM::RFrame> first = reader->nextSharedFrame();
        const RPtr<const ZR::CM::RQDescription> queued = reader->getQueue()->getDescription();
        const auto* description = dynamic_cast<const RRTPDescription*>(queued.addr());
        if (!description && first) {
            mRun.fail(ZR::CM::kResultNoValidTracks,
                      "input " + std::to_string(input + 1) + " carries no RTP stream");
        }
        if (description && first) {
            sendFrames(input, *description, first);
        }
        while (reader->nextNode()) {
        }
    } catch (const ZR::CThreadAbort&) {
        // The component's thread sees the abort once it has joined this one.
    }
}

// Sends from first, the frame sendStream() has read, on until the input ends or the run
// fails.
void RRTPExporter::sendFrames(int input, const RRTPDescription& description,
                              RPtr<const ZR::CM::RFrame> first) {
    ZR::CM::RQFrameReader* reader = getReader(input);
    const int port = mPort + 2 * input;
    const std::string destination = mHost + ":" + std::to_string(port);
    const RPtr<ZR::RSocket> rtp(
        new ZR::RSocket(mHost.c_str(), port, ZR::RSocket::kDatagram, ZR::RSocket::kIPv4));
    const RPtr<ZR::RSocket> rtcp(
        new ZR::RSocket(mHost.c_str(), port + 1, ZR::RSocket::kDatagram, ZR::RSocket::kIPv4));
    if (rtp->connect() != 0 || rtcp->connect() != 0) {
        mRun.fail(ZR::CM::kResultFileWriteFailed, "cannot reach " + destination);
        return;
    }
    const auto transmit = [&](ZR::RSocket& socket, const unsigned char* data, std::size_t size) {
        if (socket.send(data, static_cast<int>(size)) >= 0 || receiverAbsent(errno)) {
            return true;
        }
        mRun.fail(ZR::CM::kResultFileWriteFailed,
                  "sending to " + destination + ": " + std::strerror(errno));
        return false;
    };
    std::vector<unsigned char> datagram(kMaxDatagram);
    SenderReport report;
    report.ssrc = description.mSSRC;
    double nextReport = -HUGE_VAL;
    for (RPtr<const ZR::CM::RFrame> next = std::move(first); next && !mRun.failed();
         next = reader->nextSharedFrame()) {
        const auto* frame = dynamic_cast<const RRTPFrame*>(next.addr());
        if (!frame) {
            continue;
        }
        const Clock::time_point due = dueTime(frame->getAuxTime());
        if (mRealTime) {
            sleepUntil(due);
        }
        const double time = frame->getStartTime();
        for (const RPtr<ZR::CM::RRTPPacket>& packet : frame->getPackets()) {
            if (packet->mLength > kMaxDatagram - ZR::CM::RRTPPacket::kHeaderSize) {
                mRun.fail(ZR::CM::kResultFileWriteFailed,
                          "a packet for " + destination + " is larger than a datagram");
                return;
            }
            unsigned int size = 0;
            packet->pack(&description, frame, datagram.data(), &size);
            if (std::isfinite(time) && time >= nextReport) {
                report.wallClock = wallClock(time);
                report.rtpTimestamp = bigEndian32(datagram.data() + 4);
                unsigned char block[512];
                const std::size_t length = writeSenderReport(report, mCname, block, sizeof block);
                if (!transmit(*rtcp, block, length)) {
                    return;
                }
                nextReport = time + kReportInterval;
            }
            if (!transmit(*rtp, datagram.data(), size)) {
                return;
            }
            ++report.packets;
            report.octets += size - ZR::CM::RRTPPacket::kHeaderSize;
            mRun.addFrame(size);
        }
    }
}

RRTPExporter::Clock::time_point RRTPExporter::dueTime(double time) {
    std::lock_guard<ZR::CMutex> lock(mClockMutex);
    if (!mStarted) {
        mStarted = true;
        mOrigin = Clock::now();
        mOriginTime = time;
        mOriginWallClock =
            std::chrono::duration<double>(std::chrono::system_clock::now().time_since_epoch())
                .count();
    }
    return mOrigin + std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(
                         std::isfinite(time) ? time - mOriginTime : 0.0));
}

double RRTPExporter::wallClock(double time) {
    std::lock_guard<ZR::CMutex> lock(mClockMutex);
    return mOriginWallClock + (time - mOriginTime);
}

void RRTPExporter::sleepUntil(Clock::time_point when) const {
    constexpr auto kStep = std::chrono::milliseconds(20);
    for (Clock::time_point now = Clock::now(); now < when; now = Clock::now()) {
        if (isAborted()) {
            throw ZR::CThreadAbort();
        }
        std::this_thread::sleep_for(std::min<Clock::duration>(when - now, kStep));
    }
}

}  // namespace cmcomponents
