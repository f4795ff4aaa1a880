// Names for clang's thread-safety attributes; they expand to nothing on other compilers.
//
// This is the one header that uses compiler extensions: it turns "which lock guards what" and the lock order into
// compile errors.
#ifndef ORVANE_SUPPORT_THREAD_ANNOTATIONS_H
#define ORVANE_SUPPORT_THREAD_ANNOTATIONS_H

#if defined(__clang__)
#define ORVANE_THREAD_ATTRIBUTE(x) __attribute__((x))
#else
#define ORVANE_THREAD_ATTRIBUTE(x)
#endif

#define ORVANE_CAPABILITY(name) ORVANE_THREAD_ATTRIBUTE(capability(name))
#define ORVANE_SCOPED_CAPABILITY ORVANE_THREAD_ATTRIBUTE(scoped_lockable)
#define ORVANE_GUARDED_BY(mutex) ORVANE_THREAD_ATTRIBUTE(guarded_by(mutex))
#define ORVANE_ACQUIRED_AFTER(mutex) ORVANE_THREAD_ATTRIBUTE(acquired_after(mutex))
#define ORVANE_ACQUIRE(...) ORVANE_THREAD_ATTRIBUTE(acquire_capability(__VA_ARGS__))
#define ORVANE_TRY_ACQUIRE(...) ORVANE_THREAD_ATTRIBUTE(try_acquire_capability(__VA_ARGS__))
#define ORVANE_RELEASE(...) ORVANE_THREAD_ATTRIBUTE(release_capability(__VA_ARGS__))
#define ORVANE_REQUIRES(...) ORVANE_THREAD_ATTRIBUTE(requires_capability(__VA_ARGS__))
#define ORVANE_EXCLUDES(...) ORVANE_THREAD_ATTRIBUTE(locks_excluded(__VA_ARGS__))

#endif  // ORVANE_SUPPORT_THREAD_ANNOTATIONS_H
