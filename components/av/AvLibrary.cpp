#include "av/AvLibrary.h"

#include "av/AvObjects.h"

#include <cm/CMLogger.h>

#include <cstdarg>
#include <mutex>

namespace cmcomponents {

namespace {

// FFmpeg writes a line in pieces; each thread gathers its pieces until the newline.
void routeLog(void* context, int level, const char* format, va_list args) {
    if (level > AV_LOG_VERBOSE) {
        return;
    }
    thread_local std::string pending;
    thread_local int printPrefix = 1;
    char piece[1024];
    av_log_format_line2(context, level, format, args, piece, sizeof piece, &printPrefix);
    pending += piece;
    if (pending.empty() || pending.back() != '\n') {
        return;
    }
    pending.pop_back();
    const int priority = level <= AV_LOG_WARNING ? ZR::CM::kLogInfo : ZR::CM::kLogDebug;
    ZR::CM::RLogger::getDefault()->logf(priority, "libav: %s", pending.c_str());
    pending.clear();
}

}  // namespace

void initializeLibav() {
    static std::once_flag once;
    std::call_once(once, [] {
        ZR::CM::RLogger::getDefault();
        av_max_alloc(kMaxAllocation);
        av_log_set_callback(routeLog);
    });
}

std::string errorText(int error) {
    char text[AV_ERROR_MAX_STRING_SIZE] = {};
    av_strerror(error, text, sizeof text);
    return text;
}

}  // namespace cmcomponents
