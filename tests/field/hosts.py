#!/usr/bin/python3
"""hosts.py BUILD: two workers, each with a daemon of its own, share the jobs of a broker and are killed. See scripts/check-field.

FIELD_SEED=N repeats the kills. FIELD_JOBS (300), FIELD_PERIOD (3, seconds between kills) and FIELD_TILES (2: objects of 128 x 128) are
for the full size: 5000, 20, 8."""
import filecmp
import glob
import json
import os
import pathlib
import random
import shutil
import signal
import subprocess
import sys
import tempfile
import time

sys.dont_write_bytecode = True  # nothing is left in the tree

import jsonschema
import pika

import objects
from broker import BROKER, PASSWORD, USER, Broker
from receivers import DAEMON, GROUP, STORESCP, Processes, eventually, free_port

JOBS = int(os.environ.get("FIELD_JOBS", "300"))
PERIOD = float(os.environ.get("FIELD_PERIOD", "3"))
TILES = int(os.environ.get("FIELD_TILES", "2"))
CONTENTS = min(JOBS, 250)  # more jobs than that share files
TRIES = 4
UNREADABLE, HUGE = 5, 5
WORKERS = ("a", "b")
NO_JOBS = [b"", b"{", b'{"schema":1,"id":"x","input":"/etc/passwd","name":"../../etc/x","submitted":""}', b"[" * 100000]
SCHEMAS = pathlib.Path(__file__).resolve().parents[2] / "docs" / "schemas"


def tiled(path, number):
    """An object of its own: MR_small so many times in both directions."""
    dataset = objects._template()
    row = dataset.Columns * 2
    pixels = bytearray(b"".join(dataset.PixelData[at:at + row] * TILES for at in range(0, len(dataset.PixelData), row)) * TILES)
    pixels[:4] = number.to_bytes(2, "little") * 2
    dataset.Rows, dataset.Columns, dataset.PixelData = dataset.Rows * TILES, dataset.Columns * TILES, bytes(pixels)
    objects._write(dataset, path, f"{objects.ROOT}.6.{number}")


