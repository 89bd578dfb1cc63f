// The receiving half of an RTSP session without the network: a session description, then
// packets for its tracks. The description is parsed and each media block that has a
// depacketizer becomes a track (sprop-parameter-sets, sequence parameter sets and AAC
// configurations read on the way); each packet then goes through its track's reorder
// buffer, depacketizer and timing, and every frame that comes out is read whole.
//
// Input: the description as text up to a NUL, then packets, each a track byte (taken
// modulo the tracks), a 16-bit little-endian length and that many bytes (fewer at the end).
#include "FuzzInput.h"

#include "rtsp.importer/RtpDepacketizer.h"
#include "rtsp.importer/RtpTrack.h"
#include "rtsp.importer/SdpSession.h"

#include <cm/CMFrame.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace {

// Reads every byte of every frame, so that a frame reaching past its data shows.
class Reader : public cmcomponents::CRtpTrack::FrameSink {
public:
    void frame(cmcomponents::CRtpTrack&, ZR::RPtr<ZR::CM::RFrame> frame) override {
        const unsigned char* data = frame->getData();
        for (unsigned int i = 0; i < frame->getSize(); ++i) {
            mSum += data[i];
        }
    }

private:
    unsigned int mSum = 0;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    FuzzInput input(data, size);
    cmcomponents::CSdpSession session;
    if (!session.parse(input.text())) {
        return 0;
    }
    std::vector<std::unique_ptr<cmcomponents::CRtpTrack>> tracks;
    for (const cmcomponents::CSdpMedia& media : session.media) {
        cmcomponents::CodedFormat format;
        std::string why;
        auto depacketizer = cmcomponents::CRtpDepacketizer::create(media.format, format, why);
        if (depacketizer) {
            tracks.emplace_back(new cmcomponents::CRtpTrack(std::move(depacketizer), format,
                                                            media.format.payloadType));
        }
    }
    if (tracks.empty()) {
        return 0;
    }
    Reader reader;
    double arrival = 0.0;
    while (!input.empty()) {
        cmcomponents::CRtpTrack& track = *tracks[input.take<std::uint8_t>() % tracks.size()];
        const std::size_t length = input.take<std::uint16_t>();
        std::vector<unsigned char> packet;
        while (packet.size() < length && !input.empty()) {
            packet.push_back(input.take<std::uint8_t>());
        }
        track.receive(packet.data(), packet.size(), arrival, reader);
        arrival += 0.001;
    }
    for (const auto& track : tracks) {
        track->finish(reader);
        track->format();
        track->summary();
    }
    return 0;
}
