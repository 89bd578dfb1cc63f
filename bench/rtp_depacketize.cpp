// RTP receiving throughput per codec, on packets shaped like a 1080p camera's and a live
// encoder's audio: H.264 in 1400-byte FU-A fragments (a 60 kB key frame and 8 kB pictures)
// and as single NAL units of 1000 bytes, AAC-hbr with one 340-byte access unit per packet,
// and L16 stereo in 1400-byte packets. Three figures each:
//   Memcpy       copying the packets' bytes into one buffer, the floor of any receiver
//   Depacketize  taking each packet apart and putting its access units together
//   Receive      the whole way a packet goes in the importer: parse, reorder window,
//                depacketizer, timing and a new coded frame per access unit
// items_per_second counts packets; bytes_per_second counts the packets' bytes.
#include "rtsp.importer/RtpDepacketizer.h"
#include "rtsp.importer/RtpTrack.h"

#include <benchmark/benchmark.h>

#include <cm/CMFrame.h>

#include <cstring>
#include <string>
#include <vector>

namespace {

using namespace cmcomponents;
using Bytes = std::vector<unsigned char>;

Bytes packet(std::uint16_t sequence, std::uint32_t timestamp, bool marker, const Bytes& payload) {
    Bytes bytes{0x80,
                static_cast<unsigned char>((marker ? 0x80 : 0) | 96),
                static_cast<unsigned char>(sequence >> 8),
                static_cast<unsigned char>(sequence),
                static_cast<unsigned char>(timestamp >> 24),
                static_cast<unsigned char>(timestamp >> 16),
                static_cast<unsigned char>(timestamp >> 8),
                static_cast<unsigned char>(timestamp),
                1,
                2,
                3,
                4};
    bytes.insert(bytes.end(), payload.begin(), payload.end());
    return bytes;
}

Bytes content(std::size_t size, unsigned char seed) {
    Bytes bytes(size);
    for (std::size_t i = 0; i < size; ++i) {
        bytes[i] = static_cast<unsigned char>(i * 31 + seed);
    }
    return bytes;
}

struct Stream {
    CRtpPayloadFormat format;
    std::vector<Bytes> packets;
    std::size_t bytes = 0;
    std::uint32_t span = 0;  // RTP time the packets cover
};

void add(Stream& stream, std::uint32_t timestamp, bool marker, const Bytes& payload) {
    stream.packets.push_back(
        packet(static_cast<std::uint16_t>(stream.packets.size()), timestamp, marker, payload));
    stream.bytes += stream.packets.back().size();
}

// A key frame and 24 pictures, each NAL unit in FU-A fragments of 1400 bytes.
Stream h264Fragments() {
    Stream stream;
    stream.format.encoding = "H264";
    stream.format.clockRate = 90000;
    for (int picture = 0; picture < 25; ++picture) {
        Bytes nal = content(picture == 0 ? 60000 : 8000, static_cast<unsigned char>(picture));
        nal[0] = picture == 0 ? 0x65 : 0x41;
        for (std::size_t offset = 1; offset < nal.size(); offset += 1400) {
            const std::size_t end = std::min(offset + 1400, nal.size());
            Bytes payload{
                static_cast<unsigned char>((nal[0] & 0xE0) | 28),
                static_cast<unsigned char>((offset == 1 ? 0x80 : 0) |
                                           (end == nal.size() ? 0x40 : 0) | (nal[0] & 0x1F))};
            payload.insert(payload.end(), nal.begin() + static_cast<std::ptrdiff_t>(offset),
                           nal.begin() + static_cast<std::ptrdiff_t>(end));
            add(stream, 3600u * picture, end == nal.size(), payload);
        }
    }
    stream.span = 25 * 3600;
    return stream;
}

// Pictures of eight 1000-byte slices, each slice a packet of its own.
Stream h264Slices() {
    Stream stream;
    stream.format.encoding = "H264";
    stream.format.clockRate = 90000;
    for (int picture = 0; picture < 25; ++picture) {
        for (int slice = 0; slice < 8; ++slice) {
            Bytes nal = content(1000, static_cast<unsigned char>(slice));
            nal[0] = picture == 0 ? 0x65 : 0x41;
            add(stream, 3600u * picture, slice == 7, nal);
        }
    }
    stream.span = 25 * 3600;
    return stream;
}

Stream aac() {
    Stream stream;
    stream.format.encoding = "MPEG4-GENERIC";
    stream.format.clockRate = 48000;
    stream.format.channels = 2;
    stream.format.parameters = {
        {"config", "1190"}, {"sizelength", "13"}, {"indexlength", "3"}, {"indexdeltalength", "3"}};
    for (int unit = 0; unit < 200; ++unit) {
        Bytes payload{0x00, 0x10, 340 >> 5, (340 & 0x1F) << 3};
        const Bytes bytes = content(340, static_cast<unsigned char>(unit));
        payload.insert(payload.end(), bytes.begin(), bytes.end());
        add(stream, 1024u * unit, true, payload);
    }
    stream.span = 200 * 1024;
    return stream;
}

Stream l16() {
    Stream stream;
    stream.format.encoding = "L16";
    stream.format.clockRate = 48000;
    stream.format.channels = 2;
    for (int unit = 0; unit < 200; ++unit) {
        add(stream, 350u * unit, false, content(1400, static_cast<unsigned char>(unit)));
    }
    stream.span = 200 * 350;
    return stream;
}

const Stream& streamOf(int codec) {
    static const Stream streams[] = {h264Fragments(), h264Slices(), aac(), l16()};
    return streams[codec];
}

const char* const kNames[] = {"H264FuA", "H264Single", "Aac", "L16"};

void count(benchmark::State& state, const Stream& stream) {
    state.SetItemsProcessed(state.iterations() * static_cast<int64_t>(stream.packets.size()));
    state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(stream.bytes));
    state.SetLabel(kNames[state.range(0)]);
}

