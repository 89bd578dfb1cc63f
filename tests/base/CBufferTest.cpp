#include <zr/CBuffer.h>
#include <zr/CException.h>

#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <string>

using ZR::CBuffer;
using ZR::CString;
using ZR::RString;

namespace {

std::string contentOf(const CBuffer& b) {
    return std::string(reinterpret_cast<const char*>(b.getData()),
                       static_cast<size_t>(b.getSize()));
}

unsigned char* mallocCopy(const char* text) {
    const size_t n = std::strlen(text);
    auto* block = static_cast<unsigned char*>(std::malloc(n));
    std::memcpy(block, text, n);
    return block;
}

}  // namespace

TEST(CStringTest, SizeCountsTheNulAndClearKeepsStorage) {
    CString s("abc");
    EXPECT_EQ(s.getSize(), 4);
    EXPECT_EQ(s.getLength(), 3);
    EXPECT_STREQ(s.c_str(), "abc");
    const int capacity = s.getCapacity();
    unsigned char* storage = s.getData();
    s.clear();
    EXPECT_EQ(s.getSize(), 0);
    EXPECT_EQ(s.getCapacity(), capacity);
    EXPECT_EQ(s.getData(), storage);
    EXPECT_STREQ(s.c_str(), "");

    const CString empty;
    EXPECT_EQ(empty.getData(), nullptr);
    EXPECT_STREQ(empty.c_str(), "");
    EXPECT_EQ(empty.getLength(), 0);
}

TEST(CStringTest, CopiesAreDeepAndAssignmentKeepsOneNul) {
    CString a("media");
    CString b(a);
    EXPECT_NE(a.getData(), b.getData());
    b = "other";
    EXPECT_TRUE(a == "media");
    a = b;
    EXPECT_TRUE(a == "other");
    EXPECT_NE(a.getData(), b.getData());

    RString r;
    r = "";
    EXPECT_EQ(r.getSize(), 1);
    EXPECT_EQ(r.getData()[0], 0);
    EXPECT_STREQ(RString::createWithFormat("%03d", 7).c_str(), "007");
}

TEST(CStringTest, FindAndFormat) {
    const CString s = CString::createWithFormat("%s-%d-%s", "ab", 42, "ab");
    EXPECT_TRUE(s == "ab-42-ab");
    EXPECT_EQ(s.getSize(), 9);
    EXPECT_EQ(s.find("ab", 0), 0);
    EXPECT_EQ(s.find("ab", 1), 6);
    EXPECT_LT(s.find("zz", 0), 0);
    for (const int from : {7, 100, -1}) {
        EXPECT_LT(s.find("ab", from), 0) << from;
    }
    EXPECT_LT(CString().find("a", 0), 0);

    const std::string longText(5000, 'x');
    EXPECT_EQ(CString::createWithFormat("%s", longText.c_str()).getLength(), 5000);
}

TEST(CBufferTest, OwnershipFlagsDecideWhoFreesTheBlock) {
    CBuffer adopted;
    unsigned char* block = mallocCopy("adopt");
    adopted.set(5, block, ZR::ConstructionAdopt);
    EXPECT_EQ(adopted.getData(), block);  // freed by the buffer, or the leak checker complains
    EXPECT_EQ(adopted.getCapacity(), 5);

    CBuffer copied;
    const unsigned char local[] = "copy";
    copied.init(4, const_cast<unsigned char*>(local), ZR::ConstructionCopy);
    EXPECT_NE(copied.getData(), local);
    EXPECT_EQ(contentOf(copied), "copy");

    CBuffer freed;
    unsigned char* source = mallocCopy("free");
    freed.set(4, source, ZR::ConstructionCopy | ZR::ConstructionFreeSource);
    EXPECT_EQ(contentOf(freed), "free");  // the source is gone: the leak checker sees it freed

    // The free bit alone behaves as adopting.
    CBuffer alone;
    unsigned char* other = mallocCopy("bit");
    alone.set(3, other, ZR::ConstructionFreeSource);
    EXPECT_EQ(alone.getData(), other);
}

