#include <zr/CBuffer.h>

#include <zr/CException.h>
#include <zrbase/string_with_format.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <limits>

namespace ZR {

namespace {

const char kFile[] = "lib/base/CBuffer";

const char kHexLower[] = "0123456789abcdef";
const char kHexUpper[] = "0123456789ABCDEF";
const char kBase64[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

bool isSpace(unsigned char c) { return c == ' ' || c == '\t' || c == '\r' || c == '\n'; }

int hexValue(unsigned char c) {
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    return -1;
}

// The logical content of src (a string's NUL left out), copied so that a codec may write
// into the very buffer it reads.
CBuffer logicalCopy(const CBuffer& src) {
    CBuffer copy;
    copy.append(src.getSize() + src.correction(), src.getData());
    return copy;
}

int base64Value(unsigned char c) {
    const char* p = c ? std::strchr(kBase64, c) : nullptr;
    return p ? static_cast<int>(p - kBase64) : -1;
}

}  // namespace

CBuffer::CBuffer(const CBuffer& other) : mFlags(other.mFlags) {
    if (other.mSize > 0) {
        append(other.mSize, other.mData);
    }
}

CBuffer& CBuffer::operator=(const CBuffer& other) {
    if (this != &other) {
        clear();
        if (other.mSize > 0) {
            append(other.mSize, other.mData);
        }
    }
    return *this;
}

CBuffer::~CBuffer() { release(); }

void CBuffer::release() noexcept {
    if (mFlags & 1) {
        std::free(mData);
    }
    mData = nullptr;
    mCapacity = 0;
    mSize = 0;
    mFlags = 1;
}

CBuffer& CBuffer::clear() noexcept {
    mSize = 0;
    return *this;
}

CBuffer& CBuffer::zero() noexcept {
    if (mData) {
        std::memset(mData, 0, static_cast<size_t>(mCapacity));
    }
    return *this;
}

void CBuffer::setSize(int size) noexcept { mSize = std::clamp(size, 0, mCapacity); }

void CBuffer::resize(int newCapacity) {
    if (newCapacity <= mCapacity) {
        return;
    }
    const long long doubled = 2LL * mCapacity;
    const int target = static_cast<int>(std::min<long long>(
        std::max<long long>({newCapacity, doubled, 16}), std::numeric_limits<int>::max()));
    void* grown = std::realloc(mData, static_cast<size_t>(target));
    if (!grown) {
        ZR_THROW(kFile, CString("Memory allocation error."));
    }
    mData = static_cast<unsigned char*>(grown);
    mCapacity = target;
    mFlags = 1;
}

unsigned char* CBuffer::grow(int n) {
    if (n > std::numeric_limits<int>::max() - mSize) {
        ZR_THROW(kFile, CString("Memory allocation error."));
    }
    if (mCapacity - mSize < n) {
        resize(mSize + n);
    }
    unsigned char* end = mData + mSize;
    mSize += n;
    return end;
}

void CBuffer::init(int size, unsigned char* data, ConstructionFlags flags) { set(size, data, flags); }

void CBuffer::set(int size, unsigned char* data, ConstructionFlags flags) {
    size = std::max(size, 0);
    if (!(flags & ConstructionCopy)) {
        release();
        mData = data;
        mCapacity = mSize = data ? size : 0;
        return;
    }
    clear();
    append(size, data);
    if (flags & ConstructionFreeSource) {
        std::free(data);
    }
}

void CBuffer::append(int size, const unsigned char* data) {
    if (size <= 0) {
        return;
    }
    std::memcpy(grow(size), data, static_cast<size_t>(size));
}

bool CBuffer::operator<(const CBuffer& other) const noexcept {
    const int common = std::min(mSize, other.mSize);
    const int order = common > 0 ? std::memcmp(mData, other.mData, static_cast<size_t>(common)) : 0;
    return order < 0 || (order == 0 && mSize < other.mSize);
}

bool CBuffer::encodeHex(const CBuffer& src, int options) {
    const char* digits = options ? kHexUpper : kHexLower;
    const CBuffer input = logicalCopy(src);
    const int n = input.mSize;
    const unsigned char* in = input.mData;
    clear();
    if (n == 0) {
        return true;
    }
    unsigned char* out = grow(2 * n);
    for (int i = 0; i < n; ++i) {
        out[2 * i] = static_cast<unsigned char>(digits[in[i] >> 4]);
        out[2 * i + 1] = static_cast<unsigned char>(digits[in[i] & 15]);
    }
    return true;
}

bool CBuffer::decodeHex(const CBuffer& src, int) {
    const CBuffer input = logicalCopy(src);
    clear();
    int high = -1;
    for (int i = 0; i < input.mSize; ++i) {
        const unsigned char c = input.mData[i];
        if (isSpace(c)) {
            continue;
        }
        const int v = hexValue(c);
        if (v < 0) {
            return clear(), false;
        }
        if (high < 0) {
            high = v;
            continue;
        }
        *grow(1) = static_cast<unsigned char>(high << 4 | v);
        high = -1;
    }
    if (high >= 0) {
        return clear(), false;
    }
    return true;
}

bool CBuffer::encodeBase64(const CBuffer& src, int options) {
    const CBuffer input = logicalCopy(src);
    const int n = input.mSize;
    const unsigned char* in = input.mData;
    clear();
    int column = 0;
    auto put = [&](char c) {
        if (options > 0 && column == options) {
            *grow(1) = '\n';
            column = 0;
        }
        *grow(1) = static_cast<unsigned char>(c);
        ++column;
    };
    for (int i = 0; i < n; i += 3) {
        const unsigned b0 = in[i];
        const unsigned b1 = i + 1 < n ? in[i + 1] : 0;
        const unsigned b2 = i + 2 < n ? in[i + 2] : 0;
        put(kBase64[b0 >> 2]);
        put(kBase64[((b0 & 3) << 4) | (b1 >> 4)]);
        put(i + 1 < n ? kBase64[((b1 & 15) << 2) | (b2 >> 6)] : '=');
        put(i + 2 < n ? kBase64[b2 & 63] : '=');
    }
    return true;
}

bool CBuffer::decodeBase64(const CBuffer& src, int) {
    const CBuffer input = logicalCopy(src);
    clear();
    unsigned int bits = 0;
    int count = 0;    // characters of the current quantum
    int padding = 0;  // '=' seen; only more padding and space may follow
    for (int i = 0; i < input.mSize; ++i) {
        const unsigned char c = input.mData[i];
        if (isSpace(c)) {
            continue;
        }
        if (c == '=') {
            if (count < 2 || count + padding >= 4) {
                return clear(), false;
            }
            ++padding;
            continue;
        }
        const int v = base64Value(c);
        if (v < 0 || padding > 0) {
            return clear(), false;
        }
        bits = bits << 6 | static_cast<unsigned>(v);
        if (++count == 4) {
            unsigned char* out = grow(3);
            out[0] = static_cast<unsigned char>(bits >> 16);
            out[1] = static_cast<unsigned char>(bits >> 8);
            out[2] = static_cast<unsigned char>(bits);
            bits = 0;
            count = 0;
        }
    }
    if (count == 0) {
        return padding == 0 ? true : (clear(), false);
    }
    if (count == 1 || count + padding != 4) {
        return clear(), false;
    }
    bits <<= 6 * (4 - count);
    *grow(1) = static_cast<unsigned char>(bits >> 16);
    if (count == 3) {
        *grow(1) = static_cast<unsigned char>(bits >> 8);
    }
    return true;
}

// CString

CString::CString(const char* text) {
    if (text) {
        append(static_cast<int>(std::strlen(text)) + 1, reinterpret_cast<const unsigned char*>(text));
    }
}

CString& CString::operator=(const char* text) {
    clear();
    if (text) {
        append(static_cast<int>(std::strlen(text)) + 1, reinterpret_cast<const unsigned char*>(text));
    }
    return *this;
}

bool CString::terminate(bool ok) {
    if (mSize >= 1 && mData[mSize - 1] != 0) {
        *grow(1) = 0;
    }
    return ok;
}

bool CString::encodeHex(const CBuffer& src, int options) {
    return terminate(CBuffer::encodeHex(src, options));
}
bool CString::decodeHex(const CBuffer& src, int options) {
    return terminate(CBuffer::decodeHex(src, options));
}
bool CString::encodeBase64(const CBuffer& src, int options) {
    return terminate(CBuffer::encodeBase64(src, options));
}
bool CString::decodeBase64(const CBuffer& src, int options) {
    return terminate(CBuffer::decodeBase64(src, options));
}

void CString::formatInto(const char* format, va_list args) {
    const std::string text = zrbase::string_with_vformat(format, args);
    clear();
    append(static_cast<int>(text.size()) + 1, reinterpret_cast<const unsigned char*>(text.c_str()));
}

CString CString::createWithFormat(const char* format, ...) {
    CString result;
    va_list args;
    va_start(args, format);
    result.formatInto(format, args);
    va_end(args);
    return result;
}

int CString::find(const char* needle, int start) const noexcept {
    const int length = getLength();
    if (!needle || start < 0 || start > length || !mData) {
        return -1;
    }
    const char* text = c_str();
    const char* hit = std::strstr(text + start, needle);
    return hit ? static_cast<int>(hit - text) : -1;
}

bool CString::operator==(const char* text) const noexcept {
    return std::strcmp(c_str(), text ? text : "") == 0;
}

const char* CString::c_str() const noexcept {
    return mData && mSize > 0 ? reinterpret_cast<const char*>(mData) : "";
}

// RString

RString& RString::operator=(const char* text) {
    const char* t = text ? text : "";
    set(static_cast<int>(std::strlen(t)) + 1,
        reinterpret_cast<unsigned char*>(const_cast<char*>(t)), ConstructionCopy);
    terminate(true);
    return *this;
}

RString RString::createWithFormat(const char* format, ...) {
    RString result;
    va_list args;
    va_start(args, format);
    result.formatInto(format, args);
    va_end(args);
    return result;
}

}  // namespace ZR
