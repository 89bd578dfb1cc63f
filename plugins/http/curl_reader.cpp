#include "curl_reader.h"

#include <zrbase/exception.h>
#include <zrbase/string_with_format.h>

#include <strings.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <string>

namespace cm_http {

namespace {

constexpr char k_reader_ids[][20] = {"io/read/http/curl", "io/read/https/curl"};

[[noreturn]] void fail(std::string const& reason) {
    throw zrbase::e::base(reason);
}

bool starts_with_no_case(std::string const& text, char const* prefix) {
    const std::size_t length = std::strlen(prefix);
    return text.size() >= length && strncasecmp(text.c_str(), prefix, length) == 0;
}

// A decimal number at p without sign or overflow; p moves past it.
bool parse_number(char const*& p, long long& value) {
    if (!std::isdigit(static_cast<unsigned char>(*p))) {
        return false;
    }
    char* end = nullptr;
    errno = 0;
    value = std::strtoll(p, &end, 10);
    p = end;
    return errno != ERANGE;
}

}  // namespace

// One request: where its body goes, and what its headers said.
struct curl_reader::transfer {
    long long first = 0;  // the first byte asked for
    unsigned char* data = nullptr;
    std::size_t capacity = 0;
    std::size_t received = 0;

    // Of the last response: a redirect's headers are replaced by those of the next one.
    long status = 0;
    long long range_first = -1;  // Content-Range: "bytes FIRST-LAST/TOTAL"
    long long range_total = -1;  // also from "bytes */TOTAL"; -1 for "*" or none

    bool body_started = false;
    long long skip = 0;        // bytes to drop from a reply that starts before first
    bool full = false;         // the body went on past capacity: stopped on purpose
    bool not_success = false;  // the body of an error reply: stopped on purpose
    bool wrong_range = false;  // a 206 for other bytes than those asked for

    void parse_content_range(char const* p) {
        while (*p == ' ' || *p == '\t') {
            ++p;
        }
        if (strncasecmp(p, "bytes", 5) != 0) {
            return;
        }
        p += 5;
        while (*p == ' ') {
            ++p;
        }
        long long begin = -1;
        long long last = -1;
        if (*p == '*') {
            ++p;
        } else if (!parse_number(p, begin) || *p++ != '-' || !parse_number(p, last)) {
            return;
        }
        if (*p++ != '/') {
            return;
        }
        long long total = -1;
        if (*p != '*' && !parse_number(p, total)) {
            return;
        }
        range_first = begin;
        range_total = total;
    }

    static std::size_t on_header(char* bytes, std::size_t size, std::size_t count, void* user) {
        transfer& self = *static_cast<transfer*>(user);
        const std::string line(bytes, size * count);
        if (starts_with_no_case(line, "HTTP/")) {
            const std::size_t space = line.find(' ');
            self.status =
                space == std::string::npos ? 0 : std::strtol(line.c_str() + space + 1, nullptr, 10);
            self.range_first = -1;
            self.range_total = -1;
        } else if (starts_with_no_case(line, "content-range:")) {
            self.parse_content_range(line.c_str() + std::strlen("content-range:"));
        }
        return size * count;
    }

