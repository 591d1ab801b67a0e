// SPDX-License-Identifier: MIT
// Six panels' pages in three sessions, each shown and hidden, then left to rest: prints the
// process tree's proportional memory (PSS) awake and after the pages were discarded, and how long
// a discarded page takes to paint again once its panel is shown. A minute lasts RestMinuteMs so
// the run takes seconds rather than a quarter of an hour; the engine's own work is unchanged.
//
// Usage: pages_rest MODULE BASE_URL   (BASE_URL serves /1.html … /6.html with a #3b5bdb header; see
// bench/pages_rest.sh, which starts the server and a display)
#include "desktop/pages/pages_loader.h"
#include "support/temp_dir.h"

#include <QApplication>
#include <QElapsedTimer>
#include <QEventLoop>
#include <QImage>
#include <QTimer>
#include <QWidget>

#include <dirent.h>
#include <unistd.h>

#include <cstdio>
#include <fstream>
#include <functional>
#include <map>
#include <sstream>
#include <string>

namespace {

using namespace desktop::pages;
using kit::library::SessionID;
using kit::library::Shortcut;
using kit::library::ShortcutID;

// Long enough that no page rests before all six were shown.
constexpr std::chrono::milliseconds kRestMinute{3000};
constexpr std::chrono::minutes kDiscardAfter{5};
constexpr QRgb kHeader = 0xff3b5bdb;

class EventLoopQueue final : public kit::support::MainQueue
{
public:
    void post(std::function<void()> task) override { postAfter({}, std::move(task)); }
    void postAfter(std::chrono::milliseconds delay, std::function<void()> task) override
    {
        QTimer::singleShot(delay, &m_context, std::move(task));
    }

private:
    QObject m_context;
};

void spin(int ms)
{
    QEventLoop loop;
    QTimer::singleShot(ms, &loop, &QEventLoop::quit);
    loop.exec();
}

bool waitFor(const std::function<bool()>& done, int timeoutMs)
{
    QElapsedTimer timer;
    timer.start();
    while (!done()) {
        if (timer.elapsed() > timeoutMs) {
            return false;
        }
        spin(5);
    }
    return true;
}

// The proportional memory of this process and every process below it, in kB: shared pages
// counted once across the tree, as they cost the machine.
long treePssKB(int* processes = nullptr)
{
    std::map<long, long> parents;
    std::map<long, long> pss;
    if (DIR* proc = ::opendir("/proc")) {
        while (dirent* entry = ::readdir(proc)) {
            const long pid = std::atol(entry->d_name);
            if (pid <= 0) {
                continue;
            }
            std::ifstream status("/proc/" + std::to_string(pid) + "/stat");
            std::string text((std::istreambuf_iterator<char>(status)), {});
            const auto close = text.rfind(')');
            if (close == std::string::npos) {
                continue;
            }
            std::istringstream fields(text.substr(close + 2));
            std::string state;
            long parent = 0;
            fields >> state >> parent;
            parents[pid] = parent;
            std::ifstream rollup("/proc/" + std::to_string(pid) + "/smaps_rollup");
            std::string line;
            while (std::getline(rollup, line)) {
                if (line.rfind("Pss:", 0) == 0) {
                    pss[pid] = std::atol(line.c_str() + 4);
                    break;
                }
            }
        }
        ::closedir(proc);
    }
    long total = 0;
    for (const auto& [pid, kb] : pss) {
        for (long up = pid; up > 1; up = parents.count(up) ? parents[up] : 0) {
            if (up == ::getpid()) {
                total += kb;
                if (processes) {
                    ++*processes;
                }
                break;
            }
        }
    }
    return total;
}

// Whether the page's header colour is on screen in the panel.
bool painted(QWidget& panel)
{
    const QImage image = panel.grab().toImage();
    for (int y = 40; y < std::min(image.height(), 120); y += 4) {
        if (image.pixel(image.width() / 2, y) == kHeader) {
            return true;
        }
    }
    return false;
}

} // namespace

int main(int argc, char** argv)
{
    if (argc != 3) {
        std::fprintf(stderr, "usage: pages_rest MODULE BASE_URL\n");
        return 2;
    }
    testing_support::TempDir home;
    std::string flags = "--disable-gpu";
    ::setenv("QTWEBENGINE_CHROMIUM_FLAGS", flags.c_str(), 0);
    QApplication::setApplicationName(QStringLiteral("VantorelPagesRest"));
    QApplication app(argc, argv);

    EventLoopQueue queue;
    kit::menubar::PlayingPages playing;
    std::map<ShortcutID, int> loads;
    Host host;
    host.mainQueue = &queue;
    host.playing = &playing;
    host.storageRoot = home.path() / "profiles";
    host.cacheRoot = home.path() / "cache";
    host.asksWhereToSaveDownloads = [] { return false; };
    host.loaded = [&](const ShortcutID& id, bool) { ++loads[id]; };
    host.discardAfter = [] { return std::optional(kDiscardAfter); };
    host.restMinute = kRestMinute;
    PagesLoader loader(host, {argv[1]});
    Pages* pages = loader.load();
    if (!pages) {
        std::fprintf(stderr, "pages_rest: %s\n", loader.error().c_str());
        return 1;
    }

    const SessionID sessions[] = {SessionID::make(), SessionID::make(), SessionID::make()};
    std::vector<Shortcut> shortcuts;
    for (int n = 0; n < 6; ++n) {
        kit::library::URLTarget target;
        target.url = std::string(argv[2]) + "/" + std::to_string(n + 1) + ".html";
        target.sessionID = sessions[n / 2];
        shortcuts.push_back(
            Shortcut::make("Page " + std::to_string(n + 1), kit::library::Target::url(target)));
    }
    const auto settings = [](const Shortcut& shortcut) {
        return kit::library::ResolvedBrowsing::resolve(*shortcut.target.urlTarget(), {});
    };
    const QRect icon(600, 0, 24, 24);
    for (const auto& shortcut : shortcuts) {
        pages->showPanel(shortcut, settings(shortcut), icon);
        if (!waitFor([&] { return loads[shortcut.id] > 0 && painted(*pages->panel(shortcut.id)); },
                     30000)) {
            std::fprintf(stderr, "pages_rest: %s never showed\n", shortcut.name.c_str());
            return 1;
        }
        pages->panel(shortcut.id)->hide();
    }
    spin(500);
    int awakeProcesses = 0;
    const long awake = treePssKB(&awakeProcesses);

    // Past the discarding, and a little for the renderers to exit.
    spin(static_cast<int>((kDiscardAfter.count() + 1) * kRestMinute.count()) + 3000);
    int restedProcesses = 0;
    const long rested = treePssKB(&restedProcesses);

    // Counted once the page loaded again and its colour is drawn: a discarded view may still
    // hold its last picture.
    const Shortcut& again = shortcuts.front();
    const int loadsBefore = loads[again.id];
    QElapsedTimer timer;
    timer.start();
    pages->showPanel(again, settings(again), icon);
    QWidget* panel = pages->panel(again.id);
    const bool back =
        waitFor([&] { return loads[again.id] > loadsBefore && painted(*panel); }, 10000);
    const qint64 paintMs = back ? timer.elapsed() : -1;
    std::printf("process_tree_pss_mib awake=%ld rested=%ld processes awake=%d rested=%d\n",
                awake / 1024,
                rested / 1024,
                awakeProcesses,
                restedProcesses);
    std::printf("discarded_page_shown_to_loaded_and_painted_ms=%lld\n",
                static_cast<long long>(paintMs));
    loader.close();
    return back ? 0 : 1;
}
