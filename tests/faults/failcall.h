// SPDX-License-Identifier: MIT
#pragma once

/// Makes one kind of system call fail. Every program that has libfailcall in front of the C library
/// (linked first, or by LD_PRELOAD) makes its calls through it; it changes nothing until it is armed.
///
/// Names are those of the system calls: "openat" stands for openat64 too, "openat2" for the call by
/// syscall(2). See faults_runner.cpp for a use.
///
/// Thread   arm and disarm while no other thread makes calls; the counting itself is safe from any
extern "C" {

/// From now on the `nth` call (counted from 1) of this kind fails with `errorNumber`, and those behind
/// it too if `onwards` is not 0. An `errorNumber` of 0 makes a transfer short instead: half of what
/// was asked for. A failing close closes all the same, as the system does.
void failcall_arm(const char* call, unsigned nth, int errorNumber, int onwards);

/// Ends that.
///
/// Returns  how many calls of this kind there were since then
unsigned failcall_disarm(void);
}
