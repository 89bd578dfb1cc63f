#include "rtsp.importer/RtpDepacketizer.h"

#include <gtest/gtest.h>

#include "support/RtpStreams.h"

#include <string>
#include <tuple>
#include <vector>

using cmcomponents::CodedFormat;
using cmcomponents::CRtpAccessUnit;
using cmcomponents::CRtpDepacketizer;
using cmcomponents::CRtpPacket;
using cmcomponents::CRtpPayloadFormat;
using cmtest::aacHbr;
using cmtest::annexB;
using cmtest::Bytes;
using cmtest::stapA;

namespace {

struct Unit {
    Bytes bytes;
    std::uint32_t timestamp;
    bool key;
    bool operator==(const Unit& other) const {
        return bytes == other.bytes && timestamp == other.timestamp && key == other.key;
    }
};

struct Sent {
    std::uint32_t timestamp;
    bool marker;
    Bytes payload;
    bool afterLoss = false;
};

class Collector : public CRtpDepacketizer::Sink {
public:
    void take(const CRtpAccessUnit& unit) override {
        units.push_back(Unit{Bytes(unit.data, unit.data + unit.size), unit.timestamp, unit.key});
    }
    std::vector<Unit> units;
};

CRtpPayloadFormat payloadFormat(const std::string& encoding, unsigned int rate,
                                unsigned int channels,
                                std::map<std::string, std::string> parameters = {}) {
    CRtpPayloadFormat format;
    format.payloadType = 96;
    format.encoding = encoding;
    format.clockRate = rate;
    format.channels = channels;
    format.parameters = std::move(parameters);
    return format;
}

const CRtpPayloadFormat kH264 = payloadFormat("H264", 90000, 0, {{"packetization-mode", "1"}});
const CRtpPayloadFormat kAac = payloadFormat("MPEG4-GENERIC", 48000, 2,
                                             {{"mode", "AAC-hbr"},
                                              {"config", "1190"},
                                              {"sizelength", "13"},
                                              {"indexlength", "3"},
                                              {"indexdeltalength", "3"}});
const CRtpPayloadFormat kL16 = payloadFormat("L16", 44100, 2);

const Bytes kSps{0x67, 0x42, 0xC0, 0x0D, 0xDA};
const Bytes kPps{0x68, 0xCE, 0x0F, 0xC8};
const Bytes kSlice{0x41, 0x9A, 0x02, 0x03};
const Bytes kAud{0x09, 0xF0};

Bytes idr(std::size_t size) {
    Bytes nal{0x65};
    for (std::size_t i = 1; i < size; ++i) {
        nal.push_back(static_cast<unsigned char>(i));
    }
    return nal;
}

// The FU-A packets of a 100-byte IDR slice in four pieces, the last with the marker.
std::vector<Sent> fragmentedIdr(std::uint32_t timestamp) {
    std::vector<Sent> sent;
    const std::vector<Bytes> pieces = cmtest::fuA(idr(100), 30);
    for (std::size_t i = 0; i < pieces.size(); ++i) {
        sent.push_back(Sent{timestamp, i + 1 == pieces.size(), pieces[i]});
    }
    return sent;
}

// The packets less the one at index, the next marked as coming after a loss when
// lossAfter, then one more.
std::vector<Sent> without(std::vector<Sent> sent, std::size_t index, bool lossAfter,
                          const Sent& then) {
    sent.erase(sent.begin() + static_cast<std::ptrdiff_t>(index));
    if (lossAfter && index < sent.size()) {
        sent[index].afterLoss = true;
    }
    sent.push_back(then);
    return sent;
}

}  // namespace

