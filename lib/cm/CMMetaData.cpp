#include <cm/CMMetaData.h>

namespace ZR {
namespace CM {

void CMetaData::setMetaValue(const char* key, const char* value) {
    if (!key) {
        return;
    }
    mMetaData[CString(key)] = CString(value ? value : "");
}

CString CMetaData::getMetaValue(const char* key) const {
    if (!key) {
        return CString();
    }
    const auto found = mMetaData.find(CString(key));
    return found == mMetaData.end() ? CString() : found->second;
}

}  // namespace CM
}  // namespace ZR
