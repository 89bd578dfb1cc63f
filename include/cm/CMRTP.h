// RTP data: the description of an RTP stream with its media-level SDP block, and RTP frames
// made of packets that point into the frame's bytes.
//
// A packetizer does not copy media bytes into packets. An RRTPFrame is a copy of the media
// frame (bytes, times, parameters) plus a list of RRTPPackets; each packet names a slice of
// the frame's bytes and carries its own header values (marker, sequence number). pack()
// writes the 12-byte RTP fixed header from the packet, the frame and the stream's
// RRTPDescription, then the slice, into a buffer on its way to the network.
//
// Ownership: all three classes are reference counted and start with count 0. A frame owns
// one reference to each of its packets; copies of a frame share the packets. A description
// owns one reference to the media description it wraps. The allocating pack() and
// packHeader() hand their malloc() block to the caller, who frees it.
//
// Threads: a packetizer fills descriptions and frames on its own thread, then publishes them
// through a queue as read-only objects. The dynamic payload counter is process-wide and has
// no lock: two threads calling setDynamicPayload() at once may get the same payload type.
#ifndef CM_CMRTP_H
#define CM_CMRTP_H

#include <cm/CMFrame.h>
#include <zr/CBuffer.h>
#include <zr/RPtr.h>
#include <zr/ZRTypes.h>
#include <zrbase/object_refcount.h>

#include <atomic>
#include <cstdint>
#include <vector>

namespace ZR {
namespace CM {

// The format of an RTP stream: the carried media's description plus what the RTP header
// and the SDP "m=" block need. The fields are public data set by the packetizer.
class RRTPDescription : public RDescription {
public:
    // Holds one reference to `media`; null is accepted (its SDP media name is "unknown").
    explicit RRTPDescription(const RDescription* media = nullptr);
    // Shares the media description; copies strings and attribute lines.
    RRTPDescription(const RRTPDescription&) = default;

    unsigned int type() const override { return fourcc("hint"); }
    RRTPDescription* copy() const override;

    // Sets the payload type to the next dynamic type of the process: 96, 97, ..., 127, 96...
    // Streams described one after another thus get different types.
    void setDynamicPayload();
    // Appends a complete SDP line ("a=fmtp:96 ..."), stored verbatim without its line end.
    void addAttribute(CString line);
    // The media-level SDP block: the "m=" line, the "a=rtpmap:" line and the attribute
    // lines, each ended by a single "\n".
    CString getSDP() const;

    RPtr<const RDescription> mMediaDescription;  // decides the SDP media name
    std::uint8_t mVersion = 2;                   // RTP version written into each header
    // Signed: the unassigned type -1 (0xFF) prints as 4294967295 in the SDP text.
    std::int8_t mPayloadType = -1;
    std::uint32_t mSSRC = 0;
    std::uint16_t mPort = 0;       // port of the "m=" line
    std::uint16_t mPortCount = 1;  // written as "/count" only when above 1
    CString mProfile{"RTP/AVP"};
    CString mEncodingName;
    // Hz; 0 stands for 90000 in timestamps and leaves the rate out of "a=rtpmap:".
    std::uint32_t mClockRate = 0;
    // Third "a=rtpmap:" component (audio channels); written when non-zero and a rate is set.
    std::uint32_t mEncodingParameters = 0;
    std::vector<CString> mAttributes;

private:
    // Offset of the next dynamic payload type from 96, shared by every description.
    static std::atomic<std::uint8_t> mDynamicPayload;
};

class RRTPFrame;

// One RTP packet of a frame: a slice [mOffset, mOffset + mLength) of the frame's bytes and
// the per-packet header values. The CSRC fields and mTime are kept for the packetizers;
// packing writes a CSRC count of 0 and no CSRC words.
class RRTPPacket : public zrbase::object_refcount {
public:
    // The fixed RTP header; pack() writes this many bytes before the payload.
    static constexpr unsigned int kHeaderSize = 12;
    // Sizes of the blocks that the allocating packHeader() and pack() return.
    static constexpr unsigned int kHeaderBlockSize = 100;
    static constexpr unsigned int kPacketBlockSize = 1500;

    // Every field 0.
    static RRTPPacket* create();
    // A packet for the given slice; the header fields start at 0.
    static RRTPPacket* createWithData(unsigned int offset, unsigned int length);
    RRTPPacket(const RRTPPacket&) = default;
    RRTPPacket& operator=(const RRTPPacket&) = delete;
    ~RRTPPacket() override;

    void setData(unsigned int offset, unsigned int length) noexcept;

    // Writes the 12 header bytes at `buffer`, sets *size to 12 and returns `size`.
    unsigned int* packHeader(const RRTPDescription* description, const RRTPFrame* frame,
                             unsigned char* buffer, unsigned int* size) const;
    // The header in a new malloc() block of 100 bytes; *size (when not null) is set to 12.
    unsigned char* packHeader(const RRTPDescription* description, const RRTPFrame* frame,
                              unsigned int* size) const;
    // Header and payload into `buffer`, which must hold 12 + mLength bytes; *size is set to
    // the packed length. Only the part of the slice that lies inside the frame's data is
    // copied, so a slice reaching past the frame gives a shorter packet.
    void pack(const RRTPDescription* description, const RRTPFrame* frame, unsigned char* buffer,
              unsigned int* size) const;
    // Header and payload in a new malloc() block of 1500 bytes; a payload that does not fit
    // is cut at the end of the block. *size (when not null) is set to the packed length.
    unsigned char* pack(const RRTPDescription* description, const RRTPFrame* frame,
                        unsigned int* size) const;

    std::uint8_t mPadding = 0;    // P bit, from the lowest bit of the flag
    std::uint8_t mExtension = 0;  // X bit, from the lowest bit
    std::uint8_t mMarker = 0;     // M bit, from the lowest bit
    std::uint16_t mSequenceNumber = 0;
    std::uint8_t mCSRCCount = 0;
    std::uint32_t mCSRC[15] = {};
    double mTime = 0;  // seconds; for the packetizer's use
    std::uint32_t mOffset = 0;
    std::uint32_t mLength = 0;

protected:
    RRTPPacket() = default;
};

// A media frame's copy with the packets that carry it, in sending order.
class RRTPFrame : public RFrame {
public:
    // Copies the frame part; the packets are shared, not duplicated.
    RRTPFrame(const RRTPFrame&) = default;
    // A full copy of `frame` (bytes, times, parameters) with no packets; null for null.
    static RRTPFrame* createWithFrame(const RFrame* frame);
    // Releases the packets, then the frame part.
    ~RRTPFrame() override;

    unsigned int type() const override { return fourcc("hint"); }
    // A copy made by the copy constructor.
    RRTPFrame* copy() const override;

    // Appends the packet and retains it; a null packet is ignored.
    void addPacket(RRTPPacket* packet);
    const std::vector<RPtr<RRTPPacket>>& getPackets() const noexcept { return mPackets; }

protected:
    explicit RRTPFrame(const RFrame& frame) : RFrame(frame) {}

private:
    std::vector<RPtr<RRTPPacket>> mPackets;
};

}  // namespace CM
}  // namespace ZR

#endif
