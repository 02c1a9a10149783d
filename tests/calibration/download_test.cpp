// The table file download against a real HTTP server on loopback.
#include <gtest/gtest.h>

#include <chrono>
#include <cstdlib>

#include "cal_folder.h"
#include "loopback_http_server.h"
#include "qor_lib.h"

namespace {

using caltest::LoopbackHttpServer;
using caltest::PatternBody;
using Reply = LoopbackHttpServer::Reply;

constexpr const char* kPath42 = "/custdata/P0000/D00000042.bin";
// Short enough to keep the suite quick, long enough that a loaded machine
// (sanitizers, parallel tests) does not stall a healthy transfer past them.
constexpr qor::http::Timeouts kShort{1500, 1000};

class DownloadTest : public ::testing::Test {
protected:
    void SetUp() override { setenv("QOR_CAL_URL", server.BaseUrl().c_str(), 1); }
    void TearDown() override { unsetenv("QOR_CAL_URL"); }

    // Downloads `path` with short time-outs into a block with guard bytes
    // behind the capacity.
    bool Fetch(const std::string& path, uint32_t* size) {
        destination.assign(qor::kDownloadCapacity + kGuard, 0xEE);
        return qor::DownloadInto(server.BaseUrl() + path, kShort, destination.data(), size);
    }
    bool GuardIntact() const {
        for (std::size_t i = qor::kDownloadCapacity; i < destination.size(); ++i)
            if (destination[i] != 0xEE) return false;
        return true;
    }

    static constexpr std::size_t kGuard = 4096;
    LoopbackHttpServer server;
    std::vector<uint8_t> destination;
};

TEST_F(DownloadTest, Serial42AsksForItsEightDigitPathWithTheAgentAndNoCache) {
    Reply reply;
    reply.body = PatternBody(571616);
    server.Serve(kPath42, reply);
    std::vector<uint8_t> block(qor::kDownloadCapacity);
    uint32_t size = 0;
    ASSERT_TRUE(qor::DownloadTableFile(42, block.data(), &size));
    EXPECT_EQ(size, 571616u);
    EXPECT_TRUE(std::equal(reply.body.begin(), reply.body.end(), block.begin()));
    const auto requests = server.Requests();
    ASSERT_EQ(requests.size(), 1u);
    EXPECT_EQ(requests[0].rfind(std::string("GET ") + kPath42 + " HTTP/1.1\r\n", 0), 0u) << requests[0];
    EXPECT_NE(requests[0].find("User-Agent: MyAgent\r\n"), std::string::npos);
    EXPECT_NE(requests[0].find("Cache-Control: no-cache\r\n"), std::string::npos);
    EXPECT_EQ(qor::TableFileUrl(12345678), server.BaseUrl() + "/custdata/P1234/D12345678.bin");
}

TEST_F(DownloadTest, SizeDecidesSuccessAndTheCapStopsTheLoop) {
    struct Row {
        std::size_t body;
        int status;
        bool ok;
        uint32_t size;
    };
    const Row rows[] = {
        {399999, 200, false, 399999}, {400000, 200, true, 400000}, {409600, 200, true, 409600},
        {768000, 200, true, 768000},  {800000, 200, true, 768000}, {0, 200, false, 0},
        {450000, 404, true, 450000},  // the status isn't looked at, only the size
    };
    for (const Row& row : rows) {
        Reply reply;
        reply.status = row.status;
        reply.body = PatternBody(row.body);
        server.Serve("/f", reply);
        uint32_t size = 1;
        EXPECT_EQ(Fetch("/f", &size), row.ok) << row.body;
        EXPECT_EQ(size, row.size) << row.body;
        EXPECT_TRUE(std::equal(destination.begin(), destination.begin() + size, reply.body.begin())) << row.body;
        EXPECT_TRUE(GuardIntact()) << row.body;
    }
    uint32_t size = 1;
    EXPECT_FALSE(Fetch("/missing", &size));  // the server's short 404 page
    EXPECT_LT(size, 1000u);
}

TEST_F(DownloadTest, SmallPiecesAreJoinedIntoFullReads) {
    for (std::size_t piece : {7u, 1000u, 1025u, 4099u}) {
        Reply reply;
        reply.body = PatternBody(420000 + piece);
        reply.piece = piece;
        reply.pauseMs = piece > 4096 ? 1 : 0;
        server.Serve("/p", reply);
        uint32_t size = 0;
        EXPECT_TRUE(Fetch("/p", &size)) << piece;
        EXPECT_EQ(size, reply.body.size()) << piece;
        EXPECT_TRUE(std::equal(reply.body.begin(), reply.body.end(), destination.begin())) << piece;
    }
}

TEST_F(DownloadTest, DeadSilentOrBrokenServersFailWithinTheTimeouts) {
    auto timed = [](auto&& call) {
        const auto start = std::chrono::steady_clock::now();
        const bool ok = call();
        const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
        EXPECT_LT(seconds, 6.0);
        return ok;
    };
    uint32_t size = 0;
    std::vector<uint8_t> block(qor::kDownloadCapacity);
    const std::string dead = caltest::DeadBaseUrl();
    EXPECT_FALSE(timed([&] { return qor::DownloadInto(dead + "/f", kShort, block.data(), &size); }));

    Reply silentHead;
    silentHead.silentBeforeAnswer = true;
    server.Serve("/silent-head", silentHead);
    EXPECT_FALSE(timed([&] { return Fetch("/silent-head", &size); }));

    Reply silentBody;
    silentBody.body = PatternBody(600000);
    silentBody.silentAfter = 500000;
    server.Serve("/silent-body", silentBody);
    EXPECT_FALSE(timed([&] { return Fetch("/silent-body", &size); }));

    Reply reset;
    reset.body = PatternBody(600000);
    reset.resetAfter = 450000;
    server.Serve("/reset", reset);
    EXPECT_FALSE(timed([&] { return Fetch("/reset", &size); }));
    EXPECT_LE(size, 450000u);
}

}  // namespace

namespace {

TEST(FileDownload, AFileAddressServesAsAnEndpoint) {
    caltest::TempFolder root;
    const std::vector<uint8_t> body = PatternBody(458624);
    caltest::WriteWhole(root.Path() / "D.bin", body);
    std::vector<uint8_t> block(qor::kDownloadCapacity);
    uint32_t size = 0;
    ASSERT_TRUE(qor::DownloadInto("file://" + (root.Path() / "D.bin").string(), kShort, block.data(), &size));
    EXPECT_EQ(size, body.size());
    EXPECT_TRUE(std::equal(body.begin(), body.end(), block.begin()));
    EXPECT_FALSE(qor::DownloadInto("file://" + (root.Path() / "none.bin").string(), kShort, block.data(), &size));
}

}  // namespace
