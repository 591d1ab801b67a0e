// SPDX-License-Identifier: MIT
#pragma once

#include <functional>

class QWebEngineDownloadRequest;
class QWebEnginePage;
class QWebEngineView;
class QWidget;

namespace desktop::pages {

// Asks the person, in the page's own window, before a page uses the camera, the microphone,
// the screen, the location or notifications, and for a site's user name and password; prints
// through the print dialog. A page never gets any of these silently. Main thread.
void attachPrompts(QWebEngineView& view);

// Saves a download where the person chooses, or straight into the downloads folder when
// `asksWhere` is false. A download nobody places is cancelled. Main thread.
void placeDownload(QWebEngineDownloadRequest& download, QWidget* owner, bool asksWhere);

} // namespace desktop::pages
