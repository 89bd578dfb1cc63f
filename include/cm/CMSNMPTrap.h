// RSNMPTrap, the encoder of one SNMPv2c trap: an SNMPv2-Trap-PDU inside a community
// message, in ASN.1 BER, written to a datagram socket.
//
// The message is built backwards, from the end of a fixed 1,024-byte buffer towards its
// start, so that every length is known when its header is written: each add... prepends one
// complete element in front of what is already there, and the encoded bytes always lie
// between getPosition() and the end of the buffer. A caller adds its variable bindings with
// the set... operations and then calls sendTrap(), which prepends sysUpTime.0 and
// snmpTrapOID.0, the PDU and the message header, and sends the whole.
//
// Receivers of these traps rely on some quirks, which stay: unsigned values go out as
// INTEGER (with a 0x00 sign byte when needed), addInteger() writes no sign byte, an OID's
// length is always one byte, every trap carries the request id 0x87D61200, and the uptime
// is always four bytes.
//
// Nothing is ever written in front of the buffer. When an element (or its header) does not
// fit, it stops there and the trap is marked overflowed: every later add does nothing and
// sendTrap() sends nothing. A trap is reset, and so reusable, after every sendTrap(). One
// thread at a time.
#ifndef CM_CMSNMPTRAP_H
#define CM_CMSNMPTRAP_H

#include <zr/RSocket.h>
#include <zrbase/object_refcount.h>

namespace ZR {
namespace CM {

class RSNMPTrap : public zrbase::object_refcount {
public:
    static constexpr int kBufferSize = 1024;

    // Throws CException when the buffer cannot be allocated.
    RSNMPTrap();
    ~RSNMPTrap() override;
    RSNMPTrap(const RSNMPTrap&) = delete;
    RSNMPTrap& operator=(const RSNMPTrap&) = delete;

    // Prepends a BER length in front of position, which points into this trap's buffer:
    // one byte below 128, else 0x80 plus the count of the 1 to 4 big-endian bytes that
    // follow.
    void addLength(unsigned char*& position, unsigned int length);
    // INTEGER of the low 1 to 4 bytes of v (4 as soon as a bit from 24 up is set, so for
    // every negative value), without a sign byte: 200 goes out as 02 01 C8.
    void addInteger(long v);
    // INTEGER of v's bytes by magnitude, with a 0x00 in front when the top bit is set.
    void addUnsignedInteger(unsigned long v);
    // OCTET STRING of the text without its terminating zero; null counts as "".
    void addOctString(const char* s);
    // OBJECT IDENTIFIER from dotted decimal text. A '.' before a component is skipped, a
    // component is a run of digits (none gives 0), and the character after it is passed
    // over unless it ends the text. Fewer than two components give the content 00; else
    // first * 40 + second (one byte) and the rest in base 128.
    void addOid(const char* text);
    // INTEGER 0x87D61200, the request id of every trap.
    void addReqId();
    // TimeTicks of the hundredths of seconds since RLogger::getStartTime(), four bytes.
    void addUptime();
    // Wraps the two elements at the write position (a name added last and its value) in a
    // SEQUENCE: one variable binding.
    void buildVB();
    // Wraps everything encoded so far in one element with this tag. With fewer than two
    // bytes free it writes nothing.
    void wrap(unsigned char tag);

    // One variable binding each: the value, then the name, then buildVB(). Bindings go out
    // in the reverse order of these calls.
    void setInt(const char* oid, long v);
    void setuInt(const char* oid, unsigned long v);
    void setOctString(const char* oid, const char* s);

    // Completes the message (everything sendTrap() adds before sending); false when it
    // did not fit. The encoded message is then getPosition() for getLength() bytes.
    bool encodeTrap(const char* trap_oid, const char* community);
    // Completes the message, sends it in one write and resets the trap. The socket's
    // result; 0, with nothing sent, when the message did not fit.
    int sendTrap(const char* trap_oid, const char* community, RSocket& socket);
    // Forgets everything encoded, and the overflow.
    void reset() noexcept;

    bool hasOverflowed() const noexcept { return mOverflowed; }
    const unsigned char* getPosition() const noexcept { return mPosition; }
    int getLength() const noexcept { return static_cast<int>(mBuffer + kBufferSize - mPosition); }

private:
    // Bytes free in front of the write position.
    int room() const noexcept { return static_cast<int>(mPosition - mBuffer); }
    // Moves the write position back by count bytes and returns it, or marks the trap
    // overflowed and returns null when they do not fit.
    unsigned char* prepend(int count);
    // Prepends the tag and the length of an element whose content is already in place.
    void addHeader(unsigned char tag, unsigned int length);
    // Prepends tag, length and the low count bytes of value, big-endian.
    void addBytes(unsigned char tag, unsigned long value, int count);

    unsigned char* mBuffer;
    unsigned char* mPosition;
    bool mOverflowed;
};

}  // namespace CM
}  // namespace ZR

#endif
