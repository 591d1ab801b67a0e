// SPDX-License-Identifier: MIT
// Shows the shortcut editor, the icon picker, Settings or a failed opening's message on a sample
// bar for a look: run under a display (Xvfb) with HOME and the XDG folders pointed at a temporary
// folder, take a screenshot, then end it. The first argument picks the window: url, app, deeplink,
// file, picker, letters, settings or failure.
#include "app/login_item.h"
#include "desktop/dialogs.h"
#include "desktop/editor/editor_dialog.h"
#include "desktop/editor/icon_picker.h"
#include "desktop/editor/shortcut_editor.h"
#include "desktop/gio_workspace.h"
#include "desktop/manager/settings_window.h"
#include "desktop/tray/qt_icon_renderer.h"
#include "kit/opening/target_factory.h"
#include "kit/proposal/root_grant_store.h"
#include "kit/settings/app_settings.h"
#include "kit/settings/key_value_store.h"
#include "kit/storage/library_store.h"
#include "kit/tools/icon_theme.h"
#include "kit/tools/installed_apps.h"

#include <QApplication>
#include <QIcon>
#include <QLineEdit>
#include <QTabWidget>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <string>

using kit::library::Library;
using kit::library::Shortcut;
using kit::library::Target;

// A url target that follows the defaults in everything it does not name.
static kit::library::URLTarget web(std::string address,
                                   std::optional<std::string> templateID = {},
                                   std::optional<kit::library::OpenMode> openMode = {})
{
    kit::library::URLTarget url;
    url.url = std::move(address);
    url.templateID = std::move(templateID);
    url.openMode = openMode;
    return url;
}

int main(int argc, char** argv)
{
    QApplication application(argc, argv);
    QIcon::setThemeName("Adwaita");
    const std::string scene = argc > 1 ? argv[1] : "url";

    auto directory = kit::storage::SupportDirectory::temporary("editor-look");
    if (!directory) {
        std::fprintf(stderr, "no temporary folder\n");
        return 1;
    }
    kit::storage::LibraryStore store(*directory);
    const auto work = *store.addSession("Work");
    store.addSession("Personal");

    kit::library::URLTarget mail;
    mail.url = "https://mail.example.com/inbox";
    mail.openMode = kit::library::OpenMode::Popover;
    mail.sessionID = work;
    mail.popoverSize = kit::library::ContentSize{480, 720};
    mail.pageZoom = 1.1;
    Shortcut link = Shortcut::make("Mail", Target::url(mail));
    link.icon = kit::library::IconOverride::symbol("mail-unread-symbolic");
    link.iconTint = kit::library::IconTint::colour("#0090FF");
    Shortcut chat = Shortcut::make("Team chat",
                                   Target::url(web("slack://channel?team=T0123&id=C0456",
                                                   "com.tinyspeck.slackmacgap/Open a channel",
                                                   kit::library::OpenMode::System)));
    kit::tools::InstalledApps apps;
    const auto list = apps.list();
    Shortcut app = Shortcut::make(
        "Files",
        Target::app({list && !list->empty() ? list->front().bundleID : "org.gnome.Nautilus", {}}));
    store.mutate([&](Library& library) {
        library.add(link);
        library.add(chat);
        library.add(app);
    });

    desktop::QtIconRenderer renderer;
    kit::tools::IconThemeScanner theme;
    kit::opening::InodeBookmarkResolver bookmarks;
    kit::opening::TargetFactory factory(bookmarks);
    desktop::editor::ShortcutEditor editor(desktop::editor::EditorServices{
        store, renderer, apps, theme, factory, {}, [](QWidget*, bool) {
            return std::string("/etc/hostname");
        }});

    std::unique_ptr<desktop::editor::IconPicker> picker;
    QWidget* shown = nullptr;
    if (scene == "settings") {
        static kit::settings::MemoryKeyValueStore values;
        static kit::settings::AppSettings settings(values);
        static kit::proposal::RootGrantStore grants(directory->url / "grants.json");
        static app::XdgLoginItem login(directory->url / "config", "/usr/bin/vantorel");
        login.enable();
        auto* window = new desktop::SettingsWindow(settings, grants, nullptr, {}, {}, {}, &login);
        window->present();
        return application.exec();
    }
    if (scene == "failure") {
        // A file of a kind nothing opens, through the real workspace and the real message.
        const auto file = directory->url / "Notes.unknown-kind";
        std::ofstream(file) << "\x01\x02";
        desktop::GioWorkspace workspace;
        const auto result = workspace.open("file://" + file.string());
        static desktop::MessageBoxAlerts alerts;
        alerts.showAlert("Notes",
                         result ? std::string("It opened.")
                                : kit::opening::couldNotOpen("Notes", *result.failure));
        return application.exec();
    }
    if (scene == "picker" || scene == "letters") {
        // As on GNOME's top bar: the dark panel's preview comes first.
        picker = std::make_unique<desktop::editor::IconPicker>(
            renderer, link, theme.icons(), nullptr, nullptr, kit::menubar::Appearance::Dark);
        picker->searchField()->setText("mail");
        if (scene == "letters") {
            picker->tabs()->setCurrentIndex(1);
            picker->textField()->setText("VT");
            Q_EMIT picker->textField()->textEdited("VT");
        }
        picker->show();
        shown = picker.get();
        shown->move(20, 20);
    } else {
        if (scene == "url") {
            editor.edit(link.id);
            editor.dialog()->setPageSettingsShown(true);
        } else if (scene == "deeplink") {
            editor.edit(chat.id);
        } else if (scene == "app") {
            editor.edit(app.id);
        } else if (scene == "file") {
            editor.add(store.activeBarID(), Target::Kind::File);
        } else {
            std::fprintf(stderr, "unknown window: %s\n", scene.c_str());
            return 1;
        }
        shown = editor.dialog();
    }
    return application.exec();
}
