// SPDX-License-Identifier: MIT
#include "kit/editor/shortcut_form.h"

#include "kit/library/fixtures.h"
#include "kit/library/web_address.h"

#include <gtest/gtest.h>

#include <algorithm>

namespace kit::editor {
namespace {

using kit::library::BrowserAgent;
using kit::library::DeepLinkTemplates;
using Mode = kit::library::OpenMode;
using kit::library::Shortcut;
using kit::library::Target;
using kit::library::URLTarget;

using testing_support::webTarget;

const std::string kWhatsApp = "net.whatsapp.WhatsApp/Message a number";
const std::string kSlackChannel = "com.tinyspeck.slackmacgap/Open a channel";

// An unnamed link, as the editor starts a new one.
Shortcut link(std::string url)
{
    return Shortcut::make("", Target::url(webTarget(std::move(url))));
}

// Every setting set, and a name with the spaces a person may have left around it.
Shortcut everySetting()
{
    Shortcut shortcut = testing_support::everyField();
    shortcut.name = " Mail ";
    shortcut.target.urlTarget()->templateID.reset();
    return shortcut;
}

bool has(const std::vector<Field>& fields, Field field)
{
    return std::find(fields.begin(), fields.end(), field) != fields.end();
}

// Untouched forms give back exactly what they were given, fields the editor never shows included.
TEST(ShortcutFormRoundTrip, EveryKindComesBackUnchanged)
{
    kit::library::Bookmark bookmark{{1, 2, 3}, "/home/a/notes.txt"};
    Shortcut group = Shortcut::make("Work", Target::group({link("https://a.example.com")}));
    group.icon = kit::library::IconOverride::symbol("folder-documents");
    const std::vector<Shortcut> shortcuts{
        everySetting(),
        Shortcut::make("Files", Target::app({"org.gnome.Nautilus", bookmark})),
        Shortcut::make("Notes", Target::file({bookmark, "org.gnome.TextEditor"})),
        Shortcut::make("Home", Target::folder({bookmark, std::nullopt})),
        group,
        Shortcut::make("", Target::divider()),
        // A filled deep link, and one whose address no longer reads as its template.
        Shortcut::make(
            "Chat",
            Target::url(webTarget("whatsapp://send?phone=905321234567", kWhatsApp, Mode::System))),
        Shortcut::make("Odd", Target::url(webTarget("https://example.com", kWhatsApp))),
    };
    for (const auto& shortcut : shortcuts) {
        ShortcutForm form(shortcut, false);
        EXPECT_EQ(form.shortcut(), shortcut) << shortcut.name;
    }
}

TEST(ShortcutFormRoundTrip, AStoredDeepLinkShowsItsBlanks)
{
    ShortcutForm form(
        Shortcut::make("Chat",
                       Target::url(webTarget("whatsapp://send?phone=905321234567", kWhatsApp))),
        false);
    ASSERT_TRUE(form.linkTemplate());
    EXPECT_EQ(form.blankValue("phone number"), "905321234567");
    EXPECT_TRUE(form.isValid());
}

struct FieldsRow
{
    const char* label;
    Shortcut shortcut;
    bool isMember;
    std::vector<Field> shown;
    std::vector<Field> hidden;
};

Shortcut page(std::string url, std::string templateID = {}, std::optional<Mode> mode = {})
{
    return Shortcut::make("Example", Target::url(webTarget(std::move(url), templateID, mode)));
}

Shortcut privatePage()
{
    Shortcut shortcut = page("https://example.com");
    shortcut.target.urlTarget()->isPrivate = true;
    return shortcut;
}

using enum Field;
const std::string kSite = "https://example.com";
const std::string kThings = "com.culturedcode.ThingsMac/Show Today";
const std::vector<FieldsRow> kFieldRows{
    {"Divider", Shortcut::make("", Target::divider()), false, {}, {Name, Icon}},
    {"Group",
     Shortcut::make("G", Target::group(kit::library::GroupTarget{})),
     false,
     {Icon, ShowInMenuBar},
     {Address, App}},
    {"Member", Shortcut::make("A", Target::app({"firefox", {}})), true, {App}, {ShowInMenuBar}},
    {"Folder", Shortcut::make("F", Target::folder({})), false, {Path, OpenWith}, {App, Address}},
    {"PanelByDefault",
     page(kSite),
     false,
     {Address, OpenMode, Session, PopoverSize, Zoom},
     {WindowSize, StaysOnTop, Browser, CustomUserAgent}},
    {"Window", page(kSite, {}, Mode::Window), false, {WindowSize, StaysOnTop}, {PopoverSize}},
    {"Browser", page(kSite, {}, Mode::System), false, {Browser}, {Session, Zoom, Private}},
    {"PrivateHasNoAccount", privatePage(), false, {Private}, {Session}},
    {"AppLinkOpensInItsApp", page("slack://open?team=T1"), false, {Address}, {OpenMode, Session}},
    {"PastedTemplate",
     page("slack://open?team=T1", "com.tinyspeck.slackmacgap/Open a workspace"),
     false,
     {Template, PasteLink, Blank},
     {Address}},
    {"TypedTemplate", page("whatsapp://send?phone=1", kWhatsApp), false, {Blank}, {PasteLink}},
    {"CompleteTemplate",
     page("things:///show?id=today", kThings),
     false,
     {Template},
     {Blank, Address}},
};

TEST(ShortcutFormFields, ShowsWhatTheKindAndSettingsNeed)
{
    for (const FieldsRow& param : kFieldRows) {
        SCOPED_TRACE(param.label);
        const auto& row = param;
        ShortcutForm form(row.shortcut, false, row.isMember);
        const auto fields = form.visibleFields();
        for (Field field : row.shown) {
            EXPECT_TRUE(has(fields, field)) << static_cast<int>(field);
        }
        for (Field field : row.hidden) {
            EXPECT_FALSE(has(fields, field)) << static_cast<int>(field);
        }
    }
}

TEST(ShortcutFormProblems, SentencesNameWhatIsWrong)
{
    ShortcutForm form(link("https://example.com"), false);
    form.setName("  ");
    form.setAddress("not an address");
    EXPECT_EQ(form.problem(Field::Name), "A shortcut needs a name.");
    EXPECT_EQ(form.problem(Field::Address), "\u201cnot an address\u201d is not a web address.");
    form.setAddress(" ");
    EXPECT_EQ(form.problem(Field::Address), "Type the address to open.");
    form.setAddress("javascript:alert(1)");
    EXPECT_TRUE(form.problem(Field::Address));

    form.setName("Example");
    form.setAddress("example.com");
    EXPECT_TRUE(form.isValid());

    form.page().userAgent = BrowserAgent::Custom;
    EXPECT_EQ(form.problem(Field::CustomUserAgent), "Type the user agent to send.");
    // Hidden fields keep their values but never block a save.
    form.page().openMode = Mode::System;
    EXPECT_TRUE(form.isValid());
}

TEST(ShortcutFormProblems, NewAppsFilesAndFoldersNeedAChoice)
{
    ShortcutForm app(Shortcut::make("", Target::app({})), true);
    EXPECT_EQ(app.problem(Field::App), "Choose an app.");
    app.chooseApp({"Files", "org.gnome.Nautilus"});
    EXPECT_EQ(app.name(), "Files");
    EXPECT_TRUE(app.isValid());

    ShortcutForm folder(Shortcut::make("", Target::folder({})), true);
    EXPECT_EQ(folder.problem(Field::Path), "Choose a folder.");
    ShortcutForm file(Shortcut::make("", Target::file({})), true);
    EXPECT_EQ(file.problem(Field::Path), "Choose a file.");

    const kit::opening::TargetFactory::Draft folderDraft{
        "Music", Target::folder({{{}, "/home/a/Music"}, std::nullopt})};
    EXPECT_EQ(file.chooseFile(folderDraft),
              "\u201cMusic\u201d is a folder; add it as a folder instead.");
    EXPECT_FALSE(file.bookmark());
    EXPECT_EQ(folder.chooseFile(folderDraft), std::nullopt);
    EXPECT_EQ(folder.name(), "Music");
    EXPECT_TRUE(folder.isValid());
}

TEST(ShortcutFormDeepLinks, BlanksAreFilledAndReportedWhileEmpty)
{
    ShortcutForm form(link(""), true);
    ASSERT_TRUE(form.chooseTemplate(std::string("md.obsidian/Open a note")));
    ASSERT_TRUE(form.linkTemplate());
    EXPECT_EQ(form.blanks(), (std::vector<std::string>{"vault", "note"}));
    EXPECT_EQ(form.problem(Field::Blank, "vault"), "\u201cvault\u201d is still empty.");
    EXPECT_EQ(form.problem(Field::Blank, "note"), "\u201cnote\u201d is still empty.");

    form.setBlank("vault", "My Notes");
    form.setBlank("note", "   ");
    EXPECT_EQ(form.problem(Field::Blank, "vault"), std::nullopt);
    EXPECT_EQ(form.problem(Field::Blank, "note"), "\u201cnote\u201d is still empty.");
    EXPECT_FALSE(form.isValid());

    form.setBlank("note", "a/b");
    EXPECT_TRUE(form.isValid());
    const auto saved = form.shortcut();
    const auto* url = saved.target.urlTarget();
    EXPECT_EQ(url->url, "obsidian://open?vault=My%20Notes&file=a/b");
    EXPECT_EQ(url->templateID, form.linkTemplate()->id());
    // A link into an app opens in the app, whatever the defaults say.
    EXPECT_EQ(url->openMode, Mode::System);
    EXPECT_EQ(saved.name, form.linkTemplate()->suggestedName);
}

TEST(ShortcutFormDeepLinks, ANumberBlankWithoutDigitsIsStillAProblem)
{
    ShortcutForm form(link(""), true);
    ASSERT_TRUE(form.chooseTemplate(kWhatsApp));
    form.setBlank("phone number", "call me");
    EXPECT_EQ(form.problem(Field::Blank, "phone number"), "\u201cphone number\u201d needs digits.");
    form.setBlank("phone number", "+90 532 123 45 67");
    EXPECT_EQ(form.resolvedAddress(), "whatsapp://send?phone=905321234567");
}

TEST(ShortcutFormDeepLinks, APastedLinkChoosesItsTemplateAndFillsIt)
{
    ShortcutForm form(link(""), true);
    EXPECT_FALSE(form.pasteLink("just some words"));
    ASSERT_TRUE(form.pasteLink("https://app.slack.com/client/T0123ABC/C0456DEF"));
    EXPECT_EQ(form.linkTemplate()->id(), kSlackChannel);
    EXPECT_EQ(form.blankValue("workspace"), "T0123ABC");
    EXPECT_EQ(form.resolvedAddress(), "slack://channel?team=T0123ABC&id=C0456DEF");

    // Choosing another Slack link keeps the workspace but not the channel.
    ASSERT_TRUE(form.chooseTemplate(std::string("com.tinyspeck.slackmacgap/Message a person")));
    EXPECT_EQ(form.blankValue("workspace"), "T0123ABC");
    EXPECT_EQ(form.blankValue("channel"), "");
    EXPECT_EQ(form.problem(Field::Blank, "person"), "\u201cperson\u201d is still empty.");

    // Back to a typed address: the link so far becomes its text.
    ASSERT_TRUE(form.chooseTemplate(std::nullopt));
    EXPECT_EQ(form.address(), "slack://user?team=T0123ABC&id={person}");
    EXPECT_FALSE(form.chooseTemplate(std::string("no/such template")));
}

TEST(ShortcutFormDeepLinks, ATypedWebAddressOfAnAppSuggestsItsLink)
{
    ShortcutForm form(link(""), true);
    form.setAddress("https://example.com/page");
    EXPECT_FALSE(form.appLinkSuggestion());
    form.setAddress("https://app.slack.com/client/T1/C2");
    const auto suggestion = form.appLinkSuggestion();
    ASSERT_TRUE(suggestion);
    EXPECT_EQ(suggestion->address, "slack://channel?team=T1&id=C2");
    // Kept as a web page until the person takes the suggestion.
    EXPECT_TRUE(form.opensAsPage());
}

TEST(ShortcutFormEditing, ChangingTheAddressForgetsWhereThePageWasLeft)
{
    Shortcut shortcut = everySetting();
    ShortcutForm same(shortcut, false);
    same.setAddress(shortcut.target.urlTarget()->url);
    EXPECT_EQ(same.shortcut().target.urlTarget()->lastVisitedURL,
              shortcut.target.urlTarget()->lastVisitedURL);

    ShortcutForm moved(shortcut, false);
    moved.setAddress("news.example.org");
    const auto saved = moved.shortcut();
    EXPECT_EQ(saved.target.urlTarget()->url, "https://news.example.org");
    EXPECT_EQ(saved.target.urlTarget()->lastVisitedURL, std::nullopt);
    // The person's own name stays; every other setting too.
    EXPECT_EQ(saved.name, shortcut.name);
    EXPECT_EQ(saved.target.urlTarget()->sessionID, shortcut.target.urlTarget()->sessionID);
}

TEST(ShortcutFormEditing, ANewNameFollowsTheAddressUntilTyped)
{
    ShortcutForm form(link(""), true);
    form.setAddress("github.com");
    EXPECT_EQ(form.name(), kit::library::WebAddress::suggestedName("https://github.com"));
    form.setName("Code");
    form.setAddress("gitlab.com");
    EXPECT_EQ(form.name(), "Code");
    // Clearing the name hands it back to the suggestions.
    form.setName("");
    form.setAddress("example.org");
    EXPECT_EQ(form.name(), "Example");
}

TEST(ShortcutFormEditing, ChoosingAnotherAppDropsTheOldAppsBookmark)
{
    kit::library::Bookmark bookmark{{9}, "/usr/share/applications/firefox.desktop"};
    ShortcutForm form(Shortcut::make("Web", Target::app({"firefox", bookmark})), false);
    form.chooseApp({"Firefox", "firefox"});
    EXPECT_EQ(form.shortcut().target.appTarget()->bookmark, bookmark);
    form.chooseApp({"Files", "org.gnome.Nautilus"});
    EXPECT_EQ(form.shortcut().target.appTarget()->bookmark, std::nullopt);
    EXPECT_EQ(form.shortcut().name, "Web");
}

} // namespace
} // namespace kit::editor
