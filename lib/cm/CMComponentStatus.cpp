#include <cm/CMComponentStatus.h>

namespace ZR {
namespace CM {

namespace {

// Dense table of the specific failures, indexed by code - 166.
const char* const kResultTexts[] = {
    "unhandled exception",              // 166
    "file not found",                   // 167
    "failed to create file",            // 168
    "failed to open file",              // 169
    "failed to write to file",          // 170
    "failed to read from file",         // 171
    "directory not found",              // 172
    "failed to create directory",       // 173
    "failed to open directory",         // 174
    "failed to read from directory",    // 175
    "unknown error",                    // 176
    "unknown error",                    // 177
    "unknown error",                    // 178
    "unknown error",                    // 179
    "failed to load component",         // 180
    "failed to initialize component",   // 181
    "failed to preflight component",    // 182
    "failed to configure component",    // 183
    "failed to start component",        // 184
    "failed to join component",         // 185
    "failed to destroy component",      // 186
    "job died before finishing",        // 187
    "no components in chain",           // 188
    "chain optimization failed",        // 189
    "failed to parse setting",          // 190
    "failed to parse input meta-data",  // 191
    "no importer found",                // 192
    "no exporter found",                // 193
    "no decoder found",                 // 194
    "no encoder found",                 // 195
    "no filter found",                  // 196
    "no converter found",               // 197
    "no packetizer found",              // 198
    "movie has no valid tracks",        // 199
    "failed to output meta-data",       // 200
    "failed to load dtd",               // 201
    "failed to validate xml",           // 202
    "failed to resolve symbolic link",  // 203
};
static_assert(sizeof kResultTexts / sizeof kResultTexts[0] == 203 - 166 + 1,
              "one text per code from 166 to 203");

// A phase outside the table is the caller's error; it prints as this instead of reading
// past the table.
const char kUnknownPhase[] = "Unknown";

}  // namespace

const char* stringWithResultCode(int code) {
    if (code >= kResultUnhandledException && code <= kResultSymbolicLinkFailed) {
        return kResultTexts[code - kResultUnhandledException];
    }
    if (code == kResultOK) {
        return "no error";
    }
    if (code == kResultUnspecified) {
        return "unspecified error";
    }
    return "unknown error";
}

const char* const CComponentStatus::mStatusCodeNames[6] = {
    "Initialized", "Preflighted", "Configured", "Working", "Paused", "Completed",
};

CComponentStatus::operator RString() const {
    const char* name = mStatusCode < 6 ? mStatusCodeNames[mStatusCode] : kUnknownPhase;
    if (!mInfo.getData()) {
        return RString::createWithFormat("[%s] Frames: %d. Bytes: %d", name, mFrames, mBytes);
    }
    return RString::createWithFormat("[%s] Frames: %d. Bytes: %d. Info: %s", name, mFrames,
                                     mBytes, mInfo.c_str());
}

CData& operator<<(CData& data, const CComponentStatus& status) {
    return data << status.mStatusCode << status.mFrames << status.mBytes << status.mInfo;
}

CData& operator>>(CData& data, CComponentStatus& status) {
    // The string reader re-terminates the text when the stream did not carry its NUL.
    return data >> status.mStatusCode >> status.mFrames >> status.mBytes >> status.mInfo;
}

}  // namespace CM
}  // namespace ZR
