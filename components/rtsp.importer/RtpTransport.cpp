#include "rtsp.importer/RtpTransport.h"

#include <arpa/inet.h>
#include <poll.h>
#include <strings.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>

namespace cmcomponents {

namespace {

constexpr std::size_t kLargestDatagram = 65536;
// Room for a burst of a high-rate stream while the receiving thread is busy elsewhere; the
// system may grant less.
constexpr int kReceiveBufferBytes = 4 << 20;
constexpr int kBindAttempts = 64;

int boundSocket(int port) {
    const int fd = ::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    if (fd < 0) {
        return -1;
    }
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_ANY);
    address.sin_port = htons(static_cast<std::uint16_t>(port));
    if (::bind(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
        ::close(fd);
        return -1;
    }
    return fd;
}

int portOf(int fd) {
    sockaddr_in address{};
    socklen_t length = sizeof address;
    if (::getsockname(fd, reinterpret_cast<sockaddr*>(&address), &length) != 0) {
        return 0;
    }
    return ntohs(address.sin_port);
}

bool transient(int error) {
    return error == EAGAIN || error == EWOULDBLOCK || error == EINTR;
}

}  // namespace

// ---------------------------------------------------------------------------------------------
// CUdpTransport

CUdpTransport::~CUdpTransport() {
    for (Track& track : mTracks) {
        for (const int fd : track.sockets) {
            if (fd >= 0) {
                ::close(fd);
            }
        }
    }
}

bool CUdpTransport::bindPair(Track& track) {
    for (int attempt = 0; attempt < kBindAttempts; ++attempt) {
        const int rtp = boundSocket(0);
        const int port = rtp >= 0 ? portOf(rtp) : 0;
        const int rtcp = port > 0 && port % 2 == 0 && port < 65535 ? boundSocket(port + 1) : -1;
        if (rtcp >= 0) {
            ::setsockopt(rtp, SOL_SOCKET, SO_RCVBUF, &kReceiveBufferBytes,
                         sizeof kReceiveBufferBytes);
            track.sockets[0] = rtp;
            track.sockets[1] = rtcp;
            track.port = port;
            return true;
        }
        if (rtp >= 0) {
            ::close(rtp);
        }
    }
    return false;
}

bool CUdpTransport::open(std::size_t tracks, std::string& why) {
    mTracks.resize(tracks);
    for (Track& track : mTracks) {
        if (!bindPair(track)) {
            why = std::string("no pair of UDP ports to receive on: ") + std::strerror(errno);
            return false;
        }
    }
    for (const Track& track : mTracks) {
        for (const int fd : track.sockets) {
            mPolled.push_back(pollfd{fd, POLLIN, 0});
        }
    }
    mBuffer.resize(kLargestDatagram);
    return true;
}

CRtpTransport::Wait CUdpTransport::receive(Packet& packet, int timeoutMilliseconds,
                                           std::string& why) {
    const std::size_t count = mPolled.size();
    const int ready = ::poll(mPolled.data(), count, timeoutMilliseconds);
    if (ready <= 0) {
        if (ready < 0 && !transient(errno)) {
            why = std::string("waiting for packets failed: ") + std::strerror(errno);
            return Wait::kClosed;
        }
        return Wait::kNothing;
    }
    for (std::size_t k = 0; k < count; ++k) {
        const std::size_t i = (mNext + k) % count;
        if ((mPolled[i].revents & POLLIN) == 0) {
            continue;
        }
        Track& track = mTracks[i / 2];
        sockaddr_in from{};
        socklen_t length = sizeof from;
        const ssize_t got = ::recvfrom(mPolled[i].fd, mBuffer.data(), mBuffer.size(), MSG_DONTWAIT,
                                       reinterpret_cast<sockaddr*>(&from), &length);
        if (got < 0) {
            continue;
        }
        mNext = i + 1;
        if (i % 2 == 0 && !track.haveServer) {
            track.server = from;
            track.haveServer = true;
        }
        packet = Packet{i / 2, i % 2 == 1, mBuffer.data(), static_cast<std::size_t>(got)};
        return Wait::kPacket;
    }
    return Wait::kNothing;
}

void CUdpTransport::sendControl(std::size_t track, const std::vector<unsigned char>& packet) {
    Track& t = mTracks[track];
    if (!t.haveServer || t.serverControlPort <= 0) {
        return;
    }
    sockaddr_in to = t.server;
    to.sin_port = htons(static_cast<std::uint16_t>(t.serverControlPort));
    ::sendto(t.sockets[1], packet.data(), packet.size(), MSG_DONTWAIT,
             reinterpret_cast<const sockaddr*>(&to), sizeof to);
}

// ---------------------------------------------------------------------------------------------
// CInterleavedTransport

namespace {

constexpr std::size_t kInterleavedBuffer = 1u << 17;  // twice the largest frame
constexpr std::size_t kFrameHeader = 4;

// The end of the header block at the start of [bytes, bytes + size): the offset after its
// empty line, or 0 when it has not come yet.
std::size_t headerEnd(const unsigned char* bytes, std::size_t size) {
    for (std::size_t i = 0; i + 1 < size; ++i) {
        if (bytes[i] != '\n') {
            continue;
        }
        if (bytes[i + 1] == '\n') {
            return i + 2;
        }
        if (bytes[i + 1] == '\r' && i + 2 < size && bytes[i + 2] == '\n') {
            return i + 3;
        }
    }
    return 0;
}

// The Content-Length of a header block, 0 when it has none.
long contentLength(const unsigned char* bytes, std::size_t size) {
    static const char kName[] = "\ncontent-length:";
    const std::string text(reinterpret_cast<const char*>(bytes), size);
    for (std::size_t at = text.find('\n'); at != std::string::npos; at = text.find('\n', at + 1)) {
        if (strncasecmp(text.c_str() + at, kName, sizeof kName - 1) == 0) {
            const long length = std::strtol(text.c_str() + at + sizeof kName - 1, nullptr, 10);
            return std::max(length, 0L);
        }
    }
    return 0;
}

}  // namespace

CInterleavedTransport::CInterleavedTransport(ZR::RSocket& socket,
                                             const std::vector<unsigned char>& early)
    : mSocket(socket), mBuffer(kInterleavedBuffer) {
    mEnd = std::min(early.size(), mBuffer.size());
    std::copy_n(early.begin(), mEnd, mBuffer.begin());
}

void CInterleavedTransport::mapChannel(int channel, std::size_t track, bool control) {
    if (channel >= 0 && channel < 256) {
        mChannels[channel] = Channel{true, track, control};
    }
}

CRtpTransport::Wait CInterleavedTransport::receive(Packet& packet, int timeoutMilliseconds,
                                                   std::string& why) {
    mBegin += mConsumed;
    mConsumed = 0;
    for (;;) {
        switch (parse(packet, why)) {
            case Parse::kPacket:
                return Wait::kPacket;
            case Parse::kSkipped:
                break;
            case Parse::kBroken:
                return Wait::kClosed;
            case Parse::kNeedMore:
                if (const Wait wait = fill(timeoutMilliseconds, why); wait != Wait::kPacket) {
                    return wait;
                }
                break;
        }
    }
}

CInterleavedTransport::Parse CInterleavedTransport::parse(Packet& packet, std::string& why) {
    const std::size_t available = mEnd - mBegin;
    const unsigned char* bytes = mBuffer.data() + mBegin;
    if (available == 0) {
        return Parse::kNeedMore;
    }
    if (bytes[0] == '\r' || bytes[0] == '\n') {  // a blank line between messages
        ++mBegin;
        return Parse::kSkipped;
    }
    if (bytes[0] != '$') {
        return skipMessage(why);
    }
    if (available < kFrameHeader) {
        return Parse::kNeedMore;
    }
    const std::size_t length = (std::size_t{bytes[2]} << 8) | bytes[3];
    if (available < kFrameHeader + length) {
        return Parse::kNeedMore;
    }
    const Channel& channel = mChannels[bytes[1]];
    if (!channel.used) {
        mBegin += kFrameHeader + length;
        return Parse::kSkipped;
    }
    mConsumed = kFrameHeader + length;
    packet = Packet{channel.track, channel.control, bytes + kFrameHeader, length};
    return Parse::kPacket;
}

CInterleavedTransport::Parse CInterleavedTransport::skipMessage(std::string& why) {
    const std::size_t available = mEnd - mBegin;
    const unsigned char* bytes = mBuffer.data() + mBegin;
    // A reply begins "RTSP/1.0", a request from the server with its method.
    if (bytes[0] < 'A' || bytes[0] > 'Z') {
        why = "the server sent bytes that are neither interleaved media nor an RTSP message";
        return Parse::kBroken;
    }
    const std::size_t end = headerEnd(bytes, std::min(available, kMaxMessageHeader));
    if (end == 0) {
        if (available < kMaxMessageHeader) {
            return Parse::kNeedMore;
        }
        why = "the server sent an RTSP message whose header does not end";
        return Parse::kBroken;
    }
    const auto body = static_cast<std::size_t>(contentLength(bytes, end));
    if (body > kMaxMessageBody) {
        why = "the server sent an RTSP message with a body of " + std::to_string(body) + " bytes";
        return Parse::kBroken;
    }
    if (available < end + body) {
        return Parse::kNeedMore;
    }
    mBegin += end + body;
    return Parse::kSkipped;
}

// kPacket here means that more bytes have come.
CRtpTransport::Wait CInterleavedTransport::fill(int timeoutMilliseconds, std::string& why) {
    if (mBegin > 0) {
        std::copy(mBuffer.begin() + static_cast<std::ptrdiff_t>(mBegin),
                  mBuffer.begin() + static_cast<std::ptrdiff_t>(mEnd), mBuffer.begin());
        mEnd -= mBegin;
        mBegin = 0;
    }
    if (mSocket.getReceiveTimeout() != timeoutMilliseconds) {
        mSocket.setReceiveTimeout(timeoutMilliseconds);
    }
    const int got = mSocket.read2(mBuffer.data() + mEnd, static_cast<int>(mBuffer.size() - mEnd));
    if (got > 0) {
        mEnd += static_cast<std::size_t>(got);
        return Wait::kPacket;
    }
    if (got < 0 && transient(errno)) {
        return Wait::kNothing;
    }
    why = got == 0 ? "the server closed the connection"
                   : std::string("reading the connection failed: ") + std::strerror(errno);
    return Wait::kClosed;
}

void CInterleavedTransport::sendControl(std::size_t track,
                                        const std::vector<unsigned char>& packet) {
    for (int channel = 0; channel < 256; ++channel) {
        const Channel& c = mChannels[channel];
        if (c.used && c.control && c.track == track && packet.size() <= 65535) {
            std::vector<unsigned char> frame{'$', static_cast<unsigned char>(channel),
                                             static_cast<unsigned char>(packet.size() >> 8),
                                             static_cast<unsigned char>(packet.size())};
            frame.insert(frame.end(), packet.begin(), packet.end());
            mSocket.send(frame.data(), static_cast<int>(frame.size()));
            return;
        }
    }
}

}  // namespace cmcomponents
