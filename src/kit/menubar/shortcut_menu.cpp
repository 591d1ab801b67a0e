// SPDX-License-Identifier: MIT
#include "kit/menubar/shortcut_menu.h"

#include "kit/library/web_address.h"
#include "kit/library/words.h"

#include <algorithm>
#include <array>
#include <cmath>

namespace kit::menubar {

using library::BrowserAgent;
using library::BrowsingDefaults;
using library::Library;
using library::OpenMode;
using library::PageAppearance;
using library::PageZoom;
using library::ResolvedBrowsing;
using library::Shortcut;
using library::ShortcutChange;
using library::ShortcutID;
using library::Target;
using library::URLTarget;
namespace change = library::change;
namespace words = library::words;

namespace {

constexpr std::array<OpenMode, 3> kModes{OpenMode::Popover, OpenMode::Window, OpenMode::System};
constexpr std::array<PageAppearance, 4> kAppearances{PageAppearance::System,
                                                     PageAppearance::Light,
                                                     PageAppearance::Dark,
                                                     PageAppearance::ForcedDark};
constexpr std::array<BrowserAgent, 5> kAgents{BrowserAgent::DefaultSafari,
                                              BrowserAgent::Chrome,
                                              BrowserAgent::Firefox,
                                              BrowserAgent::IpadSafari,
                                              BrowserAgent::IphoneSafari};

// Builds the actions of one shortcut's rows; used only while they are built, since each action
// copies what it needs.
class Writer
{
public:
    Writer(const ShortcutID& id, const ShortcutMenuActions::Mutate& mutate)
        : m_id(id)
        , m_mutate(mutate)
    {}

    std::function<void()> set(ShortcutChange change) const
    {
        if (!m_mutate) {
            return {};
        }
        return [mutate = m_mutate, id = m_id, change = std::move(change)] {
            mutate([&](Library& library) { library.apply(change, id); });
        };
    }

