// Clang's thread-safety attributes under short names; other compilers see nothing.
// Source: the Clang documentation, "Thread Safety Analysis".
#pragma once

#if defined(__clang__)
#define ZEL_ATTRIBUTE(attribute) __attribute__((attribute))
#else
#define ZEL_ATTRIBUTE(attribute)
#endif

#define CAPABILITY(name) ZEL_ATTRIBUTE(capability(name))
#define SCOPED_CAPABILITY ZEL_ATTRIBUTE(scoped_lockable)
#define GUARDED_BY(lock) ZEL_ATTRIBUTE(guarded_by(lock))
#define REQUIRES(...) ZEL_ATTRIBUTE(requires_capability(__VA_ARGS__))
#define ACQUIRE(...) ZEL_ATTRIBUTE(acquire_capability(__VA_ARGS__))
#define RELEASE(...) ZEL_ATTRIBUTE(release_capability(__VA_ARGS__))
#define TRY_ACQUIRE(...) ZEL_ATTRIBUTE(try_acquire_capability(__VA_ARGS__))
#define NO_THREAD_SAFETY_ANALYSIS ZEL_ATTRIBUTE(no_thread_safety_analysis)