// Every payload form of each codec, whole and damaged: what comes out is exactly the
// access units that arrived whole, in the codec's frame form with their timestamps, and
// every unit that lost a part or does not parse is counted as dropped instead.
TEST(RtpDepacketizerTest, HandsOnWholeUnitsAndCountsDamagedOnes) {
    const Bytes big = idr(100);
    const Bytes tone{0x01, 0x02, 0x03, 0x04, 0x05, 0x06, 0x07, 0x08};
    const Bytes swapped{0x02, 0x01, 0x04, 0x03, 0x06, 0x05, 0x08, 0x07};
    const Bytes longStap{24, 0x00, 0x09, 0x41, 0x9A};
    const Bytes aac1(40, 0xA1), aac2(7, 0xA2), aac3(300, 0xA3);
    const std::vector<Bytes> aacPieces{Bytes(aac3.begin(), aac3.begin() + 100),
                                       Bytes(aac3.begin() + 100, aac3.begin() + 200),
                                       Bytes(aac3.begin() + 200, aac3.end())};
    // The AAC-hbr fragments of aac3: each carries the whole unit's size in its AU header.
    std::vector<Sent> aacFragments;
    for (std::size_t i = 0; i < aacPieces.size(); ++i) {
        Bytes payload = aacHbr({aac3});
        payload.resize(4);
        payload.insert(payload.end(), aacPieces[i].begin(), aacPieces[i].end());
        aacFragments.push_back(Sent{9000, i + 1 == aacPieces.size(), payload});
    }
    const Sent nextSlice{7200, true, kSlice};
    const Unit sliceUnit{annexB({kSlice}), 7200, false}, firstSlice{annexB({kSlice}), 0, false};
    const Unit bigUnit{annexB({big}), 0, true};
    const std::vector<Sent> fu = fragmentedIdr(0);
    Bytes cutAac = aacHbr({aac1, aac2});
    cutAac.pop_back();
    struct Row {
        const char* name;
        const CRtpPayloadFormat& format;
        std::vector<Sent> sent;
        std::vector<Unit> units;
        unsigned long long dropped;
    };
    const std::vector<Row> rows{
        {"single NAL unit", kH264, {{0, true, big}}, {bigUnit}, 0},
        {"STAP-A then IDR",
         kH264,
         {{0, false, stapA({kSps, kPps})}, {0, true, big}},
         {{annexB({kSps, kPps, big}), 0, true}},
         0},
        {"FU-A", kH264, fu, {bigUnit}, 0},
        {"no marker: the next timestamp ends the unit",
         kH264,
         {{0, false, kSlice}, nextSlice},
         {firstSlice, sliceUnit},
         0},
        {"ends before its picture", kH264, {nextSlice, {9000, false, kAud}}, {sliceUnit}, 0},
        {"FU-A without its start", kH264, without(fu, 0, false, nextSlice), {sliceUnit}, 1},
        {"FU-A with a lost middle", kH264, without(fu, 1, true, nextSlice), {sliceUnit}, 1},
        {"a loss before a new timestamp drops that unit too",
         kH264,
         {{0, true, kSlice}, {3600, true, kSlice, true}, nextSlice},
         {firstSlice, sliceUnit},
         1},
        {"a fragment that never ends", kH264, without(fu, 3, false, {0, true, kSlice}), {}, 1},
        {"STAP-A longer than its packet", kH264, {{0, true, longStap}, nextSlice}, {sliceUnit}, 1},
        {"interleaved-mode MTAP", kH264, {{0, true, Bytes{26, 0, 0, 0}}}, {}, 1},
        {"three AAC units in one packet",
         kAac,
         {{1000, true, aacHbr({aac1, aac2, aac1})}},
         {{aac1, 1000, true}, {aac2, 2024, true}, {aac1, 3048, true}},
         0},
        {"a fragmented AAC unit", kAac, aacFragments, {{aac3, 9000, true}}, 0},
        {"an AAC fragment lost",
         kAac,
         without(aacFragments, 1, true, {10024, true, aacHbr({aac2})}),
         {{aac2, 10024, true}},
         1},
        {"AU headers longer than the packet", kAac, {{0, true, Bytes{0x01, 0x00, 0x05}}}, {}, 1},
        {"an AAC unit past the packet's end", kAac, {{0, true, cutAac}}, {{aac1, 0, true}}, 1},
        {"L16 to little-endian", kL16, {{500, true, tone}}, {{swapped, 500, true}}, 0},
        {"L16 of a partial sample frame", kL16, {{500, true, Bytes{1, 2, 3, 4, 5, 6}}}, {}, 1},
    };
    for (const Row& row : rows) {
        CodedFormat format;
        std::string why;
        std::unique_ptr<CRtpDepacketizer> depacketizer =
            CRtpDepacketizer::create(row.format, format, why);
        ASSERT_TRUE(depacketizer) << row.name << ": " << why;
        Collector collector;
        std::vector<Bytes> packets;
        std::uint16_t sequence = 0;
        for (const Sent& sent : row.sent) {
            packets.push_back(
                cmtest::rtpPacket(sequence++, sent.timestamp, sent.marker, 96, sent.payload));
            CRtpPacket packet;
            ASSERT_TRUE(packet.parse(packets.back().data(), packets.back().size())) << row.name;
            depacketizer->push(packet, sent.afterLoss, collector);
        }
        depacketizer->flush(collector);
        EXPECT_EQ(collector.units, row.units) << row.name;
        EXPECT_EQ(depacketizer->dropped(), row.dropped) << row.name;
    }
}

