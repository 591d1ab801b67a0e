// SPDX-License-Identifier: MIT
#include "kit/library/shortcut.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace kit::library {

ContentSize ContentSize::unbounded()
{
    constexpr double kInf = std::numeric_limits<double>::infinity();
    return {kInf, kInf};
}

ContentSize ContentSize::clamped(const ContentSize& min, const ContentSize& max) const
{
    return {std::clamp(width, min.width, std::max(min.width, max.width)),
            std::clamp(height, min.height, std::max(min.height, max.height))};
}

double PageZoom::clamped(double zoom)
{
    if (std::isnan(zoom)) {
        return kNormal;
    }
    return std::clamp(zoom, kSmallest, kLargest);
}

double PageZoom::larger(double than)
{
    for (double step : kSteps) {
        if (step > than + 0.001) {
            return step;
        }
    }
    return kLargest;
}

double PageZoom::smaller(double than)
{
    for (auto it = kSteps.rbegin(); it != kSteps.rend(); ++it) {
        if (*it < than - 0.001) {
            return *it;
        }
    }
    return kSmallest;
}

std::string PageZoom::title(double zoom)
{
    return std::to_string(static_cast<long long>(std::lround(zoom * 100))) + "%";
}

const std::vector<Shortcut>& Target::members() const
{
    static const std::vector<Shortcut> kNone;
    const auto* group = groupTarget();
    return group ? group->members : kNone;
}

namespace {

Shortcut freshCopy(const Shortcut& original)
{
    Shortcut copy = original;
    copy.id = ShortcutID::make();
    if (auto* group = copy.target.groupTarget()) {
        for (auto& member : group->members) {
            member = freshCopy(member);
        }
    }
    return copy;
}

} // namespace

Shortcut Shortcut::copy() const
{
    Shortcut result = freshCopy(*this);
    if (!result.name.empty()) {
        result.name += " copy";
    }
    return result;
}

ResolvedBrowsing ResolvedBrowsing::resolve(const URLTarget& target,
                                           const BrowsingDefaults& defaults)
{
    ResolvedBrowsing r;
    r.openMode = target.openMode.value_or(defaults.openMode);
    r.browserBundleID = target.browserBundleID ? target.browserBundleID : defaults.browserBundleID;
    r.userAgent = target.userAgent.value_or(defaults.userAgent);
    r.customUserAgent = target.customUserAgent ? target.customUserAgent : defaults.customUserAgent;
    r.pageAppearance = target.pageAppearance.value_or(defaults.pageAppearance);
    r.blocksAds = target.blocksAds.value_or(defaults.blocksAds);
    r.popoverSize = target.popoverSize.value_or(defaults.popoverSize);
    r.windowSize = target.windowSize.value_or(defaults.windowSize);
    r.staysOnTop = target.staysOnTop;
    r.reloadsOnOpen = target.reloadsOnOpen;
    r.keepsPlaying = target.keepsPlaying;
    r.newWindowLinks = target.newWindowLinks.value_or(defaults.newWindowLinks);
    r.pageZoom = PageZoom::clamped(target.pageZoom.value_or(defaults.pageZoom));
    return r;
}

} // namespace kit::library
