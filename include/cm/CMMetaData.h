// CMetaData: free-form text metadata (title, author, ...) carried by movie information and
// by component configurations. One ordered map from key to value; a plain value type that
// belongs to one thread at a time.
#ifndef CM_CMMETADATA_H
#define CM_CMMETADATA_H

#include <zr/CBuffer.h>

#include <map>

namespace ZR {
namespace CM {

class CMetaData {
public:
    using Map = std::map<CString, CString>;  // ordered by CBuffer::operator<

    // Sets or replaces the value of key; a null key is ignored, a null value stores "".
    void setMetaValue(const char* key, const char* value);
    // The value of key, or an empty string when absent.
    CString getMetaValue(const char* key) const;
    int getMetaCount() const { return static_cast<int>(mMetaData.size()); }
    const Map& getMetaData() const { return mMetaData; }

protected:
    Map mMetaData;
};

}  // namespace CM
}  // namespace ZR

#endif
