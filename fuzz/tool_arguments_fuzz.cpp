// SPDX-License-Identifier: MIT
// Tool calls as an assistant sends them: the input is a tool's name, a newline and the argument
// bytes (an input without a known name picks a tool by its first byte). Every call through the
// tool service must complete exactly once, with JSON when it succeeds, and never crash.
#include "kit/library/library_json.h"
#include "kit/storage/library_store.h"
#include "kit/support/main_queue.h"
#include "kit/tools/tool_service.h"

#include <cstdint>
#include <cstdlib>
#include <memory>
#include <string>
#include <string_view>

using namespace kit::library;
using namespace kit::tools;

namespace {

template <class Id> Id fixed(const char* text)
{
    return *Id::parse(text);
}

// Delayed tasks are dropped: every proposal is decided before its wait could end.
class DroppingQueue final : public kit::support::MainQueue
{
public:
    void post(std::function<void()> task) override { task(); }
    void postAfter(std::chrono::milliseconds, std::function<void()>) override {}
};

class FixedIcons final : public IconProvider
{
public:
    IconList icons() override
    {
        static const IconList kIcons = std::make_shared<const std::vector<IconEntry>>(
            std::vector<IconEntry>{{"folder", "Places"}, {"go-next", "Actions"}});
        return kIcons;
    }
};

struct World
{
    std::unique_ptr<kit::storage::LibraryStore> store;
    DroppingQueue queue;
    std::unique_ptr<ToolService> service;
    int decisions = 0;
};

// A showing bar "Main" with Mail (a group holding Inbox), Notes (a file), a divider and Calc (an
// app), a bar "Side" with Wiki, and the account "Work".
World& world()
{
    static World* kWorld = [] {
        auto* w = new World;
        kit::storage::LibraryStore::Options options;
        options.interval = std::chrono::hours(24);
        auto directory = kit::storage::SupportDirectory::temporary("vantorel-tool-fuzz");
        if (!directory) {
            std::abort();
        }
        w->store = std::make_unique<kit::storage::LibraryStore>(*directory, options);
        auto& store = *w->store;
        store.renameBar(store.activeBarID(), "Main");
        store.upsertSession({fixed<SessionID>("5E55105E-0000-4000-8000-000000000001"), "Work", 2});
        URLTarget mailURL;
        mailURL.url = "https://mail.example.com/";
        mailURL.sessionID = store.sessions().front().id;
        Shortcut inbox{fixed<ShortcutID>("5C000000-0000-4000-8000-000000000002"),
                       "Inbox",
                       Target::url(mailURL),
                       {},
                       {},
                       {},
                       true};
        Shortcut mail{fixed<ShortcutID>("5C000000-0000-4000-8000-000000000001"),
                      "Mail",
                      Target::group({inbox}),
                      {},
                      {},
                      {},
                      true};
        Shortcut notes{fixed<ShortcutID>("5C000000-0000-4000-8000-000000000003"),
                       "Notes",
                       Target::file(FileTarget{Bookmark{{1, 2}, "/home/me/notes.txt"}, {}}),
                       {},
                       {},
                       {},
                       true};
        Shortcut divider{fixed<ShortcutID>("5C000000-0000-4000-8000-000000000004"),
                         "",
                         Target::divider(),
                         {},
                         {},
                         {},
                         true};
        Shortcut calc{fixed<ShortcutID>("5C000000-0000-4000-8000-000000000005"),
                      "Calc",
                      Target::app(AppTarget{"org.gnome.Calculator", {}}),
                      {},
                      {},
                      {},
                      true};
        store.mutate([&](Library& l) {
            for (const auto& s : {mail, notes, divider, calc}) {
                l.add(s);
            }
        });
        auto side = store.addBar("Side");
        URLTarget wikiURL;
        wikiURL.url = "https://wiki.example.org/";
        store.mutate(*side, [&](Library& l) {
            l.add(Shortcut{fixed<ShortcutID>("5C000000-0000-4000-8000-000000000006"),
                           "Wiki",
                           Target::url(wikiURL),
                           {},
                           {},
                           {},
                           true});
        });

        ToolService::Bindings bindings;
        bindings.appVersion = "0.0.0";
        bindings.onProposal = [w](kit::proposal::Proposal,
                                  kit::proposal::ProposalInbox::DecisionCallback decide) {
            ++w->decisions;
            decide({kit::proposal::ProposalInbox::Decision::Kind::Declined, {}, {}, {}});
        };
        // The library stays as it is from one input to the next.
        bindings.switchBar = [](const BarID&) {};
        bindings.openShortcut = [](const Shortcut&, const BarID&) { return false; };
        bindings.reach = [](const std::string& path) -> std::optional<Bookmark> {
            if (path.rfind("/home/", 0) == 0) {
                return Bookmark{{7}, "/home"};
            }
            return std::nullopt;
        };
        w->service = std::make_unique<ToolService>(
            store,
            w->queue,
            std::make_shared<InstalledApps>(std::vector<std::filesystem::path>{}),
            std::make_shared<FixedIcons>(),
            bindings);
        return w;
    }();
    return *kWorld;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    if (size == 0) {
        return 0;
    }
    World& w = world();
    const auto& tools = ToolService::descriptions();
    std::string_view text(reinterpret_cast<const char*>(data), size);
    std::string name;
    std::optional<std::string> arguments;
    auto newline = text.find('\n');
    std::string_view head = text.substr(0, newline);
    bool known = false;
    for (const auto& tool : tools) {
        known = known || tool.name == head;
    }
    if (known) {
        name = std::string(head);
        if (newline != std::string_view::npos) {
            arguments = std::string(text.substr(newline + 1));
        }
    } else {
        name = tools[data[0] % tools.size()].name;
        if (size > 1) {
            arguments = std::string(text.substr(1));
        }
    }

    int completions = 0;
    w.service->call(name, arguments, "A fuzzer", [&](kit::mcp::ToolResult result) {
        ++completions;
        if (result.ok()) {
            try {
                (void)parseJson(result.text());
            } catch (const DecodeError&) {
                std::abort();
            }
        } else if (result.text().empty()) {
            std::abort();
        }
    });
    if (completions != 1) {
        std::abort();
    }
    return 0;
}
