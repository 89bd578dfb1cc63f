#include <cm/CMFileLog.h>

#include <cm/CMSysConf.h>
#include <zrbase/exception.h>
#include <zrbase/path.h>
#include <zrbase/string_with_format.h>

#include <fcntl.h>

#include <cstdio>
#include <cstring>
#include <ctime>

namespace ZR {
namespace CM {

namespace {

constexpr unsigned short kFileMode = 0644;
// No previous second: time texts are cached for values an int can hold.
constexpr long long kNoSecond = -(1LL << 40);

bool renameAndSay(const std::string& from, const std::string& to) {
    const bool renamed = std::rename(from.c_str(), to.c_str()) == 0;
    std::printf("rename %s to %s\n", from.c_str(), to.c_str());
    return renamed;
}

}  // namespace

RPtr<RFileLogInterface> RFileLogInterface::m_default;

RFileLogInterface* RFileLogInterface::getDefault() {
    const int priority = sys_conf::instance().get_int("common.logging.filelog-priority", 8);
    if (isLogPriority(priority) && !m_default) {
        m_default = new RFileLogInterface();
    }
    return m_default.addr();
}

RFileLogInterface::RFileLogInterface() : mCurrentSize(0), mTimeTextSecond(kNoSecond) {
    const sys_conf& conf = sys_conf::instance();
    mPriority = conf.get_int("common.logging.filelog-priority", 6);
    mMaxFileSize = static_cast<unsigned int>(conf.get_int("common.logging.filelog-filesize", 1024));
    mFileCount = static_cast<unsigned int>(conf.get_int("common.logging.filelog-num-rotation", 5));

    std::string directory = conf.get_value("common.logging.filelog-path", "/var/log/plaiva");
    zrbase::path_set_directory(mPath, directory);
    if (mPath.empty() || mPath.back() != '/') {
        mPath += '/';
    }
    zrbase::path_set_file(mPath, conf.get_value("common.logging.filelog-name", "plaiva.log"));
}

RFileLogInterface::~RFileLogInterface() = default;

bool RFileLogInterface::init() {
    if (mFileCount > 1) {
        mFile.set(mPath, O_WRONLY | O_APPEND | O_CREAT, kFileMode);
        const long long size = mFile.seek(0, zrbase::stream::ra::seek_end);
        if (size < mMaxFileSize) {
            mCurrentSize = static_cast<unsigned int>(size);
            return true;
        }
        if (!rotate()) {
            // The full file is still there (its directory may have become read-only):
            // starting it over would write over its newest lines, so it grows past the
            // maximum instead, and the next message tries the rotation again.
            mCurrentSize = static_cast<unsigned int>(size);
            return true;
        }
        mFile.close();
    }
    // Without rotation the file is neither appended to nor truncated: writing starts over
    // at its beginning.
    mCurrentSize = 0;
    mFile.set(mPath, O_WRONLY | O_CREAT, kFileMode);
    return mFile.is_set();
}

bool RFileLogInterface::rotate() const {
    const std::string directory = zrbase::path_directory(mPath);
    const std::string name = zrbase::path_name(mPath);
    const std::string suffix = zrbase::path_suffix(mPath);
    const auto numbered = [&](unsigned int i) {
        return zrbase::string_with_format("%s/%s.%u%s", directory.c_str(), name.c_str(), i,
                                          suffix.c_str());
    };
    for (unsigned int i = mFileCount - 2; i >= 1; --i) {
        renameAndSay(numbered(i), numbered(i + 1));
    }
    return renameAndSay(mPath, numbered(1));
}

const std::string& RFileLogInterface::timeText(int time) {
    if (time != mTimeTextSecond) {
        const std::time_t seconds = time;
        char text[32];
        if (!ctime_r(&seconds, text)) {
            text[0] = '\0';
        }
        char* newline = std::strrchr(text, '\n');
        if (newline) {
            *newline = ' ';
        }
        mTimeText = text;
        mTimeTextSecond = time;
    }
    return mTimeText;
}

int RFileLogInterface::log(int priority, int time, const char* message) {
    if (priority > mPriority || !mFile.is_set()) {
        return 0;
    }
    try {
        if (mCurrentSize > mMaxFileSize) {
            mFile.close();
            if (!init()) {
                return -1;
            }
        }
        const std::string& stamp = timeText(time);
        mLine.assign(stamp);
        mLine.append(message);
        mLine.push_back('\n');
    } catch (const zrbase::e::base&) {
        // A file that could not be reopened stays closed, and later messages are ignored.
        return -1;
    }
    return writeLine() ? 0 : -1;
}

bool RFileLogInterface::writeLine() {
    const unsigned int start = mCurrentSize;
    const auto length = static_cast<unsigned int>(mLine.size());
    mCurrentSize += length;
    try {
        mFile.write(mLine.data(), length);
        mFile.flush();
        return true;
    } catch (const zrbase::e::base&) {
        mCurrentSize = start;
    }
    // Whatever part of the line got into the file goes again, so that the file still ends
    // with a whole line and the next one does not run on from a fragment. Only a file that
    // this line made longer is cut: past the end of a line written over an older file lie
    // that file's lines.
    try {
        const long long end = mFile.seek(0, zrbase::stream::ra::seek_end);
        if (end > start && end <= static_cast<long long>(start) + length) {
            mFile.resize(start);
        }
        mFile.seek(start, zrbase::stream::ra::seek_begin);
    } catch (const zrbase::e::base&) {
        // The file stays as the failed write left it.
    }
    return false;
}

}  // namespace CM
}  // namespace ZR
