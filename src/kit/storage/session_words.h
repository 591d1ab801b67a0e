// SPDX-License-Identifier: MIT
#pragma once

#include "kit/library/library.h"

#include <optional>
#include <string>
#include <vector>

namespace kit::storage {

// What the Accounts pane says of a session: how many links use it, and its sites once counted.
std::string sessionDetail(int links, std::optional<int> sites);

// A name no session has yet: "New Account", then "New Account 2" and so on.
std::string newSessionName(const std::vector<library::Session>& sessions);

// The question asked before a session and its website data are removed.
std::string sessionRemovalQuestion(const std::string& name, int links);

} // namespace kit::storage
