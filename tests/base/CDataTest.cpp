#include <zr/CData.h>

#include <gtest/gtest.h>

#include "support/WireBytes.h"

#include <cmath>
#include <limits>
#include <string>
#include <vector>

using cmtest::bytesOf;
using ZR::CData;

namespace {

enum class Kind : unsigned int { kNone = 0, kVideo = 0x76696465 };

}  // namespace

TEST(CDataTest, ScalarsAreWrittenBigEndian) {
    CData d;
    EXPECT_EQ(d.getCapacity(), 0);
    d << 1u << -2 << 1.0 << 0x0102030405060708ULL << Kind::kVideo;
    const std::vector<unsigned char> expected = {
        0,    0,    0,    1,                 // unsigned 1
        0xFF, 0xFF, 0xFF, 0xFE,              // int -2
        0x3F, 0xF0, 0,    0,    0, 0, 0, 0,  // double 1.0
        1,    2,    3,    4,    5, 6, 7, 8,  // unsigned long long
        0x76, 0x69, 0x64, 0x65,              // enum
    };
    EXPECT_EQ(bytesOf(d), expected);
    EXPECT_EQ(d.getSize(), 4 + 4 + 8 + 8 + 4);
    EXPECT_EQ(d.getCursor(), d.getSize());
}

TEST(CDataTest, StringsCarryTheirNulAndEmptyBuffersAreFourZeros) {
    CData d;
    d << ZR::CString("ab") << ZR::CBuffer();
    const std::vector<unsigned char> expected = {0, 0, 0, 3, 'a', 'b', 0, 0, 0, 0, 0};
    EXPECT_EQ(bytesOf(d), expected);

    // A string that arrives without its NUL is terminated on reading.
    const unsigned char raw[] = {0, 0, 0, 2, 'h', 'i'};
    CData in(raw, sizeof raw);
    ZR::CString s;
    in >> s;
    EXPECT_STREQ(s.c_str(), "hi");
    EXPECT_EQ(s.getSize(), 3);
}

TEST(CDataTest, TimeStampsTravelAsWholeSeconds) {
    CData d;
    d << ZR::CTimeStamp(2.75) << ZR::CTimeStamp(1e19) << ZR::CTimeStamp(-1.5)
      << ZR::CTimeStamp(std::nan("")) << ZR::Fixed64(3.9);
    d.rewind();
    ZR::CTimeStamp a, big, negative, nan;
    ZR::Fixed64 f;
    d >> a >> big >> negative >> nan >> f;
    EXPECT_EQ(double(a), 2.0);
    EXPECT_EQ(double(big), 1e19);                         // above 2^63: converted as unsigned
    EXPECT_EQ(double(negative), 18446744073709551615.0);  // -1 as unsigned 64-bit
    EXPECT_EQ(double(nan), 0.0);
    EXPECT_EQ(double(f), 3.0);
    const std::vector<unsigned char> first(d.getData(), d.getData() + 8);
    EXPECT_EQ(first, (std::vector<unsigned char>{0, 0, 0, 0, 0, 0, 0, 2}));
}