    std::function<void()> remove(std::optional<std::string> question,
                                 const std::function<bool(const std::string&)>& confirm) const
    {
        if (!m_mutate) {
            return {};
        }
        if (!question || !confirm) {
            return [mutate = m_mutate, id = m_id] {
                mutate([&](Library& library) { library.remove(id); });
            };
        }
        return [mutate = m_mutate, id = m_id, question = *question, confirm] {
            if (confirm(question)) {
                mutate([&](Library& library) { library.remove(id); });
            }
        };
    }

private:
    ShortcutID m_id;
    const ShortcutMenuActions::Mutate& m_mutate;
};

bool sameZoom(double a, double b)
{
    return std::abs(a - b) < 0.005;
}

// Only an http or https address can show inside the app; anything else opens in its own app.
bool isWebPage(const URLTarget& url)
{
    auto parts = library::WebAddress::parts(url.url);
    return parts && (parts->scheme == "http" || parts->scheme == "https");
}

MenuItem submenu(std::string title, std::vector<MenuItem> items, bool enabled)
{
    MenuItem item = MenuItem::submenu(std::move(title), std::move(items));
    item.enabled = enabled;
    return item;
}

MenuItem openModeRows(const URLTarget& url, const BrowsingDefaults& defaults, const Writer& write)
{
    std::vector<MenuItem> items;
    items.push_back(MenuItem::option(
        ShortcutMenu::followsDefault(ShortcutMenu::openModeTitle(defaults.openMode)),
        !url.openMode,
        write.set(change::OpenModeTo{std::nullopt})));
    items.push_back(MenuItem::separator());
    for (OpenMode mode : kModes) {
        items.push_back(MenuItem::option(ShortcutMenu::openModeTitle(mode),
                                         url.openMode == mode,
                                         write.set(change::OpenModeTo{mode})));
    }
    return submenu(std::string(words::kOpens), std::move(items), true);
}

MenuItem accountRows(const URLTarget& url,
                     const std::vector<library::Session>& sessions,
                     bool inApp,
                     const Writer& write)
{
    std::vector<MenuItem> items;
    items.push_back(MenuItem::option(std::string(words::kDefaultAccount),
                                     !url.sessionID,
                                     write.set(change::Account{std::nullopt})));
    bool known = !url.sessionID;
    for (const auto& session : sessions) {
        bool current = url.sessionID == session.id;
        known = known || current;
        items.push_back(
            MenuItem::option(session.name.empty() ? std::string("Session") : session.name,
                             current,
                             write.set(change::Account{session.id})));
    }
    if (!known) {
        // A link naming an account that is gone still says so, rather than showing none.
        MenuItem unknown = MenuItem::option(std::string(words::kUnknownAccount), true, {});
        items.insert(items.begin() + 1, std::move(unknown));
    }
    // A private page keeps nothing, whichever account it names.
    return submenu(std::string(words::kAccount), std::move(items), inApp && !url.isPrivate);
}

MenuItem browserRows(const URLTarget& url,
                     const std::vector<NamedApp>& browsers,
                     const BrowsingDefaults& defaults,
                     bool enabled,
                     const Writer& write)
{
    std::vector<MenuItem> items;
    std::string standard(words::kDefaultBrowser);
    if (defaults.browserBundleID) {
        standard = ShortcutMenu::followsDefault(*defaults.browserBundleID);
        for (const auto& browser : browsers) {
            if (browser.id == *defaults.browserBundleID) {
                standard = ShortcutMenu::followsDefault(browser.name);
            }
        }
    }
    items.push_back(
        MenuItem::option(standard, !url.browserBundleID, write.set(change::Browser{std::nullopt})));
    bool listed = !url.browserBundleID;
    if (!browsers.empty() || url.browserBundleID) {
        items.push_back(MenuItem::separator());
    }
    for (const auto& browser : browsers) {
        bool current = url.browserBundleID == browser.id;
        listed = listed || current;
        items.push_back(
            MenuItem::option(browser.name, current, write.set(change::Browser{browser.id})));
    }
    if (!listed) {
        // A browser that is not installed any more keeps its row so the choice stays visible.
        items.push_back(MenuItem::option(*url.browserBundleID, true, {}));
    }
    return submenu(std::string(words::kBrowser), std::move(items), enabled);
}

MenuItem
agentRows(const URLTarget& url, const BrowsingDefaults& defaults, bool enabled, const Writer& write)
{
    std::vector<MenuItem> items;
    items.push_back(
        MenuItem::option(ShortcutMenu::followsDefault(ShortcutMenu::agentTitle(defaults.userAgent)),
                         !url.userAgent,
                         write.set(change::UserAgent{std::nullopt, std::nullopt})));
    items.push_back(MenuItem::separator());
    for (BrowserAgent agent : kAgents) {
        items.push_back(MenuItem::option(ShortcutMenu::agentTitle(agent),
                                         url.userAgent == agent,
                                         write.set(change::UserAgent{agent, std::nullopt})));
    }
    // A custom agent needs its text, which only the editor takes; the menu can go back to one.
    if (url.customUserAgent && !url.customUserAgent->empty()) {
        items.push_back(MenuItem::option(
            ShortcutMenu::agentTitle(BrowserAgent::Custom),
            url.userAgent == BrowserAgent::Custom,
            write.set(change::UserAgent{BrowserAgent::Custom, url.customUserAgent})));
    } else if (url.userAgent == BrowserAgent::Custom) {
        items.push_back(MenuItem::option(ShortcutMenu::agentTitle(BrowserAgent::Custom), true, {}));
    }
    return submenu(std::string(words::kBrowserAgent), std::move(items), enabled);
}

MenuItem appearanceRows(const URLTarget& url,
                        const BrowsingDefaults& defaults,
                        bool enabled,
                        const Writer& write)
{
    std::vector<MenuItem> items;
    items.push_back(MenuItem::option(
        ShortcutMenu::followsDefault(ShortcutMenu::appearanceTitle(defaults.pageAppearance)),
        !url.pageAppearance,
        write.set(change::Appearance{std::nullopt})));
    items.push_back(MenuItem::separator());
    for (PageAppearance appearance : kAppearances) {
        items.push_back(MenuItem::option(ShortcutMenu::appearanceTitle(appearance),
                                         url.pageAppearance == appearance,
                                         write.set(change::Appearance{appearance})));
    }
    return submenu(std::string(words::kAppearance), std::move(items), enabled);
}

MenuItem
zoomRows(const URLTarget& url, const BrowsingDefaults& defaults, bool enabled, const Writer& write)
{
    std::vector<MenuItem> items;
    items.push_back(
        MenuItem::option(ShortcutMenu::followsDefault(PageZoom::title(defaults.pageZoom)),
                         !url.pageZoom,
                         write.set(change::Zoom{std::nullopt})));
    items.push_back(MenuItem::separator());
    bool listed = !url.pageZoom;
    for (double step : PageZoom::kSteps) {
        bool current = url.pageZoom && sameZoom(*url.pageZoom, step);
        listed = listed || current;
        items.push_back(
            MenuItem::option(PageZoom::title(step), current, write.set(change::Zoom{step})));
    }
    if (!listed) {
        // A zoom set between the steps (by the page's own keys) shows where it falls.
        double zoom = *url.pageZoom;
        auto place = std::upper_bound(PageZoom::kSteps.begin(), PageZoom::kSteps.end(), zoom);
        // Past the default row and its line.
        items.insert(items.begin() + 2 + (place - PageZoom::kSteps.begin()),
                     MenuItem::option(PageZoom::title(zoom), true, {}));
    }
    return submenu(std::string(words::kZoom), std::move(items), enabled);
}

// A setting that is on or off; choosing it flips it.
MenuItem toggle(std::string title, bool on, std::function<void()> action, bool enabled)
{
    MenuItem item = MenuItem::option(std::move(title), on, std::move(action));
    item.enabled = item.enabled && enabled;
    return item;
}

void addURLRows(std::vector<MenuItem>& rows,
                const URLTarget& url,
                const ShortcutMenuContext& context,
                const Writer& write)
{
    const BrowsingDefaults& defaults = context.defaults;
    ResolvedBrowsing resolved = ResolvedBrowsing::resolve(url, defaults);
    // Rows for pages shown inside the app stay in place but are greyed while the link opens in a
    // browser, and the other way round, so the menu keeps its shape when the mode changes.
    bool inApp = resolved.openMode != OpenMode::System;

    rows.push_back(openModeRows(url, defaults, write));
    rows.push_back(browserRows(url, context.browsers, defaults, !inApp, write));
    rows.push_back(accountRows(url, context.sessions, inApp, write));
    rows.push_back(agentRows(url, defaults, inApp, write));
    rows.push_back(appearanceRows(url, defaults, inApp, write));
    rows.push_back(zoomRows(url, defaults, inApp, write));
    rows.push_back(MenuItem::separator());

    // Back to following the default when the choice equals it, so a later change of the default
    // carries this link along.
    bool blocks = !resolved.blocksAds;
    rows.push_back(toggle(std::string(words::kBlocksAds),
                          resolved.blocksAds,
                          write.set(change::BlocksAds{
                              blocks == defaults.blocksAds ? std::nullopt : std::optional(blocks)}),
                          inApp));
    rows.push_back(toggle(std::string(words::kStaysOnTop),
                          url.staysOnTop,
                          write.set(change::StaysOnTop{!url.staysOnTop}),
                          inApp));
    rows.push_back(toggle(std::string(words::kReloadsOnOpen),
                          url.reloadsOnOpen,
                          write.set(change::ReloadsOnOpen{!url.reloadsOnOpen}),
                          inApp));
    rows.push_back(toggle(std::string(words::kKeepsPlaying),
                          url.keepsPlaying,
                          write.set(change::KeepsPlaying{!url.keepsPlaying}),
                          inApp));
}

void addOpenWithRows(std::vector<MenuItem>& rows,
                     const library::FileTarget& file,
                     const std::vector<NamedApp>& apps,
                     const Writer& write)
{
    std::vector<MenuItem> items;
    items.push_back(MenuItem::option(
        "The default app", !file.openWith, write.set(change::OpenWith{std::nullopt})));
    bool listed = !file.openWith;
    if (!apps.empty() || file.openWith) {
        items.push_back(MenuItem::separator());
    }
    for (const auto& app : apps) {
        bool current = file.openWith == app.id;
        listed = listed || current;
        items.push_back(MenuItem::option(app.name, current, write.set(change::OpenWith{app.id})));
    }
    if (!listed) {
        items.push_back(MenuItem::option(*file.openWith, true, {}));
    }
    rows.push_back(submenu("Opens in", std::move(items), true));
}

} // namespace

std::vector<MenuItem> ShortcutMenu::rows(const Shortcut& shortcut,
                                         const ShortcutMenuContext& context,
                                         const ShortcutMenuActions& actions)
{
    Writer write(shortcut.id, actions.mutate);
    std::vector<MenuItem> rows;
    const Target& target = shortcut.target;

    if (!target.isDivider()) {
        std::function<void()> open;
        if (actions.open) {
            open = [open = actions.open, shortcut] { open(shortcut); };
        }
        rows.push_back(MenuItem::command("Open", std::move(open)));
        rows.push_back(MenuItem::separator());
    }

    size_t before = rows.size();
    if (const URLTarget* url = target.urlTarget(); url && isWebPage(*url)) {
        addURLRows(rows, *url, context, write);
    } else if (const library::FileTarget* file = target.fileTarget()) {
        addOpenWithRows(rows, *file, context.apps, write);
    }
    if (context.isTopLevel) {
        rows.push_back(toggle("In the menu bar",
                              shortcut.isInMenuBar,
                              write.set(change::ShowInMenuBar{!shortcut.isInMenuBar}),
                              true));
    }
    if (rows.size() > before) {
        rows.push_back(MenuItem::separator());
    }

    std::function<void()> edit;
    if (actions.edit) {
        edit = [edit = actions.edit, id = shortcut.id] { edit(id); };
    }
    rows.push_back(MenuItem::command("Edit\u2026", std::move(edit)));
    rows.push_back(
        MenuItem::command("Remove", write.remove(removalQuestion(shortcut), actions.confirm)));
    return rows;
}

std::function<std::vector<MenuItem>(const Shortcut&)>
ShortcutMenu::provider(storage::LibraryStore& store,
                       std::function<BrowsingDefaults()> defaults,
                       std::function<void(const Shortcut&)> open,
                       std::function<void(const ShortcutID&)> edit,
                       std::function<bool(const std::string&)> confirm)
{
    storage::LibraryStore* owner = &store;
    ShortcutMenuActions actions;
    actions.mutate = [owner](const std::function<void(Library&)>& change) {
        owner->mutate(change);
    };
    actions.open = std::move(open);
    actions.edit = std::move(edit);
    actions.confirm = std::move(confirm);
    return [owner, defaults = std::move(defaults), actions](const Shortcut& shortcut) {
        ShortcutMenuContext context;
        context.sessions = owner->sessions();
        context.defaults = defaults ? defaults() : BrowsingDefaults::standard();
        const Library& library = owner->library();
        context.isTopLevel = std::any_of(library.shortcuts.begin(),
                                         library.shortcuts.end(),
                                         [&](const Shortcut& s) { return s.id == shortcut.id; });
        return rows(shortcut, context, actions);
    };
}

std::optional<std::string> ShortcutMenu::removalQuestion(const Shortcut& shortcut)
{
    auto inside = Library::flatten(shortcut.target.members());
    auto count = std::count_if(inside.begin(), inside.end(), [](const Shortcut* member) {
        return !member->target.isDivider();
    });
    if (count == 0) {
        return std::nullopt;
    }
    std::string what = count == 1 ? "the shortcut" : "the " + std::to_string(count) + " shortcuts";
    return "Remove \u201c" + shortcut.name + "\u201d and " + what + " in it?";
}

std::string ShortcutMenu::openModeTitle(OpenMode mode)
{
    return std::string(library::readableWord(mode));
}

std::string ShortcutMenu::appearanceTitle(PageAppearance appearance)
{
    return std::string(library::readableWord(appearance));
}

std::string ShortcutMenu::agentTitle(BrowserAgent agent)
{
    return std::string(library::readableWord(agent));
}

std::string ShortcutMenu::followsDefault(const std::string& title)
{
    return words::followsDefault(title);
}

} // namespace kit::menubar
