/* SPDX-License-Identifier: MIT
 * Preloaded into a program, counts its allocations in the first eight bytes of the file that
 * ALLOCATIONS_FILE names, where another process can watch them. */
#define _GNU_SOURCE
#include <fcntl.h>
#include <stdatomic.h>
#include <stddef.h>
#include <stdlib.h>
#include <sys/mman.h>
#include <unistd.h>

extern void* __libc_malloc(size_t size);
extern void* __libc_calloc(size_t count, size_t size);
extern void* __libc_realloc(void* block, size_t size);

static _Atomic unsigned long before_start;
static _Atomic unsigned long* counter = &before_start;

__attribute__((constructor)) static void map_counter(void) {
    const char* path = getenv("ALLOCATIONS_FILE");
    const int file = path == NULL ? -1 : open(path, O_RDWR | O_CLOEXEC);
    if (file >= 0) {
        void* shared = mmap(NULL, sizeof *counter, PROT_READ | PROT_WRITE, MAP_SHARED, file, 0);
        if (shared != MAP_FAILED) {
            counter = shared;
        }
        close(file);
    }
}

void* malloc(size_t size) {
    atomic_fetch_add_explicit(counter, 1, memory_order_relaxed);
    return __libc_malloc(size);
}

void* calloc(size_t count, size_t size) {
    atomic_fetch_add_explicit(counter, 1, memory_order_relaxed);
    return __libc_calloc(count, size);
}

void* realloc(void* block, size_t size) {
    atomic_fetch_add_explicit(counter, 1, memory_order_relaxed);
    return __libc_realloc(block, size);
}
