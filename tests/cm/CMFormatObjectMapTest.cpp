#include <cm/CMFormatObjectMap.h>

#include "support/WireBytes.h"

#include <gtest/gtest.h>

#include <memory>

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

TEST(FormatObjectMapTest, SameTakesTheInputAndAnyInputServesLookupsButNotSupport) {
    RFormatObjectMap map;
    // A miss is a new default item of the caller's own: the leak checker sees it if it is
    // not, the address sanitizer a double free if it belongs to the map after all.
    const std::unique_ptr<const ComponentFormatItem> miss(map.getFormatItem(kAvc1, kYuv2));
    EXPECT_EQ(map.findFormatItem(kAvc1, kYuv2), nullptr);
    EXPECT_EQ(miss->inFormat, 0u);
    EXPECT_EQ(miss->outFormat, 0u);
    EXPECT_TRUE(miss->rates.empty() && miss->channels.empty());
    EXPECT_STREQ(miss->name.c_str(), "");

    map.set(kMp4v, kSameFourCC, RString("mp4v.so"), {44100}, {2});
    map.set(kAnyFourCC, kSameFourCC, RString("any.so"), kAny, kAny);
    map.set(kAvc1, kYuv2, RString("avc.so"), kAny, kAny);
    const auto& items = map.getItems();
    ASSERT_EQ(items.size(), 3u);
    EXPECT_EQ(items[0].outFormat, kMp4v);
    EXPECT_EQ(items[0].rates, std::vector<unsigned int>{44100});
    EXPECT_EQ(items[0].channels, std::vector<unsigned int>{2});
    EXPECT_EQ(items[1].outFormat, kAnyFourCC);

    EXPECT_EQ(map.getFormatItem(kMp4v, kAnyFourCC), &items[0]);
    EXPECT_EQ(map.getFormatItem(kAnyFourCC, kMp4v), &items[0]);
    EXPECT_EQ(map.getFormatItem(kAvc1, kYuv2), &items[1]);  // the any item comes first
    EXPECT_EQ(map.getFormatItem(kMp4a, kMp4a), &items[1]);
    EXPECT_TRUE(map.supportsFormats(kMp4v, kMp4v));
    EXPECT_TRUE(map.supportsFormats(kAvc1, kAnyFourCC));
    EXPECT_TRUE(map.supportsFormats(kAnyFourCC, kAnyFourCC));
    EXPECT_FALSE(map.supportsFormats(kMp4a, kMp4a));  // the any item does not count
    EXPECT_FALSE(map.supportsFormats(kAvc1, kMp4v));
}

TEST(FormatObjectMapTest, SupportedFormatsAppendInItemOrderWithDuplicates) {
    RFormatObjectMap map;
    map.set(kAvc1, kYuv2, RString("a.so"), kAny, kAny);
    map.set(kMp4v, kYuv2, RString("b.so"), kAny, kAny);
    map.set(kAvc1, kMp4a, RString("c.so"), kAny, kAny);
    std::vector<unsigned int> list = {7};
    EXPECT_EQ(map.supportedInFormats(list, kAnyFourCC), 4);
    EXPECT_EQ(map.supportedInFormats(list, kYuv2), 6);
    EXPECT_EQ(list, (std::vector<unsigned int>{7, kAvc1, kMp4v, kAvc1, kAvc1, kMp4v}));
    list.clear();
    EXPECT_EQ(map.supportedOutFormats(list, kAvc1), 2);
    EXPECT_EQ(map.supportedOutFormats(list, kAnyFourCC), 5);
    EXPECT_EQ(list, (std::vector<unsigned int>{kYuv2, kMp4a, kYuv2, kYuv2, kMp4a}));
}

TEST(FormatObjectMapTest, NameIndexesFallBackToTheNearestRecordedPair) {
    RFormatObjectMap map;
    EXPECT_STREQ(map.get(kAvc1, kYuv2).c_str(), "");
    map.set(kMp4v, kYuv2, RString("mp4v-yuv2"));
    map.set(kMp4v, kMp4a, RString("mp4v-mp4a"));
    map.set(kAvc1, kYuv2, RString("old"));
    map.set(kAvc1, kYuv2, RString("avc1-yuv2"));
    EXPECT_STREQ(map.get(kMp4v, kYuv2).c_str(), "mp4v-yuv2");
    EXPECT_STREQ(map.get(kMp4v, kAvc1).c_str(), "mp4v-mp4a");  // smallest output of mp4v
    EXPECT_STREQ(map.get(kMp4a, kYuv2).c_str(), "avc1-yuv2");  // smallest input of yuv2
    EXPECT_STREQ(map.get(kMp4a, kAvc1).c_str(), "avc1-yuv2");  // first pair of all
    EXPECT_TRUE(map.getItems().empty());

    RFormatObjectMap itemsOnly;
    itemsOnly.set(kMp4v, kYuv2, RString("item.so"), kAny, kAny);
    EXPECT_STREQ(itemsOnly.get(kMp4v, kYuv2).c_str(), "");
}

TEST(FormatObjectMapTest, StreamFormCarriesRatesNotChannelsAndSurvivesTruncation) {
    RFormatObjectMap map;
    map.set(kAvc1, kYuv2, RString("a.so"), {25, 30}, {1, 2});
    map.set(kMp4a, kSameFourCC, RString(""), {}, {6});
    map.set(kAvc1, kYuv2, RString("index only"));
    CData data;
    data << map;
    const std::vector<unsigned char> bytes = bytesOf(data);
    Wire expected = Wire().u32(2).u32(kAvc1).u32(kYuv2).u32(2).u32(25).u32(30).str("a.so");
    EXPECT_EQ(bytes, expected.u32(kMp4a).u32(kMp4a).u32(0).str("").bytes);

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
