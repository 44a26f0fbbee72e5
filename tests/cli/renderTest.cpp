// Axes and pictures: round values with their labels, and where values end up in a picture.
#include "render/Plot.h"

#include <gtest/gtest.h>

#include <limits>

namespace kivmp4::render {
namespace {

std::string Labels(const Axis& axis, size_t most) {
    std::string labels;
    for (const double tick : Ticks(axis, most))
        labels += (labels.empty() ? "" : " | ") + TickLabel(tick, axis);
    return labels;
}

TEST(Render, TicksAreRound) {
    const struct {
        Axis axis;
        size_t most;
        const char* labels;
    } kCases[] = {
        {{Unit::Time, 0, 0.011}, 6, "0 ms | 2 ms | 4 ms | 6 ms | 8 ms | 10 ms"},
        {{Unit::Time, 0, 6.08}, 6, "0 s | 2 s | 4 s | 6 s"},
        {{Unit::Time, 0, 100}, 6, "0:00 | 0:30 | 1:00 | 1:30"},
        {{Unit::Time, 0, 7200}, 6, "0:00 | 30:00 | 1:00:00 | 1:30:00 | 2:00:00"},
        {{Unit::Time, 0, 172800}, 4, "0:00 | 24:00:00 | 48:00:00"},
        {{Unit::Bytes, 0, 400e6}, 4, "0 bytes | 128 MiB | 256 MiB"},
        {{Unit::Bytes, 1000, 1100}, 3, "1 KiB | 1.062 KiB"},
        {{Unit::Rate, 0, 1.2e6}, 3, "0 b/s | 500 kb/s | 1 Mb/s"},
        {{Unit::None, 0, 5}, 5, ""},
        {{Unit::Time, 5, 5}, 5, ""},
    };
    for (const auto& each : kCases)
        EXPECT_EQ(Labels(each.axis, each.most), each.labels) << each.axis.high;
}

TEST(Render, TextCannotBecomeMarkup) { EXPECT_EQ(Markup("<a b=\"c'&\">"), "&lt;a b=&quot;c&#39;&amp;&quot;&gt;"); }

TEST(Render, ValuesEndUpAtTheirPlaces) {
    constexpr double kNone = std::numeric_limits<double>::quiet_NaN();
    // 1000 units across for 10 seconds, 100 pixels down for 50 bytes.
    const auto drawn = [](auto draw) {
        Plot plot("", {Unit::Time, 0, 10}, {Unit::Bytes, 0, 50}, 100);
        draw(plot);
        const std::string svg = plot.Svg();
        const size_t start = svg.find(" d=\"") + 4;
        return svg.substr(start, svg.find('"', start) - start);
    };
    EXPECT_EQ(drawn([](Plot& plot) {
                  plot.Area({"c0", "", {0, 25, 25, 100}});
              }),
              "M0 100H0V100H250V50H750V0H1000V100z");
    EXPECT_EQ(drawn([](Plot& plot) { plot.Steps({"c0", "", {50, -1, 0, 25}}); }), "M0 0H250M500 100H750V50H1000");
    EXPECT_EQ(drawn([](Plot& plot) {
                  plot.Ranges({"c0", "", {kNone, 10}}, {kNone, 20});
              }),
              "M500 60H1000L1000 80H500z");
    EXPECT_EQ(drawn([](Plot& plot) {
                  plot.Spans("c0", 10, 20, {true, true, false, true});
              }),
              "M0 60V80H500V60zM750 60V80H1000V60z");
    EXPECT_EQ(drawn([](Plot& plot) { plot.Strokes("c0", {{0, 0}, {2.5, 50}}); }), "M0 100L250 0");
    EXPECT_EQ(drawn([](Plot& plot) { plot.Dots("c0", {{5, 25}, {99, -1}}); }), "M500 50h0M1000 100h0");
}

}  // namespace
}  // namespace kivmp4::render
