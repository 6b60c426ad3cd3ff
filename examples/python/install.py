#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
#
# The engine in another language, by its C functions (ins/ins.h): installs a kit, or removes what it
# installed.
#
#     install.py KIT [remove]
import ctypes
import signal
import sys

RUNNING, DONE = 0, 1
CALLBACK = ctypes.CFUNCTYPE(None, ctypes.c_char_p, ctypes.c_double, ctypes.c_void_p)


def load():
    ins = ctypes.CDLL("libins++.so.1")
    run, pointer, number = ctypes.c_void_p, ctypes.POINTER, ctypes.c_uint
    ins.ins_version.restype = ctypes.c_char_p
    ins.ins_load_product.argtypes = [ctypes.c_char_p]
    ins.ins_open.argtypes = [ctypes.c_char_p, pointer(run)]
    ins.ins_set_callback.argtypes = [run, CALLBACK, ctypes.c_void_p]
    ins.ins_set_callback.restype = None
    ins.ins_start_install.argtypes = [run, ctypes.c_char_p]
    ins.ins_start_removal.argtypes = [run]
    ins.ins_poll.argtypes = [run, pointer(number), pointer(number)]
    ins.ins_stop.argtypes = [run]
    ins.ins_stop.restype = None
    ins.ins_error_code.argtypes = [run]
    ins.ins_error_text.argtypes = [run]
    ins.ins_error_text.restype = ctypes.c_char_p
    ins.ins_close.argtypes = [run]
    ins.ins_close.restype = None
    return ins


def tell(status, percentage, _context):
    """Called on the engine's thread, also for each 64 KiB: only what begins is told."""
    if percentage < 0:
        print(status.decode(errors="replace"), flush=True)


def main(kit, action):
    ins = load()
    print("Ins++ " + ins.ins_version().decode())
    if ins.ins_load_product(f"{kit}/product.ini".encode()) != 0:
        print(f"{kit}: no kit", file=sys.stderr)
        return 66
    run = ctypes.c_void_p()
    callback = CALLBACK(tell)  # kept: the engine has its address only
    done, rules = ctypes.c_uint(), ctypes.c_uint()
    try:
        failed = ins.ins_open(f"{kit}/install.ini".encode(), ctypes.byref(run))
        if failed == 0:
            ins.ins_set_callback(run, callback, None)
            signal.signal(signal.SIGINT, lambda *_: ins.ins_stop(run))
            if action == "remove":
                failed = ins.ins_start_removal(run)
            else:
                failed = ins.ins_start_install(run, None)
        state = RUNNING
        while failed == 0 and state == RUNNING:
            state = ins.ins_poll(run, ctypes.byref(done), ctypes.byref(rules))
        if failed != 0 or state != DONE:
            print(ins.ins_error_text(run).decode(errors="replace"), file=sys.stderr)
            return 1
        print(f"{done.value} of {rules.value} rules done")
        return 0
    finally:
        ins.ins_close(run)


if __name__ == "__main__":
    sys.exit(main(sys.argv[1], sys.argv[2] if len(sys.argv) > 2 else "install"))
