// Names for the compiler's lock analysis (-Wthread-safety); nothing elsewhere.
#pragma once

#if defined(__clang__)
#define KOVA_ANNOTATE(x) __attribute__((x))
#else
#define KOVA_ANNOTATE(x)
#endif

#define KOVA_CAPABILITY(name) KOVA_ANNOTATE(capability(name))
#define KOVA_SCOPED_CAPABILITY KOVA_ANNOTATE(scoped_lockable)
#define KOVA_GUARDED_BY(lock) KOVA_ANNOTATE(guarded_by(lock))
#define KOVA_ACQUIRE(...) KOVA_ANNOTATE(acquire_capability(__VA_ARGS__))
#define KOVA_RELEASE(...) KOVA_ANNOTATE(release_capability(__VA_ARGS__))
#define KOVA_REQUIRES(...) KOVA_ANNOTATE(requires_capability(__VA_ARGS__))
#define KOVA_EXCLUDES(...) KOVA_ANNOTATE(locks_excluded(__VA_ARGS__))
#define KOVA_NO_THREAD_SAFETY_ANALYSIS KOVA_ANNOTATE(no_thread_safety_analysis)