TEST(CBufferTest, GrowsKeepingContentAndOrdersByBytes) {
    CBuffer b;
    std::string appended;
    for (int i = 0; i < 1000; ++i) {
        appended += static_cast<char>(i);
        b.append(1, reinterpret_cast<const unsigned char*>(&appended.back()));
    }
    EXPECT_EQ(contentOf(b), appended);
    b.resize(10);  // never shrinks
    EXPECT_GE(b.getCapacity(), 1000);
    b.zero();
    EXPECT_EQ(b.getSize(), 1000);
    EXPECT_EQ(b.getData()[999], 0);
    b.setSize(1 << 30);
    EXPECT_EQ(b.getSize(), b.getCapacity());
    b.setSize(-5);
    EXPECT_EQ(b.getSize(), 0);

    EXPECT_LT(CString("ab"), CString("abc"));
    EXPECT_LT(CString("abc"), CString("abd"));
    EXPECT_FALSE(CString("abc") < CString("abc"));
    EXPECT_LT(CString("a\x7f"), CString("a\xff"));  // bytes compare as unsigned
    EXPECT_LT(CBuffer(), CString(""));
}

TEST(CBufferTest, ResizeBeyondMemoryThrows) {
    CBuffer b;
    try {
        b.resize(0x7FFFFFFF);
        // Some systems do hand out 2 GiB; then the buffer must hold it.
        EXPECT_GE(b.getCapacity(), 0x7FFFFFFF);
    } catch (const ZR::CException& e) {
        EXPECT_STREQ(e.getMessage(), "Memory allocation error.");
        EXPECT_EQ(b.getCapacity(), 0);
    }
}

TEST(CBufferCodecTest, HexRoundTripsAndRejectsMalformedText) {
    for (const char* text : {"", "a", "ab", "abc", "\x01\xff\x80 z"}) {
        CBuffer raw;
        raw.append(static_cast<int>(std::strlen(text)),
                   reinterpret_cast<const unsigned char*>(text));
        CBuffer hex;
        ASSERT_TRUE(hex.encodeHex(raw, 0));
        EXPECT_EQ(hex.getSize(), 2 * raw.getSize());
        CBuffer back;
        ASSERT_TRUE(back.decodeHex(hex, 0));
        EXPECT_EQ(contentOf(back), text);
    }

    CString upper;
    upper.encodeHex(CString("\xab\x01"), 1);
    EXPECT_STREQ(upper.c_str(), "AB01");
    EXPECT_EQ(upper.getSize(), 5);  // the string's NUL is not encoded, the result is terminated

    CString decoded;
    EXPECT_TRUE(decoded.decodeHex(CString("6d 65\n64"), 0));
    EXPECT_STREQ(decoded.c_str(), "med");
    EXPECT_FALSE(decoded.decodeHex(CString("abc"), 0));  // odd digit count
    EXPECT_EQ(decoded.getSize(), 0);
    EXPECT_FALSE(decoded.decodeHex(CString("zz"), 0));
    EXPECT_EQ(decoded.getSize(), 0);
}

TEST(CBufferCodecTest, Base64FollowsTheStandardAlphabetAndPadding) {
    const char* vectors[][2] = {{"", ""},
                                {"f", "Zg=="},
                                {"fo", "Zm8="},
                                {"foo", "Zm9v"},
                                {"foob", "Zm9vYg=="},
                                {"fooba", "Zm9vYmE="},
                                {"foobar", "Zm9vYmFy"}};
    for (const auto& v : vectors) {
        CString encoded;
        encoded.encodeBase64(CString(v[0]), 0);
        EXPECT_STREQ(encoded.c_str(), v[1]);
        CString decoded;
        EXPECT_TRUE(decoded.decodeBase64(encoded, 0));
        EXPECT_STREQ(decoded.c_str(), v[0]);
    }

    CBuffer binary;
    for (int i = 0; i < 256; ++i) {
        const unsigned char byte = static_cast<unsigned char>(i);
        binary.append(1, &byte);
    }
    CBuffer wrapped;
    wrapped.encodeBase64(binary, 76);
    EXPECT_EQ(wrapped.getData()[76], '\n');
    CBuffer back;
    ASSERT_TRUE(back.decodeBase64(wrapped, 0));
    EXPECT_EQ(contentOf(back), contentOf(binary));

    // An in-place codec reads its own content before replacing it.
    CString inPlace("hello");
    inPlace.encodeBase64(inPlace, 0);
    inPlace.decodeBase64(inPlace, 0);
    EXPECT_STREQ(inPlace.c_str(), "hello");

    for (const char* bad : {"Zg=", "Zg", "Z===", "Zm9v=", "Zg==Zg==", "Zm9v!", "=Zg="}) {
        CString decoded("previous");
        EXPECT_FALSE(decoded.decodeBase64(CString(bad), 0)) << bad;
        EXPECT_EQ(decoded.getSize(), 0) << bad;
    }
}
