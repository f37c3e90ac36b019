#!/usr/bin/env python3
"""The smallest login from Python.

    ./login.py /var/radius.conf alice
"""
import ctypes
import getpass
import sys

radius = ctypes.CDLL("liblanyard-radius.so.2")
radius.radLastError.restype = ctypes.c_void_p
radius.radLastErrorText.argtypes = [ctypes.c_void_p, ctypes.c_char_p, ctypes.c_size_t]

if len(sys.argv) != 3:
    sys.exit(f"Usage: {sys.argv[0]} FILE USER")
if radius.radLibInit(sys.argv[1].encode()) != 0:
    sys.exit(2)  # the library has logged the file, the line and the reason
password = getpass.getpass() if sys.stdin.isatty() else sys.stdin.readline().rstrip("\n")
idle, session = ctypes.c_uint32(), ctypes.c_uint32()
result = radius.radAuthAndGetAttributes(
    sys.argv[2].encode(), password.encode(), ctypes.byref(idle), ctypes.byref(session))
if result == 0:
    print(f"come in for {session.value} minutes (0: as long as you like)")
else:
    reason = ctypes.create_string_buffer(512)  # RAD_LAST_ERROR_TEXT_SIZE
    radius.radLastErrorText(radius.radLastError(), reason, len(reason))
    print(reason.value.decode(), file=sys.stderr)
radius.radLibExit()
sys.exit(0 if result == 0 else 1)
