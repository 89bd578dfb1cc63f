// A plug-in module for the tests of the registry and the plug-in stream. Its factory
// creates, by the end of the identifier asked for:
//   ".../notreader"  a plug-in that is not a reader;
//   ".../null"       nothing;
//   ".../throws"     nothing, by throwing;
//   ".../broken"     a reader that throws a zrbase::e::base "broken reader: OPERATION"
//                    from every operation the plug-in stream calls (open, close, read,
//                    seek, size);
//   ".../broken-other" likewise, with a std::runtime_error;
//   anything else    a reader over the text "ID\nURI\nTEMP" (its identifier, and the URI
//                    and temporary directory of its last open()).
// A reader opened on "fail://OPERATION/KIND" throws from that operation (open, close,
// read, seek or size): a zrbase::e::base "scripted OPERATION failure" for the kind base,
// a std::runtime_error for the kind other.
#include <zrbase/exception.h>
#include <zrcore/reader.h>

#include <algorithm>
#include <cstring>
#include <stdexcept>
#include <string>

namespace {

bool ends_with(std::string const& text, char const* suffix) {
    const std::size_t length = std::strlen(suffix);
    return text.size() >= length && text.compare(text.size() - length, length, suffix) == 0;
}

class plain_plugin : public zrcore::plugin {};

class scripted_reader : public zrcore::reader {
public:
    explicit scripted_reader(std::string id)
        : m_id(std::move(id)),
          m_text(m_id),
          m_broken(ends_with(m_id, "/broken")),
          m_broken_other(ends_with(m_id, "/broken-other")) {}

    void open(std::string const& uri, std::string const& temp_directory) override {
        m_uri = uri;
        fail_if("open");
        m_text = m_id + "\n" + uri + "\n" + temp_directory;
        m_position = 0;
    }
    void close() override { fail_if("close"); }
    unsigned int read(void* buffer, unsigned int count) const override {
        fail_if("read");
        const long long left = std::max(0LL, static_cast<long long>(m_text.size()) - m_position);
        const auto got = static_cast<unsigned int>(std::min<long long>(count, left));
        std::memcpy(buffer, m_text.data() + m_position, got);
        m_position += got;
        return got;
    }
    long long tell() const override { return m_position; }
    long long seek(long long offset, seek_type type) const override {
        fail_if("seek");
        const long long base = type == seek_begin     ? 0
                               : type == seek_current ? m_position
                               : type == seek_end     ? static_cast<long long>(m_text.size())
                                                      : -1;
        if (base < 0 || base + offset < 0) {
            throw zrbase::e::base("bad seek");
        }
        return m_position = base + offset;
    }
    long long size() const override {
        fail_if("size");
        return static_cast<long long>(m_text.size());
    }

private:
    void fail_if(char const* operation) const {
        if (m_broken) {
            throw zrbase::e::base(std::string("broken reader: ") + operation);
        }
        if (m_broken_other) {
            throw std::runtime_error("broken reader");
        }
        const std::string prefix = std::string("fail://") + operation + "/";
        if (m_uri == prefix + "base") {
            throw zrbase::e::base(std::string("scripted ") + operation + " failure");
        }
        if (m_uri == prefix + "other") {
            throw std::runtime_error("not a base exception");
        }
    }

    std::string const m_id;
    std::string m_uri;
    std::string m_text;
    bool const m_broken;
    bool const m_broken_other;
    mutable long long m_position = 0;
};

zrcore::plugin* create(char const* id) {
    const std::string name = id;
    if (ends_with(name, "/notreader")) {
        return new plain_plugin();
    }
    if (ends_with(name, "/null")) {
        return nullptr;
    }
    if (ends_with(name, "/throws")) {
        throw std::runtime_error("scripted factory failure");
    }
    return new scripted_reader(name);
}

}  // namespace

ZRCORE_PLUGIN_DEFINE(create)
