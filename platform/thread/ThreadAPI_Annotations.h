// Clang's thread-safety annotations; nothing for other compilers.
// Checked by a build with clang and -Wthread-safety.
#pragma once

#if defined(__clang__)
#define THREADAPI_ATTRIBUTE(x) __attribute__((x))
#else
#define THREADAPI_ATTRIBUTE(x)
#endif

#define THREADAPI_CAPABILITY(name) THREADAPI_ATTRIBUTE(capability(name))  // a lock class
#define THREADAPI_SCOPED_CAPABILITY THREADAPI_ATTRIBUTE(scoped_lockable)  // its guard class
#define THREADAPI_GUARDED_BY(lock) THREADAPI_ATTRIBUTE(guarded_by(lock))  // a member
#define THREADAPI_REQUIRES(...) THREADAPI_ATTRIBUTE(requires_capability(__VA_ARGS__))
#define THREADAPI_EXCLUDES(...) THREADAPI_ATTRIBUTE(locks_excluded(__VA_ARGS__))
#define THREADAPI_ACQUIRE(...) THREADAPI_ATTRIBUTE(acquire_capability(__VA_ARGS__))
#define THREADAPI_TRY_ACQUIRE(...) THREADAPI_ATTRIBUTE(try_acquire_capability(__VA_ARGS__))
#define THREADAPI_RELEASE(...) THREADAPI_ATTRIBUTE(release_capability(__VA_ARGS__))
#define THREADAPI_UNCHECKED THREADAPI_ATTRIBUTE(no_thread_safety_analysis)
