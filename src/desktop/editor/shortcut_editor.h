// SPDX-License-Identifier: MIT
#pragma once

#include "kit/library/shortcut.h"
#include "kit/menubar/status_bar.h"
#include "kit/storage/library_store.h"

#include <QPointer>

#include <functional>
#include <optional>
#include <string>

class QWidget;

namespace kit::opening {
class TargetFactory;
}
namespace kit::tools {
class IconProvider;
class InstalledApps;
} // namespace kit::tools

namespace desktop {
class QtIconRenderer;
}

namespace desktop::editor {

class EditorDialog;

// What the editor reads and writes through; every reference must outlive the editor.
struct EditorServices
{
    kit::storage::LibraryStore& store;
    QtIconRenderer& icons;
    kit::tools::InstalledApps& apps;
    kit::tools::IconProvider& iconTheme;
    kit::opening::TargetFactory& targets;
    // What a link follows where it says nothing itself, shown beside each "Default" choice.
    std::function<kit::library::BrowsingDefaults()> browsingDefaults = {};
    // Asks for a file or folder; an empty string when cancelled. Tests replace the dialog.
    std::function<std::string(QWidget* parent, bool folder)> choosePath = {};
    // The look of the panel the icons sit on, for previews drawn as the tray draws them.
    std::function<kit::menubar::Appearance()> panelLook = {};
    // Fetches the site's icon again ("Refresh Icon"); unset, no such button.
    std::function<void(const std::string& address)> refreshSiteIcon = {};
    // Whether a page's count shows on its icon, kept beside the library; unset, no such switch.
    std::function<bool(const kit::library::ShortcutID&)> showsCount = {};
    std::function<void(const kit::library::ShortcutID&, bool)> setShowsCount = {};
    // Whether the page may show notifications, kept the same way; unset, no such switch.
    std::function<bool(const kit::library::ShortcutID&)> notifies = {};
    std::function<void(const kit::library::ShortcutID&, bool)> setNotifies = {};
};

// Opens the editor window on one shortcut at a time, new or existing. Saving writes the whole
// shortcut in one store change; cancelling writes nothing. Main thread only.
class ShortcutEditor
{
public:
    explicit ShortcutEditor(EditorServices services, QWidget* parent = nullptr);
    ~ShortcutEditor();
    ShortcutEditor(const ShortcutEditor&) = delete;
    ShortcutEditor& operator=(const ShortcutEditor&) = delete;

    // Edits a shortcut of the showing bar; an unknown id opens nothing. While a window is open, a
    // second request brings it forward instead, so nothing typed is lost.
    void edit(const kit::library::ShortcutID& id);
    // The same, starting a link on the request's deep-link template or an app shortcut on its app.
    void edit(const kit::storage::LibraryStore::EditRequest& request);
    // A new shortcut of this kind on the bar, at its end or at the end of the group. A divider
    // has nothing to fill in and is added at once.
    void add(const kit::library::BarID& bar,
             kit::library::Target::Kind kind,
             std::optional<kit::library::ShortcutID> intoGroup = {});

    bool isOpen() const;
    // The open window, for tests and screenshots; null when closed.
    EditorDialog* dialog() const;
    // Pictures behind icons changed (a site's icon arrived): the preview draws again.
    void iconsChanged();
    // Closes the window without saving.
    void close();

private:
    void open(const kit::library::BarID& bar,
              kit::library::Shortcut shortcut,
              bool isNew,
              std::optional<kit::library::ShortcutID> group,
              const kit::storage::LibraryStore::EditRequest& request);
    // One store change; nothing when saved, else why not.
    std::optional<std::string> save(const kit::library::BarID& bar,
                                    const kit::library::Shortcut& edited,
                                    bool isNew,
                                    std::optional<kit::library::ShortcutID> group);

    EditorServices m_services;
    QWidget* m_parent;
    // Also gone when the parent window takes it down with itself.
    QPointer<EditorDialog> m_dialog;
    QPointer<EditorDialog> m_closing;
};

} // namespace desktop::editor
