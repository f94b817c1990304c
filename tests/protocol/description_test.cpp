// What the compiler refuses of a layout, and what of the description the daemon may not hold.
#include "protocol/description.h"

#include <gtest/gtest.h>

#include <string>

#include "tests/support/daemon.h"
#include "tests/support/files.h"

namespace {

using protocol::Field;
using protocol::gapless;
using protocol::Kind;
using protocol::Layout;

constexpr Field number(std::uint8_t position, std::uint8_t width, Layout layout = Layout::block) {
    return {layout, position, width, Kind::number, "", "", ""};
}
constexpr Field bit(std::uint8_t position, std::uint8_t digit) {
    return {Layout::block, position, 1, Kind::bit, "", "", "", digit};
}

constexpr Field kPair[] = {number(0, 1), number(1, 2)};
static_assert(gapless(kPair));
constexpr Field kGapBefore[] = {number(1, 1)};
static_assert(!gapless(kGapBefore));
constexpr Field kGapBetween[] = {number(0, 1), number(2, 1)};
static_assert(!gapless(kGapBetween));
constexpr Field kOverlap[] = {number(0, 2), number(1, 2)};
static_assert(!gapless(kOverlap));
constexpr Field kTwice[] = {number(0, 1), number(0, 1)};
static_assert(!gapless(kTwice));
constexpr Field kBackwards[] = {number(1, 2), number(0, 1)};
static_assert(!gapless(kBackwards));

constexpr Field kBits[] = {bit(0, 0), bit(0, 3), number(1, 1)};
static_assert(gapless(kBits));
constexpr Field kBitTwice[] = {bit(0, 3), bit(0, 3)};
static_assert(!gapless(kBitTwice));
constexpr Field kBitOfANumber[] = {number(0, 1), bit(0, 3)};
static_assert(!gapless(kBitOfANumber));

constexpr Field kLayouts[] = {number(0, 1), number(0, 3, Layout::write)};
static_assert(gapless(kLayouts));
constexpr Field kLayoutsBackwards[] = {number(0, 1, Layout::write), number(0, 3)};
static_assert(!gapless(kLayoutsBackwards));

// Names of fields, units and meanings are for those who read messages, not for who makes them.
TEST(Description, CostsTheDaemonNothingThatItDoesNotNeed) {
    if (ZONDAR_RELEASED == 0)
        GTEST_SKIP() << "the daemon is not built as released";
    const std::string program = read_file(daemon_path());
    const auto holds = [&program](const std::string& text) {
        return program.find(text + '\0') != std::string::npos;
    };
    EXPECT_TRUE(holds("SUBCOMMAND_BITRATE_CH1 "));
    EXPECT_TRUE(holds("estado_entradaAV_sistemaTV_12"));
    for (const protocol::Parameter& parameter : protocol::kParameters)
        EXPECT_FALSE(holds(parameter.name)) << parameter.name;
    for (const protocol::EffectText& effect : protocol::kEffects)
        EXPECT_FALSE(*effect.meaning != '\0' && holds(effect.meaning)) << effect.meaning;
    EXPECT_FALSE(holds("null_level"));
    EXPECT_FALSE(holds("kbit/s"));
}

}  // namespace
