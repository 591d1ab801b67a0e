// SPDX-License-Identifier: MIT
#include "desktop/editor/shortcut_editor.h"

#include "desktop/editor/editor_dialog.h"
#include "desktop/window_fit.h"
#include "kit/library/library.h"
#include "kit/tools/installed_apps.h"

#include <QString>

namespace desktop::editor {

using kit::library::Library;
using kit::library::Shortcut;
using kit::library::Target;

namespace {

Target emptyTarget(Target::Kind kind)
{
    switch (kind) {
    case Target::Kind::App:
        return Target::app({});
    case Target::Kind::File:
        return Target::file({});
    case Target::Kind::Folder:
        return Target::folder({});
    case Target::Kind::Url:
        return Target::url({});
    case Target::Kind::Group:
        return Target::group(kit::library::GroupTarget{});
    case Target::Kind::Divider:
        break;
    }
    return Target::divider();
}

// The installed app a hint names: its id exactly, else the only app whose name holds it.
std::optional<kit::tools::InstalledApp> appFor(const std::string& hint,
                                               const kit::tools::AppList& apps)
{
    if (!apps) {
        return std::nullopt;
    }
    const QString wanted = QString::fromStdString(hint).trimmed();
    std::optional<kit::tools::InstalledApp> named;
    int namedCount = 0;
    for (const auto& app : *apps) {
        if (app.bundleID == hint) {
            return app;
        }
        const QString name = QString::fromStdString(app.name);
        if (name.compare(wanted, Qt::CaseInsensitive) == 0) {
            return app;
        }
        if (name.contains(wanted, Qt::CaseInsensitive)) {
            named = app;
            ++namedCount;
        }
    }
    return namedCount == 1 ? named : std::nullopt;
}

} // namespace

ShortcutEditor::ShortcutEditor(EditorServices services, QWidget* parent)
    : m_services(std::move(services))
    , m_parent(parent)
{}

ShortcutEditor::~ShortcutEditor()
{
    // A closed dialog still waiting for its deletion holds our services too.
    delete m_dialog.data();
    delete m_closing.data();
}

void ShortcutEditor::edit(const kit::library::ShortcutID& id)
{
    edit(kit::storage::LibraryStore::EditRequest{id, {}, {}});
}

void ShortcutEditor::edit(const kit::storage::LibraryStore::EditRequest& request)
{
    const auto& store = m_services.store;
    const Shortcut* shortcut = store.library().shortcut(request.id);
    if (!shortcut) {
        return;
    }
    open(store.activeBarID(), *shortcut, false, store.library().parent(request.id), request);
}

void ShortcutEditor::add(const kit::library::BarID& bar,
                         Target::Kind kind,
                         std::optional<kit::library::ShortcutID> intoGroup)
{
    Shortcut shortcut = Shortcut::make({}, emptyTarget(kind));
    if (kind == Target::Kind::Divider) {
        // Nothing to fill in, so nothing to confirm.
        save(bar, shortcut, true, intoGroup);
        return;
    }
    open(bar, std::move(shortcut), true, intoGroup, {});
}

void ShortcutEditor::open(const kit::library::BarID& bar,
                          Shortcut shortcut,
                          bool isNew,
                          std::optional<kit::library::ShortcutID> group,
                          const kit::storage::LibraryStore::EditRequest& request)
{
    if (m_dialog) {
        // One shortcut at a time: what is being edited is not thrown away.
        m_dialog->raise();
        m_dialog->activateWindow();
        return;
    }
    const auto defaults = m_services.browsingDefaults ? m_services.browsingDefaults()
                                                      : kit::library::BrowsingDefaults::standard();
    ShortcutForm form(std::move(shortcut), isNew, group.has_value(), defaults);
    std::string appSearch;
    if (request.templateID && form.kind() == Target::Kind::Url) {
        form.chooseTemplate(*request.templateID);
    }
    if (request.appHint && form.kind() == Target::Kind::App) {
        if (auto app = appFor(*request.appHint, m_services.apps.list())) {
            form.chooseApp(*app);
        } else {
            appSearch = *request.appHint;
        }
    }

    auto saveShortcut = [this, bar, isNew, group](const Shortcut& edited) {
        return save(bar, edited, isNew, group);
    };
    auto* dialog =
        new EditorDialog(m_services, std::move(form), std::move(saveShortcut), m_parent, appSearch);
    m_dialog = dialog;
    fitToScreen(*dialog, dialog->wantedSize());
    QObject::connect(dialog, &QDialog::finished, dialog, [this, dialog] {
        dialog->deleteLater();
        m_closing = dialog;
        m_dialog.clear();
    });
    m_dialog->show();
    m_dialog->raise();
    m_dialog->activateWindow();
    const auto kind = m_dialog->form().kind();
    if (isNew && (kind == Target::Kind::File || kind == Target::Kind::Folder)) {
        m_dialog->choosePath();
    }
}

std::optional<std::string> ShortcutEditor::save(const kit::library::BarID& bar,
                                                const Shortcut& edited,
                                                bool isNew,
                                                std::optional<kit::library::ShortcutID> group)
{
    auto& store = m_services.store;
    const bool active = bar == store.activeBarID();
    std::optional<Library> other;
    if (!active) {
        other = store.library(bar);
        if (!other) {
            return "The bar could not be read, so nothing was saved.";
        }
    }
    const Library& library = active ? store.library() : *other;
    if (!isNew && !library.shortcut(edited.id)) {
        return "\u201c" + edited.name + "\u201d was removed while it was being edited.";
    }
    const bool groupIsThere =
        group && library.shortcut(*group) && library.shortcut(*group)->target.isGroup();

    auto change = [&](Library& into) {
        if (!isNew) {
            Shortcut result = edited;
            // Members are edited in the list, perhaps while this window was open.
            if (result.target.isGroup()) {
                result.target = Target::group(into.shortcut(edited.id)->target.members());
            }
            into.update(result);
        } else if (groupIsThere) {
            into.addMember(edited, *group);
        } else {
            // The group went away meanwhile; the new shortcut is kept at the top level.
            into.add(edited);
        }
    };
    if (active) {
        store.mutate(change);
    } else if (!store.mutate(bar, change)) {
        return "The bar could not be read, so nothing was saved.";
    }
    return std::nullopt;
}

void ShortcutEditor::iconsChanged()
{
    if (m_dialog) {
        m_dialog->iconsChanged();
    }
}

bool ShortcutEditor::isOpen() const
{
    return m_dialog != nullptr;
}

EditorDialog* ShortcutEditor::dialog() const
{
    return m_dialog.data();
}

void ShortcutEditor::close()
{
    delete m_dialog.data();
}

} // namespace desktop::editor
