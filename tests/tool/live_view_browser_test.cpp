// The live view's page in a real browser against `qor view --sim`.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>

#include "e2e_bench.h"
#include "live_view_harness.h"

namespace {

using std::chrono::seconds;

// The first unit of the default bench: a carrier at 100 MHz, -30 dBm, and an
// FM carrier at 98.1 MHz, -50 dBm, in the view's first span of 80 to 120 MHz.
constexpr double kTone = 100e6, kToneLevel = -30.0;

TEST(LiveViewBrowser, ShowsTheToneAndFollowsTheControls) {
    if (std::getenv("QOR_TOOL") == nullptr) GTEST_SKIP() << "QOR_TOOL does not name the built tool";
    if (e2e::kAnySanitizer) GTEST_SKIP() << "a browser against an instrumented tool is too slow to be worth it";
    liveview::HeadlessBrowser browser(1400, 860);
    if (!browser.error().empty()) GTEST_SKIP() << "no headless Chromium here: " << browser.error();
    liveview::ViewProcess view;
    ASSERT_FALSE(view.url.empty()) << view.output;
    ASSERT_TRUE(browser.Navigate(view.url));
    ASSERT_TRUE(browser.WaitFor("window.qorView && qorView.state && qorView.completeSweeps >= 5", seconds(15)));

    nlohmann::json seen = browser.Evaluate("({peak: qorView.peak, next: qorView.nextPeak, bin: qorView.frame.binSize,"
                                           " start: qorView.frame.startFreq})");
    ASSERT_TRUE(seen.is_object());
    const double bin = seen["bin"];
    EXPECT_NEAR(seen["peak"]["frequency"].get<double>(), kTone, 2 * bin) << seen;
    EXPECT_NEAR(seen["peak"]["level"].get<double>(), kToneLevel, 1.0) << seen;
    EXPECT_NEAR(seen["next"]["level"].get<double>(), -50.0, 3.0) << seen;
    EXPECT_NEAR(seen["start"].get<double>(), 80e6, bin) << seen;

    // The centre through its control: the trace moves, the tone stays where it is.
    browser.Evaluate("(() => { const c = document.getElementById('center'); c.value = '98.1M';"
                     " c.dispatchEvent(new Event('change')); })()");
    ASSERT_TRUE(browser.WaitFor("qorView.state.settings.center === 98.1e6 && qorView.completeSweeps > 0"
                                " && Math.abs(qorView.frame.startFreq - 78.1e6) < 2 * qorView.frame.binSize"
                                " && qorView.frame.filled === qorView.frame.bins",
                                seconds(10)))
        << browser.Evaluate("JSON.stringify({s: qorView.state, start: qorView.frame.startFreq})");
    seen = browser.Evaluate("qorView.peak");
    EXPECT_NEAR(seen["frequency"].get<double>(), kTone, 2 * bin) << seen;
    EXPECT_NEAR(seen["level"].get<double>(), kToneLevel, 1.0) << seen;

    // A centre the unit cannot reach: its refusal stands next to the control.
    browser.Evaluate("(() => { const c = document.getElementById('center'); c.value = '9G';"
                     " c.dispatchEvent(new Event('change')); })()");
    EXPECT_TRUE(browser.WaitFor(
        "document.querySelector('.refusal[data-for=frequency]').textContent === 'Span outside frequency range'",
        seconds(10)));
}

}  // namespace
