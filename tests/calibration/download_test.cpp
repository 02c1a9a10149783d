// The table file download against a real HTTP server on loopback.
#include <gtest/gtest.h>

#include <chrono>

#include "cal_folder.h"
#include "loopback_http_server.h"
#include "qor_lib.h"

namespace {

using caltest::LoopbackHttpServer;
using caltest::PatternBody;
using Reply = LoopbackHttpServer::Reply;

constexpr const char* kPath42 = "/custdata/P0000/D00000042.bin";
// The least that counts: the 12.4 GHz family's whole table.
constexpr uint32_t kTable = 571616;
// Short enough to keep the suite quick, long enough that a loaded machine
// (sanitizers, parallel tests) does not stall a healthy transfer past them.
constexpr qor::http::Timeouts kShort{1500, 1000};

class DownloadTest : public ::testing::Test, protected caltest::CalibrationPlace {
protected:
    // Downloads `path` with short time-outs into a block with guard bytes
    // behind the capacity.
    bool Fetch(const std::string& path, uint32_t* size) {
        destination.assign(qor::kDownloadCapacity + kGuard, 0xEE);
        return qor::DownloadInto(server.BaseUrl() + path, kShort, kTable, destination.data(), size);
    }
    bool GuardIntact() const {
        for (std::size_t i = qor::kDownloadCapacity; i < destination.size(); ++i)
            if (destination[i] != 0xEE) return false;
        return true;
    }

    static constexpr std::size_t kGuard = 4096;
    std::vector<uint8_t> destination;
};

TEST_F(DownloadTest, Serial42AsksForItsEightDigitPathWithTheAgentAndNoCache) {
    Reply reply;
    reply.body = PatternBody(571616);
    server.Serve(kPath42, reply);
    std::vector<uint8_t> block(qor::kDownloadCapacity);
    uint32_t size = 0;
    ASSERT_TRUE(qor::DownloadTableFile(42, kTable, block.data(), &size));
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
        {571615, 200, false, 571615}, {571616, 200, true, 571616}, {573440, 200, true, 573440},
        {768000, 200, true, 768000},  {800000, 200, true, 768000}, {0, 200, false, 0},
        {600000, 404, true, 600000},  // the status isn't looked at, only the size
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
        reply.body = PatternBody(kTable + piece);
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
    EXPECT_FALSE(timed([&] { return qor::DownloadInto(dead + "/f", kShort, kTable, block.data(), &size); }));

    Reply silentHead;
    silentHead.silentBeforeAnswer = true;
    server.Serve("/silent-head", silentHead);
    EXPECT_FALSE(timed([&] { return Fetch("/silent-head", &size); }));

    Reply silentBody;
    silentBody.body = PatternBody(600000);
    silentBody.silentAfter = 580000;  // more than the least: only the break fails it
    server.Serve("/silent-body", silentBody);
    EXPECT_FALSE(timed([&] { return Fetch("/silent-body", &size); }));

    Reply reset;
    reset.body = PatternBody(600000);
    reset.resetAfter = 580000;
    server.Serve("/reset", reset);
    EXPECT_FALSE(timed([&] { return Fetch("/reset", &size); }));
    EXPECT_LE(size, 580000u);
}

TEST(FileDownload, AFileAddressServesAsAnEndpoint) {
    caltest::TempFolder root;
    const std::vector<uint8_t> body = PatternBody(458624);
    caltest::WriteWhole(root.Path() / "D.bin", body);
    std::vector<uint8_t> block(qor::kDownloadCapacity);
    uint32_t size = 0;
    ASSERT_TRUE(qor::DownloadInto("file://" + (root.Path() / "D.bin").string(), kShort, 458624, block.data(), &size));
    EXPECT_EQ(size, body.size());
    EXPECT_TRUE(std::equal(body.begin(), body.end(), block.begin()));
    EXPECT_FALSE(
        qor::DownloadInto("file://" + (root.Path() / "none.bin").string(), kShort, 0, block.data(), &size));
}

}  // namespace
