// The SigMF recording of `qor iq`: capture segments, time stamps and sample formats.
#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <fstream>
#include <iterator>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "session.h"
#include "sigmf_recording.h"

namespace {

using nlohmann::json;
using qortool::IqFormat;
using qortool::SigmfRecording;

std::string Slurp(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

// Three blocks: 3 samples (after a loss, still the first segment), 2 more,
// then 1 after a loss. The first sample is (1.0, -2.0): full scale and beyond.
json Record(const std::string& name, IqFormat format) {
    const std::vector<float> iq = {1.0f, -2.0f, 0.25f, 0.0f, 0.5f, -0.5f, 0.1f, 0.2f, 0.3f, 0.4f, 0.7f, 0.7f};
    SigmfRecording recording(name, {format, 60763.89, "unit", "qor 3.1.0", ""}, 2.45e9);
    recording.Append(iq.data(), 3, 1000, true);
    recording.Append(iq.data() + 6, 2, 2000, false);
    recording.Append(iq.data() + 10, 1, 3456, true);
    recording.Finish();
    return json::parse(Slurp(name + ".sigmf-meta"));
}

TEST(ToolSigmf, SegmentsStartAtTheFirstBlockAndAfterEachLossInEitherFormat) {
    for (const IqFormat format : {IqFormat::Cf32, IqFormat::Cs16}) {
        const bool cs16 = format == IqFormat::Cs16;
        const std::string name = ::testing::TempDir() + (cs16 ? "/segments16" : "/segments32");
        const json meta = Record(name, format);
        EXPECT_EQ(meta["global"]["core:datatype"], cs16 ? "ci16_le" : "cf32_le");
        EXPECT_EQ(meta["global"]["core:version"], "1.0.0");
        EXPECT_FALSE(meta["global"].contains("core:description"));
        ASSERT_EQ(meta["captures"].size(), 2u);
        EXPECT_EQ(meta["captures"][0]["core:sample_start"], 0);
        EXPECT_EQ(meta["captures"][0]["core:datetime"], "1970-01-01T00:00:01.000Z");
        EXPECT_EQ(meta["captures"][1]["core:sample_start"], 5);
        EXPECT_EQ(meta["captures"][1]["core:datetime"], "1970-01-01T00:00:03.456Z");
        EXPECT_DOUBLE_EQ(meta["captures"][1]["core:frequency"].get<double>(), 2.45e9);
        EXPECT_TRUE(meta["annotations"].is_array() && meta["annotations"].empty());

        const std::string data = Slurp(name + ".sigmf-data");
        ASSERT_EQ(data.size(), 6 * 2 * (cs16 ? sizeof(std::int16_t) : sizeof(float)));
        if (cs16) {
            std::int16_t first[3];
            std::memcpy(first, data.data(), sizeof first);
            EXPECT_EQ(first[0], 32767);
            EXPECT_EQ(first[1], -32767);  // clipped
            EXPECT_EQ(first[2], 8192);    // 0.25 x 32767 rounded
        } else {
            float first[2];
            std::memcpy(first, data.data(), sizeof first);
            EXPECT_EQ(first[0], 1.0f);
            EXPECT_EQ(first[1], -2.0f);
        }
    }
    EXPECT_THROW(SigmfRecording("/nonexistent-dir/x", {}, 1e9), qortool::ToolError);
}

TEST(ToolSigmf, Rfc3339UtcWithMillisecondsAndCarry) {
    using qortool::Rfc3339Utc;
    using qortool::StampMilliseconds;
    EXPECT_EQ(Rfc3339Utc(StampMilliseconds(1795498200, 123)), "2026-11-24T05:30:00.123Z");
    EXPECT_EQ(Rfc3339Utc(StampMilliseconds(1795498200, 7)), "2026-11-24T05:30:00.007Z");
    EXPECT_EQ(Rfc3339Utc(StampMilliseconds(1798761599, 999)), "2026-12-31T23:59:59.999Z");
    EXPECT_EQ(Rfc3339Utc(StampMilliseconds(1798761599, 999) + 1), "2027-01-01T00:00:00.000Z");
    // The packet holds the low 32 bits of the seconds: past 2038 they read negative.
    EXPECT_EQ(Rfc3339Utc(StampMilliseconds(-1, 0)), "2106-02-07T06:28:15.000Z");
}

}  // namespace
