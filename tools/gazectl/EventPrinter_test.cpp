#include "tools/gazectl/EventPrinter.h"

#include <gtest/gtest.h>
#include <stdio.h>

#include <nlohmann/json.hpp>
#include <sstream>

namespace velto {
namespace gazectl {
namespace {

typedef GazeServiceInterface G;
const int64_t kMs = 1000000;

std::vector<std::string> lines(FILE* f) {
    fflush(f);
    rewind(f);
    std::vector<std::string> out;
    char buf[512];
    while (fgets(buf, sizeof(buf), f) != nullptr) out.push_back(buf);
    return out;
}

EventPrinter::Event at(G::EyeGesture g, int64_t ms) {
    return {g, ms * kMs - 10 * kMs, ms * kMs, 1700000000000 * kMs + ms * kMs};
}

TEST(EventPrinter, AStormOfOneGestureBecomesOneLineWithACount) {
    FILE* f = tmpfile();
    EventPrinter printer(f, false, 0);
    printer.add(at(G::DON, 1000));
    for (int i = 1; i <= 49; ++i) printer.add(at(G::DON, 1000 + 20 * i));
    printer.add(at(G::DOUBLE_BLINK, 1100));  // another gesture is not part of the storm
    ASSERT_TRUE(printer.print(1990 * kMs, false));
    EXPECT_EQ(2u, lines(f).size()) << "the first DON and the double blink; the storm is still going";
    ASSERT_TRUE(printer.print(2000 * kMs, false));
    EXPECT_EQ(2u, lines(f).size());
    ASSERT_TRUE(printer.print(2600 * kMs, false));
    const std::vector<std::string> out = lines(f);
    ASSERT_EQ(3u, out.size());
    EXPECT_NE(std::string::npos, out[2].find("DON x49 more")) << out[2];

    // Events far apart are each their own line.
    printer.add(at(G::DOFF, 5000));
    printer.add(at(G::DOFF, 7000));
    ASSERT_TRUE(printer.print(7000 * kMs, true));
    EXPECT_EQ(5u, lines(f).size());
    fclose(f);
}

TEST(EventPrinter, JsonLinesCarryTheGestureTimesAndCount) {
    FILE* f = tmpfile();
    EventPrinter printer(f, true, 0);
    printer.add(at(G::WINK, 1000));
    printer.add(at(G::WINK, 1100));
    printer.add(at(G::WINK, 1200));
    ASSERT_TRUE(printer.print(1200 * kMs, true));
    const std::vector<std::string> out = lines(f);
    ASSERT_EQ(2u, out.size());
    const nlohmann::json first = nlohmann::json::parse(out[0]);
    EXPECT_EQ("WINK", first["gesture"]);
    EXPECT_EQ(990 * kMs, first["start_ns"].get<int64_t>());
    EXPECT_EQ(1000 * kMs, first["end_ns"].get<int64_t>());
    EXPECT_EQ("2023-11-14T22:13:21.000Z", first["time"]);
    EXPECT_FALSE(first.contains("count"));
    const nlohmann::json burst = nlohmann::json::parse(out[1]);
    EXPECT_EQ(2, burst["count"].get<int>());
    EXPECT_EQ(1200 * kMs, burst["end_ns"].get<int64_t>());
    fclose(f);
}

}  // namespace
}  // namespace gazectl
}  // namespace velto
