// SPDX-License-Identifier: MIT
#pragma once

#include "kit/opening/workspace_opening.h"

namespace desktop {

// Opening through GIO: addresses and files with the handler the desktop has chosen, apps by
// desktop-entry id. An application is named by the path of its desktop entry (what
// urlForApplication gives), a desktop-entry id, or an executable file (an AppImage the person
// picked). Main thread; each completion runs before the call returns, once the app was spawned
// or failed to be.
class GioWorkspace final : public kit::opening::WorkspaceOpening
{
public:
    kit::opening::OpenResult open(const std::string& url) override;
    void open(const std::vector<std::string>& urls,
              const std::string& application,
              Completion completion) override;
    void openApplication(const std::string& application, Completion completion) override;
    std::optional<std::string> urlForApplication(const std::string& bundleID) override;
};

} // namespace desktop
