// A minimal RTSP/1.0 client over one TCP connection: RRTSPSession connects to the server of
// an rtsp URI, numbers each RRTSPRequest with a CSeq header, sends it and reads one
// RRTSPResponse. A 401 reply is answered once, with Basic authorization or a reduced Digest
// form (user name, realm, nonce and URI, without a computed response), and the
// authorization then goes with every later request. A CRTSPSessionDelegate may watch each
// step and refuse to authenticate.
//
// The server is not trusted. A reply is read into one buffer of kBufferSize bytes and
// whatever part of it parses is returned: a reply without a status line has status 0. The
// whole header block must arrive within the session's receive time-out (30 s unless set
// otherwise), so a server that stops answering cannot hold the caller longer than that;
// after a time-out the connection is closed, so that a late reply is never taken for the
// reply to a later request (which then gets status 0 until the session connects again).
// The body is what arrived together with the header block; Content-Length is reported but
// not used to read further.
//
// Ownership: requests, responses and sessions are reference counted (count 0 when new). A
// session holds its socket; it does not own its delegate, which must outlive it.
//
// Threads: a session is used by one thread at a time; nothing is locked.
#ifndef CM_CMRTSP_H
#define CM_CMRTSP_H

#include <zr/CBuffer.h>
#include <zr/RPtr.h>
#include <zr/RSocket.h>
#include <zr/RURI.h>
#include <zrbase/object_refcount.h>

#include <cstdint>
#include <map>

namespace ZR {
namespace CM {

// Header names to values, sent in the order of the names' bytes.
using CRTSPHeaderMap = std::map<CString, CString>;

class RRTSPRequest : public zrbase::object_refcount {
public:
    RRTSPRequest(const CString& method, const RURI& uri);
    RRTSPRequest(const char* method, const RURI& uri);

    // Adds the header unless the name is present already: the first value stays.
    void addHeader(const CString& name, const CString& value);
    // Writes the request; sends nothing on an empty or unconnected socket. Returns 0.
    int sendRequest(RPtr<RSocket>& socket);

    const CString& getMethod() const noexcept { return mMethod; }
    const RURI& getURI() const noexcept { return mURI; }
    const CRTSPHeaderMap& getHeaders() const noexcept { return mHeaders; }
    // The body is kept with a terminating zero byte that is not sent; null clears it.
    void setBody(const char* text);
    const CBuffer& getBody() const noexcept { return mBody; }

private:
    CString mMethod;
    RURI mURI;  // its full text goes into the request line
    CRTSPHeaderMap mHeaders;
    CBuffer mBody;  // size counts the terminating zero; below 1 means no body
};

class RRTSPResponse : public zrbase::object_refcount {
public:
    // The largest reply that is read; the rest stays unread.
    static constexpr int kBufferSize = 2048;

    // Reads and parses one reply. Never null: a reply that could not be read has status 0.
    static RPtr<RRTSPResponse> createWithSocket(RPtr<RSocket>& socket);

    // 0 until a status line was parsed.
    unsigned int getStatus() const noexcept { return mStatus; }
    const CString& getReason() const noexcept { return mReason; }
    const CRTSPHeaderMap& getHeaders() const noexcept { return mHeaders; }
    // The value of the header, empty when absent.
    CString getHeader(const char* name) const;
    // -1 until a Content-Length header was parsed.
    int getContentLength() const noexcept { return mContentLength; }
    // The raw bytes after the header block, without a terminating zero.
    const CBuffer& getBody() const noexcept { return mBody; }

private:
    RRTSPResponse() = default;

    // Fills the response from `length` received bytes, of which the first headerEnd form
    // the header block (all of them when the block did not end).
    void parse(const char* bytes, int length, int headerEnd);
    void parseLine(const char* line, int length);

    std::uint16_t mStatus = 0;
    CString mReason;
    CRTSPHeaderMap mHeaders;  // the first occurrence of a name wins
    int mContentLength = -1;
    CBuffer mBody;
};

class RRTSPSession;

// Watches a session. The defaults accept everything, so an observer overrides only what it
// needs. Called on the session's thread, in the order of the slots.
class CRTSPSessionDelegate {
public:
    virtual ~CRTSPSessionDelegate();
    // Called when connect() did not succeed (result -1, or no socket for the URI); its
    // return value becomes connect()'s.
    virtual int connected(RRTSPSession* session, int result);
    virtual void willSendRequest(RRTSPSession* session, RRTSPRequest* request);
    virtual void didReceiveResponse(RRTSPSession* session, RRTSPResponse* response);
    // Asked on a 401 reply; false returns that reply instead of retrying.
    virtual bool shouldAuthenticate(RRTSPSession* session, RRTSPRequest* request,
                                    RRTSPResponse* response);
};

class RRTSPSession : public zrbase::object_refcount {
public:
    static constexpr int kDefaultReceiveTimeout = 30000;  // milliseconds

    explicit RRTSPSession(const RURI& uri);

    // Opens the connection to the URI's host and port. 0 on success; on failure the
    // delegate's connected() decides the result, and without a delegate it is 0 as well
    // (a later request then gets a response of status 0).
    int connect();
    // Sends the request and returns the reply; answers a 401 once with authorization and
    // returns the second reply. Empty when the session was never connected.
    RPtr<RRTSPResponse> sendRequest(RRTSPRequest& request);
    // Numbers the request, adds the authorization and sends it without reading a reply: for
    // a connection that also carries media interleaved with the replies, whose reader takes
    // the reply out of the stream itself. 0, or -1 when the session was never connected.
    int postRequest(RRTSPRequest& request);
    // Sets the authorization from the response's Digest challenge.
    void doDigestAuthentification(RRTSPRequest& request, RRTSPResponse& response);

    void setUser(const CString& user) { mUser = user; }
    void setPassword(const CString& password) { mPassword = password; }
    void setDelegate(CRTSPSessionDelegate* delegate) noexcept { mDelegate = delegate; }
    const CString& getAuthorization() const noexcept { return mAuthorization; }
    int getSequence() const noexcept { return mSequence; }
    // The connection (empty before connect()), for a caller that reads what the server
    // sends besides replies.
    const RPtr<RSocket>& getSocket() const noexcept { return mSocket; }
    // The server's session identifier, for hosts that track it; requests do not send it.
    const CString& getSessionId() const noexcept { return mSessionId; }
    void setSessionId(const CString& sessionId) { mSessionId = sessionId; }
    // Milliseconds within which the header block of a reply must arrive; 0 waits for ever.
    // Applies from the next request on.
    void setReceiveTimeout(int milliseconds);
    int getReceiveTimeout() const noexcept { return mReceiveTimeout; }

private:
    // One round trip: numbers the request, adds the authorization, sends, reads the reply.
    RPtr<RRTSPResponse> exchange(RRTSPRequest& request);

    RURI mURI;
    int mSequence = 0;  // the last CSeq used; the first request gets 1
    CString mSessionId;
    RPtr<RSocket> mSocket;  // empty until connect()
    CString mUser;
    CString mPassword;
    CString mAuthorization;  // the Authorization header to send, once a 401 set it
    CRTSPSessionDelegate* mDelegate = nullptr;
    int mReceiveTimeout = kDefaultReceiveTimeout;
};

}  // namespace CM
}  // namespace ZR

#endif
