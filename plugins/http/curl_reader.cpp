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
#include <memory>
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

// Frees a string that libcurl allocated.
struct curl_string_deleter {
    void operator()(char* text) const { curl_free(text); }
};
using curl_string = std::unique_ptr<char, curl_string_deleter>;

struct url_deleter {
    void operator()(CURLU* url) const { curl_url_cleanup(url); }
};
using parsed_url = std::unique_ptr<CURLU, url_deleter>;

// A part of a parsed URL, or null.
curl_string url_part(parsed_url const& url, CURLUPart part) {
    char* text = nullptr;
    return curl_string(curl_url_get(url.get(), part, &text, 0) == CURLUE_OK ? text : nullptr);
}

bool is_redirect(long status) {
    return status == 301 || status == 302 || status == 303 || status == 307 || status == 308;
}

// The URL as errors show it: without user name and password, or as it is when libcurl
// cannot take it apart.
std::string shown(std::string const& url) {
    const parsed_url parts(curl_url());
    if (!parts || curl_url_set(parts.get(), CURLUPART_URL, url.c_str(), 0) != CURLUE_OK ||
        curl_url_set(parts.get(), CURLUPART_USER, nullptr, 0) != CURLUE_OK ||
        curl_url_set(parts.get(), CURLUPART_PASSWORD, nullptr, 0) != CURLUE_OK) {
        return url;
    }
    const curl_string text = url_part(parts, CURLUPART_URL);
    return text ? text.get() : url;
}

}  // namespace

// One request: what is asked, where its body goes, and what the reply said.
struct curl_reader::transfer {
    bool head = false;    // a HEAD instead of a GET of bytes [first, first + capacity)
    long long first = 0;  // the first byte asked for
    unsigned char* data = nullptr;
    std::size_t capacity = 0;
    std::size_t received = 0;

    // Of the last response: each status line, and each redirect, starts a new one.
    struct reply_state {
        long status = 0;
        long long length = -1;       // Content-Length; -1 when not told
        long long range_first = -1;  // Content-Range: "bytes FIRST-LAST/TOTAL"
        long long range_total = -1;  // also from "bytes */TOTAL"; -1 for "*" or none
        std::string location;

        bool body_started = false;
        long long skip = 0;        // bytes to drop from a reply that starts before first
        bool full = false;         // the body went on past capacity: stopped on purpose
        bool not_success = false;  // the body of another reply than success: stopped on purpose
        bool wrong_range = false;  // a 206 for other bytes than those asked for
    } reply;

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
        reply.range_first = begin;
        reply.range_total = total;
    }

    static std::size_t on_header(char* bytes, std::size_t size, std::size_t count, void* user) {
        transfer& self = *static_cast<transfer*>(user);
        const std::string line(bytes, size * count);
        if (starts_with_no_case(line, "HTTP/")) {
            const std::size_t space = line.find(' ');
            self.reply = reply_state();
            self.reply.status =
                space == std::string::npos ? 0 : std::strtol(line.c_str() + space + 1, nullptr, 10);
        } else if (starts_with_no_case(line, "content-range:")) {
            self.parse_content_range(line.c_str() + std::strlen("content-range:"));
        } else if (starts_with_no_case(line, "location:")) {
            const std::size_t begin = line.find_first_not_of(" \t", std::strlen("location:"));
            const std::size_t end = line.find_last_not_of(" \t\r\n");
            self.reply.location =
                begin == std::string::npos ? std::string() : line.substr(begin, end + 1 - begin);
        }
        return size * count;
    }

    // Returning less than it was given stops the transfer (CURLE_WRITE_ERROR).
    static std::size_t on_body(char* bytes, std::size_t size, std::size_t count, void* user) {
        transfer& self = *static_cast<transfer*>(user);
        reply_state& reply = self.reply;
        const std::size_t length = size * count;
        if (!reply.body_started) {
            reply.body_started = true;
            if (reply.status / 100 != 2) {
                reply.not_success = true;
                return 0;
            }
            if (reply.status == 206) {
                reply.wrong_range = reply.range_first != self.first;
                if (reply.wrong_range) {
                    return 0;
                }
            } else {
                reply.skip = self.first;  // the whole resource from its start
            }
        }
        std::size_t used = 0;
        if (reply.skip > 0) {
            used = static_cast<std::size_t>(std::min<long long>(reply.skip, length));
            reply.skip -= static_cast<long long>(used);
        }
        const std::size_t take = std::min(length - used, self.capacity - self.received);
        std::memcpy(self.data + self.received, bytes + used, take);
        self.received += take;
        if (used + take < length) {
            reply.full = true;
            return 0;
        }
        return length;
    }
};

