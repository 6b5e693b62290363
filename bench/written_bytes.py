#!/usr/bin/env python3
"""Runs a command and writes to FILE how many bytes it passed to write calls, its reaped children's
included (the wchar of /proc/PID/io, read while the finished process is still waited for).

    bench/written_bytes.py FILE COMMAND [ARGS...]

Exits with the command's status.
"""
import os
import sys


def main():
    if len(sys.argv) < 3:
        sys.stderr.write("usage: written_bytes.py FILE COMMAND [ARGS...]\n")
        return 2
    out, command = sys.argv[1], sys.argv[2:]
    pid = os.fork()
    if pid == 0:
        try:
            os.execvp(command[0], command)
        finally:
            os._exit(127)
    os.waitid(os.P_PID, pid, os.WEXITED | os.WNOWAIT)
    wchar = 0
    with open("/proc/%d/io" % pid) as io:
        for line in io:
            if line.startswith("wchar:"):
                wchar = int(line.split()[1])
    _, status = os.waitpid(pid, 0)
    with open(out, "w") as f:
        f.write("%d\n" % wchar)
    return os.waitstatus_to_exitcode(status) if status else 0


if __name__ == "__main__":
    sys.exit(main())
