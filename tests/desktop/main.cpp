// SPDX-License-Identifier: MIT
#include "desktop_environment.h"
#include "support/temp_dir.h"

#include <gtest/gtest.h>

#include <QApplication>
#include <QImage>

#include <sys/stat.h>

#include <cstdlib>
#include <memory>

namespace desktop::testing {

namespace {

std::unique_ptr<testing_support::TempDir> gHome;
DesktopEnvironment gEnvironment;

void entry(const std::filesystem::path& folder, const std::string& id, const std::string& body)
{
    testing_support::writeFile(folder / (id + ".desktop"),
                               "[Desktop Entry]\nType=Application\nName=" + id + "\n" + body);
}

} // namespace

const DesktopEnvironment& DesktopEnvironment::get()
{
    return gEnvironment;
}

void DesktopEnvironment::setUp()
{
    gHome = std::make_unique<testing_support::TempDir>();
    DesktopEnvironment& env = gEnvironment;
    env.root = gHome->path();
    const auto data = env.root / "data";
    const auto config = env.root / "config";
    const auto runtime = env.root / "runtime";
    for (const auto& folder : {data / "applications", config, env.root / "cache", runtime}) {
        std::filesystem::create_directories(folder);
    }
    ::chmod(runtime.c_str(), 0700);
    setenv("HOME", env.root.c_str(), 1);
    setenv("XDG_DATA_HOME", data.c_str(), 1);
    setenv("XDG_CONFIG_HOME", config.c_str(), 1);
    setenv("XDG_CACHE_HOME", (env.root / "cache").c_str(), 1);
    setenv("XDG_RUNTIME_DIR", runtime.c_str(), 1);

    env.recordFile = env.root / "recorded.txt";
    env.recorder = env.root / "recorder.sh";
    testing_support::writeFile(env.recorder,
                               "#!/bin/sh\nfor a in \"$@\"; do printf '%s\\n' \"$a\"; done > \""
                                   + env.recordFile.string() + ".part\"\nmv \""
                                   + env.recordFile.string() + ".part\" \""
                                   + env.recordFile.string() + "\"\n");
    ::chmod(env.recorder.c_str(), 0755);

    env.redIcon = env.root / "red.png";
    QImage red(32, 32, QImage::Format_ARGB32);
    red.fill(Qt::red);
    red.save(QString::fromStdString(env.redIcon.string()));

    const auto applications = data / "applications";
    entry(applications,
          env.recorderID,
          "Exec=" + env.recorder.string() + " %U\nMimeType=x-scheme-handler/vantorel-test;\n");
    entry(applications, env.paintedID, "Exec=true\nIcon=" + env.redIcon.string() + "\n");
    testing_support::writeFile(
        config / "mimeapps.list",
        "[Default Applications]\nx-scheme-handler/vantorel-test=" + env.recorderID + ".desktop\n");
}

} // namespace desktop::testing

int main(int argc, char** argv)
{
    // The adapters need a GUI application, but never a display.
    setenv("QT_QPA_PLATFORM", "offscreen", 0);
    desktop::testing::DesktopEnvironment::setUp();
    QApplication app(argc, argv);
    testing::InitGoogleTest(&argc, argv);
    const int result = RUN_ALL_TESTS();
    return result;
}
