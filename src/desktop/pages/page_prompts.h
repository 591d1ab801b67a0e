// SPDX-License-Identifier: MIT
#pragma once

#include "kit/web/page_notifications.h"

#include <functional>
#include <string>

class QWebEngineDownloadRequest;
class QWebEnginePage;
class QWebEngineView;
class QWidget;
class QUrl;

namespace desktop::pages {

// How a page's asking to notify is answered: the step for the site, and the person's answer
// when they were asked. Without a step, sites may not notify.
struct NotificationQuestion
{
    std::function<kit::web::PermissionStep(const std::string& site)> step;
    std::function<void(const std::string& site, bool allowed)> answered;
};

// The site an address belongs to: scheme://host[:port].
std::string siteOf(const QUrl& address);

// Asks the person, in the page's own window, before a page uses the camera, the microphone,
// the screen or the location, and for a site's user name and password; notifications as
// `notifications` says; prints through the print dialog. A page never gets any of these
// silently. Main thread.
void attachPrompts(QWebEngineView& view, NotificationQuestion notifications = {});

// Saves a download where the person chooses, or straight into the downloads folder when
// `asksWhere` is false. A download nobody places is cancelled. Main thread.
void placeDownload(QWebEngineDownloadRequest& download, QWidget* owner, bool asksWhere);

} // namespace desktop::pages
