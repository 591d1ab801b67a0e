// SPDX-License-Identifier: MIT
#include "desktop/pages/page_prompts.h"

#include <QAuthenticator>
#include <QDialog>
#include <QDialogButtonBox>
#include <QDir>
#include <QFileDialog>
#include <QFileInfo>
#include <QFormLayout>
#include <QLabel>
#include <QLineEdit>
#include <QMessageBox>
#include <QPointer>
#include <QPrintDialog>
#include <QPrinter>
#include <QPushButton>
#include <QStandardPaths>
#include <QWebEngineDownloadRequest>
#include <QWebEnginePage>
#include <QWebEngineView>

#include <optional>

namespace desktop::pages {

namespace {

QString siteName(const QUrl& origin)
{
    return origin.host().isEmpty() ? origin.toDisplayString() : origin.host();
}

// What the feature lets a site do, as the question's end; empty for features never offered.
QString featureUse(QWebEnginePage::Feature feature)
{
    switch (feature) {
    case QWebEnginePage::MediaAudioCapture:
        return QStringLiteral("use your microphone");
    case QWebEnginePage::MediaVideoCapture:
        return QStringLiteral("use your camera");
    case QWebEnginePage::MediaAudioVideoCapture:
        return QStringLiteral("use your camera and microphone");
    case QWebEnginePage::DesktopVideoCapture:
    case QWebEnginePage::DesktopAudioVideoCapture:
        return QStringLiteral("see your screen");
    case QWebEnginePage::Geolocation:
        return QStringLiteral("know your location");
    case QWebEnginePage::Notifications:
        return QStringLiteral("show notifications");
    default:
        return {};
    }
}

void askPermission(QWebEngineView* view,
                   const QUrl& origin,
                   QWebEnginePage::Feature feature,
                   const NotificationQuestion& notifications)
{
    QWebEnginePage* page = view->page();
    const QString use = featureUse(feature);
    std::optional<kit::web::PermissionStep> step;
    if (feature == QWebEnginePage::Notifications) {
        step = notifications.step ? notifications.step(siteOf(origin))
                                  : kit::web::PermissionStep::Refuse;
    }
    if (step == kit::web::PermissionStep::Grant) {
        page->setFeaturePermission(origin, feature, QWebEnginePage::PermissionGrantedByUser);
        return;
    }
    if (use.isEmpty() || step == kit::web::PermissionStep::Refuse) {
        page->setFeaturePermission(origin, feature, QWebEnginePage::PermissionDeniedByUser);
        return;
    }
    QMessageBox box(QMessageBox::Question,
                    QStringLiteral("Allow %1?").arg(siteName(origin)),
                    QStringLiteral("%1 wants to %2.").arg(siteName(origin), use),
                    QMessageBox::NoButton,
                    view->window());
    auto* allow = box.addButton(QStringLiteral("Allow"), QMessageBox::AcceptRole);
    box.setDefaultButton(box.addButton(QStringLiteral("Don’t Allow"), QMessageBox::RejectRole));
    box.exec();
    const bool allowed = box.clickedButton() == allow;
    if (step && notifications.answered) {
        notifications.answered(siteOf(origin), allowed);
    }
    // The page may have gone while the question was up.
    if (view->page() == page) {
        page->setFeaturePermission(origin,
                                   feature,
                                   allowed ? QWebEnginePage::PermissionGrantedByUser
                                           : QWebEnginePage::PermissionDeniedByUser);
    }
}

void askSignIn(QWidget* owner, const QUrl& address, QAuthenticator* authenticator, bool proxy)
{
    QDialog dialog(owner);
    dialog.setWindowTitle(QStringLiteral("Sign in"));
    auto* form = new QFormLayout(&dialog);
    const QString where =
        proxy ? QStringLiteral("The proxy %1").arg(address.host()) : siteName(address);
    auto* intro =
        new QLabel(authenticator->realm().isEmpty()
                       ? QStringLiteral("%1 asks for a user name and password.").arg(where)
                       : QStringLiteral("%1 asks for a user name and password for “%2”.")
                             .arg(where, authenticator->realm().toHtmlEscaped()));
    intro->setWordWrap(true);
    form->addRow(intro);
    auto* user = new QLineEdit(authenticator->user(), &dialog);
    auto* password = new QLineEdit(&dialog);
    password->setEchoMode(QLineEdit::Password);
    form->addRow(QStringLiteral("User name:"), user);
    form->addRow(QStringLiteral("Password:"), password);
    auto* buttons = new QDialogButtonBox(QDialogButtonBox::Ok | QDialogButtonBox::Cancel, &dialog);
    buttons->button(QDialogButtonBox::Ok)->setText(QStringLiteral("Sign In"));
    QObject::connect(buttons, &QDialogButtonBox::accepted, &dialog, &QDialog::accept);
    QObject::connect(buttons, &QDialogButtonBox::rejected, &dialog, &QDialog::reject);
    form->addRow(buttons);
    if (dialog.exec() == QDialog::Accepted) {
        authenticator->setUser(user->text());
        authenticator->setPassword(password->text());
    } else {
        // A null authenticator is how the engine learns the person declined.
        *authenticator = QAuthenticator();
    }
}

void print(QWebEngineView* view)
{
    auto printer = std::make_shared<QPrinter>(QPrinter::HighResolution);
    QPrintDialog dialog(printer.get(), view->window());
    dialog.setWindowTitle(QStringLiteral("Print %1").arg(view->title()));
    if (dialog.exec() != QDialog::Accepted) {
        return;
    }
    // The printer must live until the engine has laid the pages out.
    auto connection = std::make_shared<QMetaObject::Connection>();
    *connection =
        QObject::connect(view, &QWebEngineView::printFinished, view, [printer, connection](bool) {
            QObject::disconnect(*connection);
        });
    view->print(printer.get());
}

QString uniqueIn(const QDir& folder, const QString& name)
{
    const QFileInfo info(name);
    QString candidate = name;
    for (int n = 2; folder.exists(candidate); ++n) {
        candidate = info.suffix().isEmpty()
                        ? QStringLiteral("%1 (%2)").arg(info.completeBaseName()).arg(n)
                        : QStringLiteral("%1 (%2).%3")
                              .arg(info.completeBaseName())
                              .arg(n)
                              .arg(info.suffix());
    }
    return candidate;
}

} // namespace

std::string siteOf(const QUrl& address)
{
    if (address.host().isEmpty()) {
        return {};
    }
    std::string site = (address.scheme() + QStringLiteral("://") + address.host()).toStdString();
    if (address.port() != -1) {
        site += ":" + std::to_string(address.port());
    }
    return site;
}

void attachPrompts(QWebEngineView& view, NotificationQuestion notifications)
{
    QWebEngineView* target = &view;
    QWebEnginePage* page = view.page();
    QObject::connect(page,
                     &QWebEnginePage::featurePermissionRequested,
                     target,
                     [target, notifications = std::move(notifications)](
                         const QUrl& origin, QWebEnginePage::Feature feature) {
                         askPermission(target, origin, feature, notifications);
                     });
    QObject::connect(page,
                     &QWebEnginePage::authenticationRequired,
                     target,
                     [target](const QUrl& address, QAuthenticator* authenticator) {
                         askSignIn(target->window(), address, authenticator, false);
                     });
    QObject::connect(
        page,
        &QWebEnginePage::proxyAuthenticationRequired,
        target,
        [target](const QUrl& address, QAuthenticator* authenticator, const QString& host) {
            QUrl proxy = address;
            proxy.setHost(host);
            askSignIn(target->window(), proxy, authenticator, true);
        });
    QObject::connect(target, &QWebEngineView::printRequested, target, [target] { print(target); });
}

void placeDownload(QWebEngineDownloadRequest& download, QWidget* owner, bool asksWhere)
{
    QDir folder(QStandardPaths::writableLocation(QStandardPaths::DownloadLocation));
    if (!folder.exists()) {
        folder.mkpath(QStringLiteral("."));
    }
    if (asksWhere) {
        const QString chosen = QFileDialog::getSaveFileName(
            owner, QStringLiteral("Save Download"), folder.filePath(download.downloadFileName()));
        if (chosen.isEmpty()) {
            download.cancel();
            return;
        }
        const QFileInfo info(chosen);
        download.setDownloadDirectory(info.absolutePath());
        download.setDownloadFileName(info.fileName());
    } else {
        download.setDownloadDirectory(folder.absolutePath());
        download.setDownloadFileName(uniqueIn(folder, download.downloadFileName()));
    }
    download.accept();
}

} // namespace desktop::pages
