"""Processes under accounts of their own, which end with this one, and what is said to them."""
import ctypes
import json
import os
import re
import signal
import socket
import subprocess
import time
import urllib.error
import urllib.request

GROUP = 64990
DAEMON, STORESCP, ORTHANC = 64991, 64992, 64993
PR_SET_PDEATHSIG = 1


def eventually(condition, seconds=90, pause=0.05):
    limit = time.monotonic() + seconds
    while time.monotonic() < limit:
        if condition():
            return True
        time.sleep(pause)
    return False


def free_port():
    with socket.socket() as probe:
        probe.bind(("127.0.0.1", 0))
        return probe.getsockname()[1]


def listens(port):
    with socket.socket() as probe:
        return probe.connect_ex(("127.0.0.1", port)) == 0


class Processes:
    def __init__(self, log_folder):
        self.log_folder = log_folder
        self.running = {}

    def start(self, name, account, words, environment=None, folder="/"):
        def become():
            ctypes.CDLL(None).prctl(PR_SET_PDEATHSIG, signal.SIGKILL)
            os.setgroups([])
            os.setgid(GROUP)
            os.setuid(account)
            ctypes.CDLL(None).prctl(PR_SET_PDEATHSIG, signal.SIGKILL)
            os.umask(0o027)

        with open(os.path.join(self.log_folder, name + ".log"), "ab") as log:
            self.running[name] = subprocess.Popen(
                words, stdin=subprocess.DEVNULL, stdout=log, stderr=log, cwd=folder, preexec_fn=become,
                env={"PATH": "/usr/bin:/bin", "HOME": "/nonexistent", "TCP_NODELAY": "1", **(environment or {})},
            )

    def stop(self, name, number=signal.SIGTERM):
        process = self.running.pop(name)
        process.send_signal(number)
        try:
            return process.wait(timeout=60)
        except subprocess.TimeoutExpired:
            process.kill()
            return process.wait()

    def stop_all(self):
        for name in list(self.running)[::-1]:
            self.stop(name)

    def log(self, name):
        with open(os.path.join(self.log_folder, name + ".log"), errors="replace") as log:
            return log.read()


LOG_CONFIG = """log4cplus.rootLogger = INFO, console
log4cplus.appender.console = log4cplus::ConsoleAppender
log4cplus.appender.console.ImmediateFlush = true
log4cplus.appender.console.layout = log4cplus::PatternLayout
log4cplus.appender.console.layout.ConversionPattern = %D{%s.%q} %m%n
"""


def store(port, files, config, calling="FIELD"):
    """Sends files over one association: for each that was accepted (file, seconds of its C-STORE)."""
    told = subprocess.run(
        ["storescu", "--log-config", config, "--no-halt", "-aet", calling, "127.0.0.1", str(port), *files],
        stdout=subprocess.PIPE, stderr=subprocess.STDOUT, check=False,
        env={**os.environ, "TCP_NODELAY": "1"},  # else the kernel holds back small pieces, for 40 ms each
    ).stdout.decode(errors="replace")
    accepted, file, begun = [], None, 0.0
    for line in told.splitlines():
        said = re.match(r"(\d+\.\d+) (.*)", line)
        if not said:
            continue
        if said[2].startswith("Sending file: "):
            file, begun = said[2][len("Sending file: "):], float(said[1])
        elif said[2].startswith("Received Store Response (Success)") and file:
            accepted.append((file, float(said[1]) - begun))
            file = None
    return accepted, told


def ask(port, path, method="GET"):
    """(status, JSON or None)"""
    request = urllib.request.Request(f"http://127.0.0.1:{port}{path}", method=method, data=b"" if method == "POST" else None)
    try:
        with urllib.request.urlopen(request, timeout=20) as answer:
            text = answer.read()
            return answer.status, json.loads(text) if text else None
    except urllib.error.HTTPError as error:
        return error.code, None
