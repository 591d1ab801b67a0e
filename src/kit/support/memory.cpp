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
    // Fixed values switch off glibc's dynamic adjustment of both. Blocks up to 32 MB come from
    // the heap, so a large reply built again and again reuses pages instead of faulting in fresh
    // ones; a free megabyte at the heap's top, and malloc_trim after large writes, give memory
    // back.
    // Called first thing in main, before any other thread exists.
    mallopt(M_MMAP_THRESHOLD, 32 * 1024 * 1024); // NOLINT(concurrency-mt-unsafe)
    mallopt(M_TRIM_THRESHOLD, 1024 * 1024);      // NOLINT(concurrency-mt-unsafe)
#endif
}

} // namespace kit::support
