// SPDX-FileCopyrightText: 2026 the DORVY driver developers
// SPDX-License-Identifier: MIT
//
// Tells ThreadSanitizer what QMutex does, and the lock of Qt's own list of codecs.
#include <sanitizer/tsan_interface.h>

#include <QtCore/QMutex>
#include <QtCore/QTextCodec>

#include <mutex>

// QMutex works inside Qt's library, which is not instrumented: ThreadSanitizer would see neither
// its atomic operations nor a lock of the system. The linker's option --wrap sends calls of xyz to
// __wrap_xyz; __real_xyz is Qt's own.
extern "C" {
void __real__ZN6QMutex4lockEv(QMutex *mutex);
void __wrap__ZN6QMutex4lockEv(QMutex *mutex);
bool __real__ZN6QMutex7tryLockEi(QMutex *mutex, int timeout);
bool __wrap__ZN6QMutex7tryLockEi(QMutex *mutex, int timeout);
void __real__ZN6QMutex6unlockEv(QMutex *mutex);
void __wrap__ZN6QMutex6unlockEv(QMutex *mutex);
void __real__ZN6QMutexD1Ev(QMutex *mutex);
void __wrap__ZN6QMutexD1Ev(QMutex *mutex);

void __wrap__ZN6QMutex4lockEv(QMutex *mutex)
{
    __tsan_mutex_pre_lock(mutex, 0);
    __real__ZN6QMutex4lockEv(mutex);
    __tsan_mutex_post_lock(mutex, 0, 0);
}

bool __wrap__ZN6QMutex7tryLockEi(QMutex *mutex, int timeout)
{
    __tsan_mutex_pre_lock(mutex, __tsan_mutex_try_lock);
    const bool locked = __real__ZN6QMutex7tryLockEi(mutex, timeout);
    const unsigned failure = locked ? 0 : __tsan_mutex_try_lock_failed;
    __tsan_mutex_post_lock(mutex, __tsan_mutex_try_lock | failure, 0);
    return locked;
}

void __wrap__ZN6QMutex6unlockEv(QMutex *mutex)
{
    __tsan_mutex_pre_unlock(mutex, 0);
    __real__ZN6QMutex6unlockEv(mutex);
    __tsan_mutex_post_unlock(mutex, 0);
}

void __wrap__ZN6QMutexD1Ev(QMutex *mutex)
{
    __tsan_mutex_destroy(mutex, 0);
    __real__ZN6QMutexD1Ev(mutex);
}

// QTextCodec::codecForName() keeps the names that were asked for, under a mutex that it locks within Qt's library.
// One around each call stands for it.
QTextCodec *__real__ZN10QTextCodec12codecForNameERK10QByteArray(const QByteArray &name);
QTextCodec *__wrap__ZN10QTextCodec12codecForNameERK10QByteArray(const QByteArray &name);

QTextCodec *__wrap__ZN10QTextCodec12codecForNameERK10QByteArray(const QByteArray &name)
{
    static std::mutex codecs;
    const std::lock_guard<std::mutex> locker(codecs);
    return __real__ZN10QTextCodec12codecForNameERK10QByteArray(name);
}
}
