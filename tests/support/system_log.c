/* SPDX-License-Identifier: MIT */
/*
 * Replaces the system log: each record is appended to the file that SYSLOG_CAPTURE names,
 * as the line "identity <priority> text".
 */
#include <fcntl.h>
#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>
#include <syslog.h>
#include <unistd.h>

static const char* identity = "";

static void capture(int priority, const char* format, va_list arguments) {
    char* text = NULL;
    char* line = NULL;
    const int file =
        open(getenv("SYSLOG_CAPTURE"), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600);
    if (file < 0) {
        return; /* as syslog does without a descriptor */
    }
    if (vasprintf(&text, format, arguments) >= 0) {
        const int size = asprintf(&line, "%s <%d> %s\n", identity, priority, text);
        if (size < 0 || write(file, line, (size_t)size) != size) {
            abort();
        }
        free(line);
        free(text);
    }
    close(file);
}

void openlog(const char* ident, int option, int facility) {
    if (option == LOG_ODELAY && facility == LOG_USER) {
        identity = ident;
    }
}

void syslog(int priority, const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    capture(priority, format, arguments);
    va_end(arguments);
}

/* syslog in a fortified build. */
void __syslog_chk(int priority, int flag, const char* format, ...);
void __syslog_chk(int priority, int flag, const char* format, ...) {
    va_list arguments;
    (void)flag;
    va_start(arguments, format);
    capture(priority, format, arguments);
    va_end(arguments);
}
