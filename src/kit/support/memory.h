// SPDX-License-Identifier: MIT
#pragma once

namespace kit::support {

// Makes the allocator hand large freed blocks back to the system at once. By default glibc raises
// its thresholds after the first large block is freed (a bar file being encoded is megabytes), and
// from then on keeps tens of megabytes resident in an idle process. Call once, early in main.
void returnFreedMemoryPromptly();

} // namespace kit::support
