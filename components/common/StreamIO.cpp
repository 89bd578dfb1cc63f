#include "common/StreamIO.h"

#include <algorithm>
#include <climits>
#include <cstdio>
#include <cstring>

using ZR::RPtr;
using ZR::CM::RStream;

namespace cmcomponents {

namespace {

constexpr std::size_t kBufferSize = 64 * 1024;

}  // namespace

CByteReader::CByteReader(RPtr<RStream> stream) : mStream(std::move(stream)), mBuffer(kBufferSize) {}

bool CByteReader::fill() {
    mBegin = 0;
    mEnd = 0;
    if (mFailed) {
        return false;
    }
    const long long n = mStream->read(mBuffer.data(), static_cast<long long>(mBuffer.size()));
    if (n < 0) {
        mFailed = true;
        return false;
    }
    mEnd = static_cast<std::size_t>(n);
    return n > 0;
}

std::size_t CByteReader::read(unsigned char* dst, std::size_t n) {
    std::size_t done = std::min(n, buffered());
    std::memcpy(dst, mBuffer.data() + mBegin, done);
    mBegin += done;
    while (done < n && !mFailed) {
        const std::size_t left = n - done;
        if (left < mBuffer.size()) {
            if (!fill()) {
                break;
            }
            const std::size_t step = std::min(left, buffered());
            std::memcpy(dst + done, mBuffer.data(), step);
            mBegin = step;
            done += step;
            continue;
        }
        const long long got = mStream->read(dst + done, static_cast<long long>(left));
        if (got <= 0) {
            mFailed = got < 0;
            break;
        }
        done += static_cast<std::size_t>(got);
    }
    mPosition += done;
    return done;
}

CByteReader::Line CByteReader::readLine(std::string& line, std::size_t maxLength) {
    line.clear();
    for (;;) {
        if (buffered() == 0 && !fill()) {
            if (mFailed) {
                return Line::kFailed;
            }
            return line.empty() ? Line::kEnd : Line::kIncomplete;
        }
        const unsigned char* begin = mBuffer.data() + mBegin;
        const auto* newline =
            static_cast<const unsigned char*>(std::memchr(begin, '\n', buffered()));
        const std::size_t take = newline ? static_cast<std::size_t>(newline - begin) : buffered();
        if (line.size() + take > maxLength) {
            return Line::kTooLong;
        }
        line.append(reinterpret_cast<const char*>(begin), take);
        const std::size_t consumed = take + (newline ? 1 : 0);
        mBegin += consumed;
        mPosition += consumed;
        if (newline) {
            return Line::kComplete;
        }
    }
}

bool CByteReader::skip(unsigned long long n) {
    const std::size_t inBuffer =
        static_cast<std::size_t>(std::min<unsigned long long>(n, buffered()));
    mBegin += inBuffer;
    mPosition += inBuffer;
    const unsigned long long rest = n - inBuffer;
    if (rest == 0) {
        return true;
    }
    // The buffer is empty now, so the stream stands exactly at mPosition.
    if (rest > static_cast<unsigned long long>(LLONG_MAX) ||
        mStream->lseek(static_cast<long long>(rest), SEEK_CUR) < 0) {
        return false;
    }
    mPosition += rest;
    return true;
}

long long CByteReader::remaining() {
    const long long size = mStream->size();
    if (size <= 0) {
        return -1;
    }
    const auto position = static_cast<long long>(mPosition);
    return size > position ? size - position : 0;
}

int openIfClosed(RStream& stream) {
    if (stream.lseek(0, SEEK_CUR) >= 0) {
        return 0;
    }
    return stream.open();
}

bool writeAll(RStream& stream, const unsigned char* data, std::size_t n, std::size_t* written) {
    std::size_t done = 0;
    while (done < n) {
        // The stream interface takes a mutable pointer but only reads through it.
        const long long put =
            stream.write(const_cast<unsigned char*>(data + done), static_cast<long long>(n - done));
        if (put <= 0) {
            break;
        }
        done += static_cast<std::size_t>(put);
    }
    if (written) {
        *written = done;
    }
    return done == n;
}

}  // namespace cmcomponents
