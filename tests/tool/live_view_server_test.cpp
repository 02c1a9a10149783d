// The live view's server as a client sees it.
#include <gtest/gtest.h>
#include <httplib.h>

#include <cstdint>
#include <cstring>
#include <thread>

#include "e2e_bench.h"
#include "live_view_harness.h"

namespace {

using nlohmann::json;

class LiveViewServer : public ::testing::Test {
protected:
    static void SetUpTestSuite() { view_ = new liveview::ViewProcess(); }
    static void TearDownTestSuite() {
        if (!view_->url.empty()) {
            EXPECT_EQ(view_->Stop(), 0) << "qor view did not end cleanly";
        }
        delete view_;
        view_ = nullptr;
    }
    void SetUp() override {
        if (std::getenv("QOR_TOOL") == nullptr) GTEST_SKIP() << "QOR_TOOL does not name the built tool";
        ASSERT_FALSE(view_->url.empty()) << view_->output;
        client_ = std::make_unique<httplib::Client>("127.0.0.1", view_->port);
        client_->set_read_timeout(std::chrono::seconds(30));
    }

    httplib::Headers Token() const { return {{"X-Qor-Token", view_->token}}; }
    json State() {
        const auto response = client_->Get("/api/state", Token());
        return response && response->status == 200 ? json::parse(response->body) : json();
    }
    httplib::Result Post(const std::string& body, httplib::Headers headers = {}) {
        headers.emplace("X-Qor-Token", view_->token);
        return client_->Post("/api/settings", headers, body, "application/json");
    }
    // Reads the stream into `reader` while `more` says so after each piece.
    template <typename Reader, typename More>
    void ReadStream(Reader& reader, More more) {
        httplib::Client stream("127.0.0.1", view_->port);
        stream.set_read_timeout(std::chrono::seconds(30));
        stream.Get("/api/stream", Token(), [&](const char* data, std::size_t size) {
            reader.Take(data, size);
            return more();
        });
    }

