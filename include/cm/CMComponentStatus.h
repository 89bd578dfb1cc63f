// How things went: the result codes of the library with their fixed texts, and
// CComponentStatus, the progress record of one running component.
//
// Result codes are plain ints: 0 is success, -1 the generic failure, 166 to 203 the
// specific failures. The texts are static strings owned by the library.
#ifndef CM_CMCOMPONENTSTATUS_H
#define CM_CMCOMPONENTSTATUS_H

#include <zr/CBuffer.h>
#include <zr/CData.h>

namespace ZR {
namespace CM {

enum ResultCode : int {
    kResultOK = 0,
    kResultUnspecified = -1,
    kResultUnhandledException = 166,
    kResultFileNotFound = 167,
    kResultFileCreateFailed = 168,
    kResultFileOpenFailed = 169,
    kResultFileWriteFailed = 170,
    kResultFileReadFailed = 171,
    kResultDirectoryNotFound = 172,
    kResultDirectoryCreateFailed = 173,
    kResultDirectoryOpenFailed = 174,
    kResultDirectoryReadFailed = 175,
    kResultComponentLoadFailed = 180,
    kResultComponentInitFailed = 181,
    kResultComponentPreflightFailed = 182,
    kResultComponentConfigureFailed = 183,
    kResultComponentStartFailed = 184,
    kResultComponentJoinFailed = 185,
    kResultComponentDestroyFailed = 186,
    kResultJobDied = 187,
    kResultNoComponentsInChain = 188,
    kResultChainOptimizationFailed = 189,
    kResultSettingParseFailed = 190,
    kResultInputMetaDataParseFailed = 191,
    kResultNoImporter = 192,
    kResultNoExporter = 193,
    kResultNoDecoder = 194,
    kResultNoEncoder = 195,
    kResultNoFilter = 196,
    kResultNoConverter = 197,
    kResultNoPacketizer = 198,
    kResultNoValidTracks = 199,
    kResultMetaDataOutputFailed = 200,
    kResultDTDLoadFailed = 201,
    kResultXMLValidationFailed = 202,
    kResultSymbolicLinkFailed = 203,
};

// The text of a result code; "unknown error" for codes outside the table. Never null.
const char* stringWithResultCode(int code);

class CComponentStatus {
public:
    enum Phase : unsigned int {
        kInitialized = 0,
        kPreflighted = 1,
        kConfigured = 2,
        kWorking = 3,
        kPaused = 4,
        kCompleted = 5,
    };
    static const char* const mStatusCodeNames[6];

    CComponentStatus() = default;
    CComponentStatus(const CComponentStatus& other) = default;
    CComponentStatus& operator=(const CComponentStatus& other) = default;
    ~CComponentStatus() = default;

    // "[Working] Frames: 10. Bytes: 2048", with ". Info: text" when there is an info text.
    operator RString() const;

    unsigned int mStatusCode = kInitialized;
    int mFrames = 0;
    int mBytes = 0;
    RString mInfo;
    // Carried by copies; neither printed nor serialized.
    unsigned int mExtra = 0;
};

// Status code, frames and bytes as 32-bit big-endian integers, then the info text.
CData& operator<<(CData& data, const CComponentStatus& status);
CData& operator>>(CData& data, CComponentStatus& status);

}  // namespace CM
}  // namespace ZR

#endif
