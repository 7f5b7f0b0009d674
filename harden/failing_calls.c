// Preloaded: makes a call of the file system fail when asked to, for all of the process.

#define _GNU_SOURCE
#include <dlfcn.h>
#include <errno.h>
#include <fcntl.h>
#include <stdarg.h>
#include <string.h>
#include <unistd.h>

static const char* failing_call = "";
static long calls_before_failure = 0;
static int failure = 0;
static int every_later_call = 0;
static long failures = 0;

// The next `count` calls of `name` succeed; then one fails with `error`, or all later ones.
void fail_call(const char* name, long count, int error, int all_later) {
    failing_call = name;
    calls_before_failure = count;
    failure = error;
    every_later_call = all_later;
    failures = 0;
}

long end_failures(void) {
    failing_call = "";
    return failures;
}

static int fails(const char* name) {
    if (strcmp(failing_call, name) != 0 || calls_before_failure-- > 0) return 0;
    if (!every_later_call && failures > 0) return 0;
    ++failures;
    errno = failure;
    return 1;
}

// The function that would be called without this library.
#define REAL(name, result, ...) ((result(*)(__VA_ARGS__))dlsym(RTLD_NEXT, #name))

#define OPEN(name)                                                        \
    int name(const char* path, int flags, ...) {                          \
        va_list rest;                                                     \
        va_start(rest, flags);                                            \
        const int mode = flags & O_CREAT ? va_arg(rest, int) : 0;         \
        va_end(rest);                                                     \
        if (fails("open")) return -1;                                     \
        return REAL(name, int, const char*, int, ...)(path, flags, mode); \
    }

#define STATUS(name, kind, file)                                          \
    int name(file of, void* status) {                                     \
        return fails(kind) ? -1 : REAL(name, int, file, void*)(of, status); \
    }

OPEN(open)
OPEN(open64)
STATUS(fstat, "fstat", int)
STATUS(fstat64, "fstat", int)
STATUS(stat, "stat", const char*)
STATUS(stat64, "stat", const char*)
STATUS(lstat, "stat", const char*)
STATUS(lstat64, "stat", const char*)

ssize_t read(int descriptor, void* bytes, size_t size) {
    return fails("read") ? -1 : REAL(read, ssize_t, int, void*, size_t)(descriptor, bytes, size);
}

ssize_t readlink(const char* path, char* target, size_t size) {
    return fails("readlink") ? -1 : REAL(readlink, ssize_t, const char*, char*, size_t)(path, target, size);
}
