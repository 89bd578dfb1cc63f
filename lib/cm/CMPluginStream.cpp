#include <cm/CMPluginStream.h>

#include <cm/CMComponentStatus.h>
#include <cm/CMSysConf.h>
#include <zr/CException.h>
#include <zrbase/exception.h>
#include <zrbase/path.h>
#include <zrbase/string_with_format.h>
#include <zrcore/plugins.h>

#include <cstdio>
#include <cstdlib>
#include <memory>
#include <vector>

namespace ZR {
namespace CM {

namespace {

constexpr char kSource[] = "lib/cm/CMPluginStream";
// The lines the constructor's two failures are reported from.
constexpr int kNoReaderLine = 62;
constexpr int kNoInstanceLine = 68;
constexpr char kNoReaderMessage[] = "Found no compatible reader plugin";
constexpr char kNoInstanceMessage[] = "Failed to create reader plugin instance";
constexpr char kPluginDirectory[] = "/Library/Application Support/Vandrel/Plugins";

// The process's plug-in registry, built by the first plug-in stream (the thread-safe
// initialisation of the local static makes that happen once) and destroyed at exit.
zrcore::plugins& registry() {
    static zrcore::plugins* const instance = [] {
        const sys_conf& conf = sys_conf::instance();
        std::unique_ptr<zrcore::plugins> plugins(
            new zrcore::plugins(conf.get_value("common.dtd-path", "")));
        if (const char* home = std::getenv("HOME")) {
            std::string directory = home;
            zrbase::path_append(directory, kPluginDirectory);
            plugins->load_plugins(directory);
        }
        plugins->load_plugins(kPluginDirectory);
        plugins->load_plugins(conf.get_value("common.plugin-path", ""));
        // Registered once the registry exists, so that a failed first attempt leaves no
        // handler behind to free what a later attempt builds a second time.
        std::atexit([] { delete instance; });
        return plugins.release();
    }();
    return *instance;
}

void report(const char* operation, const char* text) {
    std::fprintf(stderr, "read-plugin %s() exception: %s\n", operation, text);
}

// The result of call(), or failure when it throws; what it threw is reported as the
// failure of operation.
template <typename Result, typename Call>
Result forward(const char* operation, Result failure, Call call) {
    try {
        return call();
    } catch (const zrbase::e::base& e) {
        report(operation, e.description().c_str());
    } catch (...) {
        report(operation, "unknown");
    }
    return failure;
}

}  // namespace

RPluginStream::RPluginStream(const RURI& uri) : mURI(uri.getString().c_str()) {
    zrcore::plugins& plugins = registry();
    const std::vector<std::string> ids = plugins.find_plugins(
        zrbase::string_with_format("io/read/%s/.+", zrbase::url_scheme(mURI, true).c_str()));
    if (ids.empty()) {
        std::fprintf(stderr, "%s\n", kNoReaderMessage);
        throw CException("ZR::CException", kNoReaderLine, kSource, __PRETTY_FUNCTION__,
                         CString(kNoReaderMessage));
    }
    mReader = dynamic_cast<zrcore::reader*>(plugins.create_with_id(ids[0]).addr());
    if (!mReader) {
        std::fprintf(stderr, "%s\n", kNoInstanceMessage);
        throw CException("ZR::CException", kNoInstanceLine, kSource, __PRETTY_FUNCTION__,
                         CString(kNoInstanceMessage));
    }
}

RPluginStream::~RPluginStream() = default;

int RPluginStream::open() {
    const std::string temp = sys_conf::instance().get_value("common.temp-path", "/tmp");
    return forward("open", static_cast<int>(kResultFileOpenFailed), [&] {
        mReader->open(mURI, temp);
        return 0;
    });
}

int RPluginStream::close() {
    return forward("close", -1, [&] {
        mReader->close();
        return 0;
    });
}

long long RPluginStream::read(unsigned char* buffer, long long length) {
    // Cut to 32 bits, a negative length would ask for up to 4 GiB.
    if (length < 0) {
        report("read", "negative length");
        return -1;
    }
    return forward("read", -1LL, [&] {
        return static_cast<long long>(mReader->read(buffer, static_cast<unsigned int>(length)));
    });
}

long long RPluginStream::write(unsigned char*, long long) {
    report("write", "stream is read-only");
    return -1;
}

long long RPluginStream::lseek(long long offset, unsigned char whence) {
    return forward("seek", -1LL, [&] {
        return mReader->seek(offset, static_cast<zrbase::stream::ra::seek_type>(whence));
    });
}

long long RPluginStream::size() {
    // Deliberately reported with the seek message, as failures of size() always have been.
    return forward("seek", -1LL, [&] { return mReader->size(); });
}

}  // namespace CM
}  // namespace ZR
