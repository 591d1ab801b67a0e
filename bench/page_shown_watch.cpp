// Runs a command that clicks (xdotool) and reports when a page's colour first reaches the screen:
// the time from just before the command until a pixel of the given colour shows in a region of
// the root window. What a person sees, rather than what the app believes it did.
//
// Usage: page_shown_watch RRGGBB X Y WIDTH HEIGHT COMMAND [ARGS...]   (DISPLAY set)
// Prints on standard output: shown_ms=…  (-1 when the colour did not show within 10 s)
#include <sys/wait.h>
#include <unistd.h>
#include <xcb/xcb.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <thread>

namespace {

using Clock = std::chrono::steady_clock;

bool showsColour(xcb_connection_t* connection,
                 xcb_window_t root,
                 uint32_t colour,
                 const int (&region)[4])
{
    auto* image = xcb_get_image_reply(connection,
                                      xcb_get_image(connection,
                                                    XCB_IMAGE_FORMAT_Z_PIXMAP,
                                                    root,
                                                    static_cast<int16_t>(region[0]),
                                                    static_cast<int16_t>(region[1]),
                                                    static_cast<uint16_t>(region[2]),
                                                    static_cast<uint16_t>(region[3]),
                                                    ~0u),
                                      nullptr);
    if (!image) {
        return false;
    }
    const auto* pixels = reinterpret_cast<const uint32_t*>(xcb_get_image_data(image));
    const int count = xcb_get_image_data_length(image) / 4;
    bool found = false;
    for (int index = 0; index < count && !found; ++index) {
        found = (pixels[index] & 0xffffff) == colour;
    }
    free(image);
    return found;
}

} // namespace

int main(int argc, char** argv)
{
    if (argc < 7) {
        std::fprintf(stderr, "usage: page_shown_watch RRGGBB X Y WIDTH HEIGHT COMMAND [ARGS...]\n");
        return 2;
    }
    const auto colour = static_cast<uint32_t>(std::strtoul(argv[1], nullptr, 16));
    const int region[4] = {
        std::atoi(argv[2]), std::atoi(argv[3]), std::atoi(argv[4]), std::atoi(argv[5])};
    xcb_connection_t* connection = xcb_connect(nullptr, nullptr);
    if (xcb_connection_has_error(connection)) {
        std::fprintf(stderr, "page_shown_watch: cannot open the display\n");
        return 2;
    }
    const xcb_window_t root = xcb_setup_roots_iterator(xcb_get_setup(connection)).data->root;
    if (showsColour(connection, root, colour, region)) {
        std::fprintf(stderr, "page_shown_watch: the colour shows before the click\n");
        return 2;
    }

    const Clock::time_point start = Clock::now();
    const pid_t command = fork();
    if (command == 0) {
        execvp(argv[6], argv + 6);
        _exit(127);
    }
    double shownMs = -1;
    while (std::chrono::duration<double, std::milli>(Clock::now() - start).count() < 10000) {
        if (showsColour(connection, root, colour, region)) {
            shownMs = std::chrono::duration<double, std::milli>(Clock::now() - start).count();
            break;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
    waitpid(command, nullptr, 0);
    std::printf("shown_ms=%.1f\n", shownMs);
    xcb_disconnect(connection);
    return 0;
}
