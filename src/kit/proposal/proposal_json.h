// SPDX-License-Identifier: MIT
#pragma once

// The document codings through a JSON tree: the small parts of a document, and the whole of it
// for the reference coding the streamed one is held to.
#include "kit/library/library_json.h"
#include "kit/proposal/proposal.h"

namespace kit::proposal::document {

BarDestination readDestination(const nlohmann::json& j);
nlohmann::json writeDestination(const BarDestination& destination);
Placement readPlacement(const nlohmann::json& j);
nlohmann::json writePlacement(const Placement& placement);
// A bar's destination and removals; its shortcuts are read by the caller.
ProposedBar readBarHead(const nlohmann::json& item);
Proposal readProposal(const nlohmann::json& document);
nlohmann::json writeProposal(const Proposal& proposal);

} // namespace kit::proposal::document
