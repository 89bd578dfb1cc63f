// The packetizers' common ground: RRTPPacketizer, the base of every packetizer, which turns
// the frames of one input queue into RRTPFrames for an RTP sender (rtp.exporter);
// RCodedPacketizer, the base of those that carry coded media (CodedMedia.h) one frame at a
// time; and CPayloadLayout, in which a packetizer lays out the packets of one frame.
//
// Output: first an RRTPDescription, whose payload type, port and SSRC come from the
// settings and whose encoding name, clock rate and format lines come from the packetizer;
// then RRTPFrames. An RRTPPacket is a slice of its frame's bytes, and a payload usually
// holds bytes that are not in the media (an H.264 fragment's FU header, AAC's AU header),
// so the bytes of an RTP frame are not a copy of the media frame's but the payloads of its
// packets laid end to end; times, number and parameters are the media frame's. The start
// time of an RTP frame is the media's presentation time moved by half a tick of the clock
// rate, so that pack(), which truncates, writes the exact tick; its aux time is when it is
// due to leave (the media's decode time), by which a sender paces the stream. Sequence
// numbers go up by one from packet to packet, from 0, wrapping at 2^16.
//
// Settings (configure()):
//   "mtu"           the largest IP packet, 256 to 9000, default 1400: a payload gets what
//                   is left of it after the IP, UDP and RTP headers
//   "payload-type"  0 to 127; by default the process's next dynamic type (96, 97, ...)
//   "port"          the port the SDP "m=" line names, default 0
//   "ssrc"          the stream's SSRC, default 0
//
// Failures: an input a packetizer cannot carry fails the run with kResultNoPacketizer,
// media it cannot make sense of with kResultInputMetaDataParseFailed, any count of queues
// but one input and one output with kResultComponentInitFailed, each with a line in the
// status. The rest of the input is then read and dropped and the output ended, so that
// nothing upstream or downstream waits for ever.
//
// Threads: configure() on the application's thread before start(); the run on the
// component's thread; getStatus() from any thread. A layout belongs to the thread that
// fills it.
#ifndef CM_COMPONENTS_COMMON_RTPPACKETIZER_H
#define CM_COMPONENTS_COMMON_RTPPACKETIZER_H

#include "common/CodedMedia.h"
#include "common/RunStatus.h"

#include <cm/CMComponent.h>
#include <cm/CMComponentConfiguration.h>
#include <cm/CMRTP.h>

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace cmcomponents {

// The packets of one RTP frame, laid out one after another: each payload's bytes, and
// where each payload ends and whether its packet carries the marker.
class CPayloadLayout {
public:
    struct Packet {
        std::uint32_t offset;
        std::uint32_t length;
        bool marker;
    };

    void clear() noexcept {
        mBytes.clear();
        mPackets.clear();
    }
    void append(const unsigned char* bytes, std::size_t count) {
        mBytes.insert(mBytes.end(), bytes, bytes + count);
    }
    void appendByte(unsigned int value) { mBytes.push_back(static_cast<unsigned char>(value)); }
    void append16(unsigned int value) {
        appendByte(value >> 8);
        appendByte(value);
    }
    // Closes the packet being laid out: everything appended since the last one.
    void endPacket(bool marker = false);
    // Sets the marker of the last packet closed (the end of an access unit).
    void markLast() noexcept;

    bool empty() const noexcept { return mPackets.empty(); }
    const std::vector<unsigned char>& bytes() const noexcept { return mBytes; }
    const std::vector<Packet>& packets() const noexcept { return mPackets; }

private:
    std::vector<unsigned char> mBytes;
    std::vector<Packet> mPackets;
};

class RRTPPacketizer : public ZR::CM::CMMultipleQueueComponent, public ZR::CM::CConfigurableP {
public:
    // The IP, UDP and RTP headers around the payload of one packet.
    static constexpr unsigned int kOverhead = 20 + 8 + 12;

    unsigned int type() const override { return ZR::fourcc("pckt"); }
    int configure(ZR::CM::RComponentConfiguration& configuration) override;
    int runloop(zrbase::object_refcount* arg) override;
    ZR::CM::CComponentStatus getStatus() override { return mRun.snapshot(); }

protected:
    // format: the FourCC of the RTP frames ("H264").
    explicit RRTPPacketizer(unsigned int format) : mFormat(format) {}

    // Packetizes the whole input: 0, or a result code once mRun holds the failure.
    virtual int packetize() = 0;

    // The most bytes one payload may have.
    unsigned int maxPayload() const noexcept { return mMTU - kOverhead; }
    // A description of the stream for media, with the payload type, port and SSRC of the
    // settings (and a dynamic payload type when they name none).
    ZR::RPtr<ZR::CM::RRTPDescription> newDescription(const ZR::CM::RDescription* media) const;
    // Publishes the description; the clock of the frames that follow is its clock rate.
    void publish(const ZR::RPtr<ZR::CM::RRTPDescription>& description);
    // Puts the RTP frame of media whose packets layout holds, presented at start and due
    // to leave at sendTime (seconds); start is taken to the nearest tick of the clock.
    void emit(const ZR::CM::RFrame& media, double start, double sendTime,
              const CPayloadLayout& layout);
    // Records the failure; returns result.
    int fail(int result, const std::string& why);

    CRunStatus mRun;

private:
    void drainInput();

    const unsigned int mFormat;
    unsigned int mMTU = 1400;
    int mPayloadType = -1;  // -1: dynamic
    std::uint16_t mPort = 0;
    std::uint32_t mSSRC = 0;
    double mClockRate = 90000;  // of the published description
    std::uint16_t mSequence = 0;
};

// The base of the packetizers of coded media, one RTP frame per media frame. The input's
// description must be coded media of the codec given; describe() completes the stream's
// description before the first frame leaves, and layOut() lays out each frame.
class RCodedPacketizer : public RRTPPacketizer {
protected:
    RCodedPacketizer(unsigned int codec, unsigned int format)
        : RRTPPacketizer(format), mCodec(codec) {}

    // Fills in what the stream's description needs (encoding name, clock rate, format
    // lines), from the input's format and, for what only the media says, its first frame
    // (null when the input has none): 0, or a result code with a line in why.
    virtual int describe(const CodedFormat& format, const ZR::CM::RFrame* first,
                         ZR::CM::RRTPDescription& description, std::string& why) = 0;
    // Lays out the packets of one frame; none to send nothing: 0, or a result code with a
    // line in why.
    virtual int layOut(const ZR::CM::RFrame& frame, CPayloadLayout& layout, std::string& why) = 0;

private:
    int packetize() override;

    const unsigned int mCodec;
    CPayloadLayout mLayout;
};

}  // namespace cmcomponents

#endif
