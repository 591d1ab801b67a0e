// SPDX-License-Identifier: MIT
#include "desktop/pages/page_logic.h"

#include <gtest/gtest.h>

#include <string>

namespace desktop::pages {
namespace {

using kit::library::BrowserAgent;

constexpr std::string_view kEngineAgent =
    "Mozilla/5.0 (X11; Linux x86_64) AppleWebKit/537.36 (KHTML, like Gecko) "
    "QtWebEngine/6.4.2 Chrome/102.0.5005.177 Safari/537.36";

TEST(PageAgent, DesktopKeepsTheEngineVersionWithoutTheEmbedderToken)
{
    const std::string agent = userAgent(kEngineAgent, BrowserAgent::DefaultSafari, std::nullopt);
    EXPECT_EQ(agent,
              "Mozilla/5.0 (X11; Linux x86_64) AppleWebKit/537.36 (KHTML, like Gecko) "
              "Chrome/102.0.5005.177 Safari/537.36");
    EXPECT_EQ(userAgent(kEngineAgent, BrowserAgent::Chrome, std::nullopt), agent);
}

TEST(PageAgent, PhoneAndTabletSwapThePlatformAndOnlyThePhoneSaysMobile)
{
    const std::string phone = userAgent(kEngineAgent, BrowserAgent::IphoneSafari, std::nullopt);
    const std::string tablet = userAgent(kEngineAgent, BrowserAgent::IpadSafari, std::nullopt);
    for (const auto& agent : {phone, tablet}) {
        EXPECT_NE(agent.find("(Linux; Android"), std::string::npos) << agent;
        EXPECT_EQ(agent.find("X11"), std::string::npos) << agent;
        EXPECT_NE(agent.find("Chrome/102.0.5005.177"), std::string::npos) << agent;
    }
    EXPECT_NE(phone.find(" Mobile Safari/537.36"), std::string::npos) << phone;
    EXPECT_EQ(tablet.find("Mobile"), std::string::npos) << tablet;
}

TEST(PageAgent, CustomAgentIsSentAsTypedAndABlankOneFallsBackToDesktop)
{
    EXPECT_EQ(userAgent(kEngineAgent, BrowserAgent::Custom, "MyAgent/1.0"), "MyAgent/1.0");
    const std::string desktop = userAgent(kEngineAgent, BrowserAgent::Chrome, std::nullopt);
    EXPECT_EQ(userAgent(kEngineAgent, BrowserAgent::Custom, "  "), desktop);
    EXPECT_EQ(userAgent(kEngineAgent, BrowserAgent::Custom, std::nullopt), desktop);
}

TEST(PageAgent, FirefoxNamesGeckoAndAnAgentWithoutPlatformIsLeftAlone)
{
    EXPECT_NE(userAgent(kEngineAgent, BrowserAgent::Firefox, std::nullopt).find("Gecko/20100101"),
              std::string::npos);
    EXPECT_EQ(userAgent("Odd/1.0", BrowserAgent::IpadSafari, std::nullopt), "Odd/1.0");
}

struct Placement
{
    const char* name;
    QRect icon;
    QPoint pointer;
    QSize size;
    QRect expected;
};

class PanelPlacement : public ::testing::TestWithParam<Placement>
{};

const QRect kScreen(0, 0, 1280, 800);

TEST_P(PanelPlacement, StaysWholeOnScreen)
{
    const Placement& c = GetParam();
    const QRect placed = panelGeometry(c.icon, c.pointer, c.size, kScreen);
    EXPECT_EQ(placed, c.expected);
    EXPECT_TRUE(kScreen.contains(placed)) << c.name;
}

INSTANTIATE_TEST_SUITE_P(Cases,
                         PanelPlacement,
                         ::testing::Values(Placement{"centred under an icon in a top tray",
                                                     QRect(600, 0, 24, 24),
                                                     {},
                                                     {400, 600},
                                                     QRect(411, 24, 400, 600)},
                                           Placement{"pushed left at the right edge",
                                                     QRect(1250, 0, 24, 24),
                                                     {},
                                                     {400, 600},
                                                     QRect(880, 24, 400, 600)},
                                           Placement{"pushed right at the left edge",
                                                     QRect(2, 0, 24, 24),
                                                     {},
                                                     {400, 600},
                                                     QRect(0, 24, 400, 600)},
                                           Placement{"above an icon in a bottom tray",
                                                     QRect(600, 776, 24, 24),
                                                     {},
                                                     {400, 600},
                                                     QRect(411, 176, 400, 600)},
                                           Placement{
                                               "under the pointer when the icon's place is unknown",
                                               QRect(),
                                               {100, 30},
                                               {400, 600},
                                               QRect(0, 30, 400, 600)},
                                           Placement{"above the pointer near the foot",
                                                     QRect(),
                                                     {640, 790},
                                                     {400, 600},
                                                     QRect(440, 190, 400, 600)},
                                           Placement{"shrunk to a screen smaller than the panel",
                                                     QRect(600, 0, 24, 24),
                                                     {},
                                                     {2000, 1000},
                                                     QRect(0, 0, 1280, 800)}),
                         [](const auto& info) {
                             std::string name = info.param.name;
                             for (auto& c : name) {
                                 if (!std::isalnum(static_cast<unsigned char>(c))) {
                                     c = '_';
                                 }
                             }
                             return name;
                         });

TEST(ZoomKeys, WalkTheStepsAndStopAtTheEnds)
{
    const auto ctrl = [](Qt::Key key, Qt::KeyboardModifiers extra = {}) {
        return QKeyCombination(Qt::ControlModifier | extra, key);
    };
    EXPECT_EQ(zoomForKey(ctrl(Qt::Key_Equal), 1.0), 1.1);
    EXPECT_EQ(zoomForKey(ctrl(Qt::Key_Plus, Qt::ShiftModifier), 1.0), 1.1);
    EXPECT_EQ(zoomForKey(ctrl(Qt::Key_Plus, Qt::KeypadModifier), 1.25), 1.5);
    EXPECT_EQ(zoomForKey(ctrl(Qt::Key_Minus), 1.0), 0.9);
    EXPECT_EQ(zoomForKey(ctrl(Qt::Key_0), 2.5), 1.0);
    EXPECT_EQ(zoomForKey(ctrl(Qt::Key_Equal), 3.0), 3.0);
    EXPECT_EQ(zoomForKey(ctrl(Qt::Key_Minus), 0.5), 0.5);
    // A zoom between steps moves to the next step, not by a fixed amount.
    EXPECT_EQ(zoomForKey(ctrl(Qt::Key_Equal), 1.05), 1.1);
}

TEST(ZoomKeys, OtherKeysAndModifiersLeaveTheZoomAlone)
{
    EXPECT_EQ(zoomForKey(QKeyCombination(Qt::NoModifier, Qt::Key_Equal), 1.0), std::nullopt);
    EXPECT_EQ(
        zoomForKey(QKeyCombination(Qt::ControlModifier | Qt::AltModifier, Qt::Key_Equal), 1.0),
        std::nullopt);
    EXPECT_EQ(zoomForKey(QKeyCombination(Qt::ControlModifier, Qt::Key_9), 1.0), std::nullopt);
}

} // namespace
} // namespace desktop::pages
