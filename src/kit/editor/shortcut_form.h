// SPDX-License-Identifier: MIT
#pragma once

#include "kit/library/deep_link.h"
#include "kit/library/shortcut.h"
#include "kit/opening/target_factory.h"
#include "kit/tools/installed_apps.h"

#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace kit::editor {

// Every control the editor can show; which ones a shortcut shows is ShortcutForm's decision.
enum class Field {
    Name,
    Address,
    Template,
    Blank,     // one per blank of the chosen deep link
    PasteLink, // a link the blanks are read from
    OpenMode,
    Session,
    Browser,
    UserAgent,
    CustomUserAgent,
    Appearance,
    BlocksAds,
    PopoverSize,
    WindowSize,
    Zoom,
    StaysOnTop,
    ReloadsOnOpen,
    KeepsPlaying,
    NewWindowLinks,
    Private,
    App,
    Path,
    OpenWith,
    Icon,
    ShowInMenuBar,
};

// A sentence shown beside the field it is about; `blank` names the blank for Field::Blank.
struct Problem
{
    Field field = Field::Name;
    std::string blank;
    std::string message;

    bool operator==(const Problem&) const = default;
};

// The icon half of a shortcut, edited by the icon picker.
struct IconChoice
{
    std::optional<kit::library::IconOverride> icon;
    std::optional<kit::library::IconTint> tint;
    std::optional<double> opacity;

    bool operator==(const IconChoice&) const = default;
};

// The editor's state for one shortcut without any widget: which fields its kind shows, what is
// wrong with them, and the shortcut they make. A form loaded from a shortcut and saved untouched
// gives that shortcut back unchanged. Main thread only (it reads the deep-link catalogue).
class ShortcutForm
{
public:
    ShortcutForm(kit::library::Shortcut shortcut,
                 bool isNew,
                 bool isMember = false,
                 kit::library::BrowsingDefaults defaults = {});

    kit::library::Target::Kind kind() const { return m_original.target.kind(); }
    const kit::library::Shortcut& original() const { return m_original; }
    bool isNew() const { return m_isNew; }
    const kit::library::BrowsingDefaults& defaults() const { return m_defaults; }

    const std::string& name() const { return m_name; }
    // A name typed by the person stops following the address, link, app or file.
    void setName(std::string name);

    // Links: a typed address, or a deep-link template with its blanks.
    const std::string& address() const { return m_address; }
    void setAddress(std::string address);
    const std::optional<kit::library::DeepLinkTemplate>& linkTemplate() const { return m_template; }
    // Nothing goes back to a typed address (the filled link becomes its text); false for an
    // unknown id.
    bool chooseTemplate(const std::optional<std::string>& templateID);
    std::vector<std::string> blanks() const;
    std::string blankValue(const std::string& blank) const;
    void setBlank(const std::string& blank, std::string value);
    // Fits a pasted link to a template and fills its blanks from it; false when it fits none.
    bool pasteLink(std::string_view text);
    // A typed address that an application of the catalogue can open as its own link.
    std::optional<kit::library::DeepLinkReading> appLinkSuggestion() const;
    // The address the shortcut will open: the typed one normalised, or the filled template.
    std::string resolvedAddress() const;
    // Whether the link opens as a web page (and so may open inside Vantorel).
    bool opensAsPage() const;
    // The page settings (everything of a link but its address and template), edited in place.
    kit::library::URLTarget& page() { return m_page; }
    const kit::library::URLTarget& page() const { return m_page; }
    // The open mode the link follows, its own or the default.
    kit::library::OpenMode effectiveOpenMode() const;

    // Apps.
    const std::string& appID() const { return m_appID; }
    void chooseApp(const kit::tools::InstalledApp& app);

    // Files and folders: a draft made by the target factory from the chosen path. Nothing when
    // taken, else why not.
    std::optional<std::string> chooseFile(const kit::opening::TargetFactory::Draft& draft);
    const std::optional<kit::library::Bookmark>& bookmark() const { return m_bookmark; }
    const std::optional<std::string>& openWith() const { return m_openWith; }
    void setOpenWith(std::optional<std::string> app) { m_openWith = std::move(app); }

    const IconChoice& icon() const { return m_icon; }
    void setIcon(IconChoice icon) { m_icon = std::move(icon); }
    bool isInMenuBar() const { return m_isInMenuBar; }
    void setInMenuBar(bool shown) { m_isInMenuBar = shown; }

    // The fields to show, in the order they appear.
    std::vector<Field> visibleFields() const;
    bool shows(Field field) const;
    // Only shown fields are checked: a hidden field keeps its value and cannot block a save.
    std::vector<Problem> problems() const;
    std::optional<std::string> problem(Field field, const std::string& blank = {}) const;
    bool isValid() const { return problems().empty(); }

    // The edited shortcut; only meaningful while the form is valid.
    kit::library::Shortcut shortcut() const;

private:
    void suggestName(std::string name);
    void adopt(kit::library::DeepLinkTemplate link);
    kit::library::Target target() const;

    kit::library::Shortcut m_original;
    bool m_isNew;
    bool m_isMember;
    kit::library::BrowsingDefaults m_defaults;

    std::string m_name;
    bool m_nameTyped = false;

    std::string m_address;
    std::optional<kit::library::DeepLinkTemplate> m_template;
    std::map<std::string, std::string> m_blanks;
    // Until the address or template is touched, the stored link is saved as it was.
    bool m_linkEdited = false;
    kit::library::URLTarget m_page;

    std::string m_appID;
    std::optional<kit::library::Bookmark> m_appBookmark;

    std::optional<kit::library::Bookmark> m_bookmark;
    std::optional<std::string> m_openWith;

    IconChoice m_icon;
    bool m_isInMenuBar = true;
};

// How a choice reads in the editor.
std::string_view readableWord(kit::library::NewWindowLinks links);
// The colour a session wears, "#RRGGBB", by its colour index.
std::string sessionColour(int index);

} // namespace kit::editor
