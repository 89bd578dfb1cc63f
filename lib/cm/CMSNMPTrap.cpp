#include <cm/CMSNMPTrap.h>

#include <cm/CMLogger.h>
#include <zr/CException.h>

#include <sys/time.h>

#include <cstdlib>
#include <cstring>

namespace ZR {
namespace CM {

namespace {

constexpr const char* kSource = "lib/cm/CMSNMPTrap";

enum Tag : unsigned char {
    kInteger = 0x02,
    kOctetString = 0x04,
    kObjectIdentifier = 0x06,
    kSequence = 0x30,
    kTimeTicks = 0x43,
    kTrapPDU = 0xA7,
};

constexpr unsigned long kRequestId = 0x87D61200UL;

// Bytes needed for a value whose bits from 8 * n up are clear: 1 to 4, and 4 for anything
// with a bit from 24 up.
int byteCount(unsigned long v) {
    if (v & ~0xFFFFFFUL) {
        return 4;
    }
    if (v & 0xFF0000UL) {
        return 3;
    }
    return (v & 0xFF00UL) ? 2 : 1;
}

// Bytes of a BER length field.
int lengthFieldSize(unsigned int length) {
    return length < 0x80 ? 1 : 1 + byteCount(length);
}

// Bytes of a component in base 128.
int base128Size(unsigned long v) {
    int count = 1;
    while (v >>= 7) {
        ++count;
    }
    return count;
}

// The components of dotted decimal text, one at a time.
class OidComponents {
public:
    explicit OidComponents(const char* text) : mNext(text) {}

