#include "rtp.exporter/SenderReport.h"

#include <cmath>
#include <cstring>

namespace cmcomponents {

namespace {

// NTP's era begins in 1900, seventy years (seventeen of them leap years) before 1970.
constexpr double kNtpToUnix = 2208988800.0;
constexpr unsigned int kSenderReport = 200;
constexpr unsigned int kSourceDescription = 202;
constexpr unsigned int kCname = 1;

unsigned char* put16(unsigned char* out, unsigned int value) {
    out[0] = static_cast<unsigned char>(value >> 8);
    out[1] = static_cast<unsigned char>(value);
    return out + 2;
}

unsigned char* put32(unsigned char* out, std::uint32_t value) {
    return put16(put16(out, value >> 16), value & 0xFFFF);
}

}  // namespace

std::size_t writeSenderReport(const SenderReport& report, const std::string& cname,
                              unsigned char* out, std::size_t capacity) {
    constexpr std::size_t kReportSize = 28;
    // The SDES chunk: SSRC, the item's type, length and text, and at least one zero byte
    // ending the item list, up to a whole 32-bit word.
    const std::size_t chunk = (4 + 2 + cname.size() + 1 + 3) / 4 * 4;
    const std::size_t total = kReportSize + 4 + chunk;
    if (cname.size() > 255 || total > capacity) {
        return 0;
    }
    std::memset(out, 0, total);
    const double ntp = report.wallClock + kNtpToUnix;
    const double seconds = std::floor(ntp);
    unsigned char* at = out;
    *at++ = 0x80;  // version 2, no padding, no report blocks
    *at++ = kSenderReport;
    at = put16(at, kReportSize / 4 - 1);
    at = put32(at, report.ssrc);
    at = put32(at, static_cast<std::uint32_t>(static_cast<std::uint64_t>(seconds)));
    at = put32(at, static_cast<std::uint32_t>((ntp - seconds) * 4294967296.0));
    at = put32(at, report.rtpTimestamp);
    at = put32(at, report.packets);
    at = put32(at, report.octets);
    *at++ = 0x81;  // version 2, one chunk
    *at++ = kSourceDescription;
    at = put16(at, static_cast<unsigned int>((4 + chunk) / 4 - 1));
    at = put32(at, report.ssrc);
    *at++ = kCname;
    *at++ = static_cast<unsigned char>(cname.size());
    std::memcpy(at, cname.data(), cname.size());
    return total;
}

}  // namespace cmcomponents
