#include "rtsp.importer/Mpeg4GenericDepacketizer.h"

#include "common/BitReader.h"

#include <zr/CBuffer.h>

#include <algorithm>

namespace cmcomponents {

namespace {

constexpr long kAudioStream = 5;

// The channel configuration of an AudioSpecificConfig; 0 when it says none or cannot be
// read.
unsigned int configuredChannels(const std::vector<unsigned char>& config) {
    CBitReader reader(config.data(), config.size() * 8);
    if (reader.bits(5) == 31) {  // escaped object type
        reader.bits(6);
    }
    if (reader.bits(4) == 15) {  // explicit sampling frequency
        reader.bits(24);
    }
    const unsigned int channels = reader.bits(4);
    return reader.ok() ? channels : 0;
}

}  // namespace

bool CMpeg4GenericDepacketizer::describe(const CRtpPayloadFormat& payload, CodedFormat& format,
                                         std::string& why) {
    const long streamType = payload.number("streamtype", kAudioStream, 63);
    if (streamType != kAudioStream) {
        why = "MPEG4-GENERIC stream type " + std::to_string(streamType) + " is not audio";
        return false;
    }
    auto width = [&payload](const char* name, long max) {
        return static_cast<unsigned int>(payload.number(name, 0, max));
    };
    mSizeLength = width("sizelength", 32);
    mIndexLength = width("indexlength", 32);
    mIndexDeltaLength = width("indexdeltalength", 32);
    mCtsDeltaLength = width("ctsdeltalength", 32);
    mDtsDeltaLength = width("dtsdeltalength", 32);
    mRandomAccessLength = width("randomaccessindication", 1);
    mStreamStateLength = width("streamstateindication", 32);
    mAuxiliarySizeLength = width("auxiliarydatasizelength", 32);
    mFrameLength = static_cast<std::uint32_t>(payload.number("constantduration", 0, 1 << 20));
    if (mFrameLength == 0) {
        mFrameLength = 1024;
    }
    if (mSizeLength == 0) {
        why = "MPEG4-GENERIC without access unit sizes (sizeLength) is not supported";
        return false;
    }
    ZR::CBuffer config;
    const std::string hex = payload.parameter("config");
    if (hex.empty() || !config.decodeHex(ZR::CString(hex.c_str()), 0) || config.getSize() == 0) {
        why = "AAC without its AudioSpecificConfig (the config parameter)";
        return false;
    }
    if (payload.clockRate == 0) {
        why = "AAC without a clock rate";
        return false;
    }
    format.media = ZR::fourcc("audi");
    format.codec = ZR::fourcc("mp4a");
    format.privateData.assign(config.getData(), config.getData() + config.getSize());
    format.sampleRate = payload.clockRate;
    format.channels = payload.channels ? payload.channels : configuredChannels(format.privateData);
    format.channels = std::max(format.channels, 1u);
    format.timeBase = TimeBase{1, static_cast<int>(payload.clockRate)};
    return true;
}

bool CMpeg4GenericDepacketizer::readHeaders(const unsigned char* payload, std::size_t size,
                                            std::size_t& dataOffset) {
    mHeaders.clear();
    if (size < 2) {
        return false;
    }
    const std::size_t headerBits = (std::size_t{payload[0]} << 8) | payload[1];
    std::size_t offset = 2 + (headerBits + 7) / 8;
    if (offset > size) {
        return false;
    }
    CBitReader reader(payload + 2, headerBits);
    std::uint32_t index = 0;
    while (reader.left() > 0) {
        AuHeader header;
        header.size = reader.bits(mSizeLength);
        const std::uint32_t value =
            reader.bits(mHeaders.empty() ? mIndexLength : mIndexDeltaLength);
        index += mHeaders.empty() ? 0 : value + 1;
        header.index = index;
        if (mCtsDeltaLength && reader.bits(1)) {
            reader.bits(mCtsDeltaLength);
        }
        if (mDtsDeltaLength && reader.bits(1)) {
            reader.bits(mDtsDeltaLength);
        }
        reader.bits(mRandomAccessLength);
        reader.bits(mStreamStateLength);
        if (!reader.ok()) {
            return false;
        }
        mHeaders.push_back(header);
    }
    if (mAuxiliarySizeLength > 0) {
        CBitReader auxiliary(payload + offset, (size - offset) * 8);
        const std::size_t bits =
            mAuxiliarySizeLength + std::size_t{auxiliary.bits(mAuxiliarySizeLength)};
        offset += (bits + 7) / 8;
        if (!auxiliary.ok() || offset > size) {
            return false;
        }
    }
    dataOffset = offset;
    return !mHeaders.empty();
}

void CMpeg4GenericDepacketizer::push(const CRtpPacket& packet, bool afterLoss, Sink& sink) {
    if (afterLoss && mFragmentSize > 0) {
        dropFragment();
    }
    std::size_t offset = 0;
    if (!readHeaders(packet.payload, packet.payloadSize, offset)) {
        if (mFragmentSize > 0) {
            dropFragment();
        }
        ++mDropped;
        return;
    }
    const unsigned char* data = packet.payload + offset;
    std::size_t left = packet.payloadSize - offset;
    if (mFragmentSize > 0) {
        if (packet.timestamp == mFragmentTimestamp && mHeaders.size() == 1 &&
            mHeaders[0].size == mFragmentSize) {
            continueFragment(packet, data, left, sink);
            return;
        }
        dropFragment();
    }
    const bool restOfDropped = mSkipping && packet.timestamp == mSkipTimestamp &&
                               mHeaders.size() == 1 && mHeaders[0].size > left;
    mSkipping = restOfDropped;
    if (restOfDropped) {  // counted once, when its fragment was dropped
        return;
    }
    for (std::size_t i = 0; i < mHeaders.size(); ++i) {
        const AuHeader& header = mHeaders[i];
        if (header.size > 0 && header.size <= left) {
            sink.take(CRtpAccessUnit{data, header.size,
                                     packet.timestamp + header.index * mFrameLength, true});
            data += header.size;
            left -= header.size;
            continue;
        }
        // The one access unit of a packet that holds only its first part.
        if (mHeaders.size() == 1 && !packet.marker && header.size > left &&
            header.size <= kMaxUnitSize) {
            mFragment.assign(data, data + left);
            mFragmentSize = header.size;
            mFragmentTimestamp = packet.timestamp;
            return;
        }
        ++mDropped;
    }
}

void CMpeg4GenericDepacketizer::continueFragment(const CRtpPacket& packet,
                                                 const unsigned char* data, std::size_t size,
                                                 Sink& sink) {
    if (size > mFragmentSize - mFragment.size()) {
        dropFragment();
        return;
    }
    mFragment.insert(mFragment.end(), data, data + size);
    if (mFragment.size() == mFragmentSize) {
        sink.take(CRtpAccessUnit{mFragment.data(), mFragment.size(), mFragmentTimestamp, true});
        mFragmentSize = 0;
    } else if (packet.marker) {
        dropFragment();
    }
}

void CMpeg4GenericDepacketizer::dropFragment() noexcept {
    mFragmentSize = 0;
    mSkipping = true;
    mSkipTimestamp = mFragmentTimestamp;
    ++mDropped;
}

}  // namespace cmcomponents
