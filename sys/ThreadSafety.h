// SPDX-License-Identifier: MIT
#pragma once

// What clang's thread-safety analysis reads; nothing for other compilers. The same as in
// sup++/ThreadSafety.h, which is installed and so includes nothing of this folder.
// https://clang.llvm.org/docs/ThreadSafetyAnalysis.html
#if defined(__clang__)
#define SYS_THREAD_ANNOTATION(x) __attribute__((x))
#else
#define SYS_THREAD_ANNOTATION(x)
#endif

#define SYS_CAPABILITY(name) SYS_THREAD_ANNOTATION(capability(name))
#define SYS_SCOPED_CAPABILITY SYS_THREAD_ANNOTATION(scoped_lockable)
#define SYS_GUARDED_BY(mutex) SYS_THREAD_ANNOTATION(guarded_by(mutex))
#define SYS_REQUIRES(...) SYS_THREAD_ANNOTATION(requires_capability(__VA_ARGS__))
#define SYS_ACQUIRE(...) SYS_THREAD_ANNOTATION(acquire_capability(__VA_ARGS__))
#define SYS_RELEASE(...) SYS_THREAD_ANNOTATION(release_capability(__VA_ARGS__))
