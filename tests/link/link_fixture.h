// A link opened on a scripted bus with one unit, its clock sped up so that
// the protocol's pauses cost nothing.
#ifndef QOR_TESTS_LINK_FIXTURE_H
#define QOR_TESTS_LINK_FIXTURE_H

#include <gtest/gtest.h>

#include "analyzer_link.h"
#include "fake_d2xx.h"
#include "os.h"

namespace qor::test {

constexpr char kSerial[] = "12345678";

class LinkTest : public ::testing::Test {
protected:
    void SetUp() override {
        os::SetClockScale(1000.0);
        bus.AddUnit(kSerial);
        ASSERT_TRUE(link.Open(0, 1));
        bus.writes.clear();
        bus.calls.clear();
    }
    void TearDown() override { os::SetClockScale(1.0); }

    std::deque<uint8_t>& Stream() { return bus.StreamOf(kSerial).rx; }

    FakeBus bus;
    AnalyzerLink link{FakeBus::Table()};
};

}  // namespace qor::test

#endif
