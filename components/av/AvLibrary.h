// The process-wide set-up of FFmpeg's libraries for the components, and their error texts.
//
// initializeLibav() routes FFmpeg's log to the library's logger (RLogger) instead of
// standard error: errors and warnings at info priority, FFmpeg's own info and verbose
// lines at debug priority, its debug chatter nowhere. It also caps every single
// allocation FFmpeg makes (kMaxAllocation), so that a file whose header claims huge sizes
// fails instead of taking the memory it names.
//
// Threads: initializeLibav() may be called from any thread, any number of times; the
// first call makes the default logger, so it belongs on the application's thread (every
// FFmpeg component calls it from its constructor). FFmpeg then logs from any thread.
#ifndef CM_COMPONENTS_AV_AVLIBRARY_H
#define CM_COMPONENTS_AV_AVLIBRARY_H

#include <cstddef>
#include <string>

namespace cmcomponents {

// The largest single allocation FFmpeg may make: more than one plane of an 8K picture of
// 16-bit samples needs, far below what a bad header can ask for.
constexpr std::size_t kMaxAllocation = 128u << 20;

void initializeLibav();

// FFmpeg's text for one of its error codes.
std::string errorText(int error);

}  // namespace cmcomponents

#endif
