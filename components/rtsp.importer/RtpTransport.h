// The ways the packets of an RTSP session reach the receiver: CUdpTransport, a pair of UDP
// ports per track (RTP on the even one, RTCP on the next), and CInterleavedTransport, the
// RTSP connection itself, where each packet comes framed as '$', a channel byte and a
// 16-bit length, between the replies to requests sent during the play.
//
// receive() waits a bounded time for the next packet, so the caller can look at its own
// state in between; the packet's bytes are valid until the next call. Interleaved, the
// server's RTSP messages are read past (the caller posts its requests without waiting
// for their replies), a frame on a channel that no track uses is skipped, and anything
// that is neither a frame nor a message of a bounded size ends the transport with a
// reason. sendControl() carries the receiver's RTCP back the same way.
//
// Belongs to the thread that receives the session; no lock. The interleaved transport
// reads the connection of an RTSP session that must outlive it.
#ifndef CM_COMPONENTS_RTSPIMPORTER_RTPTRANSPORT_H
#define CM_COMPONENTS_RTSPIMPORTER_RTPTRANSPORT_H

#include <zr/RSocket.h>

#include <netinet/in.h>
#include <poll.h>

#include <cstddef>
#include <string>
#include <vector>

namespace cmcomponents {

class CRtpTransport {
public:
    struct Packet {
        std::size_t track = 0;
        bool control = false;  // RTCP
        const unsigned char* data = nullptr;
        std::size_t size = 0;
    };
    enum class Wait {
        kPacket,   // packet holds one
        kNothing,  // nothing came in time
        kClosed,   // nothing more will come; why says why
    };

    virtual ~CRtpTransport() = default;

    virtual Wait receive(Packet& packet, int timeoutMilliseconds, std::string& why) = 0;
    virtual void sendControl(std::size_t track, const std::vector<unsigned char>& packet) = 0;
};

class CUdpTransport : public CRtpTransport {
public:
    CUdpTransport() = default;
    ~CUdpTransport() override;
    CUdpTransport(const CUdpTransport&) = delete;
    CUdpTransport& operator=(const CUdpTransport&) = delete;

    // Binds a pair of ports for each of `tracks` tracks: false with why when the system
    // gives none.
    bool open(std::size_t tracks, std::string& why);
    // The RTP port of the track (its RTCP port is the next).
    int port(std::size_t track) const { return mTracks[track].port; }
    // Where the server takes the track's RTCP: its port; the address is the one its RTP
    // comes from.
    void setServerControlPort(std::size_t track, int port) {
        mTracks[track].serverControlPort = port;
    }

    Wait receive(Packet& packet, int timeoutMilliseconds, std::string& why) override;
    void sendControl(std::size_t track, const std::vector<unsigned char>& packet) override;

private:
    struct Track {
        int sockets[2] = {-1, -1};  // RTP, RTCP
        int port = 0;
        int serverControlPort = 0;
        bool haveServer = false;
        sockaddr_in server{};  // where its RTP came from
    };

    // Binds an even port and the one after it.
    static bool bindPair(Track& track);

    std::vector<Track> mTracks;
    std::vector<pollfd> mPolled;  // RTP and RTCP of each track in turn
    std::vector<unsigned char> mBuffer;
    std::size_t mNext = 0;  // the socket read first on the next call, for fairness
};

class CInterleavedTransport : public CRtpTransport {
public:
    // socket: the RTSP connection; early: bytes that came in with the reply to PLAY.
    CInterleavedTransport(ZR::RSocket& socket, const std::vector<unsigned char>& early);

    // Frames on channel carry the track's RTP, or its RTCP when control is set.
    void mapChannel(int channel, std::size_t track, bool control);

    Wait receive(Packet& packet, int timeoutMilliseconds, std::string& why) override;
    void sendControl(std::size_t track, const std::vector<unsigned char>& packet) override;

private:
    // Largest header block of an RTSP message in the stream, and its largest body.
    static constexpr std::size_t kMaxMessageHeader = 8192;
    static constexpr std::size_t kMaxMessageBody = 65536;

    struct Channel {
        bool used = false;
        std::size_t track = 0;
        bool control = false;
    };

    // What the buffered bytes begin with.
    enum class Parse { kPacket, kSkipped, kNeedMore, kBroken };
    Parse parse(Packet& packet, std::string& why);
    Parse skipMessage(std::string& why);
    // Reads more from the connection into the buffer.
    Wait fill(int timeoutMilliseconds, std::string& why);

    ZR::RSocket& mSocket;
    Channel mChannels[256];
    std::vector<unsigned char> mBuffer;
    std::size_t mBegin = 0;     // first unread byte
    std::size_t mEnd = 0;       // end of the bytes read
    std::size_t mConsumed = 0;  // bytes of the packet handed out, dropped on the next call
};

}  // namespace cmcomponents

#endif
