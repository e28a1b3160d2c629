"""Runs a program whose system calls of one kind fail: refuse_calls.py CALL ERRNO PROGRAM [ARGUMENT...].

CALL is one of CALLS. A kernel without system-call filters is an error.
"""

import ctypes
import errno
import os
import shutil
import struct
import sys

# Numbers of x86-64; the argument, the bits of it that count, and what they must be.
CALLS = {
    "close": (3, 0, 0xFFFFFFFC, 4),  # descriptors 4 to 7: the loader closes 3
    "close-output": (3, 0, 0xFFFFFFFF, 1),
    "fsync": (74, 0, 0, 0),
    "create": (257, 2, os.O_CREAT, os.O_CREAT),
    "nameless": (257, 2, os.O_TMPFILE, os.O_TMPFILE),
    "linkat": (265, 0, 0, 0),
    "renameat2": (316, 0, 0, 0),
}
NO_NEW_PRIVILEGES, SECCOMP, FILTER = 38, 22, 2
LOAD, AND, EQUAL, RETURN = 0x20, 0x54, 0x15, 0x06
ALLOW, FAIL = 0x7FFF0000, 0x00050000
NUMBER, ARGUMENTS = 0, 16  # offsets in struct seccomp_data


def refuse(number, argument, mask, value, error):
    """From here on such calls of this process and its children fail."""
    steps = [
        (LOAD, 0, 0, NUMBER),
        (EQUAL, 0, 4, number),
        (LOAD, 0, 0, ARGUMENTS + 8 * argument),
        (AND, 0, 0, mask),
        (EQUAL, 0, 1, value),
        (RETURN, 0, 0, FAIL | error),
        (RETURN, 0, 0, ALLOW),
    ]
    code = ctypes.create_string_buffer(b"".join(struct.pack("HBBI", *step) for step in steps))
    program = struct.pack("HxxxxxxQ", len(steps), ctypes.addressof(code))
    libc = ctypes.CDLL(None, use_errno=True)
    long = ctypes.c_ulong
    if libc.prctl(NO_NEW_PRIVILEGES, long(1), long(0), long(0), long(0)) or libc.prctl(
        SECCOMP, long(FILTER), program, long(0), long(0)
    ):
        sys.exit(f"no system-call filter on this machine: {os.strerror(ctypes.get_errno())}")


if __name__ == "__main__":
    name, reason, *command = sys.argv[1:]
    program = shutil.which(command[0])  # found before nothing can be read any more
    refuse(*CALLS[name], getattr(errno, reason))
    os.execv(program, command)
