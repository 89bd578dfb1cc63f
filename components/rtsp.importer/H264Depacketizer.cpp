#include "rtsp.importer/H264Depacketizer.h"

namespace cmcomponents {

namespace {

constexpr unsigned char kFuStart = 0x80;
constexpr unsigned char kFuEnd = 0x40;
constexpr std::size_t kStartCodeSize = 4;

}  // namespace

bool CH264Depacketizer::describe(const CRtpPayloadFormat& payload, CodedFormat& format,
                                 std::string& why) {
    if (payload.number("packetization-mode", 0, 2) == 2) {
        why = "H.264 in interleaved mode (packetization-mode 2) is not supported";
        return false;
    }
    format.media = ZR::fourcc("vide");
    format.codec = ZR::fourcc("avc1");
    format.timeBase = TimeBase{1, static_cast<int>(payload.clockRate ? payload.clockRate : 90000)};
    for (const NalUnit& unit :
         decodeSpropParameterSets(payload.parameter("sprop-parameter-sets"))) {
        const unsigned int type = h264NalType(unit[0]);
        if (type != kH264NalSequenceParameterSet && type != kH264NalPictureParameterSet) {
            continue;
        }
        appendAnnexB(format.privateData, unit.data(), unit.size());
        H264PictureInfo picture;
        if (format.width == 0 && readH264SequenceParameterSet(unit.data(), unit.size(), picture)) {
            format.width = picture.width;
            format.height = picture.height;
            format.profile = picture.profile;
            format.level = picture.level;
        }
    }
    return true;
}

void CH264Depacketizer::completeFormat(CodedFormat& format) const {
    H264PictureInfo picture;
    if (!format.privateData.empty() || mSequenceParameters.empty() ||
        !readH264SequenceParameterSet(mSequenceParameters.data(), mSequenceParameters.size(),
                                      picture)) {
        return;
    }
    appendAnnexB(format.privateData, mSequenceParameters.data(), mSequenceParameters.size());
    if (!mPictureParameters.empty()) {
        appendAnnexB(format.privateData, mPictureParameters.data(), mPictureParameters.size());
    }
    format.width = picture.width;
    format.height = picture.height;
    format.profile = picture.profile;
    format.level = picture.level;
}

void CH264Depacketizer::push(const CRtpPacket& packet, bool afterLoss, Sink& sink) {
    // A loss took a part of the unit being put together (its middle or its end), or the
    // start of the next one: neither can be handed on.
    if (afterLoss && mOpen) {
        damage();
    }
    if (mOpen && packet.timestamp != mTimestamp) {
        end(sink);
    }
    if (!mOpen) {
        begin(packet.timestamp);
    }
    if (afterLoss) {
        damage();
    }
    const unsigned char* payload = packet.payload;
    const std::size_t size = packet.payloadSize;
    const unsigned int type = size > 0 ? h264NalType(payload[0]) : 0;
    if (type >= 1 && type <= 23) {
        if (mInFragment) {  // a fragment that never ended
            damage();
        }
        append(payload, size);
    } else if (type == kH264NalStapA) {
        aggregate(payload, size);
    } else if (type == kH264NalFuA) {
        fragment(payload, size);
    } else {
        damage();
    }
    if (packet.marker) {
        end(sink);
    }
}

void CH264Depacketizer::flush(Sink& sink) {
    // A unit cut before its picture (only an access unit delimiter, parameter sets or SEI
    // came) decodes to nothing: it goes, as the packets after it that never came.
    if (mOpen && mPicture) {
        end(sink);
    }
    mOpen = false;
}

void CH264Depacketizer::begin(std::uint32_t timestamp) {
    mUnit.clear();
    mTimestamp = timestamp;
    mOpen = true;
    mDamaged = false;
    mKey = false;
    mPicture = false;
    mInFragment = false;
}

void CH264Depacketizer::end(Sink& sink) {
    mOpen = false;
    if (mDamaged || mInFragment || mUnit.empty()) {
        ++mDropped;
        return;
    }
    sink.take(CRtpAccessUnit{mUnit.data(), mUnit.size(), mTimestamp, mKey});
}

bool CH264Depacketizer::fits(std::size_t size) noexcept {
    if (mUnit.size() + size > kMaxUnitSize) {
        damage();
    }
    return !mDamaged;
}

void CH264Depacketizer::append(const unsigned char* nal, std::size_t size) {
    const unsigned int type = h264NalType(nal[0]);
    if (type == kH264NalSequenceParameterSet) {
        mSequenceParameters.assign(nal, nal + size);
    } else if (type == kH264NalPictureParameterSet) {
        mPictureParameters.assign(nal, nal + size);
    }
    appendNal(nal, size);
}

void CH264Depacketizer::appendNal(const unsigned char* nal, std::size_t size) {
    if (!fits(kStartCodeSize + size)) {
        return;
    }
    const unsigned int type = h264NalType(nal[0]);
    mKey = mKey || type == kH264NalIdrSlice;
    mPicture = mPicture || (type >= 1 && type <= kH264NalIdrSlice);
    appendAnnexB(mUnit, nal, size);
}

void CH264Depacketizer::appendFragment(const unsigned char* bytes, std::size_t size) {
    if (fits(size)) {
        mUnit.insert(mUnit.end(), bytes, bytes + size);
    }
}

void CH264Depacketizer::aggregate(const unsigned char* payload, std::size_t size) {
    if (mInFragment) {
        damage();
    }
    std::size_t offset = 1;
    if (offset == size) {
        damage();
    }
    while (offset < size) {
        const std::size_t length =
            offset + 2 <= size ? (std::size_t{payload[offset]} << 8) | payload[offset + 1] : 0;
        if (length == 0 || offset + 2 + length > size) {
            damage();
            return;
        }
        append(payload + offset + 2, length);
        offset += 2 + length;
    }
}

void CH264Depacketizer::fragment(const unsigned char* payload, std::size_t size) {
    if (size < 3) {
        damage();
        return;
    }
    const unsigned char header = payload[1];
    if (header & kFuStart) {
        if (mInFragment) {
            damage();
        }
        const auto nalHeader = static_cast<unsigned char>((payload[0] & 0xE0) | (header & 0x1F));
        appendNal(&nalHeader, 1);
        mInFragment = true;
    } else if (!mInFragment) {  // its start was lost
        damage();
        return;
    }
    appendFragment(payload + 2, size - 2);
    if (header & kFuEnd) {
        mInFragment = false;
    }
}

}  // namespace cmcomponents
