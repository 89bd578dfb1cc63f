// RFileLogInterface, the log destination that appends time-stamped lines to a file and
// rotates it by size.
//
// File logging is opt-in: getDefault() creates the destination only when the configuration
// sets "common.logging.filelog-priority" to 0..7. The file is opened by init(), which the
// logger calls after creating the destination. With more than one file kept, a file that
// has reached the maximum size is renamed to name.1.suffix (name.1 moving to name.2 and so
// on, the oldest being replaced) and a new file is started; with one file or none, the
// file is reopened and written again from its start. Rotation messages go to standard
// output. A full file that cannot be renamed (a read-only directory) is appended to past
// the maximum rather than written over, and rotation is tried again at the next message.
//
// No lock of its own: the logger calls log() with its mutex held.
#ifndef CM_CMFILELOG_H
#define CM_CMFILELOG_H

#include <cm/CMLogger.h>
#include <zr/RPtr.h>
#include <zrbase/stream_file.h>

#include <string>

namespace ZR {
namespace CM {

class RFileLogInterface : public RLogInterfaceP {
public:
    // The destination when the configuration switches file logging on, else null.
    static RFileLogInterface* getDefault();

    // Reads the priority threshold, the file size, the number of files, the directory and
    // the name from the configuration. Opens nothing.
    RFileLogInterface();
    ~RFileLogInterface() override;

    // Opens the file, first rotating it when it has reached the maximum size. True when
    // the file is open. Throws zrbase::e::call when the file cannot be opened.
    bool init();
    // 0 when the line was written or filtered out, or when the file is not open; -1 when
    // the reopening after a rotation or the write failed. A line that does not fit (a full
    // disk, a file-size limit) leaves no part of itself in the file.
    int log(int priority, int time, const char* message) override;

    const std::string& getPath() const noexcept { return mPath; }
    unsigned int getCurrentSize() const noexcept { return mCurrentSize; }

private:
    // Renames name.(N-2) to name.(N-1), ..., name.1 to name.2, then the active file to
    // name.1, printing each rename; the failures of the first renames are ignored. True
    // when the active file was renamed.
    bool rotate() const;
    // The time as ctime text with its newline turned into a space; the text of the last
    // second asked for is kept, since most lines share it.
    const std::string& timeText(int time);
    // Writes mLine; false, with the file as it was before, when the write failed.
    bool writeLine();

    int mPriority;
    unsigned int mFileCount;
    unsigned int mMaxFileSize;
    std::string mPath;
    zrbase::stream::file mFile;
    unsigned int mCurrentSize;

    // The line being written and the cached time text, kept to spare an allocation per
    // line.
    std::string mLine;
    std::string mTimeText;
    long long mTimeTextSecond;

    static RPtr<RFileLogInterface> m_default;
};

}  // namespace CM
}  // namespace ZR

#endif
