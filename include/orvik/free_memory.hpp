// SPDX-License-Identifier: MIT
#pragma once

#ifdef __GLIBC__
#include <malloc.h>
#endif

namespace Orvik {

/// Hands memory that is free back to the system. The C library would keep what one large line or a
/// backlog took, for the rest of the process.
inline void returnFreeMemory() noexcept {
#ifdef __GLIBC__
    ::malloc_trim(0);
#endif
}

}  // namespace Orvik
