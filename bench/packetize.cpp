// Packetizing throughput of the H.264, AAC and Opus packetizers, each run as a component
// (its own thread, an input and an output queue) over a batch of frames shaped like a real
// stream's, beside a plain memcpy of the same bytes in the same MTU-sized pieces. The
// difference is the cost of the packetizer: reading and splitting the units, laying out
// the payload headers, one RRTPPacket per packet, one RRTPFrame per frame and the queues.
// items_per_second counts packets; bytes_per_second counts media bytes.
//
// The H.264 batch is 1080p-like: a 90 KB key frame every 50 frames and 20 KB frames between,
// each one slice in Annex B form, so most packets are FU-A fragments. AAC: 370-byte units
// (128 kbit/s at 48 kHz). Opus: 160-byte packets (64 kbit/s, 20 ms).
#include "aac.packetizer/AacPacketizer.h"
#include "h264.packetizer/H264Packetizer.h"
#include "opus.packetizer/OpusPacketizer.h"

#include <cm/CMQueue.h>
#include <cm/CMQueueRW.h>

#include <benchmark/benchmark.h>

#include <cstring>
#include <thread>
#include <vector>

namespace {

using namespace ZR;
using namespace ZR::CM;
using namespace cmcomponents;

constexpr unsigned int kMTU = 1400;
constexpr unsigned int kBatch = 250;  // frames per iteration

struct Stream {
    CodedFormat format;
    std::vector<std::vector<unsigned char>> payloads;
    unsigned int packetsPerBatch = 0;  // counted by the first run
};

std::vector<unsigned char> filler(std::size_t size, unsigned char header) {
    std::vector<unsigned char> bytes(size);
    for (std::size_t i = 0; i < size; ++i) {
        bytes[i] = static_cast<unsigned char>(i * 31 | 1);  // no start code inside
    }
    bytes[0] = header;
    return bytes;
}

Stream h264Stream() {
    Stream s;
    s.format.media = fourcc("vide");
    s.format.codec = fourcc("avc1");
    s.format.width = 1920;
    s.format.height = 1080;
    const std::vector<unsigned char> sets = {0, 0, 0, 1, 0x67, 0x64, 0x00, 0x28, 0xac,
                                             0, 0, 0, 1, 0x68, 0xee, 0x3c, 0x80};
    s.format.privateData = sets;
    for (unsigned int i = 0; i < kBatch; ++i) {
        std::vector<unsigned char> frame = {0, 0, 0, 1};
        const std::vector<unsigned char> slice =
            filler(i % 50 == 0 ? 90000 : 20000, i % 50 == 0 ? 0x65 : 0x41);
        frame.insert(frame.end(), slice.begin(), slice.end());
        s.payloads.push_back(frame);
    }
    return s;
}

Stream audioStream(unsigned int codec, std::size_t size) {
    Stream s;
    s.format.media = fourcc("audi");
    s.format.codec = codec;
    s.format.channels = 2;
    s.format.sampleRate = 48000;
    if (codec == fourcc("mp4a")) {
        s.format.privateData = {0x11, 0x90};
    }
    for (unsigned int i = 0; i < kBatch; ++i) {
        s.payloads.push_back(filler(size, 0xfc));
    }
    return s;
}

// Runs the packetizer over the frames; the packets it made.
unsigned int packetizeBatch(CMMultipleQueueComponent& packetizer, const RDescription& description,
                            const std::vector<RPtr<RFrame>>& frames) {
    RPtr<RQueue> in(new RQueue(8, 32, CString("in")));
    RPtr<RQueue> out(new RQueue(8, 32, CString("out")));
    std::vector<RQueue*> inputs{in.addr()}, outputs{out.addr()};
    packetizer.init(inputs, outputs);
    RPtr<RQFrameReader> reader(new RQFrameReader(out.addr(), nullptr));
    packetizer.start(nullptr);
    std::thread feeder([&] {
        RPtr<RQFrameWriter> writer(new RQFrameWriter(in.addr(), nullptr));
        writer->setDescriptionP(&description);
        for (const RPtr<RFrame>& frame : frames) {
            writer->putP(frame.addr());
        }
        writer->end();
    });
    unsigned int packets = 0;
    while (const RQNode* node = reader->nextNode()) {
        packets +=
            static_cast<unsigned int>(static_cast<const RRTPFrame*>(node)->getPackets().size());
    }
    feeder.join();
    packetizer.join();
    packetizer.reset();
    return packets;
}

template <typename Packetizer>
CMMultipleQueueComponent* make() {
    return new Packetizer;
}

void BM_Packetize(benchmark::State& state, Stream stream, CMMultipleQueueComponent* (*make)()) {
    const RPtr<RDescription> description(stream.format.createDescription());
    RPtr<CMMultipleQueueComponent> packetizer(make());
    std::size_t bytes = 0;
    for (auto _ : state) {
        state.PauseTiming();
        // A queue takes frames that are in no other queue: new ones for every batch.
        std::vector<RPtr<RFrame>> frames;
        for (unsigned int i = 0; i < kBatch; ++i) {
            CodedFrameTimes times;
            times.start = times.decode = i / 50.0;
            times.key = i % 50 == 0;
            const std::vector<unsigned char>& payload = stream.payloads[i];
            frames.emplace_back(createCodedFrame(stream.format.media, stream.format.codec,
                                                 payload.data(),
                                                 static_cast<unsigned int>(payload.size()), times));
            bytes += payload.size();
        }
        state.ResumeTiming();
        stream.packetsPerBatch = packetizeBatch(*packetizer, *description, frames);
    }
    state.SetItemsProcessed(state.iterations() * stream.packetsPerBatch);
    state.SetBytesProcessed(static_cast<int64_t>(bytes));
}

// The same bytes copied in payload-sized pieces into a packet buffer.
void BM_MemcpyPieces(benchmark::State& state, Stream stream) {
    constexpr unsigned int kPiece = kMTU - 40;
    unsigned char buffer[kMTU];
    std::size_t bytes = 0;
    int64_t packets = 0;
    for (auto _ : state) {
        for (const std::vector<unsigned char>& payload : stream.payloads) {
            for (std::size_t at = 0; at < payload.size(); at += kPiece) {
                const std::size_t n = std::min<std::size_t>(kPiece, payload.size() - at);
                std::memcpy(buffer + 12, payload.data() + at, n);
                benchmark::DoNotOptimize(buffer);
                ++packets;
            }
            bytes += payload.size();
        }
    }
    state.SetItemsProcessed(packets);
    state.SetBytesProcessed(static_cast<int64_t>(bytes));
}

BENCHMARK_CAPTURE(BM_Packetize, h264, h264Stream(), &make<RH264Packetizer>)->UseRealTime();
BENCHMARK_CAPTURE(BM_MemcpyPieces, h264, h264Stream());
BENCHMARK_CAPTURE(BM_Packetize, aac, audioStream(fourcc("mp4a"), 370), &make<RAacPacketizer>)
    ->UseRealTime();
BENCHMARK_CAPTURE(BM_MemcpyPieces, aac, audioStream(fourcc("mp4a"), 370));
BENCHMARK_CAPTURE(BM_Packetize, opus, audioStream(fourcc("Opus"), 160), &make<ROpusPacketizer>)
    ->UseRealTime();
BENCHMARK_CAPTURE(BM_MemcpyPieces, opus, audioStream(fourcc("Opus"), 160));

}  // namespace

BENCHMARK_MAIN();
