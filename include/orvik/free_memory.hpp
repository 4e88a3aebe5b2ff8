// SPDX-License-Identifier: MIT
#pragma once

#ifdef __GLIBC__
#include <malloc.h>
#endif

namespace Orvik {

/// Returns free memory to the system. Otherwise the C library keeps the memory of one large line or
/// a backlog until the process ends.
inline void returnFreeMemory() noexcept {
#ifdef __GLIBC__
    ::malloc_trim(0);
#endif
}

}  // namespace Orvik
