#include <cm/CMFormatObjectMap.h>

#include "support/WireBytes.h"

#include <gtest/gtest.h>

using cmtest::bytesOf;
using cmtest::Wire;
using ZR::CData;
using ZR::fourcc;
using ZR::kAnyFourCC;
using ZR::RString;
using namespace ZR::CM;

namespace {

constexpr unsigned int kMp4v = fourcc("mp4v");
constexpr unsigned int kAvc1 = fourcc("avc1");
constexpr unsigned int kYuv2 = fourcc("yuv2");
constexpr unsigned int kMp4a = fourcc("mp4a");
const std::vector<unsigned int> kAny = {kAnyFourCC};

}  // namespace

TEST(FormatObjectMapTest, StreamFormCarriesRatesNotChannelsAndSurvivesTruncation) {
    RFormatObjectMap map;
    map.set(kAvc1, kYuv2, RString("a.so"), {25, 30}, {1, 2});
    map.set(kMp4a, kSameFourCC, RString(""), {}, {6});
    map.set(kAvc1, kYuv2, RString("index only"));
    CData data;
    data << map;
    const std::vector<unsigned char> bytes = bytesOf(data);
    EXPECT_EQ(bytes, Wire()
                         .u32(2)
                         .u32(kAvc1)
                         .u32(kYuv2)
                         .u32(2)
                         .u32(25)
                         .u32(30)
                         .str("a.so")
                         .u32(kMp4a)
                         .u32(kMp4a)
                         .u32(0)
                         .str("")
                         .bytes);

    RFormatObjectMap back;
    back.set(kMp4v, kMp4v, RString("kept.so"), kAny, kAny);
    data.rewind();
    data >> back;
    EXPECT_FALSE(data.failed());
    ASSERT_EQ(back.getItems().size(), 3u);  // appended
    const ComponentFormatItem& item = back.getItems()[1];
    EXPECT_EQ(item.inFormat, kAvc1);
    EXPECT_EQ(item.outFormat, kYuv2);
    EXPECT_EQ(item.rates, (std::vector<unsigned int>{25, 30}));
    EXPECT_TRUE(item.channels.empty());
    EXPECT_STREQ(item.name.c_str(), "a.so");
    EXPECT_STREQ(back.get(kAvc1, kYuv2).c_str(), "");

    for (size_t length = 0; length < bytes.size(); ++length) {
        CData part(bytes.data(), static_cast<int>(length));
        RFormatObjectMap partial;
        part >> partial;
        EXPECT_TRUE(part.failed()) << length;
        ASSERT_LE(partial.getItems().size(), 1u) << length;  // only whole items
    }
    const std::vector<unsigned char> corrupt =
        Wire().u32(0xFFFFFFFFu).u32(kAvc1).u32(kYuv2).u32(0xFFFFFFF0u).u32(1).bytes;
    CData garbage(corrupt.data(), static_cast<int>(corrupt.size()));
    RFormatObjectMap none;
    garbage >> none;
    EXPECT_TRUE(garbage.failed());
    EXPECT_TRUE(none.getItems().empty());
}
