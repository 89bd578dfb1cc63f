// RPluginStream, the read-only stream over a reader plug-in: the stream of every URI whose
// scheme no built-in stream serves (http, https, rtmp, ...).
//
// Construction finds the first reader registered for the URI's scheme (identifiers
// "io/read/SCHEME/...", see <zrcore/plugins.h>) and creates it. The registry is one per
// process: the first plug-in stream builds it from the plug-in directories, in this order
// "$HOME/Library/Application Support/Vandrel/Plugins", "/Library/Application
// Support/Vandrel/Plugins" and the configuration's "common.plugin-path", and it is not read
// again, so later changes to that setting take effect only in a new process. The registry
// is destroyed at exit.
//
// The stream owns its reader and forwards its operations to it. An exception of the reader
// never leaves the stream: it becomes a line on standard error and the operation's error
// result. Writing always fails. Destruction lets the reader go without closing it.
//
// One thread at a time per stream; streams may be constructed on several threads at once.
#ifndef CM_CMPLUGINSTREAM_H
#define CM_CMPLUGINSTREAM_H

#include <cm/CMStream.h>
#include <zrcore/reader.h>

#include <string>

namespace ZR {
namespace CM {

class RPluginStream : public RStream {
public:
    // Throws CException (after a line on standard error) when no reader plug-in serves the
    // URI's scheme or the plug-in found does not create a reader. Not yet open.
    explicit RPluginStream(const RURI& uri);
    ~RPluginStream() override;

    // Opens the reader on the URI, with "common.temp-path" as its temporary directory.
    // 0, or 169 (kResultFileOpenFailed).
    int open() override;
    // 0, or -1.
    int close() override;
    // The reader's count for a length cut to 32 bits, or -1 (also for a negative length).
    long long read(unsigned char* buffer, long long length) override;
    // -1: the stream is read-only.
    long long write(unsigned char* buffer, long long length) override;
    // whence goes to the reader as its seek type. The new position, or -1.
    long long lseek(long long offset, unsigned char whence) override;
    // The reader's size, or -1.
    long long size() override;
    int getType() override { return 6; }
    RString getURI() override { return RString(mURI.c_str()); }

private:
    std::string mURI;
    RPtr<zrcore::reader> mReader;
};

}  // namespace CM
}  // namespace ZR

#endif
