#include "common/Y4MFormat.h"

#include <gtest/gtest.h>

#include <cm/CMComponentStatus.h>

#include <cmath>
#include <limits>
#include <string>

using ZR::RPtr;
using namespace ZR::CM;
using namespace cmcomponents;

namespace {

int parse(const std::string& line, Y4MFormat& format) {
    std::string why;
    const int result = parseY4MHeader(line, format, why);
    EXPECT_EQ(result == kResultOK, why.empty()) << line << ": " << why;
    return result;
}

}  // namespace

TEST(Y4MFormatTest, MalformedAndUnsupportedHeadersGetTheirResults) {
    const struct {
        const char* line;
        int result;
    } cases[] = {
        {"", kResultInputMetaDataParseFailed},
        {"YUV4MPEG W5 H3 F25:1", kResultInputMetaDataParseFailed},
        {"YUV4MPEG2W5 H3 F25:1", kResultInputMetaDataParseFailed},
        {"YUV4MPEG2 H3 F25:1", kResultInputMetaDataParseFailed},
        {"YUV4MPEG2 W5 F25:1", kResultInputMetaDataParseFailed},
        {"YUV4MPEG2 W5 H3", kResultInputMetaDataParseFailed},
        {"YUV4MPEG2 W0 H3 F25:1", kResultInputMetaDataParseFailed},
        {"YUV4MPEG2 W H3 F25:1", kResultInputMetaDataParseFailed},
        {"YUV4MPEG2 W-5 H3 F25:1", kResultInputMetaDataParseFailed},
        {"YUV4MPEG2 W5x H3 F25:1", kResultInputMetaDataParseFailed},
        {"YUV4MPEG2 W32769 H3 F25:1", kResultInputMetaDataParseFailed},
        {"YUV4MPEG2 W99999999999 H3 F25:1", kResultInputMetaDataParseFailed},
        {"YUV4MPEG2 W5 H3 F25:0", kResultInputMetaDataParseFailed},
        {"YUV4MPEG2 W5 H3 F0:1", kResultInputMetaDataParseFailed},
        {"YUV4MPEG2 W5 H3 F25", kResultInputMetaDataParseFailed},
        {"YUV4MPEG2 W5 H3 F:1", kResultInputMetaDataParseFailed},
        {"YUV4MPEG2 W5 H3 F4294967296:1", kResultInputMetaDataParseFailed},
        {"YUV4MPEG2 W32768 H32768 F25:1 C444", kResultInputMetaDataParseFailed},  // 3 GiB
        {"YUV4MPEG2 W5 H3 F25:1 Cmono", kResultNoValidTracks},
        {"YUV4MPEG2 W5 H3 F25:1 C420p10", kResultNoValidTracks},
        {"YUV4MPEG2 W5 H3 F25:1 C444alpha", kResultNoValidTracks},
        {"YUV4MPEG2 W5 H3 F25:1 C", kResultNoValidTracks},
    };
    for (const auto& c : cases) {
        Y4MFormat f;
        EXPECT_EQ(parse(c.line, f), c.result) << c.line;
    }
}

// Frame rates travel as doubles in descriptions; the exporter needs the fraction back.
TEST(Y4MFormatTest, RatesComeBackAsTheirFractions) {
    const struct {
        unsigned int n, d;
    } rates[] = {{30000, 1001}, {24000, 1001}, {60000, 1001}, {120000, 1001},
                 {25, 1},       {25, 2},       {50, 1},       {1, 1},
                 {3, 2},        {1, 1000},     {90000, 1},    {2997, 100}};
    for (const auto& r : rates) {
        unsigned int n = 0, d = 0;
        ASSERT_TRUE(
            rationalFromRate(static_cast<double>(r.n) / r.d, Y4MFormat::kMaxRateDenominator, n, d));
        EXPECT_EQ(n, r.n) << r.n << "/" << r.d;
        EXPECT_EQ(d, r.d) << r.n << "/" << r.d;
    }
    unsigned int n = 0, d = 0;
    for (double bad : {0.0, -25.0, std::nan(""), std::numeric_limits<double>::infinity(), 1e10}) {
        EXPECT_FALSE(rationalFromRate(bad, Y4MFormat::kMaxRateDenominator, n, d)) << bad;
    }
    ASSERT_TRUE(rationalFromRate(M_PI, 100, n, d));  // the best fraction within the bound
    EXPECT_EQ(n, 311u);
    EXPECT_EQ(d, 99u);

    Y4MFormat f;
    ASSERT_EQ(parse("YUV4MPEG2 W64 H48 F24000:1001 C422", f), kResultOK);
    RPtr<RVideoDescription> description(f.createDescription());
    EXPECT_EQ(description->mVideoInt1, 64u);
    EXPECT_EQ(description->mVideoInt2, 48u);
    EXPECT_EQ(description->mVideoInt3, kPlanar422);
    Y4MFormat back;
    ASSERT_TRUE(back.setFromDescription(*description));
    EXPECT_EQ(makeY4MHeader(back), makeY4MHeader(f));
}
