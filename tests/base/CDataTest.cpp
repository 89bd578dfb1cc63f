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

// A stream that records each growth it is asked for.
class GrowthLog : public CData {
public:
    void resize(int newCapacity) override {
        requests.push_back(newCapacity);
        CData::resize(newCapacity);
    }
    std::vector<int> requests;
};

TEST(CDataTest, EachValueGrowsAnEmptyStreamOnceByItsWidth) {
    struct Row {
        const char* type;
        void (*write)(CData&);
        int width;
    };
    const Row rows[] = {
        {"int", [](CData& d) { d << -1; }, 4},
        {"unsigned int", [](CData& d) { d << 1u; }, 4},
        {"enumeration", [](CData& d) { d << Kind::kVideo; }, 4},
        {"unsigned long long", [](CData& d) { d << 1ULL; }, 8},
        {"double", [](CData& d) { d << 1.0; }, 8},
        {"CTimeStamp", [](CData& d) { d << ZR::CTimeStamp(1.0); }, 8},
        {"Fixed64", [](CData& d) { d << ZR::Fixed64(1.0); }, 8},
    };
    for (const Row& row : rows) {
        GrowthLog d;
        row.write(d);
        EXPECT_EQ(d.requests, std::vector<int>{row.width}) << row.type;
        EXPECT_EQ(d.getSize(), row.width) << row.type;
    }
}

// Read back and written again, every form gives the same bytes (the written forms are
// pinned above), and reading consumes the whole stream.
TEST(CDataTest, EveryFormRoundTrips) {
    CData d;
    ZR::RString shared;
    shared = "shared";
    d << -123456 << 4000000000u << 0xFFFFFFFFFFFFFFFFULL << -0.5 << ZR::CTimeStamp(42.0)
      << ZR::Fixed64(9.0) << ZR::CString("round trip") << shared
      << std::vector<unsigned int>{7, 8, 9} << ZR::CString() << Kind::kVideo;

    d.rewind();
    int i = 0;
    unsigned int u = 0;
    unsigned long long ull = 0;
    double dbl = 0;
    ZR::CTimeStamp ts;
    ZR::Fixed64 fixed;
    ZR::CString textBack, emptyBack("not empty");
    ZR::RString sharedBack;
    std::vector<unsigned int> listBack;
    Kind kind = Kind::kNone;
    d >> i >> u >> ull >> dbl >> ts >> fixed >> textBack >> sharedBack >> listBack >> emptyBack >>
        kind;
    EXPECT_FALSE(d.failed());
    EXPECT_EQ(d.remaining(), 0);
    CData again;
    again << i << u << ull << dbl << ts << fixed << textBack << sharedBack << listBack << emptyBack
          << kind;
    EXPECT_EQ(bytesOf(again), bytesOf(d));
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

TEST(CDataTest, ReadingPastTheEndStaysInsideTheBuffer) {
    const unsigned char raw[] = {0, 0, 0, 5, 0xAA, 0xBB};
    CData d(raw, sizeof raw);
    unsigned int count = 0;
    d >> count;
    EXPECT_EQ(count, 5u);
    EXPECT_FALSE(d.failed());
    unsigned int partial = 99;
    d >> partial;  // two bytes left, four wanted
    EXPECT_EQ(partial, 0u);
    EXPECT_TRUE(d.failed());
    EXPECT_EQ(d.getCursor(), d.getSize());
    double after = 1.0;
    d >> after;
    EXPECT_EQ(after, 0.0);

    // A string whose count runs past the end reads as empty.
    const unsigned char liar[] = {0x7F, 0xFF, 0xFF, 0xFF, 'x'};
    CData lying(liar, sizeof liar);
    ZR::CString s("kept?");
    lying >> s;
    EXPECT_TRUE(lying.failed());
    EXPECT_EQ(s.getSize(), 0);

    // A vector whose count is absurd stops at the end of the stream.
    const unsigned char many[] = {0xFF, 0xFF, 0xFF, 0xFF, 0, 0, 0, 1};
    CData vec(many, sizeof many);
    std::vector<unsigned int> items;
    vec >> items;
    EXPECT_EQ(items, std::vector<unsigned int>{1});
    EXPECT_TRUE(vec.failed());
}
