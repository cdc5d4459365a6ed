/* GLib's locks, told to the thread sanitizer. They are made of futexes inside a library that it does not watch, so
 * it would take all that they order for races. These stand before GLib's own, which they call. Locks that GLib
 * takes within itself are not seen.
 */
#define _GNU_SOURCE
#include <dlfcn.h>
#include <glib.h>
#include <sanitizer/tsan_interface.h>

#define REAL(name) ((__typeof__(&(name)))real(#name))

static void* real(const char* name) { return dlsym(RTLD_NEXT, name); }

void g_mutex_lock(GMutex* mutex) {
    REAL(g_mutex_lock)(mutex);
    __tsan_acquire(mutex);
}

gboolean g_mutex_trylock(GMutex* mutex) {
    const gboolean locked = REAL(g_mutex_trylock)(mutex);
    if (locked) {
        __tsan_acquire(mutex);
    }
    return locked;
}

void g_mutex_unlock(GMutex* mutex) {
    __tsan_release(mutex);
    REAL(g_mutex_unlock)(mutex);
}

void g_rec_mutex_lock(GRecMutex* mutex) {
    REAL(g_rec_mutex_lock)(mutex);
    __tsan_acquire(mutex);
}

gboolean g_rec_mutex_trylock(GRecMutex* mutex) {
    const gboolean locked = REAL(g_rec_mutex_trylock)(mutex);
    if (locked) {
        __tsan_acquire(mutex);
    }
    return locked;
}

void g_rec_mutex_unlock(GRecMutex* mutex) {
    __tsan_release(mutex);
    REAL(g_rec_mutex_unlock)(mutex);
}

void g_cond_wait(GCond* cond, GMutex* mutex) {
    __tsan_release(mutex);
    REAL(g_cond_wait)(cond, mutex);
    __tsan_acquire(mutex);
}

gboolean g_cond_wait_until(GCond* cond, GMutex* mutex, gint64 end) {
    __tsan_release(mutex);
    const gboolean signalled = REAL(g_cond_wait_until)(cond, mutex, end);
    __tsan_acquire(mutex);
    return signalled;
}