    // Returning less than it was given stops the transfer (CURLE_WRITE_ERROR).
    static std::size_t on_body(char* bytes, std::size_t size, std::size_t count, void* user) {
        transfer& self = *static_cast<transfer*>(user);
        const std::size_t length = size * count;
        if (!self.body_started) {
            self.body_started = true;
            if (self.status / 100 != 2) {
                self.not_success = true;
                return 0;
            }
            if (self.status == 206) {
                self.wrong_range = self.range_first != self.first;
                if (self.wrong_range) {
                    return 0;
                }
            } else {
                self.skip = self.first;  // the whole resource from its start
            }
        }
        std::size_t used = 0;
        if (self.skip > 0) {
            used = static_cast<std::size_t>(std::min<long long>(self.skip, length));
            self.skip -= static_cast<long long>(used);
        }
        const std::size_t take = std::min(length - used, self.capacity - self.received);
        std::memcpy(self.data + self.received, bytes + used, take);
        self.received += take;
        if (used + take < length) {
            self.full = true;
            return 0;
        }
        return length;
    }
};

curl_reader::curl_reader()
    : m_error(),
      m_size(-1),
      m_position(0),
      m_window(new unsigned char[k_window]),
      m_window_first(0),
      m_window_length(0) {}

curl_reader::~curl_reader() = default;

void curl_reader::open(std::string const& uri, std::string const&) {
    close();
    m_easy.reset(curl_easy_init());
    if (!m_easy) {
        fail("cannot create a libcurl handle");
    }
    CURL* const easy = m_easy.get();
    curl_easy_setopt(easy, CURLOPT_URL, uri.c_str());
    curl_easy_setopt(easy, CURLOPT_PROTOCOLS_STR, "http,https");
    curl_easy_setopt(easy, CURLOPT_REDIR_PROTOCOLS_STR, "http,https");
    curl_easy_setopt(easy, CURLOPT_FOLLOWLOCATION, 1L);
    curl_easy_setopt(easy, CURLOPT_MAXREDIRS, 10L);
    // No signals: readers run on component threads, not the main one.
    curl_easy_setopt(easy, CURLOPT_NOSIGNAL, 1L);
    // A server that stops answering fails the request instead of blocking it for ever.
    curl_easy_setopt(easy, CURLOPT_CONNECTTIMEOUT, 15L);
    curl_easy_setopt(easy, CURLOPT_LOW_SPEED_LIMIT, 1L);
    curl_easy_setopt(easy, CURLOPT_LOW_SPEED_TIME, 30L);
    curl_easy_setopt(easy, CURLOPT_ERRORBUFFER, m_error);
    curl_easy_setopt(easy, CURLOPT_HEADERFUNCTION, &transfer::on_header);
    curl_easy_setopt(easy, CURLOPT_WRITEFUNCTION, &transfer::on_body);
    try {
        m_size = probe_size();
    } catch (...) {
        close();
        throw;
    }
}

void curl_reader::close() {
    m_easy.reset();
    m_size = -1;
    m_position = 0;
    m_window_length = 0;
}

void curl_reader::require_open() const {
    if (!m_easy) {
        fail("the reader is not open");
    }
}

void curl_reader::perform(transfer& request) const {
    CURL* const easy = m_easy.get();
    curl_easy_setopt(easy, CURLOPT_HEADERDATA, &request);
    curl_easy_setopt(easy, CURLOPT_WRITEDATA, &request);
    m_error[0] = '\0';
    const CURLcode result = curl_easy_perform(easy);
    if (request.wrong_range) {
        fail(zrbase::string_with_format("the server sent bytes from %lld instead of %lld",
                                        request.range_first, request.first));
    }
    const bool stopped = result == CURLE_WRITE_ERROR && (request.full || request.not_success);
    if (result != CURLE_OK && !stopped) {
        fail(m_error[0] ? m_error : curl_easy_strerror(result));
    }
    // 416: the range lies past the end, which the caller handles.
    if (request.status / 100 != 2 && request.status != 416) {
        fail(zrbase::string_with_format("HTTP status %ld", request.status));
    }
}

long long curl_reader::probe_size() const {
    transfer head;
    curl_easy_setopt(m_easy.get(), CURLOPT_NOBODY, 1L);
    try {
        perform(head);
        curl_off_t length = -1;
        curl_easy_getinfo(m_easy.get(), CURLINFO_CONTENT_LENGTH_DOWNLOAD_T, &length);
        if (head.status / 100 == 2 && length >= 0) {
            return length;
        }
    } catch (zrbase::e::base const&) {
        // Without any reply there is nothing more to ask. A refused HEAD is retried as a
        // GET, whose answer counts.
        if (head.status == 0) {
            throw;
        }
    }
    unsigned char first_byte = 0;
    transfer get;
    get.data = &first_byte;
    get.capacity = 1;
    get_range(get);
    if (get.status == 206 || get.status == 416) {
        return get.range_total;
    }
    // A server without ranges sent the whole resource: its length, if it said.
    curl_off_t length = -1;
    curl_easy_getinfo(m_easy.get(), CURLINFO_CONTENT_LENGTH_DOWNLOAD_T, &length);
    return length >= 0 ? length : -1;
}

void curl_reader::get_range(transfer& request) const {
    const std::string range =
        std::to_string(request.first) + "-" +
        std::to_string(request.first + static_cast<long long>(request.capacity) - 1);
    curl_easy_setopt(m_easy.get(), CURLOPT_HTTPGET, 1L);
    curl_easy_setopt(m_easy.get(), CURLOPT_RANGE, range.c_str());
    perform(request);
}

std::size_t curl_reader::fetch(long long first, unsigned char* data, std::size_t capacity) const {
    transfer request;
    request.first = first;
    request.data = data;
    request.capacity = capacity;
    get_range(request);
    return request.status == 416 ? 0 : request.received;
}

unsigned int curl_reader::read(void* buffer, unsigned int count) const {
    require_open();
    auto* const out = static_cast<unsigned char*>(buffer);
    unsigned int done = 0;
    while (done < count) {
        unsigned int got = 0;
        try {
            got = read_some(out + done, count - done);
        } catch (zrbase::e::base const&) {
            if (done == 0) {
                throw;
            }
        }
        if (got == 0) {
            break;
        }
        done += got;
    }
    return done;
}

unsigned int curl_reader::read_some(unsigned char* out, unsigned int count) const {
    // No resource reaches that far, and the range asked for must stay representable.
    if (std::numeric_limits<long long>::max() - m_position <
        static_cast<long long>(k_window) + count) {
        return 0;
    }
    if (m_size >= 0) {
        if (m_position >= m_size) {
            return 0;
        }
        count = static_cast<unsigned int>(std::min<long long>(count, m_size - m_position));
    }
    const bool in_window = m_position >= m_window_first &&
                           m_position - m_window_first < static_cast<long long>(m_window_length);
    if (!in_window) {
        if (count >= k_window) {
            const std::size_t got = fetch(m_position, out, count);
            m_position += static_cast<long long>(got);
            return static_cast<unsigned int>(got);
        }
        std::size_t length = k_window;
        if (m_size >= 0) {
            length = static_cast<std::size_t>(std::min<long long>(length, m_size - m_position));
        }
        // Emptied first, so that a failed fetch leaves no stale bytes behind.
        m_window_length = 0;
        m_window_first = m_position;
        m_window_length = fetch(m_position, m_window.get(), length);
        if (m_window_length == 0) {
            return 0;
        }
    }
    const std::size_t offset = static_cast<std::size_t>(m_position - m_window_first);
    const std::size_t got = std::min<std::size_t>(count, m_window_length - offset);
    std::memcpy(out, m_window.get() + offset, got);
    m_position += static_cast<long long>(got);
    return static_cast<unsigned int>(got);
}

long long curl_reader::tell() const {
    require_open();
    return m_position;
}

long long curl_reader::seek(long long offset, seek_type type) const {
    require_open();
    long long base = 0;
    switch (type) {
        case seek_begin:
            break;
        case seek_current:
            base = m_position;
            break;
        case seek_end:
            if (m_size < 0) {
                fail("cannot seek from the end: the server did not tell the size");
            }
            base = m_size;
            break;
        default:
            fail(zrbase::string_with_format("unknown seek type %d", static_cast<int>(type)));
    }
    long long position = 0;
    if (__builtin_add_overflow(base, offset, &position)) {
        fail("seek position out of range");
    }
    if (position < 0) {
        fail("seek before the start of the resource");
    }
    m_position = position;
    return position;
}

long long curl_reader::size() const {
    require_open();
    return m_size >= 0 ? m_size : 0;
}

namespace {

zrcore::plugin* create_reader(char const* id) {
    // Once per process, before the first handle; never undone, as the module stays loaded.
    static const bool ready = curl_global_init(CURL_GLOBAL_DEFAULT) == CURLE_OK;
    const bool known =
        std::any_of(std::begin(k_reader_ids), std::end(k_reader_ids),
                    [id](char const* reader) { return std::strcmp(id, reader) == 0; });
    return ready && known ? new curl_reader() : nullptr;
}

}  // namespace

}  // namespace cm_http

ZRCORE_PLUGIN_DEFINE(cm_http::create_reader)