void BM_Memcpy(benchmark::State& state) {
    const Stream& stream = streamOf(static_cast<int>(state.range(0)));
    Bytes buffer(65536);
    for (auto _ : state) {
        for (const Bytes& bytes : stream.packets) {
            std::memcpy(buffer.data(), bytes.data(), bytes.size());
            benchmark::ClobberMemory();
        }
    }
    count(state, stream);
}
BENCHMARK(BM_Memcpy)->DenseRange(0, 3);

class Discard : public CRtpDepacketizer::Sink, public CRtpTrack::FrameSink {
public:
    void take(const CRtpAccessUnit& unit) override { benchmark::DoNotOptimize(unit.data); }
    void frame(CRtpTrack&, ZR::RPtr<ZR::CM::RFrame> frame) override {
        benchmark::DoNotOptimize(frame->getData());
    }
};

void BM_Depacketize(benchmark::State& state) {
    const Stream& stream = streamOf(static_cast<int>(state.range(0)));
    CodedFormat format;
    std::string why;
    std::unique_ptr<CRtpDepacketizer> depacketizer =
        CRtpDepacketizer::create(stream.format, format, why);
    Discard sink;
    for (auto _ : state) {
        for (const Bytes& bytes : stream.packets) {
            CRtpPacket parsed;
            parsed.parse(bytes.data(), bytes.size());
            depacketizer->push(parsed, false, sink);
        }
    }
    count(state, stream);
}
BENCHMARK(BM_Depacketize)->DenseRange(0, 3);

void BM_Receive(benchmark::State& state) {
    const Stream& stream = streamOf(static_cast<int>(state.range(0)));
    CodedFormat format;
    std::string why;
    CRtpTrack track(CRtpDepacketizer::create(stream.format, format, why), format, 96);
    Discard sink;
    // The stream repeats with its sequence numbers and timestamps moved on, as a live one.
    std::vector<Bytes> packets = stream.packets;
    std::uint16_t sequence = 0;
    std::uint32_t timestamp = 0;
    for (auto _ : state) {
        for (Bytes& bytes : packets) {
            const std::uint32_t original = (std::uint32_t{bytes[4]} << 24) |
                                           (std::uint32_t{bytes[5]} << 16) |
                                           (std::uint32_t{bytes[6]} << 8) | bytes[7];
            const std::uint32_t moved = original + timestamp;
            bytes[2] = static_cast<unsigned char>(sequence >> 8);
            bytes[3] = static_cast<unsigned char>(sequence++);
            for (int i = 0; i < 4; ++i) {
                bytes[4 + i] = static_cast<unsigned char>(moved >> (24 - 8 * i));
            }
            track.receive(bytes.data(), bytes.size(), 0.0, sink);
            for (int i = 0; i < 4; ++i) {
                bytes[4 + i] = static_cast<unsigned char>(original >> (24 - 8 * i));
            }
        }
        timestamp += stream.span;
    }
    count(state, stream);
}
BENCHMARK(BM_Receive)->DenseRange(0, 3);

}  // namespace

BENCHMARK_MAIN();
