#pragma once

/// What a lock guards, stated where clang's -Wthread-safety checks it. Empty on other compilers.
#if defined(__clang__)
#define QZ_THREAD_ATTRIBUTE(x) __attribute__((x))
#else
#define QZ_THREAD_ATTRIBUTE(x)
#endif

#define QZ_CAPABILITY(name) QZ_THREAD_ATTRIBUTE(capability(name))
#define QZ_SCOPED_CAPABILITY QZ_THREAD_ATTRIBUTE(scoped_lockable)
#define QZ_GUARDED_BY(lock) QZ_THREAD_ATTRIBUTE(guarded_by(lock))
#define QZ_AFTER(...) QZ_THREAD_ATTRIBUTE(acquired_after(__VA_ARGS__))
#define QZ_REQUIRES(...) QZ_THREAD_ATTRIBUTE(requires_capability(__VA_ARGS__))
#define QZ_EXCLUDES(...) QZ_THREAD_ATTRIBUTE(locks_excluded(__VA_ARGS__))
#define QZ_ACQUIRE(...) QZ_THREAD_ATTRIBUTE(acquire_capability(__VA_ARGS__))
#define QZ_TRY_ACQUIRE(...) QZ_THREAD_ATTRIBUTE(try_acquire_capability(__VA_ARGS__))
#define QZ_RELEASE(...) QZ_THREAD_ATTRIBUTE(release_capability(__VA_ARGS__))
#define QZ_NO_THREAD_SAFETY_ANALYSIS QZ_THREAD_ATTRIBUTE(no_thread_safety_analysis)
