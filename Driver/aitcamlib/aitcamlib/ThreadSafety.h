// Which lock guards what, in words that clang's -Wthread-safety checks (scripts/check-locks); other
// compilers see nothing. The check follows plain scopes only: it does not look into constructors
// and destructors and knows no recursion, so a function says REQUIRES rather than lock once more.
#pragma once

#if defined(__clang__)
#define AITCAM_THREAD_SAFETY(attribute) __attribute__((attribute))
#else
#define AITCAM_THREAD_SAFETY(attribute)
#endif

/// A class whose objects are locks; `name` stands in the messages.
#define CAPABILITY(name) AITCAM_THREAD_SAFETY(capability(name))
/// A class whose objects hold a lock as long as they live.
#define SCOPED_CAPABILITY AITCAM_THREAD_SAFETY(scoped_lockable)
/// The member, or what the pointer points to, is touched under this lock only.
#define GUARDED_BY(lock) AITCAM_THREAD_SAFETY(guarded_by(lock))
#define PT_GUARDED_BY(lock) AITCAM_THREAD_SAFETY(pt_guarded_by(lock))
/// The lock is taken before the others wherever both are held.
#define ACQUIRED_BEFORE(...) AITCAM_THREAD_SAFETY(acquired_before(__VA_ARGS__))
/// The caller holds the locks, or must not.
#define REQUIRES(...) AITCAM_THREAD_SAFETY(requires_capability(__VA_ARGS__))
#define EXCLUDES(...) AITCAM_THREAD_SAFETY(locks_excluded(__VA_ARGS__))
/// The function takes the locks, or lets go of them.
#define ACQUIRE(...) AITCAM_THREAD_SAFETY(acquire_capability(__VA_ARGS__))
#define RELEASE(...) AITCAM_THREAD_SAFETY(release_capability(__VA_ARGS__))
/// The function is the lock's own work.
#define NO_THREAD_SAFETY_ANALYSIS AITCAM_THREAD_SAFETY(no_thread_safety_analysis)