class Hosts:
    def __init__(self, build):
        self.root = tempfile.mkdtemp(prefix="vintakd-hosts-")
        os.chmod(self.root, 0o755)
        self.failures = 0
        self.bin, self.source, self.logs = (self.folder(name, 0) for name in ("bin", "source", "logs"))
        for program in ("vintakd/vintakd", "tools/vintak/vintak", "tools/vintak/vintak-feed"):
            shutil.copy(os.path.join(build, program), self.bin)
        self.results = self.folder("results", DAEMON)
        self.processes = Processes(self.logs)
        self.tls_port = free_port()
        self.broker = Broker(self.processes, self.path("broker"), self.tls())
        self.segments = {name: f"vintakd_hosts_{name}_{os.getpid()}" for name in WORKERS}
        self.environments = {}
        for name in WORKERS:
            run, conf = self.folder("run-" + name, DAEMON), self.folder("conf-" + name, 0)
            with open(f"{conf}/limits.conf", "w") as file:
                file.write("ADDRESS_SPACE_MB = 400\nDEADLINE_SECONDS = 600\n")
            self.environments[name] = {
                "RUN": run, "TMP": run, "CONF": conf, "VINTAKD_SEGMENT": self.segments[name], "VINTAKD_TRACE_SWITCH": "-"}

    def path(self, name):
        return os.path.join(self.root, name)

    def folder(self, name, account):
        path = self.path(name)
        os.makedirs(path)
        os.chown(path, account, GROUP)
        os.chmod(path, 0o755 if account == 0 else 0o750)
        return path

    def check(self, name, right, text=""):
        print(f"{name:<58} {'' if right else 'FAILED '}{text}", flush=True)
        self.failures += 0 if right else 1

    def tls(self):
        """A certificate of the broker's own, and the lines of its configuration."""
        folder = self.folder("tls", BROKER)
        os.chmod(folder, 0o755)
        subprocess.run(
            ["openssl", "req", "-x509", "-newkey", "rsa:2048", "-nodes", "-days", "2", "-subj", "/CN=broker.invalid", "-addext",
             "subjectAltName=DNS:localhost", "-keyout", f"{folder}/key.pem", "-out", f"{folder}/ca.pem"],
            stderr=subprocess.DEVNULL, check=True)
        os.chown(f"{folder}/key.pem", BROKER, GROUP)
        self.authorities = f"{folder}/ca.pem"
        return [f"listeners.ssl.1 = 127.0.0.1:{self.tls_port}", f"ssl_options.cacertfile = {folder}/ca.pem",
                f"ssl_options.certfile = {folder}/ca.pem", f"ssl_options.keyfile = {folder}/key.pem"]

    # Processes

    def start_daemon(self, name):
        self.processes.start("daemon-" + name, DAEMON, [f"{self.bin}/vintakd", "--servers", "2"], self.environments[name])

    def start_worker(self, name, more=()):
        address = self.broker.options()
        if name == "b":  # over TLS
            address[1] = f"amqps://localhost:{self.tls_port}"
            address += ["--ca", self.authorities]
        self.processes.start(
            "worker-" + name, DAEMON,
            [f"{self.bin}/vintak", "work", "-o", self.results, "--tries", str(TRIES), "--name", name, "--inputs", self.root,
             "--broker-timeout", "86400", *address, *more], self.environments[name])

    def vintak(self, name, *words, **more):
        return subprocess.run([f"{self.bin}/vintak", *words], env={**os.environ, **self.environments[name]},
                              stdout=subprocess.PIPE, stderr=subprocess.PIPE, check=False, text=True, **more)

    def is_healthy(self, name):
        return self.vintak(name, "work", "--health").returncode == 0

    def connection(self):
        return pika.BlockingConnection(pika.ConnectionParameters(
            "127.0.0.1", self.broker.port, credentials=pika.PlainCredentials(USER, PASSWORD), heartbeat=0))

    def take_all(self, queue):
        """Messages: (headers, body)"""
        taken = []
        connection = self.connection()
        channel = connection.channel()
        while True:
            method, properties, body = channel.basic_get(queue, auto_ack=True)
            if not method:
                connection.close()
                return taken
            taken.append((properties.headers or {}, body))

    def depth(self, queue):
        connection = self.connection()
        count = connection.channel().queue_declare(queue, passive=True).method.message_count
        connection.close()
        return count

    def end(self):
        pids = [process.pid for process in self.processes.running.values()]
        if "broker" in self.processes.running:
            self.broker.stop(signal.SIGTERM)
        self.processes.stop_all()
        for segment in self.segments.values():
            if os.path.exists("/dev/shm/" + segment):
                os.unlink("/dev/shm/" + segment)
        shutil.rmtree(self.root)

        def left():
            theirs = [pid for pid in os.listdir("/proc") if pid.isdigit() and self.owner(pid) in (DAEMON, BROKER)]
            return [pid for pid in pids if os.path.exists(f"/proc/{pid}")] + theirs

        # The broker's helpers end a moment after it.
        eventually(lambda: not left(), 10)
        self.check("nothing is left", not left() and not glob.glob("/dev/shm/*vintakd_hosts_*"), f"processes {left()}" if left() else "")

    @staticmethod
    def owner(pid):
        try:
            return os.stat("/proc/" + pid).st_uid
        except FileNotFoundError:
            return -1


def make_objects(hosts):
    """Files by the names of their results: good ones, such as fail however often they are tried, such as are no objects."""
    good, poison, hostile = {}, {}, {}
    for number in range(CONTENTS):
        tiled(f"{hosts.source}/{number}.dcm", number)
    os.makedirs(f"{hosts.source}/more")
    for number in range(JOBS):
        path = f"{hosts.source}/more/{number}.dcm"
        os.link(f"{hosts.source}/{number % CONTENTS}.dcm", path)
        good[path] = number % CONTENTS
    huge = f"{hosts.source}/huge.dcm"
    dataset = objects._template()
    dataset.Rows = dataset.Columns = 12000
    dataset.PixelData = bytes(12000 * 12000 * 2)
    objects._write(dataset, huge, objects.ROOT + ".7")
    for number in range(HUGE + UNREADABLE):
        path = f"{hosts.source}/poison-{number}.dcm"
        if number < HUGE:
            os.link(huge, path)
        else:
            shutil.copy(f"{hosts.source}/0.dcm", path)
            os.chmod(path, 0)
        poison[path] = number
    for number, (_, path) in enumerate(objects.hostile(hosts.source)):
        hostile[path] = number
    return good, poison, hostile


def feed(hosts, good, poison, hostile):
    names = list(good)
    for bad in (*poison, *hostile):
        names.insert(random.randrange(len(names)), bad)
    connection = hosts.connection()
    channel = connection.channel()
    channel.confirm_delivery()
    channel.queue_declare("audit", durable=True)
    channel.queue_bind("audit", "vintak.events", "#")
    told = hosts.vintak("a", "submit", *hosts.broker.options(), "--files-from", "-", input="\n".join(names))
    hosts.check("submitted", told.returncode == 0, told.stdout.strip() + told.stderr[-300:])
    for body in NO_JOBS:
        channel.basic_publish("", "vintak.jobs", body, pika.BasicProperties(delivery_mode=2), mandatory=True)
    connection.close()


