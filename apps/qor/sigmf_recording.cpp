#include "sigmf_recording.h"

#include <ctime>

#include <nlohmann/json.hpp>

#include "session.h"

namespace qortool {

std::int64_t StampMilliseconds(std::int32_t sec, std::int32_t milli) {
    return static_cast<std::int64_t>(static_cast<std::uint32_t>(sec)) * 1000 + milli;
}

std::string Rfc3339Utc(std::int64_t millisecondsSince1970) {
    const std::time_t seconds = static_cast<std::time_t>(millisecondsSince1970 / 1000);
    std::tm utc{};
    gmtime_r(&seconds, &utc);
    char text[40];
    const std::size_t length = std::strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%S", &utc);
    std::snprintf(text + length, sizeof text - length, ".%03dZ", static_cast<int>(millisecondsSince1970 % 1000));
    return text;
}

namespace {

std::FILE* Create(const std::string& path) {
    std::FILE* file = std::fopen(path.c_str(), "wb");
    if (file == nullptr) throw ToolError("--out: cannot create " + path);
    return file;
}

}  // namespace

SigmfRecording::SigmfRecording(const std::string& name, SigmfGlobal global, double frequency)
    : name_(name),
      global_(std::move(global)),
      frequency_(frequency),
      data_(Create(name + ".sigmf-data"), &std::fclose),
      writer_(data_.get(), global_.format) {}

void SigmfRecording::Append(const float* iq, std::size_t samples, std::int64_t stampMs, bool afterLoss) {
    if (captures_.empty() || afterLoss) captures_.push_back({recorded_, stampMs});
    if (!writer_.Write(iq, samples)) throw ToolError("--out: cannot write " + name_ + ".sigmf-data");
    recorded_ += static_cast<std::int64_t>(samples);
}

void SigmfRecording::Finish() {
    if (std::fclose(data_.release()) != 0) throw ToolError("--out: cannot write " + name_ + ".sigmf-data");

    nlohmann::ordered_json meta;
    auto& global = meta["global"];
    global["core:datatype"] = SigmfDatatype(global_.format);
    global["core:version"] = "1.0.0";
    global["core:sample_rate"] = global_.sampleRate;
    global["core:hw"] = global_.hw;
    global["core:recorder"] = global_.recorder;
    if (!global_.description.empty()) global["core:description"] = global_.description;
    meta["captures"] = nlohmann::ordered_json::array();
    for (const Capture& c : captures_) {
        meta["captures"].push_back({{"core:sample_start", c.sampleStart},
                                    {"core:frequency", frequency_},
                                    {"core:datetime", Rfc3339Utc(c.stampMs)}});
    }
    meta["annotations"] = nlohmann::ordered_json::array();

    const std::string path = name_ + ".sigmf-meta";
    std::unique_ptr<std::FILE, int (*)(std::FILE*)> file(Create(path), &std::fclose);
    const std::string text = meta.dump(2) + "\n";
    if (std::fwrite(text.data(), 1, text.size(), file.get()) != text.size() || std::fclose(file.release()) != 0) {
        throw ToolError("--out: cannot write " + path);
    }
}

}  // namespace qortool
