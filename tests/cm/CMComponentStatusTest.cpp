#include <cm/CMComponentStatus.h>

#include <gtest/gtest.h>

#include "support/WireBytes.h"

#include <set>
#include <string>

using cmtest::bytesOf;
using cmtest::Wire;
using ZR::CM::CComponentStatus;
using ZR::CM::stringWithResultCode;

TEST(ResultCodeTest, EveryCodeHasItsFixedText) {
    EXPECT_STREQ(stringWithResultCode(0), "no error");
    EXPECT_STREQ(stringWithResultCode(-1), "unspecified error");
    EXPECT_STREQ(stringWithResultCode(166), "unhandled exception");
    EXPECT_STREQ(stringWithResultCode(175), "failed to read from directory");
    EXPECT_STREQ(stringWithResultCode(180), "failed to load component");
    EXPECT_STREQ(stringWithResultCode(192), "no importer found");
    EXPECT_STREQ(stringWithResultCode(203), "failed to resolve symbolic link");
    for (const int code : {165, 204, -2, 1, 176, 179, 0x7FFFFFFF, static_cast<int>(0x80000000)}) {
        EXPECT_STREQ(stringWithResultCode(code), "unknown error") << code;
    }
    std::set<std::string> texts;
    for (int code = 166; code <= 203; ++code) {
        texts.insert(stringWithResultCode(code));
    }
    EXPECT_EQ(texts.size(), 203u - 166 + 1 - 4 + 1);  // 176..179 share "unknown error"
}

TEST(ComponentStatusTest, SerializedFormRoundTripsWithoutTheTrailingWord) {
    CComponentStatus out;
    out.mStatusCode = CComponentStatus::kCompleted;
    out.mFrames = -3;
    out.mBytes = 70000;
    out.mInfo = "done";
    out.mExtra = 5;
    ZR::CData data;
    data << out;
    const std::vector<unsigned char> form =
        Wire().u32(5).u32(0xFFFFFFFDu).u32(70000).str("done").bytes;
    EXPECT_EQ(bytesOf(data), form);

    // Read back and written again, the status gives the same bytes; mExtra is not read.
    data.rewind();
    CComponentStatus in;
    in.mExtra = 99;
    data >> in;
    ZR::CData again;
    again << in;
    EXPECT_EQ(bytesOf(again), form);
    EXPECT_EQ(in.mExtra, 99u);

    // An info text sent without its NUL is terminated on arrival; no info reads as empty.
    const unsigned char bare[] = {0, 0, 0, 1, 0, 0, 0, 2, 0, 0, 0, 3, 0, 0, 0, 2, 'o', 'k'};
    ZR::CData raw(bare, sizeof bare);
    raw >> in;
    EXPECT_STREQ(in.mInfo.c_str(), "ok");
    EXPECT_EQ(in.mInfo.getSize(), 3);

    ZR::CData empty;
    empty << CComponentStatus();
    EXPECT_EQ(empty.getSize(), 16);
}

TEST(ComponentStatusTest, PrintsShortAndLongForms) {
    CComponentStatus status;
    EXPECT_STREQ(ZR::RString(status).c_str(), "[Initialized] Frames: 0. Bytes: 0");

    status.mStatusCode = CComponentStatus::kWorking;
    status.mFrames = 10;
    status.mBytes = 2048;
    status.mInfo = "x";
    EXPECT_STREQ(ZR::RString(status).c_str(), "[Working] Frames: 10. Bytes: 2048. Info: x");

    status.mStatusCode = 9;  // outside the table: printed, not read out of bounds
    EXPECT_STREQ(ZR::RString(status).c_str(), "[Unknown] Frames: 10. Bytes: 2048. Info: x");
}