    bool next(unsigned long& value) {
        if (!mNext) {
            return false;
        }
        const char* p = mNext;
        if (*p == '.') {
            ++p;
        }
        unsigned long v = 0;
        for (; *p >= '0' && *p <= '9'; ++p) {
            v = v * 10 + static_cast<unsigned long>(*p - '0');
        }
        value = v;
        // The separator is passed over, whatever it is; the terminating zero ends the text.
        mNext = *p ? p + 1 : nullptr;
        return true;
    }

private:
    const char* mNext;
};

// The size of the BER element at p, header included, or 0 when it does not lie within
// [p, end).
long elementSize(const unsigned char* p, const unsigned char* end) {
    const long available = end - p;
    if (available < 2) {
        return 0;
    }
    long header = 2;
    unsigned long length = p[1];
    if (length & 0x80) {
        const long count = static_cast<long>(length & 0x7F);
        if (count > 4 || available < 2 + count) {
            return 0;
        }
        length = 0;
        for (long i = 0; i < count; ++i) {
            length = (length << 8) | p[2 + i];
        }
        header += count;
    }
    if (length > static_cast<unsigned long>(available - header)) {
        return 0;
    }
    return header + static_cast<long>(length);
}

long nowSeconds() {
    timeval now{};
    gettimeofday(&now, nullptr);
    return static_cast<long>(now.tv_sec);
}

}  // namespace

RSNMPTrap::RSNMPTrap()
    : mBuffer(static_cast<unsigned char*>(std::malloc(kBufferSize))),
      mPosition(mBuffer + kBufferSize),
      mOverflowed(false) {
    if (!mBuffer) {
        ZR_THROW(kSource, "Memory allocation error.");
    }
}

RSNMPTrap::~RSNMPTrap() {
    std::free(mBuffer);
}

void RSNMPTrap::reset() noexcept {
    mPosition = mBuffer + kBufferSize;
    mOverflowed = false;
}

unsigned char* RSNMPTrap::prepend(int count) {
    if (mOverflowed || count > room()) {
        mOverflowed = true;
        return nullptr;
    }
    mPosition -= count;
    return mPosition;
}

void RSNMPTrap::addLength(unsigned char*& position, unsigned int length) {
    const int size = lengthFieldSize(length);
    if (mOverflowed || size > position - mBuffer) {
        mOverflowed = true;
        return;
    }
    position -= size;
    if (size == 1) {
        position[0] = static_cast<unsigned char>(length);
        return;
    }
    position[0] = static_cast<unsigned char>(0x80 + size - 1);
    for (int i = size - 1; i >= 1; --i, length >>= 8) {
        position[i] = static_cast<unsigned char>(length);
    }
}

void RSNMPTrap::addHeader(unsigned char tag, unsigned int length) {
    addLength(mPosition, length);
    unsigned char* const p = prepend(1);
    if (p) {
        *p = tag;
    }
}

void RSNMPTrap::addBytes(unsigned char tag, unsigned long value, int count) {
    unsigned char* const p = prepend(count);
    if (!p) {
        return;
    }
    for (int i = count - 1; i >= 0; --i, value >>= 8) {
        p[i] = static_cast<unsigned char>(value);
    }
    addHeader(tag, static_cast<unsigned int>(count));
}

void RSNMPTrap::addInteger(long v) {
    const auto bits = static_cast<unsigned long>(v);
    addBytes(kInteger, bits, byteCount(bits));
}

void RSNMPTrap::addUnsignedInteger(unsigned long v) {
    const int count = byteCount(v);
    const bool signBit = (v >> (8 * (count - 1))) & 0x80;
    // Only the low four bytes travel; with the sign byte in front of them the value takes
    // one byte more, and masking makes that byte zero.
    addBytes(kInteger, v & 0xFFFFFFFFUL, signBit ? count + 1 : count);
}

void RSNMPTrap::addOctString(const char* s) {
    const char* const text = s ? s : "";
    const size_t length = std::strlen(text);
    if (length > static_cast<size_t>(room())) {
        mOverflowed = true;
        return;
    }
    unsigned char* const p = prepend(static_cast<int>(length));
    if (!p) {
        return;
    }
    std::memcpy(p, text, length);
    addHeader(kOctetString, static_cast<unsigned int>(length));
}

void RSNMPTrap::addOid(const char* text) {
    const char* const oid = text ? text : "";
    // First pass: the content length, to know where the content starts.
    OidComponents sizing(oid);
    unsigned long first = 0;
    unsigned long second = 0;
    unsigned long v;
    int count = 0;
    int length = 1;
    while (sizing.next(v)) {
        if (count == 0) {
            first = v;
        } else if (count == 1) {
            second = v;
        } else {
            length += base128Size(v);
            if (length > room()) {
                mOverflowed = true;
                return;
            }
        }
        ++count;
    }
    if (count < 2) {
        length = 1;
    }
    unsigned char* p = prepend(2 + length);
    if (!p) {
        return;
    }
    p[0] = kObjectIdentifier;
    // One length byte whatever the length: longer identifiers are not representable.
    p[1] = static_cast<unsigned char>(length);
    p += 2;
    if (count < 2) {
        *p = 0;
        return;
    }
    *p++ = static_cast<unsigned char>(first * 40 + second);
    OidComponents writing(oid);
    writing.next(v);
    writing.next(v);
    while (writing.next(v)) {
        const int size = base128Size(v);
        for (int i = size - 1; i >= 0; --i) {
            const auto group = static_cast<unsigned char>((v >> (7 * i)) & 0x7F);
            *p++ = i > 0 ? static_cast<unsigned char>(group | 0x80) : group;
        }
    }
}

void RSNMPTrap::addReqId() {
    addBytes(kInteger, kRequestId, 4);
}

void RSNMPTrap::addUptime() {
    // The start first: when this defines it, the clock read after it cannot be earlier.
    const long start = RLogger::getStartTime();
    // Unsigned arithmetic: a clock set back wraps instead of overflowing.
    const unsigned long seconds =
        static_cast<unsigned long>(nowSeconds()) - static_cast<unsigned long>(start);
    addBytes(kTimeTicks, (seconds * 100) & 0xFFFFFFFFUL, 4);
}

void RSNMPTrap::buildVB() {
    const unsigned char* const end = mBuffer + kBufferSize;
    const long name = elementSize(mPosition, end);
    const long value = name ? elementSize(mPosition + name, end) : 0;
    if (!value) {
        mOverflowed = true;  // not two whole elements: nothing to bind
        return;
    }
    addHeader(kSequence, static_cast<unsigned int>(name + value));
}

void RSNMPTrap::wrap(unsigned char tag) {
    if (room() < 2) {
        mOverflowed = true;
        return;
    }
    addHeader(tag, static_cast<unsigned int>(getLength()));
}

void RSNMPTrap::setInt(const char* oid, long v) {
    addInteger(v);
    addOid(oid);
    buildVB();
}

void RSNMPTrap::setuInt(const char* oid, unsigned long v) {
    addUnsignedInteger(v);
    addOid(oid);
    buildVB();
}

void RSNMPTrap::setOctString(const char* oid, const char* s) {
    addOctString(s);
    addOid(oid);
    buildVB();
}

bool RSNMPTrap::encodeTrap(const char* trap_oid, const char* community) {
    addOid(trap_oid);
    addOid("1.3.6.1.6.3.1.1.4.1.0");
    buildVB();
    addUptime();
    addOid("1.3.6.1.2.1.1.3.0");
    buildVB();
    wrap(kSequence);
    addUnsignedInteger(0);
    addUnsignedInteger(0);
    addReqId();
    wrap(kTrapPDU);
    addOctString(community);
    addUnsignedInteger(1);
    wrap(kSequence);
    return !mOverflowed;
}

int RSNMPTrap::sendTrap(const char* trap_oid, const char* community, RSocket& socket) {
    const int result = encodeTrap(trap_oid, community) ? socket.write(mPosition, getLength()) : 0;
    reset();
    return result;
}

}  // namespace CM
}  // namespace ZR