curl_reader::curl_reader()
    : m_size(-1),
      m_position(0),
      m_window(new unsigned char[k_window]),
      m_window_first(0),
      m_window_length(0) {}

curl_reader::~curl_reader() = default;

void curl_reader::open(std::string const& uri, std::string const&) {
    close();
    m_share.reset(curl_share_init());
    if (!m_share ||
        curl_share_setopt(m_share.get(), CURLSHOPT_SHARE, CURL_LOCK_DATA_CONNECT) != CURLSHE_OK ||
        curl_share_setopt(m_share.get(), CURLSHOPT_SHARE, CURL_LOCK_DATA_DNS) != CURLSHE_OK) {
        m_share.reset();
        fail("cannot set up libcurl");
    }
    m_url = uri;
    try {
        m_size = probe_size();
    } catch (...) {
        close();
        throw;
    }
}

void curl_reader::close() {
    m_share.reset();
    m_size = -1;
    m_position = 0;
    m_window_length = 0;
}

void curl_reader::require_open() const {
    if (!m_share) {
        fail("the reader is not open");
    }
}

void curl_reader::fail_at(std::string const& reason) const {
    fail(shown(m_url) + ": " + reason);
}

void curl_reader::perform(transfer& request) const {
    std::vector<std::string> visited;
    for (int redirects = 0;; ++redirects) {
        exchange(request);
        const long status = request.reply.status;
        if (is_redirect(status) && !request.reply.location.empty()) {
            follow(request.reply.location, redirects, visited);
            continue;
        }
        if (request.reply.wrong_range) {
            fail_at(zrbase::string_with_format("the server sent bytes from %lld instead of %lld",
                                               request.reply.range_first, request.first));
        }
        // 416: the range lies past the end, which the caller handles.
        if (status / 100 != 2 && status != 416) {
            fail_at(zrbase::string_with_format("HTTP status %ld", status));
        }
        return;
    }
}

// libcurl 7.88 keeps, in the handle, a pointer to the last header line of the previous
// transfer after freeing that line; a reply whose first header line is a continuation
// (it starts with white space) is then appended to freed memory. So no handle serves more
// than one exchange: a fresh one has no earlier header to continue, and refuses such a
// reply.
void curl_reader::exchange(transfer& request) const {
    request.reply = transfer::reply_state();
    const std::unique_ptr<CURL, decltype(&curl_easy_cleanup)> handle(curl_easy_init(),
                                                                     &curl_easy_cleanup);
    CURL* const easy = handle.get();
    if (!easy) {
        fail("cannot create a libcurl handle");
    }
    char error[CURL_ERROR_SIZE] = "";
    curl_easy_setopt(easy, CURLOPT_SHARE, m_share.get());
    curl_easy_setopt(easy, CURLOPT_URL, m_url.c_str());
    curl_easy_setopt(easy, CURLOPT_PROTOCOLS_STR, "http,https");
    // No signals: readers run on component threads, not the main one.
    curl_easy_setopt(easy, CURLOPT_NOSIGNAL, 1L);
    // A server that stops answering fails the request instead of blocking it for ever.
    curl_easy_setopt(easy, CURLOPT_CONNECTTIMEOUT, 15L);
    curl_easy_setopt(easy, CURLOPT_LOW_SPEED_LIMIT, 1L);
    curl_easy_setopt(easy, CURLOPT_LOW_SPEED_TIME, 30L);
    curl_easy_setopt(easy, CURLOPT_ERRORBUFFER, error);
    curl_easy_setopt(easy, CURLOPT_HEADERFUNCTION, &transfer::on_header);
    curl_easy_setopt(easy, CURLOPT_HEADERDATA, &request);
    curl_easy_setopt(easy, CURLOPT_WRITEFUNCTION, &transfer::on_body);
    curl_easy_setopt(easy, CURLOPT_WRITEDATA, &request);
    std::string range;
    if (request.head) {
        curl_easy_setopt(easy, CURLOPT_NOBODY, 1L);
    } else {
        range = std::to_string(request.first) + "-" +
                std::to_string(request.first + static_cast<long long>(request.capacity) - 1);
        curl_easy_setopt(easy, CURLOPT_RANGE, range.c_str());
    }
    const CURLcode result = curl_easy_perform(easy);
    const transfer::reply_state& reply = request.reply;
    const bool stopped =
        result == CURLE_WRITE_ERROR && (reply.full || reply.not_success || reply.wrong_range);
    if (result != CURLE_OK && !stopped) {
        fail_at(error[0] ? error : curl_easy_strerror(result));
    }
    curl_off_t length = -1;
    curl_easy_getinfo(easy, CURLINFO_CONTENT_LENGTH_DOWNLOAD_T, &length);
    request.reply.length = length;
}

