// The SigMF recording of `qor iq`: capture segments, time stamps, sample
// formats, and the metadata against the core of the SigMF schema.
#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <fstream>
#include <iterator>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "child_process.h"
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

// The core of the SigMF 1.x schema for what a recording of ours holds.
constexpr const char* kSigmfCoreSchema = R"({
  "$schema": "http://json-schema.org/draft-07/schema#",
  "type": "object",
  "required": ["global", "captures", "annotations"],
  "definitions": {"key": {"pattern": "^[a-z0-9_]+:[a-z0-9_]+$"}},
  "properties": {
    "global": {"type": "object", "required": ["core:datatype", "core:version"],
      "propertyNames": {"$ref": "#/definitions/key"},
      "properties": {
        "core:datatype": {"type": "string", "pattern": "^[cr](f32|f64|i32|i16|u32|u16|i8|u8)(_le|_be)?$"},
        "core:version": {"type": "string", "pattern": "^1\\.[0-9]+\\.[0-9]+$"},
        "core:sample_rate": {"type": "number", "exclusiveMinimum": 0, "maximum": 1e12},
        "core:hw": {"type": "string"}, "core:recorder": {"type": "string"}, "core:description": {"type": "string"}}},
    "captures": {"type": "array", "items": {"type": "object", "required": ["core:sample_start"],
      "propertyNames": {"$ref": "#/definitions/key"},
      "properties": {
        "core:sample_start": {"type": "integer", "minimum": 0},
        "core:frequency": {"type": "number", "minimum": -1e12, "maximum": 1e12},
        "core:datetime": {"type": "string", "format": "date-time",
                          "pattern": "^[0-9]{4}-[0-9]{2}-[0-9]{2}T[0-9]{2}:[0-9]{2}:[0-9]{2}(\\.[0-9]+)?Z$"}}}},
    "annotations": {"type": "array", "items": {"type": "object", "required": ["core:sample_start"],
      "properties": {"core:sample_start": {"type": "integer", "minimum": 0},
                     "core:sample_count": {"type": "integer", "minimum": 0}}}}
  }
})";

constexpr const char* kValidate = R"(
import json, sys
try:
    import jsonschema
except ImportError:
    sys.exit(3)
schema = json.load(open(sys.argv[1]))
jsonschema.Draft7Validator.check_schema(schema)
validator = jsonschema.Draft7Validator(schema, format_checker=jsonschema.FormatChecker())
errors = [e.message for e in validator.iter_errors(json.load(open(sys.argv[2])))]
print("; ".join(errors))
sys.exit(1 if errors else 0)
)";

TEST(ToolSigmf, MetadataValidatesAndTheCheckBites) {
    const std::string dir = ::testing::TempDir();
    std::ofstream(dir + "/sigmf-core.json") << kSigmfCoreSchema;
    json meta = Record(dir + "/schema", IqFormat::Cs16);
    const auto validate = [&](const json& doc) {
        std::ofstream(dir + "/checked.sigmf-meta") << doc.dump();
        return testsupport::RunChild("python3 -c '" + std::string(kValidate) + "' " + dir + "/sigmf-core.json " + dir +
                                     "/checked.sigmf-meta 2>&1");
    };
    const auto good = validate(meta);
    if (good.exitCode == 127 || good.exitCode == 3) GTEST_SKIP() << "python3 with jsonschema is not installed";
    EXPECT_EQ(good.exitCode, 0) << good.output;

    meta["captures"][1]["core:datetime"] = "2026-11-24 05:30:00.123";
    meta["captures"][0]["core:sample_start"] = "0";
    meta["global"]["datatype"] = "cf32_le";
    const auto bad = validate(meta);
    EXPECT_EQ(bad.exitCode, 1) << bad.output;
    for (const char* fault : {"does not match", "is not of type", "'datatype'"}) {
        EXPECT_NE(bad.output.find(fault), std::string::npos) << fault << " in " << bad.output;
    }
}

}  // namespace
