// SPDX-License-Identifier: MIT
#include "kit/web/page_rules.h"

#include <gtest/gtest.h>

#include <string>

namespace kit::web {
namespace {

using kit::library::BrowserAgent;

constexpr std::string_view kEngineAgent =
    "Mozilla/5.0 (X11; Linux x86_64) AppleWebKit/537.36 (KHTML, like Gecko) "
    "QtWebEngine/6.4.2 Chrome/102.0.5005.177 Safari/537.36";

TEST(PageAgent, DesktopKeepsTheEngineVersionWithoutTheEmbedderTokenAndCustomIsAsTyped)
{
    const std::string agent = userAgent(kEngineAgent, BrowserAgent::DefaultSafari, std::nullopt);
    EXPECT_EQ(agent,
              "Mozilla/5.0 (X11; Linux x86_64) AppleWebKit/537.36 (KHTML, like Gecko) "
              "Chrome/102.0.5005.177 Safari/537.36");
    EXPECT_EQ(userAgent(kEngineAgent, BrowserAgent::Chrome, std::nullopt), agent);
    // A custom agent is sent as typed; a blank one falls back to the desktop's.
    EXPECT_EQ(userAgent(kEngineAgent, BrowserAgent::Custom, "MyAgent/1.0"), "MyAgent/1.0");
    EXPECT_EQ(userAgent(kEngineAgent, BrowserAgent::Custom, "  "), agent);
    EXPECT_EQ(userAgent(kEngineAgent, BrowserAgent::Custom, std::nullopt), agent);
    EXPECT_EQ(userAgent("Odd/1.0", BrowserAgent::IpadSafari, std::nullopt), "Odd/1.0");
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

TEST(PageAgent, FirefoxNamesGecko)
{
    EXPECT_NE(userAgent(kEngineAgent, BrowserAgent::Firefox, std::nullopt).find("Gecko/20100101"),
              std::string::npos);
}

TEST(ZoomKeys, WalkTheStepsAndStopAtTheEndsWithCtrlAlone)
{
    using keys::Modifier;
    const keys::ModifierSet ctrl{Modifier::Control};
    EXPECT_EQ(zoomForKey(ctrl, U'=', 1.0), 1.1);
    EXPECT_EQ(zoomForKey(ctrl.with(Modifier::Shift), U'+', 1.25), 1.5);
    EXPECT_EQ(zoomForKey(ctrl, U'-', 1.0), 0.9);
    EXPECT_EQ(zoomForKey(ctrl, U'0', 2.5), 1.0);
    EXPECT_EQ(zoomForKey(ctrl, U'=', 3.0), 3.0);
    EXPECT_EQ(zoomForKey(ctrl, U'-', 0.5), 0.5);
    // A zoom between steps moves to the next step, not by a fixed amount.
    EXPECT_EQ(zoomForKey(ctrl, U'=', 1.05), 1.1);

    EXPECT_EQ(zoomForKey({}, U'=', 1.0), std::nullopt);
    EXPECT_EQ(zoomForKey(ctrl.with(Modifier::Option), U'=', 1.0), std::nullopt);
    EXPECT_EQ(zoomForKey(ctrl, U'9', 1.0), std::nullopt);
}

} // namespace
} // namespace kit::web
