// curl_reader, the reader plug-in for http and https URIs, on libcurl.
//
// open() learns the size of the resource (from a HEAD, or from a GET of its first byte
// when the server refuses HEAD or does not say) and read() fetches what it needs with
// ranged GETs, so a seek costs nothing and a read anywhere in a large resource downloads
// only the bytes around it. Small reads are served from a window of k_window bytes
// fetched at once; a read of a window or more goes straight into the caller's buffer. A
// server that ignores ranges still works, at the cost of sending the resource from its
// start each time. The connection is kept open between requests.
//
// Every failure (no connection, a status other than success, a reply that ends early or
// carries another range than the one asked for) is thrown as a zrbase::e::base with
// libcurl's or the server's reason. One thread at a time, as for every reader.
#ifndef CM_PLUGINS_HTTP_CURL_READER_H
#define CM_PLUGINS_HTTP_CURL_READER_H

#include <zrcore/reader.h>

#include <curl/curl.h>

#include <memory>
#include <string>

namespace cm_http {

class curl_reader : public zrcore::reader {
public:
    static constexpr unsigned int k_window = 256 * 1024;

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
    struct easy_deleter {
        void operator()(CURL* easy) const { curl_easy_cleanup(easy); }
    };
    struct transfer;

    void require_open() const;
    // Runs one request and throws unless it succeeded; the status says which success.
    void perform(transfer& request) const;
    long long probe_size() const;
    // A GET of request's bytes; request.received bytes came, or none past the end (416).
    void get_range(transfer& request) const;
    // Bytes [first, first + capacity) into data: the count received, 0 past the end.
    std::size_t fetch(long long first, unsigned char* data, std::size_t capacity) const;
    // Up to count bytes at the position, from the window or one request; 0 at the end.
    unsigned int read_some(unsigned char* out, unsigned int count) const;

    // Where the handle writes its reasons; declared first, so that it outlives the handle.
    mutable char m_error[CURL_ERROR_SIZE];
    std::unique_ptr<CURL, easy_deleter> m_easy;
    long long m_size;  // -1 while unknown
    // The rda view is const: reading moves the position and refills the window.
    mutable long long m_position;
    std::unique_ptr<unsigned char[]> m_window;
    mutable long long m_window_first;
    mutable std::size_t m_window_length;
};

}  // namespace cm_http

#endif
