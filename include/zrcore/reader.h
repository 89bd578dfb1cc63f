// zrcore::reader, a plug-in that reads one resource named by a URI.
//
// The registry creates a reader closed; open() names the resource and makes it readable
// through the rda view (read, seek, tell, size), close() lets it go, and open() may be
// called again afterwards. Every failure is thrown as a zrbase::e::base whose description
// says what failed. The rda operations are const, so a reader keeps its position and
// buffers in mutable fields. One thread at a time.
#ifndef ZRCORE_READER_H
#define ZRCORE_READER_H

#include <zrbase/stream.h>
#include <zrcore/plugin.h>

#include <string>

namespace zrcore {

class reader : public plugin, public zrbase::stream::rda {
public:
    ~reader() override;

    // temp_directory is where a reader that spools may put its files.
    virtual void open(std::string const& uri, std::string const& temp_directory) = 0;
    virtual void close() = 0;
};

}  // namespace zrcore

#endif
