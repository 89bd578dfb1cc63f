// The RTP packets of the packetizers, for their tests and the RTP exporter's: a packetizer
// run over frames, each packet read back as pack() writes it, a short readable form of a
// payload, and datagrams written as a capture file that tshark reads.
#ifndef CM_TESTS_SUPPORT_RTPPACKETS_H
#define CM_TESTS_SUPPORT_RTPPACKETS_H

#include <cm/CMComponent.h>
#include <cm/CMComponentConfiguration.h>
#include <cm/CMFrame.h>
#include <cm/CMRTP.h>

#include <string>
#include <vector>

namespace cmtest {

using Bytes = std::vector<unsigned char>;

struct Packetized {
    ZR::RPtr<const ZR::CM::RRTPDescription> description;  // null when none was published
    std::vector<Bytes> packets;                           // header and payload each
    ZR::CM::CComponentStatus status;
};

// Coded frames of the media ("vide" or "audi") and codec, one per payload, presented and
// decoded at start and then every step seconds; frame i is a key frame when keys[i] is set.
std::vector<ZR::RPtr<ZR::CM::RFrame>> timedFrames(unsigned int media, unsigned int codec,
                                                  const std::vector<Bytes>& payloads, double start,
                                                  double step, const std::vector<bool>& keys = {});

// Runs the packetizer, configured with settings ("mtu=256,payload-type=96"), over the
// frames of description; the packetizer is reset afterwards.
Packetized packetize(ZR::CM::CMMultipleQueueComponent& packetizer, const std::string& settings,
                     const ZR::CM::RDescription* description,
                     const std::vector<ZR::RPtr<ZR::CM::RFrame>>& frames);

// A packet's payload in hex after "M " when the marker is set; a payload of more than 32
// bytes shows its first four and its length ("7c85../216").
std::string describePayload(const Bytes& packet);
// The header fields of a packet.
unsigned int sequenceOf(const Bytes& packet);
unsigned int timestampOf(const Bytes& packet);

// A datagram that went to a port of 127.0.0.1.
struct Datagram {
    int port;
    Bytes bytes;
};
// Writes datagrams as a pcap file of raw IPv4/UDP packets from 127.0.0.1:srcPort.
void writePcap(const std::string& path, const std::vector<Datagram>& datagrams, int srcPort);

}  // namespace cmtest

#endif
