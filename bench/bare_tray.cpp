// The reference the start-up figure is read against: a bare Qt Widgets tray app showing N plain
// icons and nothing else, measured by the same tray_dock_watch as the real app.
// Usage: bare_tray N
#include <QApplication>
#include <QPainter>
#include <QPixmap>
#include <QSystemTrayIcon>

#include <cstdlib>

int main(int argc, char** argv)
{
    QApplication application(argc, argv);
    QApplication::setQuitOnLastWindowClosed(false);
    const int count = argc > 1 ? std::atoi(argv[1]) : 3;
    for (int index = 0; index < count; ++index) {
        QPixmap picture(22, 22);
        picture.fill(Qt::transparent);
        QPainter painter(&picture);
        painter.setBrush(QColor(200, 40 + index * 15, 60));
        painter.drawEllipse(2, 2, 18, 18);
        painter.end();
        // Owned by the application for its whole life.
        auto* icon = new QSystemTrayIcon(QIcon(picture), &application);
        icon->show();
    }
    return QApplication::exec();
}
