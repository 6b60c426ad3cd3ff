// SPDX-License-Identifier: MIT
#pragma once

// What clang's thread-safety analysis reads; nothing for other compilers.
// https://clang.llvm.org/docs/ThreadSafetyAnalysis.html
#if defined(__clang__)
#define SUP_THREAD_ANNOTATION(x) __attribute__((x))
#else
#define SUP_THREAD_ANNOTATION(x)
#endif

#define SUP_CAPABILITY(name) SUP_THREAD_ANNOTATION(capability(name))
#define SUP_SCOPED_CAPABILITY SUP_THREAD_ANNOTATION(scoped_lockable)
#define SUP_GUARDED_BY(mutex) SUP_THREAD_ANNOTATION(guarded_by(mutex))
#define SUP_PT_GUARDED_BY(mutex) SUP_THREAD_ANNOTATION(pt_guarded_by(mutex))
#define SUP_REQUIRES(...) SUP_THREAD_ANNOTATION(requires_capability(__VA_ARGS__))
#define SUP_ACQUIRE(...) SUP_THREAD_ANNOTATION(acquire_capability(__VA_ARGS__))
#define SUP_RELEASE(...) SUP_THREAD_ANNOTATION(release_capability(__VA_ARGS__))
#define SUP_NO_THREAD_ANALYSIS SUP_THREAD_ANNOTATION(no_thread_safety_analysis)
