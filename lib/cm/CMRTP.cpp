#include <cm/CMRTP.h>

#include <zr/CException.h>
#include <zrbase/string_with_format.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <string>

namespace ZR {
namespace CM {

namespace {

const char kFile[] = "lib/cm/CMRTP";
const char kAllocationError[] = "Memory allocation error.";
const char kMissingInput[] = "RTP packing needs a description, a frame and a buffer.";

constexpr unsigned int kFirstDynamicPayload = 96;
constexpr unsigned int kDynamicPayloadCount = 32;
constexpr std::uint32_t kDefaultClockRate = 90000;

const char* mediaName(const RDescription* media) {
    if (!media) {
        return "unknown";
    }
    switch (media->type()) {
        case fourcc("vide"):
            return "video";
        case fourcc("audi"):
            return "audio";
        default:
            return "unknown";
    }
}

// "%u" of the payload type widened as a signed value: -1 (unassigned) gives 4294967295.
unsigned int printedPayloadType(std::int8_t payloadType) {
    return static_cast<unsigned int>(static_cast<int>(payloadType));
}

// The low 32 bits of the tick count trunc(clockRate * seconds), taken as a 64-bit unsigned
// integer, so that timestamps wrap modulo 2^32.
std::uint32_t rtpTimestamp(double clockRate, double seconds) {
    constexpr double kTwoTo32 = 4294967296.0;
    constexpr double kTwoTo64 = 18446744073709551616.0;
    const double ticks = clockRate * seconds;
    if (ticks >= 0 && ticks < kTwoTo64) {
        return static_cast<std::uint32_t>(static_cast<std::uint64_t>(ticks));
    }
    if (!std::isfinite(ticks)) {
        return 0;
    }
    // A negative or oversized count has no 64-bit unsigned form; the same arithmetic modulo
    // 2^32 is what a receiver expects (fmod is exact on whole doubles).
    double wrapped = std::fmod(std::trunc(ticks), kTwoTo32);
    if (wrapped < 0) {
        wrapped += kTwoTo32;
    }
    return static_cast<std::uint32_t>(wrapped);
}

void putBigEndian16(unsigned char* out, std::uint16_t value) {
    out[0] = static_cast<unsigned char>(value >> 8);
    out[1] = static_cast<unsigned char>(value);
}

void putBigEndian32(unsigned char* out, std::uint32_t value) {
    out[0] = static_cast<unsigned char>(value >> 24);
    out[1] = static_cast<unsigned char>(value >> 16);
    out[2] = static_cast<unsigned char>(value >> 8);
    out[3] = static_cast<unsigned char>(value);
}

[[noreturn]] void throwMissingInput() {
    ZR_THROW(kFile, kMissingInput);
}

inline void requireInputs(const RRTPDescription* description, const RRTPFrame* frame,
                          bool hasBuffer = true) {
    if (!description || !frame || !hasBuffer) {
        throwMissingInput();
    }
}

// The header bytes, once the inputs have been checked.
inline void writeHeader(const RRTPPacket& packet, const RRTPDescription& description,
                        const RRTPFrame& frame, unsigned char* buffer) noexcept {
    buffer[0] = static_cast<unsigned char>(description.mVersion << 6 | (packet.mPadding & 1) << 5 |
                                           (packet.mExtension & 1) << 4);
    buffer[1] =
        static_cast<unsigned char>((packet.mMarker & 1) << 7 | (description.mPayloadType & 127));
    putBigEndian16(buffer + 2, packet.mSequenceNumber);
    const std::uint32_t clockRate =
        description.mClockRate != 0 ? description.mClockRate : kDefaultClockRate;
    putBigEndian32(buffer + 4, rtpTimestamp(clockRate, frame.getStartTime()));
    putBigEndian32(buffer + 8, description.mSSRC);
}

// Writes the packet into `buffer` of `capacity` bytes; the packed length. Packing runs per
// packet beside a copy of a packet's bytes, so it stays in one function without virtual or
// exported calls.
inline unsigned int packInto(const RRTPPacket& packet, const RRTPDescription* description,
                             const RRTPFrame* frame, unsigned char* buffer, unsigned int capacity) {
    requireInputs(description, frame, buffer != nullptr);
    writeHeader(packet, *description, *frame, buffer);
    // The slice is trusted no further than the frame's data and the buffer reach.
    const unsigned int frameSize = frame->RFrame::getSize();
    const unsigned int offset = packet.mOffset;
    unsigned int payload = offset < frameSize ? std::min(packet.mLength, frameSize - offset) : 0;
    payload = std::min(payload, capacity - RRTPPacket::kHeaderSize);
    if (payload > 0) {
        std::memcpy(buffer + RRTPPacket::kHeaderSize, frame->getData() + offset, payload);
    }
    return RRTPPacket::kHeaderSize + payload;
}

// A block for the allocating forms, checked before anything is allocated so that nothing
// can throw once the caller's block exists.
unsigned char* allocateFor(const RRTPDescription* description, const RRTPFrame* frame,
                           unsigned int size) {
    requireInputs(description, frame);
    auto* block = static_cast<unsigned char*>(std::malloc(size));
    if (!block) {
        ZR_THROW(kFile, kAllocationError);
    }
    return block;
}

}  // namespace

// ---------------------------------------------------------------------------------------------
// RRTPDescription

std::atomic<std::uint8_t> RRTPDescription::mDynamicPayload{0};

RRTPDescription::RRTPDescription(const RDescription* media) : mMediaDescription(media) {}

RRTPDescription* RRTPDescription::copy() const {
    return new RRTPDescription(*this);
}

void RRTPDescription::setDynamicPayload() {
    // A separate load and store rather than one atomic increment: the counter is not meant
    // to serialize threads, only to step through the dynamic range.
    const unsigned int offset = mDynamicPayload.load(std::memory_order_relaxed);
    mPayloadType = static_cast<std::int8_t>(kFirstDynamicPayload + offset);
    mDynamicPayload.store(static_cast<std::uint8_t>((offset + 1) % kDynamicPayloadCount),
                          std::memory_order_relaxed);
}

void RRTPDescription::addAttribute(CString line) {
    mAttributes.push_back(std::move(line));
}

CString RRTPDescription::getSDP() const {
    const unsigned int payloadType = printedPayloadType(mPayloadType);
    std::string text =
        zrbase::string_with_format("m=%s %u", mediaName(mMediaDescription.addr()), mPort);
    if (mPortCount > 1) {
        text += zrbase::string_with_format("/%u", mPortCount);
    }
    text += zrbase::string_with_format(" %s %u\n", mProfile.c_str(), payloadType);
    text += zrbase::string_with_format("a=rtpmap:%u %s", payloadType, mEncodingName.c_str());
    if (mClockRate != 0) {
        text += zrbase::string_with_format("/%u", mClockRate);
        if (mEncodingParameters != 0) {
            text += zrbase::string_with_format("/%u", mEncodingParameters);
        }
    }
    text += '\n';
    for (const CString& line : mAttributes) {
        text += line.c_str();
        text += '\n';
    }
    return CString(text.c_str());
}

// ---------------------------------------------------------------------------------------------
// RRTPPacket

RRTPPacket* RRTPPacket::create() {
    return new RRTPPacket();
}

RRTPPacket* RRTPPacket::createWithData(unsigned int offset, unsigned int length) {
    RRTPPacket* packet = new RRTPPacket();
    packet->setData(offset, length);
    return packet;
}

RRTPPacket::~RRTPPacket() = default;

void RRTPPacket::setData(unsigned int offset, unsigned int length) noexcept {
    mOffset = offset;
    mLength = length;
}

unsigned int* RRTPPacket::packHeader(const RRTPDescription* description, const RRTPFrame* frame,
                                     unsigned char* buffer, unsigned int* size) const {
    requireInputs(description, frame, buffer != nullptr);
    writeHeader(*this, *description, *frame, buffer);
    if (size) {
        *size = kHeaderSize;
    }
    return size;
}

unsigned char* RRTPPacket::packHeader(const RRTPDescription* description, const RRTPFrame* frame,
                                      unsigned int* size) const {
    unsigned char* block = allocateFor(description, frame, kHeaderBlockSize);
    packHeader(description, frame, block, size);
    return block;
}

void RRTPPacket::pack(const RRTPDescription* description, const RRTPFrame* frame,
                      unsigned char* buffer, unsigned int* size) const {
    const unsigned int packed = packInto(*this, description, frame, buffer, ~0u);
    if (size) {
        *size = packed;
    }
}

unsigned char* RRTPPacket::pack(const RRTPDescription* description, const RRTPFrame* frame,
                                unsigned int* size) const {
    unsigned char* block = allocateFor(description, frame, kPacketBlockSize);
    const unsigned int packed = packInto(*this, description, frame, block, kPacketBlockSize);
    if (size) {
        *size = packed;
    }
    return block;
}

// ---------------------------------------------------------------------------------------------
// RRTPFrame

RRTPFrame* RRTPFrame::createWithFrame(const RFrame* frame) {
    return frame ? new RRTPFrame(*frame) : nullptr;
}

RRTPFrame* RRTPFrame::copy() const {
    return new RRTPFrame(*this);
}

RRTPFrame::~RRTPFrame() = default;

void RRTPFrame::addPacket(RRTPPacket* packet) {
    if (packet) {
        mPackets.emplace_back(packet);
    }
}

}  // namespace CM
}  // namespace ZR
