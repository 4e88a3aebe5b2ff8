/* SPDX-License-Identifier: MIT */
/*
 * Preloaded into the daemon by tests, with system_log.c. Resolving "never.test" never ends. The
 * wall clock jumps hours forward or back between any two reads. FAIL="function place error" makes
 * the call number `place` of a function fail, and logs that; "send" counts send and sendmsg.
 */
#include <dlfcn.h>
#include <errno.h>
#include <netdb.h>
#include <pthread.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/time.h>
#include <sys/timerfd.h>
#include <syslog.h>
#include <time.h>
#include <unistd.h>

int getaddrinfo(const char* host, const char* service, const struct addrinfo* hints,
                struct addrinfo** result) {
    typedef int (*Function)(const char*, const char*, const struct addrinfo*, struct addrinfo**);
    while (host != NULL && strcmp(host, "never.test") == 0 && !(hints->ai_flags & AI_NUMERICHOST)) {
        pause();
    }
    Function next = NULL;
    *(void**)&next = dlsym(RTLD_NEXT, "getaddrinfo");
    return next(host, service, hints, result);
}

static char failing_function[32];
static _Atomic int calls_until_failure;
static int failure;

__attribute__((constructor)) static void read_failure(void) {
    unsetenv("LD_PRELOAD"); /* not for a sanitizer's child that looks up symbols */
    const char* const text = getenv("FAIL");
    int place = 0;
    if (text != NULL && sscanf(text, "%31s %d %d", failing_function, &place, &failure) == 3) {
        calls_until_failure = place;
    }
}

static int fails(const char* function) {
    if (strcmp(function, failing_function) != 0 || --calls_until_failure != 0) {
        return 0;
    }
    syslog(LOG_DEBUG, "0 failed: %s", function);
    errno = failure;
    return 1;
}

#define FAILABLE_AS(counted, type, name, parameters, arguments, result) \
    type name parameters {                                              \
        type(*next) parameters = NULL;                                  \
        if (fails(counted)) {                                           \
            return result;                                              \
        }                                                               \
        *(void**)&next = dlsym(RTLD_NEXT, #name);                       \
        return next arguments;                                          \
    }
#define FAILABLE(type, name, parameters, arguments, result) \
    FAILABLE_AS(#name, type, name, parameters, arguments, result)

/* Also covers a failed clone, or mmap of the stack. */
FAILABLE(int, pthread_create,
         (pthread_t * thread, const pthread_attr_t* attributes, void* (*start)(void*), void* of),
         (thread, attributes, start, of), failure)
FAILABLE(int, epoll_create1, (int flags), (flags), -1)
FAILABLE(int, eventfd, (unsigned count, int flags), (count, flags), -1)
FAILABLE(int, timerfd_create, (int clock, int flags), (clock, flags), -1)
FAILABLE(int, socket, (int domain, int type, int protocol), (domain, type, protocol), -1)
FAILABLE(ssize_t, send, (int to, const void* bytes, size_t size, int flags),
         (to, bytes, size, flags), -1)
FAILABLE_AS("send", ssize_t, sendmsg, (int to, const struct msghdr* message, int flags),
            (to, message, flags), -1)

static time_t jump(void) {
    static _Atomic unsigned looks = 0;
    return looks++ % 2 == 0 ? 5 * 3600 : -5 * 3600;
}

int clock_gettime(clockid_t clock, struct timespec* now) {
    const int result = (int)syscall(SYS_clock_gettime, clock, now);
    if (clock == CLOCK_REALTIME) {
        now->tv_sec += jump();
    }
    return result;
}

int gettimeofday(struct timeval* restrict now, void* restrict zone) {
    const int result = (int)syscall(SYS_gettimeofday, now, zone);
    now->tv_sec += jump();
    return result;
}

time_t time(time_t* result) {
    struct timespec now;
    clock_gettime(CLOCK_REALTIME, &now);
    if (result != NULL) {
        *result = now.tv_sec;
    }
    return now.tv_sec;
}
