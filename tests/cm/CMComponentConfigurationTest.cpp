#include <cm/CMComponentConfiguration.h>

#include "support/WireBytes.h"

#include <gtest/gtest.h>

using cmtest::bytesOf;
using cmtest::Wire;
using ZR::CData;
using namespace ZR::CM;

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
    const Wire meta = Wire().u32(2).str("author").str("Me").str("title").str("Film");
    EXPECT_EQ(bytesOf(full), Wire().u32(1).str("a").str("1").append(meta).bytes);
    RExporterConfiguration back;
    back.setMetaValue("title", "Kept");
    full.rewind();
    full >> back;
    EXPECT_FALSE(full.failed());
    EXPECT_STREQ(back.getMetaValue("title").c_str(), "Kept");
    EXPECT_STREQ(back.getMetaValue("author").c_str(), "Me");
}
