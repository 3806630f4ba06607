#include "platform/console/metrics/metrics_text.h"

#include "tests/support.h"

namespace KxNConsole {
namespace {

TEST(MetricsText, ALabelCannotEndItsLine) {
    MetricsText metrics;
    metrics.begin("kx_x", "gauge", "X.");
    metrics.add(1.5, {{"a", "q\"b\\s\nn\xff"}, {"b", ""}}, "_sum");
    EXPECT_EQ(metrics.text(),
              "# HELP kx_x X.\n# TYPE kx_x gauge\nkx_x_sum{a=\"q\\\"b\\\\s\\nn\xEF\xBF\xBD\",b=\"\"} 1.5\n");
}

}  // namespace
}  // namespace KxNConsole