def hurt(hosts, seed, is_over):
    """Kills a worker or a daemon every now and then, and the broker once."""
    chance = random.Random(seed)
    killed, round_number = [], 0
    while not is_over():
        end = time.monotonic() + PERIOD * chance.uniform(0.7, 1.3)
        while time.monotonic() < end and not is_over():
            time.sleep(0.1)
        round_number += 1
        if round_number == 3:
            hosts.broker.stop(signal.SIGKILL)
            time.sleep(chance.uniform(0, 1))
            hosts.broker.start()
            killed.append("broker")
            continue
        if is_over():
            break
        kind, name = chance.choice(["worker", "daemon"]), chance.choice(WORKERS)
        hosts.processes.stop(f"{kind}-{name}", signal.SIGKILL)
        time.sleep(chance.uniform(0, PERIOD / 3))
        hosts.start_daemon(name) if kind == "daemon" else hosts.start_worker(name)
        killed.append(f"{kind} {name}")
    return killed


def key_of(path):
    return path.lstrip("/")[:-len(".dcm")]


def work(hosts, good, poison, hostile, seed):
    for name in WORKERS:
        hosts.start_worker(name)
    waiting = eventually(lambda: all("no daemon" in hosts.processes.log("worker-" + name) for name in WORKERS), 60)
    for name in WORKERS:
        hosts.start_daemon(name)
    hosts.check("two workers, one over TLS, wait for their daemons", waiting and eventually(lambda: all(map(hosts.is_healthy, WORKERS)), 60))
    begun = time.monotonic()
    feed(hosts, good, poison, hostile)
    state = {"next": 0.0, "over": False}

    def is_over():
        if time.monotonic() >= state["next"]:
            missing = next((path for path in good if not os.path.exists(f"{hosts.results}/{key_of(path)}")), None)
            try:
                state["over"] = not missing and hosts.depth("vintak.dead") >= len(poison) + len(hostile) + len(NO_JOBS)
            except (pika.exceptions.AMQPError, OSError):
                state["over"] = False
            state["next"] = time.monotonic() + 0.5
        if time.monotonic() > begun + 1500:
            raise RuntimeError("the jobs do not come to an end")
        return state["over"]

    killed = hurt(hosts, seed, is_over)
    seconds = time.monotonic() - begun
    hosts.check("worked off", True, f"{seconds:.0f} s, {len(killed)} kills: {', '.join(killed)}")
    # What a kill left unsettled is settled, then all is empty and the workers end by themselves.
    statuses = []
    for name in WORKERS:
        hosts.processes.stop("worker-" + name)
        hosts.start_worker(name, ["--until-empty"])
    for name in WORKERS:
        statuses.append(hosts.processes.running.pop("worker-" + name).wait(timeout=120))
    left = {queue: hosts.depth("vintak." + queue) for queue in ("jobs", "retry")}
    hosts.check("... to the end", statuses == [0, 0] and not any(left.values()), f"{statuses} {left}")


def judge(hosts, good, poison, hostile):
    as_job, as_event = (jsonschema.Draft202012Validator(json.loads((SCHEMAS / name).read_text())) for name in ("job.json", "event.json"))
    hosts.as_event = as_event
    dead = hosts.take_all("vintak.dead")
    by_name, messages = {}, []
    for headers, body in dead:
        if headers["vintak-class"] == "request":
            messages.append((headers, body))
            continue
        job = json.loads(body)
        as_job.validate(job)
        by_name.setdefault("/" + job["name"], []).append(headers)
    right = set(by_name) == set(poison) | set(hostile)
    hosts.check("dead letters: the poison and the hostile ones alone", right, f"{len(dead)} messages, {sorted(set(by_name) ^ (set(poison) | set(hostile)))[:3]}")
    wrong = [(path, h["vintak-tries"]) for path in by_name for h in by_name[path] if h["vintak-tries"] != (TRIES if path in poison else 1)]
    hosts.check(f"... poison after exactly {TRIES} tries, hostile at once", not wrong, str(wrong[:3]))
    causes = {h["vintak-class"]: h["vintak-cause"] for all_headers in by_name.values() for h in all_headers}
    hosts.check("... each with its cause", set(causes) >= {"file", "memory", "object"} and all(causes.values()), "; ".join(f"{k}: {v[-50:]}" for k, v in sorted(causes.items())))
    hosts.check("... and what is no job", sorted({body for _, body in messages}) == sorted(NO_JOBS), "; ".join(sorted({h["vintak-cause"] for h, _ in messages}))[:150])
    events = [json.loads(body) for _, body in hosts.take_all("audit")]
    for event in events:
        as_event.validate(event)
    told = {}
    for event in events:
        told.setdefault(event["input"], []).append(event)
    missing = [path for path in good if not any(event["result"] == "converted" for event in told.get(path, []))]
    missing += [path for path in (*poison, *hostile) if not any(event["result"] == "failed" for event in told.get(path, []))]
    twice = sum(len(told[path]) - 1 for path in good if path in told)
    shares = {name: sum(event["worker"] == name for event in events) for name in WORKERS}
    hosts.check("every job was announced", not missing, f"{len(events)} events, {twice} told again, by worker {shares} {missing[:2] or ''}")
    compare(hosts, good, poison, hostile)


