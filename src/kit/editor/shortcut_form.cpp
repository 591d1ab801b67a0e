// SPDX-License-Identifier: MIT
#include "kit/editor/shortcut_form.h"

#include "kit/library/library.h"
#include "kit/library/web_address.h"
#include "kit/support/text.h"

#include <algorithm>
#include <array>

namespace kit::editor {

using kit::library::DeepLinkTemplate;
using kit::library::DeepLinkTemplates;
using kit::library::OpenMode;
using kit::library::Shortcut;
using kit::library::Target;
using kit::library::WebAddress;

namespace {

using support::trimmed;

std::string curlyQuoted(std::string_view text)
{
    return "\u201c" + std::string(text) + "\u201d";
}

std::optional<DeepLinkTemplate> templateWithID(const std::string& id)
{
    for (const auto& link : DeepLinkTemplates::all()) {
        if (link.id() == id) {
            return link;
        }
    }
    return std::nullopt;
}

bool isWebAddress(std::string_view address)
{
    const auto parts = WebAddress::parts(address);
    return parts && (parts->scheme == "http" || parts->scheme == "https");
}

} // namespace

ShortcutForm::ShortcutForm(Shortcut shortcut,
                           bool isNew,
                           bool isMember,
                           kit::library::BrowsingDefaults defaults)
    : m_original(std::move(shortcut))
    , m_isNew(isNew)
    , m_isMember(isMember)
    , m_defaults(std::move(defaults))
    , m_name(m_original.name)
    // A name already given is the person's, even when it matches a suggestion.
    , m_nameTyped(!m_original.name.empty())
    , m_icon{m_original.icon, m_original.iconTint, m_original.iconOpacity}
    , m_isInMenuBar(m_original.isInMenuBar)
{
    const Target& target = m_original.target;
    if (const auto* url = target.urlTarget()) {
        m_page = *url;
        m_address = url->url;
        // The blanks are shown only when the stored link still reads as its template; otherwise it
        // is shown as a plain address and the template stays as it was.
        if (url->templateID) {
            auto reading = DeepLinkTemplates::reading(url->url);
            if (reading && reading->link.id() == *url->templateID) {
                m_template = reading->link;
                m_blanks = reading->values;
            }
        }
    } else if (const auto* app = target.appTarget()) {
        m_appID = app->bundleID;
        m_appBookmark = app->bookmark;
    } else if (const auto* file = target.fileTarget()) {
        // A new file shortcut carries an empty bookmark until something is chosen.
        if (!file->bookmark.displayPath.empty() || !file->bookmark.data.empty()) {
            m_bookmark = file->bookmark;
        }
        m_openWith = file->openWith;
    }
}

void ShortcutForm::setName(std::string name)
{
    m_name = std::move(name);
    m_nameTyped = !trimmed(m_name).empty();
}

void ShortcutForm::suggestName(std::string name)
{
    if (!m_nameTyped) {
        m_name = std::move(name);
    }
}

void ShortcutForm::setAddress(std::string address)
{
    m_address = std::move(address);
    m_linkEdited = true;
    if (!m_template) {
        const auto normalized = WebAddress::normalized(m_address);
        suggestName(normalized ? WebAddress::suggestedName(*normalized) : std::string());
    }
}

bool ShortcutForm::chooseTemplate(const std::optional<std::string>& templateID)
{
    if (!templateID) {
        if (m_template) {
            m_address = resolvedAddress();
            m_template.reset();
            m_linkEdited = true;
        }
        return true;
    }
    auto link = templateWithID(*templateID);
    if (!link) {
        return false;
    }
    if (m_template && m_template->id() == link->id()) {
        return true;
    }
    // Values of blanks with the same name carry over (a Slack workspace, an Obsidian vault).
    const auto names = DeepLinkTemplates::blanks(link->address);
    std::erase_if(m_blanks, [&](const auto& entry) {
        return std::find(names.begin(), names.end(), entry.first) == names.end();
    });
    adopt(std::move(*link));
    return true;
}

void ShortcutForm::adopt(DeepLinkTemplate link)
{
    m_template = std::move(link);
    m_linkEdited = true;
    suggestName(m_template->suggestedName);
    if (m_isNew && !m_icon.icon && m_template->icon) {
        m_icon.icon = m_template->icon;
    }
}

std::vector<std::string> ShortcutForm::blanks() const
{
    return m_template ? DeepLinkTemplates::blanks(m_template->address) : std::vector<std::string>{};
}

std::string ShortcutForm::blankValue(const std::string& blank) const
{
    auto found = m_blanks.find(blank);
    return found == m_blanks.end() ? std::string() : found->second;
}

void ShortcutForm::setBlank(const std::string& blank, std::string value)
{
    m_blanks[blank] = std::move(value);
    m_linkEdited = true;
}

bool ShortcutForm::pasteLink(std::string_view text)
{
    auto reading = DeepLinkTemplates::reading(trimmed(text));
    if (!reading) {
        return false;
    }
    adopt(std::move(reading->link));
    m_blanks = std::move(reading->values);
    return true;
}

std::optional<kit::library::DeepLinkReading> ShortcutForm::appLinkSuggestion() const
{
    if (m_template || trimmed(m_address).empty()) {
        return std::nullopt;
    }
    return DeepLinkTemplates::reading(trimmed(m_address));
}

std::string ShortcutForm::resolvedAddress() const
{
    if (m_template) {
        return DeepLinkTemplates::filled(m_template->address, m_blanks);
    }
    return WebAddress::normalized(m_address).value_or(std::string(trimmed(m_address)));
}

bool ShortcutForm::opensAsPage() const
{
    if (m_template) {
        return isWebAddress(m_template->address);
    }
    // While the address is not one yet, the page settings stay in view.
    const auto normalized = WebAddress::normalized(m_address);
    return !normalized || isWebAddress(*normalized);
}

OpenMode ShortcutForm::effectiveOpenMode() const
{
    return m_page.openMode.value_or(m_defaults.openMode);
}

void ShortcutForm::chooseApp(const kit::tools::InstalledApp& app)
{
    if (app.bundleID != m_appID) {
        // A bookmark of another application would launch the wrong one.
        m_appBookmark.reset();
    }
    m_appID = app.bundleID;
    suggestName(app.name);
}

std::optional<std::string> ShortcutForm::chooseFile(const kit::opening::TargetFactory::Draft& draft)
{
    const auto* file = draft.target.fileTarget();
    if (draft.target.kind() != kind() || !file) {
        const char* what = draft.target.kind() == Target::Kind::Folder ? "a folder"
                           : draft.target.kind() == Target::Kind::App  ? "an app"
                                                                       : "a file";
        return curlyQuoted(draft.name) + " is " + what + "; add it as " + what + " instead.";
    }
    m_bookmark = file->bookmark;
    suggestName(draft.name);
    return std::nullopt;
}

std::vector<Field> ShortcutForm::visibleFields() const
{
    std::vector<Field> fields;
    switch (kind()) {
    case Target::Kind::Divider:
        return fields;
    case Target::Kind::Group:
        fields = {Field::Name};
        break;
    case Target::Kind::App:
        fields = {Field::Name, Field::App};
        break;
    case Target::Kind::File:
    case Target::Kind::Folder:
        fields = {Field::Name, Field::Path, Field::OpenWith};
        break;
    case Target::Kind::Url:
        fields = {Field::Name, Field::Template};
        if (!m_template) {
            fields.push_back(Field::Address);
        } else if (!m_template->isComplete()) {
            if (!m_template->typed) {
                fields.push_back(Field::PasteLink);
            }
            fields.push_back(Field::Blank);
        }
        if (opensAsPage()) {
            fields.push_back(Field::OpenMode);
            const OpenMode mode = effectiveOpenMode();
            if (mode == OpenMode::System) {
                fields.push_back(Field::Browser);
            } else {
                if (!m_page.isPrivate) {
                    fields.push_back(Field::Session);
                }
                fields.push_back(Field::Private);
                fields.push_back(Field::UserAgent);
                if (m_page.userAgent == kit::library::BrowserAgent::Custom) {
                    fields.push_back(Field::CustomUserAgent);
                }
                fields.insert(fields.end(), {Field::Appearance, Field::BlocksAds, Field::Zoom});
                if (mode == OpenMode::Popover) {
                    fields.push_back(Field::PopoverSize);
                } else {
                    fields.insert(fields.end(), {Field::WindowSize, Field::StaysOnTop});
                }
                fields.insert(fields.end(),
                              {Field::ReloadsOnOpen, Field::KeepsPlaying, Field::NewWindowLinks});
            }
        }
        break;
    }
    fields.push_back(Field::Icon);
    // Members have no icon of their own in the menu bar.
    if (!m_isMember) {
        fields.push_back(Field::ShowInMenuBar);
    }
    return fields;
}

bool ShortcutForm::shows(Field field) const
{
    const auto fields = visibleFields();
    return std::find(fields.begin(), fields.end(), field) != fields.end();
}

std::vector<Problem> ShortcutForm::problems() const
{
    std::vector<Problem> found;
    auto add = [&](Field field, std::string message, std::string blank = {}) {
        found.push_back({field, std::move(blank), std::move(message)});
    };
    for (Field field : visibleFields()) {
        switch (field) {
        case Field::Name:
            if (trimmed(m_name).empty()) {
                add(field, "A shortcut needs a name.");
            }
            break;
        case Field::Address:
            if (trimmed(m_address).empty()) {
                add(field, "Type the address to open.");
            } else if (!WebAddress::normalized(m_address)) {
                add(field, curlyQuoted(trimmed(m_address)) + " is not a web address.");
            }
            break;
        case Field::Blank:
            for (const auto& blank : blanks()) {
                const std::string value(trimmed(blankValue(blank)));
                if (value.empty()) {
                    add(field, curlyQuoted(blank) + " is still empty.", blank);
                } else if (DeepLinkTemplates::hasBlank(
                               DeepLinkTemplates::filled("{" + blank + "}", {{blank, value}}))) {
                    // A number blank keeps only digits, so "abc" leaves it empty.
                    add(field, curlyQuoted(blank) + " needs digits.", blank);
                }
            }
            break;
        case Field::CustomUserAgent:
            if (trimmed(m_page.customUserAgent.value_or("")).empty()) {
                add(field, "Type the user agent to send.");
            }
            break;
        case Field::App:
            if (m_appID.empty()) {
                add(field, "Choose an app.");
            }
            break;
        case Field::Path:
            if (!m_bookmark) {
                add(field, kind() == Target::Kind::Folder ? "Choose a folder." : "Choose a file.");
            }
            break;
        default:
            break;
        }
    }
    return found;
}

std::optional<std::string> ShortcutForm::problem(Field field, const std::string& blank) const
{
    for (auto& found : problems()) {
        if (found.field == field && found.blank == blank) {
            return std::move(found.message);
        }
    }
    return std::nullopt;
}

Target ShortcutForm::target() const
{
    switch (kind()) {
    case Target::Kind::Url: {
        kit::library::URLTarget url = m_page;
        const auto& stored = *m_original.target.urlTarget();
        url.url = stored.url;
        url.templateID = stored.templateID;
        if (m_linkEdited) {
            url.url = resolvedAddress();
            url.templateID = m_template ? std::optional(m_template->id()) : std::nullopt;
            if (url.url != stored.url) {
                // Where the old address was left says nothing about the new one.
                url.lastVisitedURL.reset();
            }
            if (!opensAsPage()) {
                // A link into an app only opens in that app.
                url.openMode = OpenMode::System;
            }
        }
        return Target::url(std::move(url));
    }
    case Target::Kind::App:
        return Target::app({m_appID, m_appBookmark});
    case Target::Kind::File:
        return Target::file({m_bookmark.value_or(kit::library::Bookmark{}), m_openWith});
    case Target::Kind::Folder:
        return Target::folder({m_bookmark.value_or(kit::library::Bookmark{}), m_openWith});
    case Target::Kind::Group:
    case Target::Kind::Divider:
        break;
    }
    return m_original.target;
}

Shortcut ShortcutForm::shortcut() const
{
    Shortcut result = m_original;
    if (m_name != m_original.name) {
        result.name = trimmed(m_name);
    }
    result.target = target();
    result.icon = m_icon.icon;
    result.iconTint = m_icon.tint;
    result.iconOpacity = m_icon.opacity;
    result.isInMenuBar = m_isInMenuBar;
    return result;
}

std::string_view readableWord(kit::library::NewWindowLinks links)
{
    constexpr std::array<std::string_view, 3> kWords{
        "In the same page", "In a new window", "In the browser"};
    return kWords[static_cast<size_t>(links)];
}

std::string sessionColour(int index)
{
    // Eight hues far enough apart to tell accounts apart at a glance, in light and dark bars.
    constexpr std::array<const char*, kit::library::Session::kColourCount> kColours{
        "#E5484D", "#F76B15", "#E2A336", "#46A758", "#12A594", "#0090FF", "#8E4EC6", "#D6409F"};
    const int count = static_cast<int>(kColours.size());
    return kColours[static_cast<size_t>(((index % count) + count) % count)];
}

} // namespace kit::editor