// What a description's payload formats say reaches the track's format; a format the
// receiver cannot take is refused with its reason. The sequence parameter sets are x264's
// for 1920x1080 4:2:0 (cropped from 1088 lines) and 320x240 4:4:4.
TEST(RtpDepacketizerTest, DescribesTheFramesFromTheFormatParameters) {
    struct Row {
        CRtpPayloadFormat payload;
        CodedFormat expected;  // codec 0: refused
        const char* refusal;
    };
    auto video = [](unsigned int width, unsigned int height, int profile, int level,
                    std::vector<unsigned char> privateData) {
        CodedFormat f;
        f.media = ZR::fourcc("vide");
        f.codec = ZR::fourcc("avc1");
        f.width = width;
        f.height = height;
        f.profile = profile;
        f.level = level;
        f.timeBase = {1, 90000};
        f.privateData = std::move(privateData);
        return f;
    };
    auto audio = [](unsigned int codec, unsigned int rate, unsigned int channels,
                    unsigned int bytes, std::vector<unsigned char> privateData) {
        CodedFormat f;
        f.media = ZR::fourcc("audi");
        f.codec = codec;
        f.sampleRate = rate;
        f.channels = channels;
        f.bytesPerSample = bytes;
        f.timeBase = {1, static_cast<int>(rate)};
        f.privateData = std::move(privateData);
        return f;
    };
    const auto fields = [](const CodedFormat& f) {
        return std::make_tuple(f.media, f.codec, f.width, f.height, f.profile, f.level,
                               f.sampleRate, f.channels, f.bytesPerSample, f.timeBase.num,
                               f.timeBase.den, f.privateData);
    };
    const Bytes sps1080{0x67, 0x42, 0xc0, 0x28, 0xda, 0x01, 0xe0, 0x08, 0x9f,
                        0x97, 0x01, 0x10, 0x00, 0x00, 0x03, 0x00, 0x10, 0x00,
                        0x00, 0x03, 0x03, 0x20, 0xf1, 0x83, 0x2a};
    const Bytes pps{0x68, 0xce, 0x0f, 0xc8};
    const std::vector<Row> rows{
        {payloadFormat("H264", 90000, 0,
                       {{"sprop-parameter-sets", "Z0LAKNoB4AiflwEQAAADABAAAAMDIPGDKg==,aM4PyA=="}}),
         video(1920, 1080, 66, 40, annexB({sps1080, pps})), ""},
        {payloadFormat("H264", 90000, 0,
                       {{"sprop-parameter-sets", "Z/QADZGWgUH7ARAAAAMAEAAAAwMg8UKq"}}),
         video(320, 240, 244, 13, annexB({Bytes{0x67, 0xf4, 0x00, 0x0d, 0x91, 0x96, 0x81, 0x41,
                                                0xfb, 0x01, 0x10, 0x00, 0x00, 0x03, 0x00, 0x10,
                                                0x00, 0x00, 0x03, 0x03, 0x20, 0xf1, 0x42, 0xaa}})),
         ""},
        {payloadFormat("H264", 90000, 0, {{"sprop-parameter-sets", "!!!,Z0LA"}}),
         video(0, 0, CodedFormat::kUnknownProfile, CodedFormat::kUnknownLevel,
               annexB({Bytes{0x67, 0x42, 0xc0}})),
         ""},
        {kAac, audio(ZR::fourcc("mp4a"), 48000, 2, 0, {0x11, 0x90}), ""},
        {payloadFormat("MPEG4-GENERIC", 44100, 0, {{"config", "1210"}, {"sizelength", "13"}}),
         audio(ZR::fourcc("mp4a"), 44100, 2, 0, {0x12, 0x10}), ""},
        {kL16, audio(ZR::fourcc("lpcm"), 44100, 2, 2, {}), ""},
        {payloadFormat("L16", 8000, 0), audio(ZR::fourcc("lpcm"), 8000, 1, 2, {}), ""},
        {payloadFormat("H264", 90000, 0, {{"packetization-mode", "2"}}), {}, "interleaved mode"},
        {payloadFormat("MPEG4-GENERIC", 48000, 2, {{"sizelength", "13"}}), {}, "config"},
        {payloadFormat("MPEG4-GENERIC", 48000, 2, {{"config", "1190"}}), {}, "sizeLength"},
        {payloadFormat("MPEG4-GENERIC", 48000, 2, {{"streamtype", "4"}, {"config", "1190"}}),
         {},
         "not audio"},
        {payloadFormat("VP8", 90000, 0), {}, "no depacketizer for VP8"},
        {payloadFormat("", 0, 0), {}, "has no rtpmap"},
    };
    for (const Row& row : rows) {
        const std::string name = row.payload.encoding + " " + std::string(row.refusal);
        CodedFormat format;
        std::string why;
        const bool made = CRtpDepacketizer::create(row.payload, format, why) != nullptr;
        ASSERT_EQ(made, row.expected.codec != 0) << name << ": " << why;
        if (!made) {
            EXPECT_NE(why.find(row.refusal), std::string::npos) << name << ": " << why;
            continue;
        }
        EXPECT_EQ(fields(format), fields(row.expected)) << name;
    }
}