def compare(hosts, good, poison, hostile):
    """All results are there and equal those of `vintak convert`; no others are."""
    by_hand = hosts.folder("by-hand", DAEMON)
    names = "\n".join(f"{number}.dcm" for number in range(CONTENTS))
    told = hosts.vintak("a", "convert", "--files-from", "-", "-o", by_hand + "/", cwd=hosts.source, input=names)
    assert told.returncode == 0, told.stderr
    differing, compared = [], 0
    expected = {}
    for name in os.listdir(by_hand):
        number = int(name.replace("_", ".").split(".")[0])
        expected.setdefault(number, []).append((name, "object" + name[len(str(number)):]))
    for path, number in good.items():
        folder = f"{hosts.results}/{key_of(path)}"
        if sorted(os.listdir(folder)) != sorted(name for _, name in expected[number]):
            differing.append(folder)
            continue
        differing += [f"{folder}/{name}" for hand, name in expected[number] if not filecmp.cmp(f"{by_hand}/{hand}", f"{folder}/{name}", False)]
        compared += len(expected[number])
    hosts.check("results equal those by hand", not differing, f"{compared} files {differing[:2] or ''}")
    others = [path for path in (*poison, *hostile) if os.path.exists(f"{hosts.results}/{key_of(path)}")]
    half = [path for path in glob.glob(f"{hosts.results}/.partial/*/*") if not path.endswith("/lock")]
    hosts.check("no others, no half ones", not others and not half, f"{others[:2]} {half[:2]}" if others or half else "")


def spool(hosts):
    """A spool that submits: the file goes through a worker and away."""
    folder = hosts.folder("spool", DAEMON)
    hosts.start_worker("a", ["--submitted", hosts.folder("spool/submitted", DAEMON)])
    hosts.processes.start(
        "spool", DAEMON, [f"{hosts.bin}/vintak", "spool", folder, "--submit", "--delete-done", "--settle", "0.2", *hosts.broker.options()],
        hosts.environments["a"])
    eventually(lambda: os.path.exists(folder + "/incoming"))
    for name in ("1", "2"):
        shutil.copy(f"{hosts.source}/{name}.dcm", f"{folder}/incoming/.new")
        os.chown(f"{folder}/incoming/.new", STORESCP if name == "1" else DAEMON, GROUP)
        os.chmod(f"{folder}/incoming/.new", 0o640)
        os.rename(f"{folder}/incoming/.new", f"{folder}/incoming/spooled-{name}.dcm")
    done = eventually(lambda: all(os.path.exists(f"{hosts.results}/spooled-{name}/object.desc") for name in "12"), 60)
    done = done and eventually(lambda: not any(os.listdir(f"{folder}/{name}") for name in ("submitted", "working", "done")))
    lines = [json.loads(line) for line in open(folder + "/events.jsonl")]
    for line in lines:
        hosts.as_event.validate(line)
    by_job = {json.loads(body)["job"]: json.loads(body) for _, body in hosts.take_all("audit")}
    told = all(line["result"] == "submitted" and by_job[line["job"]]["result"] == "converted" for line in lines)
    hosts.check("a spool that submits", done and told and len(lines) == 2, f"{len(lines)} events")
    statuses = [hosts.processes.stop(name) for name in ("spool", "worker-a")]
    hosts.check("... both end on SIGTERM", statuses == [0, 0], str(statuses))


def main():
    seed = int(os.environ.get("FIELD_SEED", random.randrange(10**6)))
    print(f"FIELD_SEED={seed}")
    begun = time.monotonic()
    hosts = Hosts(sys.argv[1])
    try:
        good, poison, hostile = make_objects(hosts)
        hosts.broker.start()
        work(hosts, good, poison, hostile, seed)
        judge(hosts, good, poison, hostile)
        spool(hosts)
        if hosts.failures:
            for log in sorted(os.listdir(hosts.logs)):
                print(f"--- {log}\n" + "\n".join(hosts.processes.log(log[:-4]).splitlines()[-25:]), file=sys.stderr)
    finally:
        hosts.end()
    print(f"Took {time.monotonic() - begun:.0f} s")
    return 1 if hosts.failures else 0


if __name__ == "__main__":
    sys.exit(main())
