// curl_reader, the reader plug-in for http and https URIs, on libcurl.
//
// open() learns the size of the resource (from a HEAD, or from a GET of its first byte
// when the server refuses HEAD or does not say) and read() fetches what it needs with
// ranged GETs, so a seek costs nothing and a read anywhere in a large resource downloads
// only the bytes around it. Small reads are served from a window of k_window bytes
// fetched at once; a read of a window or more goes straight into the caller's buffer. A
// server that ignores ranges still works, at the cost of sending the resource from its
// start each time.
//
// Each request has a libcurl handle of its own; the handles of one reader share its
// connections, so the connection is still kept open between requests. The reader follows
// redirects itself, at most k_max_redirects for one request, only to http and https
// URLs, and sends later requests straight to where the last one led.
//
// Every failure (no connection, a status other than success, a reply that ends early or
// carries another range than the one asked for, a redirect that cannot be followed) is
// thrown as a zrbase::e::base that starts with the URL asked last and gives libcurl's or
// the server's reason. One thread at a time, as for every reader.
#ifndef CM_PLUGINS_HTTP_CURL_READER_H
#define CM_PLUGINS_HTTP_CURL_READER_H

#include <zrcore/reader.h>

#include <curl/curl.h>

#include <memory>
#include <string>
#include <vector>

namespace cm_http {

class curl_reader : public zrcore::reader {
public:
    static constexpr unsigned int k_window = 256 * 1024;
    static constexpr int k_max_redirects = 10;

    curl_reader();
    ~curl_reader() override;

    // temp_directory is not used: nothing is spooled.
    void open(std::string const& uri, std::string const& temp_directory) override;
    void close() override;
    // Fills the buffer unless the resource ends first. When a request fails after some
    // bytes were read, those are returned and the next read reports the failure.
    unsigned int read(void* buffer, unsigned int count) const override;
    long long tell() const override;
    // Only moves the position; a position past the end reads nothing.
    long long seek(long long offset, seek_type type) const override;
    // 0 when the server did not tell.
    long long size() const override;

private:
    struct share_deleter {
        void operator()(CURLSH* share) const { curl_share_cleanup(share); }
    };
    struct transfer;

    void require_open() const;
    // Runs one request, following its redirects, and throws unless it succeeded; the
    // status says which success.
    void perform(transfer& request) const;
    // One exchange with m_url, without following a redirect.
    void exchange(transfer& request) const;
    // Points m_url at the Location of a redirect, or throws when it may not be followed.
    void follow(std::string const& location, int redirects,
                std::vector<std::string>& visited) const;
    // Throws the reason, after the URL asked last.
    [[noreturn]] void fail_at(std::string const& reason) const;
    long long probe_size() const;
    // Bytes [first, first + capacity) into data: the count received, 0 past the end.
    std::size_t fetch(long long first, unsigned char* data, std::size_t capacity) const;
    // Up to count bytes at the position, from the window or one request; 0 at the end.
    unsigned int read_some(unsigned char* out, unsigned int count) const;

    // Null while closed; keeps the connections between requests.
    std::unique_ptr<CURLSH, share_deleter> m_share;
    // Where requests go: the URL opened, then wherever its redirects led.
    mutable std::string m_url;
    long long m_size;  // -1 while unknown
    // The rda view is const: reading moves the position and refills the window.
    mutable long long m_position;
    std::unique_ptr<unsigned char[]> m_window;
    mutable long long m_window_first;
    mutable std::size_t m_window_length;
};

}  // namespace cm_http

#endif
