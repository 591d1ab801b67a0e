// SPDX-License-Identifier: MIT
#pragma once

#include "spin.h"
#include "support/temp_dir.h"

#include <gtest/gtest.h>

#include <QProcess>
#include <QStandardPaths>
#include <QString>

#include <signal.h>

namespace desktop {

// A session bus of the test's own, so no desktop's service answers in place of a fake.
class PrivateBus
{
public:
    PrivateBus()
    {
        const QString daemon = QStandardPaths::findExecutable(QStringLiteral("dbus-daemon"));
        if (daemon.isEmpty()) {
            return;
        }
        const auto config = m_folder.path() / "bus.conf";
        testing_support::writeFile(
            config,
            "<!DOCTYPE busconfig PUBLIC \"-//freedesktop//DTD D-Bus Bus Configuration 1.0//EN\" "
            "\"http://www.freedesktop.org/standards/dbus/1.0/busconfig.dtd\">\n"
            "<busconfig><type>session</type><listen>unix:dir="
                + m_folder.path().string()
                + "</listen><auth>EXTERNAL</auth><policy context=\"default\">"
                  "<allow send_destination=\"*\" eavesdrop=\"true\"/><allow eavesdrop=\"true\"/>"
                  "<allow own=\"*\"/></policy></busconfig>\n");
        QProcess process;
        process.start(daemon,
                      {QStringLiteral("--config-file=") + QString::fromStdString(config.string()),
                       QStringLiteral("--print-address=1"),
                       QStringLiteral("--print-pid=1"),
                       QStringLiteral("--fork")});
        if (!process.waitForFinished(5000) || process.exitCode() != 0) {
            return;
        }
        const QStringList lines =
            QString::fromUtf8(process.readAllStandardOutput()).split('\n', Qt::SkipEmptyParts);
        if (lines.size() >= 2) {
            m_address = lines[0].trimmed();
            m_pid = lines[1].trimmed().toInt();
        }
    }
    ~PrivateBus()
    {
        if (m_pid > 0) {
            ::kill(m_pid, SIGTERM);
        }
    }
    PrivateBus(const PrivateBus&) = delete;
    PrivateBus& operator=(const PrivateBus&) = delete;

    const QString& address() const { return m_address; }

private:
    testing_support::TempDir m_folder;
    QString m_address;
    int m_pid = 0;
};

// Each test on a bus of its own; skipped where no bus can be started.
class PrivateBusTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        if (m_bus.address().isEmpty()) {
            GTEST_SKIP() << "dbus-daemon is not installed or did not start";
        }
    }

    PrivateBus m_bus;
};

} // namespace desktop
