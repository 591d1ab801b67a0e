// SPDX-License-Identifier: MIT
#include "kit/library/fixtures.h"

#include <gtest/gtest.h>

using namespace kit::library;
using namespace testing_support;

TEST(PageZoomSteps, ClampStepAndTitle)
{
    EXPECT_EQ(PageZoom::clamped(0.1), 0.5);
    EXPECT_EQ(PageZoom::larger(1.0999), 1.25) << "a step within 0.001 counts as reached";
    EXPECT_EQ(PageZoom::title(1.25), "125%");
    EXPECT_EQ(PageZoom::title(0.9), "90%");
}

TEST(ContentSizes, ClampEachSideAlone)
{
    ContentSize min{200, 300};
    ContentSize max{800, 900};
    EXPECT_EQ((ContentSize{100, 1000}.clamped(min, max)), (ContentSize{200, 900}));
    EXPECT_EQ((ContentSize{5000, 5000}.clamped(min, ContentSize::unbounded())),
              (ContentSize{5000, 5000}));
}

TEST(Resolving, TargetSettingsWinOverDefaults)
{
    BrowsingDefaults defaults;
    defaults.blocksAds = false;
    defaults.pageZoom = 1.5;
    URLTarget target;
    target.url = "https://example.com";
    ResolvedBrowsing plain = ResolvedBrowsing::resolve(target, defaults);
    EXPECT_EQ(plain.openMode, OpenMode::Popover);
    EXPECT_FALSE(plain.blocksAds);
    EXPECT_EQ(plain.pageZoom, 1.5);
    EXPECT_EQ(plain.popoverSize, SurfaceLimits::kPopoverDefault);

    target.blocksAds = true;
    target.openMode = OpenMode::System;
    target.pageZoom = 9;
    target.staysOnTop = true;
    ResolvedBrowsing own = ResolvedBrowsing::resolve(target, defaults);
    EXPECT_TRUE(own.blocksAds);
    EXPECT_EQ(own.openMode, OpenMode::System);
    EXPECT_EQ(own.pageZoom, 3.0);
    EXPECT_TRUE(own.staysOnTop);
}
