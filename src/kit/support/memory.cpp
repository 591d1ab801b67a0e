// SPDX-License-Identifier: MIT
#include "kit/support/memory.h"

#include <cstdlib> // defines __GLIBC__ where it applies

#ifdef __GLIBC__
#include <malloc.h>
#endif

namespace kit::support {

void returnFreedMemoryPromptly()
{
#ifdef __GLIBC__
    // Fixed values switch off glibc's dynamic adjustment of both.
    mallopt(M_MMAP_THRESHOLD, 256 * 1024);
    mallopt(M_TRIM_THRESHOLD, 1024 * 1024);
#endif
}

} // namespace kit::support