// Only http and https, never a URL already asked for this request, and at most
// k_max_redirects: a loop or an endless chain fails at once with the URL it reached.
void curl_reader::follow(std::string const& location, int redirects,
                         std::vector<std::string>& visited) const {
    if (redirects == k_max_redirects) {
        fail_at(zrbase::string_with_format("more than %d redirects", k_max_redirects));
    }
    const parsed_url target(curl_url());
    // A relative Location counts from the URL that sent it.
    const bool parsed =
        target && curl_url_set(target.get(), CURLUPART_URL, m_url.c_str(), 0) == CURLUE_OK &&
        curl_url_set(target.get(), CURLUPART_URL, location.c_str(), CURLU_URLENCODE) == CURLUE_OK;
    const curl_string url = parsed ? url_part(target, CURLUPART_URL) : nullptr;
    if (!url) {
        fail_at("malformed redirect to \"" + location + "\"");
    }
    const curl_string scheme = url_part(target, CURLUPART_SCHEME);
    if (!scheme ||
        (std::strcmp(scheme.get(), "http") != 0 && std::strcmp(scheme.get(), "https") != 0)) {
        fail_at("redirect to " + shown(url.get()) + ", which is neither http nor https");
    }
    visited.push_back(m_url);
    if (std::find(visited.begin(), visited.end(), url.get()) != visited.end()) {
        fail_at("redirect loop back to " + shown(url.get()));
    }
    m_url = url.get();
}

long long curl_reader::probe_size() const {
    transfer head;
    head.head = true;
    try {
        perform(head);
        if (head.reply.status / 100 == 2 && head.reply.length >= 0) {
            return head.reply.length;
        }
    } catch (zrbase::e::base const&) {
        // Without any reply, or with redirects that cannot be followed, a GET would end the
        // same way. A refused HEAD is retried as a GET, whose answer counts.
        if (head.reply.status == 0 || is_redirect(head.reply.status)) {
            throw;
        }
    }
    unsigned char first_byte = 0;
    transfer get;
    get.data = &first_byte;
    get.capacity = 1;
    perform(get);
    if (get.reply.status == 206 || get.reply.status == 416) {
        return get.reply.range_total;
    }
    // A server without ranges sent the whole resource: its length, if it said.
    return get.reply.length >= 0 ? get.reply.length : -1;
}

std::size_t curl_reader::fetch(long long first, unsigned char* data, std::size_t capacity) const {
    transfer request;
    request.first = first;
    request.data = data;
    request.capacity = capacity;
    perform(request);
    return request.reply.status == 416 ? 0 : request.received;
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