    static liveview::ViewProcess* view_;
    std::unique_ptr<httplib::Client> client_;
};

liveview::ViewProcess* LiveViewServer::view_ = nullptr;

TEST_F(LiveViewServer, ServesThePageAndNothingElse) {
    auto page = client_->Get("/");
    ASSERT_TRUE(page);
    EXPECT_EQ(page->status, 200);
    EXPECT_EQ(page->get_header_value("Content-Type"), "text/html");
    EXPECT_NE(page->body.find("view.js"), std::string::npos);
    for (const char* asset : {"/view.js", "/view.css"}) EXPECT_EQ(client_->Get(asset)->status, 200) << asset;
    for (const char* other : {"/index", "/../../etc/passwd", "/%2e%2e/etc/passwd", "/view.js/x"}) {
        EXPECT_EQ(client_->Get(other)->status, 404) << other;
    }
}

TEST_F(LiveViewServer, ApiNeedsTheTokenAndThisServersHostAndOrigin) {
    EXPECT_EQ(client_->Get("/api/state")->status, 401);
    EXPECT_EQ(client_->Get("/api/state", {{"X-Qor-Token", view_->token + "0"}})->status, 401);
    EXPECT_EQ(client_->Get("/api/stream", {{"X-Qor-Token", "x"}})->status, 401);
    EXPECT_EQ(client_->Get("/api/")->status, 401);
    EXPECT_EQ(Post("{}", {})->status, 200);
    const std::string self = "http://127.0.0.1:" + std::to_string(view_->port);
    EXPECT_EQ(Post("{}", {{"Origin", self}})->status, 200);
    for (const char* origin : {"http://evil.example", "null", "http://127.0.0.1:1"}) {
        EXPECT_EQ(Post("{}", {{"Origin", origin}})->status, 403) << origin;
    }
    // A name that resolves here by a foreign resolver's doing (DNS rebinding).
    const std::string port = std::to_string(view_->port);
    for (const std::string& host : std::vector<std::string>{"evil.example:" + port, "127.0.0.1:1", "127.0.0.1",
                                                           "localhost:" + port + "x"}) {
        httplib::Headers headers = Token();
        headers.emplace("Host", host);
        EXPECT_EQ(client_->Get("/api/state", headers)->status, 403) << host;
    }
    httplib::Headers localhost = Token();
    localhost.emplace("Host", "localhost:" + port);
    EXPECT_EQ(client_->Get("/api/state", localhost)->status, 200);
}

TEST_F(LiveViewServer, MalformedSettingsGet400WithTheReason) {
    const struct { const char* body; const char* reason; } cases[] = {
        {"center=1G", "not JSON"},
        {"[1, 2]", "JSON object"},
        {R"({"center": "1G"})", "center: not a finite number"},
        {R"({"detector": "peak"})", "detector: average or minmax"},
        {R"({"mode": "iq"})", "mode: realtime or sweep"},
        {R"({"start": 1e6})", "start and stop go together"},
        {R"({"start": 2e6, "stop": 1e6})", "stop must lie above start"},
        {R"({"center": 1e6, "stop": 2e6})", "either center/span or start/stop"},
        {R"({"serial": -1})", "serial"},
        {R"({"reject": 1})", "reject: true or false"},
        {R"({"file": "/etc/passwd"})", "unknown setting: file"},
    };
    for (const auto& c : cases) {
        const auto response = Post(c.body);
        ASSERT_TRUE(response) << c.body;
        EXPECT_EQ(response->status, 400) << c.body;
        EXPECT_NE(response->body.find(c.reason), std::string::npos) << c.body << " -> " << response->body;
    }
    EXPECT_EQ(Post(std::string(20000, ' ') + "{}")->status, 413);
}

TEST_F(LiveViewServer, RefusedSettingsShowTheLibrarysTextAndTheMeasurementGoesOn) {
    ASSERT_EQ(Post(R"({"serial": 0, "center": 100e6, "span": 40e6, "mode": "sweep"})")->status, 200);
    const json before = State();
    const struct { const char* body; const char* control; const char* text; } cases[] = {
        {R"({"center": 9e9})", "frequency", "Span outside frequency range"},
        {R"({"serial": 99999999})", "serial", "Device not found"},
        {R"({"mode": "realtime"})", "mode", "Invalid parameter provided"},  // 40 MHz is no real-time span
    };
    for (const auto& c : cases) {
        const auto response = Post(c.body);
        ASSERT_TRUE(response) << c.body;
        EXPECT_EQ(response->status, 422) << c.body;
        const json state = json::parse(response->body);
        EXPECT_EQ(state["refused"].value(c.control, ""), c.text) << c.body;
        EXPECT_EQ(state["settings"], before["settings"]) << c.body;
        EXPECT_TRUE(state["measuring"].get<bool>()) << c.body;
    }
    // Another unit of the bus, and back.
    const auto other = Post(R"({"serial": 12000002, "center": 1e9})");
    ASSERT_TRUE(other);
    EXPECT_EQ(other->status, 200) << other->body;
    EXPECT_EQ(json::parse(other->body)["settings"]["serial"], 12000002);
    EXPECT_EQ(Post(R"({"serial": 11000001, "center": 100e6})")->status, 200);
}

// The frames of a stream as the client has them so far.
struct FrameReader {
    std::string bytes;
    std::string last;  // the newest whole frame
    std::vector<std::uint32_t> sequences;
    void Take(const char* data, std::size_t size) {
        bytes.append(data, size);
        while (bytes.size() >= 8) {
            const std::uint32_t magic = At<std::uint32_t>(bytes, 0), length = At<std::uint32_t>(bytes, 4);
            EXPECT_EQ(magic, 0x56524f51u);
            if (magic != 0x56524f51u || bytes.size() < length) return;
            sequences.push_back(At<std::uint32_t>(bytes, 8));
            last = bytes.substr(0, length);
            bytes.erase(0, length);
        }
    }
    template <typename T>
    static T At(const std::string& frame, std::size_t offset) {
        T value;
        std::memcpy(&value, frame.data() + offset, sizeof value);
        return value;
    }
    // Fields of the newest frame.
    std::uint32_t U32(std::size_t offset) const { return At<std::uint32_t>(last, offset); }
    double F64(std::size_t offset) const { return At<double>(last, offset); }
    float F32(std::size_t offset) const { return At<float>(last, offset); }
};

TEST_F(LiveViewServer, StreamsWholeSweepsWithTheirPeaks) {
    ASSERT_EQ(Post(R"({"serial": 0, "center": 100e6, "span": 40e6, "mode": "sweep"})")->status, 200);
    FrameReader reader;
    ReadStream(reader, [&] {  // until a frame with the whole sweep filled
        return reader.last.empty() || reader.U32(28) < reader.U32(24);
    });
    ASSERT_FALSE(reader.last.empty());
    const std::string& f = reader.last;
    const auto bins = reader.U32(24);
    const double start = reader.F64(32), bin = reader.F64(40);
    EXPECT_EQ(reader.U32(20), 0u);  // a sweep
    EXPECT_EQ(f.size(), 80 + 8 * std::size_t{bins});
    EXPECT_NEAR(start, 80e6, bin);
    EXPECT_NEAR(start + bin * bins, 120e6, bin);
    // The first unit's carrier at 100 MHz, -30 dBm, and its FM carrier at 98.1 MHz, -50 dBm.
    EXPECT_NEAR(reader.F64(56), 100e6, 2 * bin);
    EXPECT_NEAR(reader.F32(72), -30.0f, 1.0f);
    EXPECT_NEAR(reader.F64(64), 98.1e6, 30e3);
    EXPECT_NEAR(reader.F32(76), -50.0f, 3.0f);
}

TEST_F(LiveViewServer, StreamsRealTimeFramesWithThePersistenceImage) {
    if (e2e::kAnySanitizer) GTEST_SKIP() << "an instrumented real-time engine takes seconds per frame";
    const auto started = Post(R"({"serial": 0, "center": 100e6, "span": 200e3, "rbw": 1e3, "vbw": 1e3, "mode": "realtime"})");
    ASSERT_TRUE(started);
    if (started->status == 422) {
        GTEST_SKIP() << "the library refuses real time: " << json::parse(started->body)["refused"].dump();
    }
    ASSERT_EQ(started->status, 200) << started->body;
    FrameReader reader;
    ReadStream(reader, [&] { return reader.sequences.size() < 2; });
    ASSERT_FALSE(reader.last.empty());
    const std::string& f = reader.last;
    const auto bins = reader.U32(24);
    const auto width = reader.U32(48), height = reader.U32(52);
    const double bin = reader.F64(40);
    EXPECT_EQ(reader.U32(20), 1u);
    EXPECT_EQ(height, 256u);
    ASSERT_GT(width, 0u);
    ASSERT_EQ(f.size(), 80 + 8 * std::size_t{bins} + (std::size_t{width} * height + 3) / 4 * 4);
    EXPECT_NEAR(reader.F64(56), 100e6, 2 * bin);
    EXPECT_NEAR(reader.F32(72), -30.0f, 1.5f);
    // The carrier's column is hit, near the top of the image (-30 dBm of -120 to -20).
    const std::size_t column = static_cast<std::size_t>((100e6 - reader.F64(32)) / bin * width / bins);
    int hitRow = -1;
    for (std::size_t row = 0; row < height; ++row) {
        if (f[80 + 8 * std::size_t{bins} + row * width + column] != 0) hitRow = static_cast<int>(row);
    }
    EXPECT_NEAR(hitRow, 230, 8);
    EXPECT_EQ(Post(R"({"span": 40e6, "rbw": 30e3, "vbw": 30e3, "mode": "sweep"})")->status, 200);
}

TEST_F(LiveViewServer, APageThatFallsBehindGetsTheNewestTrace) {
    if (e2e::kAnySanitizer) GTEST_SKIP() << "paced by the real clock";
    ASSERT_EQ(Post(R"({"serial": 0, "center": 100e6, "span": 40e6, "mode": "sweep"})")->status, 200);
    FrameReader reader;
    std::uint32_t atStallStart = 0, atStallEnd = 0;
    std::size_t receivedAtStallEnd = 0;
    const auto start = std::chrono::steady_clock::now();
    ReadStream(reader, [&] {
        if (atStallStart == 0 && !reader.sequences.empty()) {
            // A page busy for a second: the unit goes on meanwhile.
            atStallStart = State()["sequence"];
            std::this_thread::sleep_for(std::chrono::seconds(1));
            atStallEnd = State()["sequence"];
            receivedAtStallEnd = reader.sequences.size();
        }
        const bool caughtUp = atStallEnd != 0 && !reader.sequences.empty() && reader.sequences.back() >= atStallEnd;
        return !caughtUp && std::chrono::steady_clock::now() - start < std::chrono::seconds(10);
    });
    ASSERT_GT(atStallEnd, atStallStart + 10) << "the measurement stood still while the page was busy";
    ASSERT_GE(reader.sequences.back(), atStallEnd) << "the page never caught up";
    const std::size_t deliveredForTheStall = reader.sequences.size() - receivedAtStallEnd;
    EXPECT_LT(deliveredForTheStall, (atStallEnd - atStallStart) / 2)
        << "the server queued the traces of the stall instead of skipping to the newest";
    for (std::size_t i = 1; i < reader.sequences.size(); ++i) EXPECT_GT(reader.sequences[i], reader.sequences[i - 1]);
}

}  // namespace
