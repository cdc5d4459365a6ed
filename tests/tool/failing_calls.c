/* Preloaded into korvane-vad by failing_calls_test.py: a system call that the test chooses fails.
 *
 * FAILING_CALLS is "DESCRIPTOR N" or "DESCRIPTOR N SIGNAL". Behind the descriptor is memory that takes
 * the names of the calls in their order, those of child processes too. The N-th fails, or the signal
 * comes before it; with N = 0 none does. With N = -1, of three calls that may wait one is broken off by
 * a signal and one moves half of what it could. */
#define _GNU_SOURCE
#include <dlfcn.h>
#include <errno.h>
#include <poll.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/stat.h>

enum { MOST = 8000 };
static struct {
    long count;
    char names[MOST][16];
} * calls;
static long failing;
static int ending; /* the signal, or 0 */
static int in_main;

__attribute__((constructor)) static void begin(void) {
    const char* const plan = getenv("FAILING_CALLS");
    char* number = NULL;
    if (plan != NULL) {
        const int descriptor = (int)strtol(plan, &number, 10);
        failing = strtol(number, &number, 10);
        ending = (int)strtol(number, NULL, 10);
        calls = mmap(NULL, sizeof *calls, PROT_READ | PROT_WRITE, MAP_SHARED, descriptor, 0);
    }
}

static int fails(const char* name) {
    if (!in_main) {
        return 0;
    }
    const long before = __atomic_fetch_add(&calls->count, 1, __ATOMIC_SEQ_CST);
    if (before < MOST) {
        snprintf(calls->names[before], sizeof calls->names[before], "%s", name);
    }
    if (before + 1 == failing && ending != 0) {
        raise(ending);
        return 0;
    }
    return before + 1 == failing;
}

/* What becomes of a call that may wait: 0 broken off, 1 half, 2 whole. */
static int turn(int* turns) { return in_main && failing < 0 ? (*turns)++ % 3 : 2; }

/* No header that declares open or fcntl is included, so that each can be defined with three parameters. */
#define WAITING(type, name, error, halve, parameters, arguments)                       \
    type name parameters {                                                             \
        static int turns;                                                              \
        const __typeof__(&(name)) next = (__typeof__(&(name)))dlsym(RTLD_NEXT, #name); \
        const int now = turn(&turns);                                                  \
        if (fails(#name) || now == 0) {                                                \
            errno = now == 0 ? EINTR : (error);                                        \
            return -1;                                                                 \
        }                                                                              \
        if (now == 1) {                                                                \
            halve;                                                                     \
        }                                                                              \
        return next arguments;                                                         \
    }
#define CALL(type, name, failure, error, parameters, arguments)                        \
    type name parameters {                                                             \
        const __typeof__(&(name)) next = (__typeof__(&(name)))dlsym(RTLD_NEXT, #name); \
        if (fails(#name)) {                                                            \
            errno = (error);                                                           \
            return failure;                                                            \
        }                                                                              \
        return next arguments;                                                         \
    }
#define HALVE size = size > 16 ? size / 2 : size /* a few bytes come at once */

WAITING(ssize_t, read, EIO, HALVE, (int fd, void* to, size_t size), (fd, to, size))
WAITING(ssize_t, write, ENOSPC, HALVE, (int fd, const void* from, size_t size), (fd, from, size))
WAITING(ssize_t, pread, EIO, HALVE, (int fd, void* to, size_t size, off_t at), (fd, to, size, at))
WAITING(ssize_t, pwrite, ENOSPC, HALVE, (int fd, const void* from, size_t size, off_t at),
        (fd, from, size, at))
WAITING(ssize_t, recv, ENOMEM, HALVE, (int fd, void* to, size_t size, int flags),
        (fd, to, size, flags))
WAITING(ssize_t, tee, ENOMEM, HALVE, (int from, int to, size_t size, unsigned flags),
        (from, to, size, flags))
WAITING(int, poll, ENOMEM, (void)0, (struct pollfd * list, nfds_t count, int wait),
        (list, count, wait))
WAITING(pid_t, waitpid, ECHILD, (void)0, (pid_t pid, int* status, int flags), (pid, status, flags))
CALL(int, open, -1, EMFILE, (const char* path, int flags, int mode), (path, flags, mode))
CALL(FILE*, fopen64, NULL, EMFILE, (const char* path, const char* mode), (path, mode))
CALL(int, mkostemp, -1, ENOSPC, (char* name, int flags), (name, flags))
CALL(int, memfd_create, -1, EMFILE, (const char* name, unsigned flags), (name, flags))
CALL(int, fcntl, -1, EMFILE, (int fd, int command, void* argument), (fd, command, argument))
CALL(int, dup3, -1, EBUSY, (int from, int to, int flags), (from, to, flags))
CALL(int, pipe2, -1, EMFILE, (int ends[2], int flags), (ends, flags))
CALL(pid_t, fork, -1, EAGAIN, (void), ())
CALL(void*, mmap, MAP_FAILED, ENOMEM,
     (void* at, size_t size, int may, int flags, int fd, off_t from),
     (at, size, may, flags, fd, from))
CALL(off_t, lseek, -1, EINVAL, (int fd, off_t offset, int whence), (fd, offset, whence))
CALL(int, stat, -1, EACCES, (const char* path, struct stat* status), (path, status))
CALL(int, fstat, -1, EIO, (int fd, struct stat* status), (fd, status))
CALL(int, access, -1, EACCES, (const char* path, int may), (path, may))
CALL(char*, realpath, NULL, ENOMEM, (const char* path, char* real), (path, real))
CALL(int, mkdir, -1, EACCES, (const char* path, mode_t mode), (path, mode))
CALL(int, fchmod, -1, EPERM, (int fd, mode_t mode), (fd, mode))
CALL(int, ftruncate, -1, EIO, (int fd, off_t size), (fd, size))
CALL(int, fsync, -1, EIO, (int fd), (fd))
CALL(int, syncfs, -1, EIO, (int fd), (fd))
CALL(int, rename, -1, EACCES, (const char* from, const char* to), (from, to))

int close(int fd) {
    const int result = ((__typeof__(&close))dlsym(RTLD_NEXT, "close"))(fd);
    if (fails("close")) { /* it is closed all the same */
        errno = EIO;
        return -1;
    }
    return result;
}

/* main's first call. What the C library and the counters of proofs/coverage do before it succeeds. */
void (*signal(int number, void (*handler)(int)))(int) {
    in_main = calls != NULL;
    return ((__typeof__(&signal))dlsym(RTLD_NEXT, "signal"))(number, handler);
}
