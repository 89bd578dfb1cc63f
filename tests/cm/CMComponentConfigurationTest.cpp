#include <cm/CMComponentConfiguration.h>

#include "support/WireBytes.h"

#include <gtest/gtest.h>

#include <climits>

using cmtest::bytesOf;
using cmtest::Wire;
using ZR::CData;
using namespace ZR::CM;

TEST(ComponentConfigurationTest, GettersClampStoredNumbersButNeverTheDefault) {
    RComponentConfiguration config;
    config.setString("big", "250");
    config.setString("negative", "-7");
    config.setString("mixed", "12abc");
    config.setString("huge", "99999999999999999999");
    config.setString("nan", "nan");
    config.setString("empty", "");
    config.setString("null", nullptr);

    EXPECT_EQ(config.getInt("big", 0, 0, 100), 100);
    EXPECT_EQ(config.getInt("negative", 50, 0, 100), 0);
    EXPECT_EQ(config.getInt("mixed", 0, 0, 100), 12);
    EXPECT_EQ(config.getInt("huge", 0, 0, INT_MAX), INT_MAX);  // clamped before narrowing
    EXPECT_EQ(config.getFloat("nan", 0.5f, 0.0f, 1.0f), 0.0f);
    EXPECT_EQ(config.getFloat64("nan", 0.5, 0.0, 1.0), 0.0);
    EXPECT_EQ(config.getFloat64("big", 0.0, 0.0, 1e3), 250.0);
    EXPECT_EQ(config.getFloat("negative", 0.0f, -10.0f, 10.0f), -7.0f);
    // Missing, empty and null keys or values all give the default, even out of range.
    for (const char* key : {"missing", "empty", "null", static_cast<const char*>(nullptr)}) {
        EXPECT_EQ(config.getInt(key, 500, 0, 100), 500);
        EXPECT_EQ(config.getFloat(key, 7.5f, 0.0f, 1.0f), 7.5f);
        EXPECT_EQ(config.getFloat64(key, -2.0, 0.0, 1.0), -2.0);
        EXPECT_STREQ(config.getString(key, "fallback").c_str(), "fallback");
        EXPECT_EQ(config.getFourCC(key, 0x12345678u), 0x12345678u);
    }
}

TEST(ComponentConfigurationTest, SettersStoreTextAndReplace) {
    RComponentConfiguration config;
    config.setInt("n", 3);
    config.setInt("n", 4);
    config.setInt(nullptr, 5);
    config.setFloat("f", 0.5f);
    config.setFourCC("codec", 0x6D703461u);
    config.setString("short", "ab");
    ASSERT_EQ(config.getValues().size(), 4u);
    EXPECT_STREQ(config.getString("n", "").c_str(), "4");
    EXPECT_STREQ(config.getString("f", "").c_str(), "0.500000");
    EXPECT_STREQ(config.getString("codec", "").c_str(), "mp4a");
    EXPECT_EQ(config.getFourCC("codec", 0), 0x6D703461u);
    EXPECT_EQ(config.getFourCC("short", 0), 0x61620000u);  // nothing past the NUL is read
}

TEST(ComponentConfigurationTest, StreamFormsWriteInKeyOrderAndReadOnlyAbsentKeys) {
    RImporterConfiguration config;
    config.setInt("b", 2);
    config.setInt("a", 1);
    config.setMetaValue("title", "not written");
    CData data;
    data << config;
    EXPECT_EQ(bytesOf(data), Wire().u32(2).str("a").str("1").str("b").str("2").bytes);

    RComponentConfiguration target;
    target.setInt("a", 9);
    data.rewind();
    data >> target;
    EXPECT_EQ(target.getInt("a", 0, 0, 10), 9);
    EXPECT_EQ(target.getInt("b", 0, 0, 10), 2);

    // The exporter's form adds its metadata map, read with the same rule.
    RExporterConfiguration exporter;
    exporter.setInt("a", 1);
    CData bare;
    bare << exporter;
    EXPECT_EQ(bytesOf(bare), Wire().u32(1).str("a").str("1").u32(0).bytes);
    exporter.setMetaValue("title", "Film");
    exporter.setMetaValue("author", "Me");
    CData full;
    full << exporter;
    EXPECT_EQ(bytesOf(full), Wire()
                                 .u32(1)
                                 .str("a")
                                 .str("1")
                                 .u32(2)
                                 .str("author")
                                 .str("Me")
                                 .str("title")
                                 .str("Film")
                                 .bytes);
    RExporterConfiguration back;
    back.setMetaValue("title", "Kept");
    full.rewind();
    full >> back;
    EXPECT_FALSE(full.failed());
    EXPECT_STREQ(back.getMetaValue("title").c_str(), "Kept");
    EXPECT_STREQ(back.getMetaValue("author").c_str(), "Me");
}

TEST(ComponentConfigurationTest, TruncatedOrCorruptStreamsStayInsideTheBytes) {
    RExporterConfiguration source;
    source.setString("alpha", "1");
    source.setString("beta", "22");
    source.setMetaValue("gamma", "333");
    CData full;
    full << source;
    const std::vector<unsigned char> bytes = bytesOf(full);
    for (size_t length = 0; length < bytes.size(); ++length) {
        CData data(bytes.data(), static_cast<int>(length));
        RExporterConfiguration target;
        data >> target;
        EXPECT_TRUE(data.failed()) << length;
        for (const auto& [key, value] : target.getValues()) {  // only whole pairs arrive
            EXPECT_STREQ(value.c_str(), source.getString(key.c_str(), "?").c_str()) << length;
        }
        EXPECT_EQ(target.getMetaCount(), 0) << length;
    }

    // A huge count, a pair written without NULs (terminated on reading), a huge key length.
    const std::vector<unsigned char> corrupt =
        Wire().u32(0xFFFFFFFFu).u32(1).raw("k").u32(2).raw("42").u32(0x7FFFFFFFu).bytes;
    CData data(corrupt.data(), static_cast<int>(corrupt.size()));
    RComponentConfiguration target;
    data >> target;
    EXPECT_TRUE(data.failed());
    EXPECT_EQ(data.getCursor(), data.getSize());
    ASSERT_EQ(target.getValues().size(), 1u);
    EXPECT_STREQ(target.getString("k", "").c_str(), "42");
    EXPECT_EQ(target.getValues().begin()->second.getSize(), 3);
}
