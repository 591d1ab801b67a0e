// SPDX-License-Identifier: MIT
// Shows shortcut icons in a real tray and says where the host put them: run under a display with
// a tray host (Xvfb and trayer), then look at a screenshot. Exits 0 when the first icon stands
// leftmost, 1 when not, 2 when no host docked the icons in time.
#include "desktop/tray/qt_icon_renderer.h"
#include "desktop/tray/tray_status_bar.h"

#include <QApplication>
#include <QTimer>

#include <cstdio>
#include <cstdlib>
#include <vector>

using kit::menubar::Glyph;
using kit::menubar::StatusItemHandle;

int main(int argc, char** argv)
{
    QApplication app(argc, argv);
    app.setQuitOnLastWindowClosed(false);
    const int lingerMs = argc > 1 ? std::atoi(argv[1]) : 3000;

    desktop::QtIconRenderer icons;
    desktop::TrayStatusBar bar(icons);

    std::vector<Glyph> glyphs(4);
    glyphs[0].source = Glyph::Source::Letters;
    glyphs[0].name = "A";
    glyphs[1].source = Glyph::Source::Symbol;
    glyphs[1].name = "folder";
    glyphs[1].number = 2;
    glyphs[2].source = Glyph::Source::Divider;
    glyphs[3].source = Glyph::Source::FileIcon;
    glyphs[3].name = "/tmp/report.pdf";
    glyphs[3].playing = true;
    glyphs[3].tint = "#E0457B";

    // As the menu bar controller does: whichever side the host adds to, the first ends leftmost.
    std::vector<StatusItemHandle> handles(glyphs.size());
    const auto make = [&](size_t i) {
        kit::menubar::StatusItemEvents events;
        events.clicked = [&bar, &handles, i](const std::optional<kit::menubar::Click>& click) {
            std::printf(
                "icon %zu: click kind %d\n", i + 1, click ? static_cast<int>(click->kind) : -1);
            std::fflush(stdout);
            if (click && click->kind == kit::menubar::Click::Kind::Primary) {
                using kit::menubar::MenuItem;
                bar.popMenu(
                    handles[i],
                    {{MenuItem::heading("Group"),
                      MenuItem::command("Mail", [] { std::printf("chose Mail\n"); }),
                      MenuItem::separator(),
                      MenuItem::submenu("Docs & Sheets", {MenuItem::command("Sheets", [] {})})}});
            }
        };
        events.contextMenu = [] {
            using kit::menubar::MenuItem;
            return kit::menubar::Menu{{MenuItem::command("Edit\u2026", [] {}),
                                       MenuItem::command("Remove from Bar", [] {})}};
        };
        handles[i] = *bar.create("item" + std::to_string(i), std::move(events));
        bar.setImage(handles[i], glyphs[i]);
        bar.setToolTip(handles[i], "Shortcut " + std::to_string(i + 1));
    };
    for (size_t i : kit::menubar::creationOrder(bar.host(), glyphs.size())) {
        make(i);
    }

    int result = 2;
    QTimer poll;
    int waited = 0;
    QObject::connect(&poll, &QTimer::timeout, [&] {
        waited += 100;
        std::vector<double> xs;
        for (const auto handle : handles) {
            if (auto frame = bar.geometry(handle)) {
                xs.push_back(frame->x);
            }
        }
        if (xs.size() == handles.size()) {
            result = 0;
            for (size_t i = 0; i + 1 < xs.size(); ++i) {
                std::printf("icon %zu at x=%.0f\n", i + 1, xs[i]);
                result = xs[i] < xs[i + 1] ? result : 1;
            }
            std::printf("icon %zu at x=%.0f\n", xs.size(), xs.back());
            poll.stop();
            QTimer::singleShot(lingerMs, &app, &QApplication::quit);
        } else if (waited > 5000) {
            std::printf("no tray host docked the icons\n");
            app.quit();
        }
    });
    poll.start(100);
    app.exec();
    std::printf(result == 0 ? "first icon leftmost\n" : "order wrong or unknown\n");
    return result;
}
