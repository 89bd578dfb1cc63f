// RTP packing throughput: a 1 MiB frame cut into 1400-byte slices, each packed (12-byte
// header plus payload) into a caller's buffer, beside a plain memcpy of the same slices
// into the same buffer. The difference is the cost of the header and the slice checks.
// items_per_second counts packets; bytes_per_second counts payload bytes.
//
// Between the two, the least any packer of these packets does: one call per packet that
// reads the packet's marker and sequence number (on another cache line of the packet than
// its slice) and writes a 12-byte header before the same memcpy. Its distance from the
// plain memcpy is the bound on how close packing can come to it.
#include <cm/CMRTP.h>

#include <benchmark/benchmark.h>

#include <cstdint>
#include <cstring>
#include <vector>

namespace {

using namespace ZR;
using namespace ZR::CM;

constexpr unsigned int kFrameSize = 1 << 20;
constexpr unsigned int kSlice = 1400;

struct Packetized {
    Packetized() {
        RPtr<RVideoFrame> media(RVideoFrame::create(kFrameSize));
        std::vector<unsigned char> bytes(kFrameSize);
        for (unsigned int i = 0; i < kFrameSize; ++i) {
            bytes[i] = static_cast<unsigned char>(i * 31);
        }
        media->setData(kFrameSize, bytes.data(), ConstructionCopy);
        media->setStartTime(12.5);
        frame = RRTPFrame::createWithFrame(media.addr());
        for (unsigned int offset = 0; offset < kFrameSize; offset += kSlice) {
            RRTPPacket* packet = RRTPPacket::createWithData(
                offset, offset + kSlice <= kFrameSize ? kSlice : kFrameSize - offset);
            packet->mSequenceNumber = static_cast<std::uint16_t>(offset / kSlice);
            frame->addPacket(packet);
        }
        frame->getPackets().back()->mMarker = 1;
        description = new RRTPDescription(new RVideoDescription());
        description->setDynamicPayload();
        description->mSSRC = 0x5EED;
        description->mClockRate = 90000;
    }
    RPtr<RRTPFrame> frame;
    RPtr<RRTPDescription> description;
};

const Packetized& packetized() {
    static const Packetized data;
    return data;
}

// Runs `step(packet, bytes, buffer)` for every packet of the frame in each iteration, and
// counts packets and payload bytes.
template <typename Step>
void eachPacket(benchmark::State& state, Step step) {
    const Packetized& data = packetized();
    const unsigned char* bytes = data.frame->getData();
    unsigned char buffer[RRTPPacket::kHeaderSize + kSlice];
    for (auto _ : state) {
        for (const RPtr<RRTPPacket>& packet : data.frame->getPackets()) {
            step(*packet, bytes, buffer);
            benchmark::DoNotOptimize(buffer);
        }
    }
    const auto packets = static_cast<int64_t>(data.frame->getPackets().size());
    state.SetItemsProcessed(state.iterations() * packets);
    state.SetBytesProcessed(state.iterations() * kFrameSize);
}

void BM_PackFrame(benchmark::State& state) {
    const Packetized& data = packetized();
    eachPacket(state,
               [&data](const RRTPPacket& packet, const unsigned char*, unsigned char* buffer) {
                   unsigned int size;
                   packet.pack(data.description.addr(), data.frame.addr(), buffer, &size);
                   benchmark::DoNotOptimize(size);
               });
}
BENCHMARK(BM_PackFrame);

void BM_MemcpySlices(benchmark::State& state) {
    eachPacket(
        state, [](const RRTPPacket& packet, const unsigned char* bytes, unsigned char* buffer) {
            std::memcpy(buffer + RRTPPacket::kHeaderSize, bytes + packet.mOffset, packet.mLength);
        });
}
BENCHMARK(BM_MemcpySlices);

// Out of line, as a packer in the library is to its caller.
[[gnu::noinline]] unsigned int copyWithLeastHeader(const RRTPPacket& packet,
                                                   const unsigned char* bytes,
                                                   unsigned char* buffer) {
    const std::uint32_t words[3] = {
        __builtin_bswap32(0x80000000u | (packet.mMarker & 1u) << 23 | packet.mSequenceNumber), 0,
        0};
    std::memcpy(buffer, words, sizeof words);
    std::memcpy(buffer + RRTPPacket::kHeaderSize, bytes + packet.mOffset, packet.mLength);
    return RRTPPacket::kHeaderSize + packet.mLength;
}

void BM_MemcpySlicesWithLeastHeader(benchmark::State& state) {
    eachPacket(state,
               [](const RRTPPacket& packet, const unsigned char* bytes, unsigned char* buffer) {
                   benchmark::DoNotOptimize(copyWithLeastHeader(packet, bytes, buffer));
               });
}
BENCHMARK(BM_MemcpySlicesWithLeastHeader);

}  // namespace

BENCHMARK_MAIN();
