// Starts a tray app and reports, from the X server's side, when its icons were docked and drawn:
// the moment the host reparented the N-th icon window, the moment the N-th was mapped there, and
// the moment the N-th held a picture (its pixels no longer one colour). Waiting on events, with
// only the last step polled, so measuring costs the app little CPU (polling xwininfo did cost it).
//
// Usage: tray_dock_watch N COMMAND [ARGS...]   (DISPLAY set, a tray host such as trayer running)
// Prints on standard output: docked_ms=… mapped_ms=… drawn_ms=… app_cpu_ms=… idle_rss_kib=…
// (CPU when the icons were drawn, idle RSS 2 s later), then stops the app with SIGTERM.
#include <sys/wait.h>
#include <unistd.h>
#include <xcb/xcb.h>

#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <set>
#include <sstream>
#include <string>
#include <thread>

namespace {

using Clock = std::chrono::steady_clock;

double msSince(Clock::time_point start)
{
    return std::chrono::duration<double, std::milli>(Clock::now() - start).count();
}

std::string readFile(const std::string& path)
{
    std::ifstream in(path);
    return {std::istreambuf_iterator<char>(in), {}};
}

// User plus system time of a process, in milliseconds.
long cpuMs(pid_t pid)
{
    const std::string stat = readFile("/proc/" + std::to_string(pid) + "/stat");
    std::istringstream fields(stat.substr(stat.rfind(')') + 2));
    std::string field;
    long ticks = 0;
    for (int index = 3; index <= 15 && fields >> field; ++index) {
        if (index >= 14) {
            ticks += std::stol(field);
        }
    }
    return ticks * 1000 / sysconf(_SC_CLK_TCK);
}

long rssKib(pid_t pid)
{
    std::istringstream status(readFile("/proc/" + std::to_string(pid) + "/status"));
    for (std::string line; std::getline(status, line);) {
        if (line.rfind("VmRSS:", 0) == 0) {
            return std::stol(line.substr(6));
        }
    }
    return -1;
}

bool viewable(xcb_connection_t* connection, xcb_window_t window)
{
    auto* reply = xcb_get_window_attributes_reply(
        connection, xcb_get_window_attributes(connection, window), nullptr);
    const bool result = reply && reply->map_state == XCB_MAP_STATE_VIEWABLE;
    free(reply);
    return result;
}

// Whether the window shows more than its background: any two pixels differ.
bool drawn(xcb_connection_t* connection, xcb_window_t window)
{
    auto* geometry =
        xcb_get_geometry_reply(connection, xcb_get_geometry(connection, window), nullptr);
    if (!geometry) {
        return false;
    }
    auto* image = xcb_get_image_reply(connection,
                                      xcb_get_image(connection,
                                                    XCB_IMAGE_FORMAT_Z_PIXMAP,
                                                    window,
                                                    0,
                                                    0,
                                                    geometry->width,
                                                    geometry->height,
                                                    ~0u),
                                      nullptr);
    free(geometry);
    if (!image) {
        return false;
    }
    const auto* pixels = reinterpret_cast<const uint32_t*>(xcb_get_image_data(image));
    const int count = xcb_get_image_data_length(image) / 4;
    bool varied = false;
    for (int index = 1; index < count && !varied; ++index) {
        varied = (pixels[index] & 0xffffff) != (pixels[0] & 0xffffff);
    }
    free(image);
    return varied;
}

} // namespace

int main(int argc, char** argv)
{
    if (argc < 3) {
        std::fprintf(stderr, "usage: tray_dock_watch N COMMAND [ARGS...]\n");
        return 2;
    }
    const size_t want = std::strtoul(argv[1], nullptr, 10);
    xcb_connection_t* connection = xcb_connect(nullptr, nullptr);
    if (xcb_connection_has_error(connection)) {
        std::fprintf(stderr, "tray_dock_watch: cannot open the display\n");
        return 2;
    }
    const xcb_window_t root = xcb_setup_roots_iterator(xcb_get_setup(connection)).data->root;
    // Without a window manager, the only windows that leave the root are icons being docked.
    const uint32_t rootMask = XCB_EVENT_MASK_SUBSTRUCTURE_NOTIFY;
    xcb_change_window_attributes(connection, root, XCB_CW_EVENT_MASK, &rootMask);
    xcb_flush(connection);

    const Clock::time_point start = Clock::now();
    const pid_t app = fork();
    if (app == 0) {
        execvp(argv[2], argv + 2);
        _exit(127);
    }

    std::set<xcb_window_t> docked;
    std::set<xcb_window_t> shown;
    double dockedMs = -1;
    double shownMs = -1;
    const auto markShown = [&](xcb_window_t window) {
        if (shown.insert(window).second && shown.size() == want) {
            shownMs = msSince(start);
        }
    };
    while (shown.size() < want) {
        xcb_generic_event_t* event = xcb_wait_for_event(connection);
        if (!event) {
            std::fprintf(stderr, "tray_dock_watch: lost the display\n");
            kill(app, SIGTERM);
            return 1;
        }
        const uint8_t type = event->response_type & 0x7f;
        if (type == XCB_REPARENT_NOTIFY) {
            const auto* reparent = reinterpret_cast<xcb_reparent_notify_event_t*>(event);
            if (reparent->parent != root && docked.insert(reparent->window).second) {
                if (docked.size() == want) {
                    dockedMs = msSince(start);
                }
                const uint32_t mask = XCB_EVENT_MASK_STRUCTURE_NOTIFY;
                xcb_change_window_attributes(
                    connection, reparent->window, XCB_CW_EVENT_MASK, &mask);
                // The host may have mapped it before our mask reached the server.
                if (viewable(connection, reparent->window)) {
                    markShown(reparent->window);
                }
            }
        } else if (type == XCB_MAP_NOTIFY) {
            const auto* map = reinterpret_cast<xcb_map_notify_event_t*>(event);
            if (docked.count(map->window) && viewable(connection, map->window)) {
                markShown(map->window);
            }
        }
        free(event);
    }
    std::set<xcb_window_t> blank = shown;
    while (!blank.empty() && msSince(start) < 10000) {
        std::erase_if(blank, [&](xcb_window_t window) { return drawn(connection, window); });
        if (!blank.empty()) {
            std::this_thread::sleep_for(std::chrono::microseconds(500));
        }
    }
    const double drawnMs = blank.empty() ? msSince(start) : -1;
    const long appCpu = cpuMs(app);
    std::this_thread::sleep_for(std::chrono::seconds(2));
    std::printf("docked_ms=%.1f mapped_ms=%.1f drawn_ms=%.1f app_cpu_ms=%ld idle_rss_kib=%ld\n",
                dockedMs,
                shownMs,
                drawnMs,
                appCpu,
                rssKib(app));
    kill(app, SIGTERM);
    waitpid(app, nullptr, 0);
    xcb_disconnect(connection);
    return 0;
}
