#!/usr/bin/python3
"""backfill.py BUILD: an archive is converted by a ledger and the backfill killed again and again. See scripts/check-field.
  FIELD_SEED=N        repeats the moments of the kills
  BACKFILL_OBJECTS=N  objects of the archive (600)
  BACKFILL_KILLS=N    (5)
  BACKFILL_RATE=N     objects a second at the most (60, so that small archives live to see their kills; 0: no limit)
"""
import filecmp
import json
import os
import random
import shutil
import signal
import subprocess
import sys
import tempfile
import time

sys.dont_write_bytecode = True  # nothing is left in the tree

import objects
from broker import PASSWORD, SERVER, USER, Broker
from receivers import DAEMON, GROUP, Processes, eventually

OBJECTS = int(os.environ.get("BACKFILL_OBJECTS", "600"))
KILLS = int(os.environ.get("BACKFILL_KILLS", "5"))
RATE = int(os.environ.get("BACKFILL_RATE", "60"))
KINDS = 20  # objects that differ, each many times under names of its own
BATCH = 100
LOW = max(20, OBJECTS // 50)


class Archive:
    def __init__(self, build):
        self.root = tempfile.mkdtemp(prefix="vintakd-backfill-")
        os.chmod(self.root, 0o755)
        self.failures = 0
        for name in ("archive", "results", "run", "logs", "source", "by-hand", "state"):
            os.mkdir(self.path(name))
            os.chown(self.path(name), DAEMON, GROUP)
        for program in ("vintakd/vintakd", "tools/vintak/vintak", "tools/vintak/vintak-feed"):
            shutil.copy(os.path.join(build, program), self.root)
        self.environment = {"RUN": self.path("run"), "TMP": self.path("run"), "VINTAKD_TRACE_SWITCH": "-",
                            "VINTAKD_SEGMENT": f"vintakd_backfill_{os.getpid()}"}
        self.processes = Processes(self.path("logs"))
        self.ledger = self.path("state/ledger")
        self.results = self.path("results")
        self.made = [file for _, file in objects.good(self.path("source"), KINDS)]
        for number in range(OBJECTS):
            folder = self.path(f"archive/p{number % 11}/s{number % 97}")
            os.makedirs(folder, exist_ok=True)
            os.link(self.made[number % KINDS], f"{folder}/{number}.dcm")
        for folder, _, files in os.walk(self.path("source")):
            for file in files:
                os.chmod(f"{folder}/{file}", 0o644)

    def path(self, name):
        return os.path.join(self.root, name)

    def check(self, name, right, text=""):
        print(f"{name:<58} {'' if right else 'FAILED '}{text}", flush=True)
        self.failures += 0 if right else 1

    def words(self, action, *more):
        return [self.path("vintak"), "backfill", action, "--ledger", self.ledger, *more]

    def start(self, name="backfill", *more):
        self.processes.start(name, DAEMON, self.words("run", self.path("archive"), "-o", self.results, "--batch", str(BATCH), *more),
                             self.environment)

    def call(self, *words):
        return subprocess.run(self.words(*words), env={**os.environ, **self.environment}, stdout=subprocess.PIPE, check=True).stdout.decode()

    def status(self):
        return json.loads(self.call("status", "--json"))

    def conversions(self):
        return self.processes.log("vintakd").count("kind=convert")

    def recorded(self):
        return self.status()["done"]["objects"]


def kill_again_and_again(archive, seed):
    chance = random.Random(seed)
    targets = [int(OBJECTS * (number + 0.2 + 0.6 * chance.random()) / (KILLS + 1)) for number in range(KILLS)]
    claimed, resumed = [], []
    archive.start("backfill", "--rate", str(RATE))
    for target in targets:
        eventually(lambda: archive.conversions() >= target, 3600, 0.05)
        time.sleep(chance.random() * 0.5)
        archive.processes.stop("backfill", signal.SIGKILL)
        before, begun = archive.conversions(), time.monotonic()
        archive.start("backfill", "--rate", str(RATE))
        eventually(lambda: any(worker["claimed"] for worker in archive.status()["workers"] if not worker["gone"]), 60, 0.02)
        claimed.append(time.monotonic() - begun)
        # The log has what the servants were at when the client died, too.
        if not eventually(lambda: archive.conversions() > before + 2, 60, 0.02):
            break
        resumed.append(time.monotonic() - begun)
    process = archive.processes.running["backfill"]
    eventually(lambda: process.poll() is not None, 3600, 0.2)
    archive.processes.running.pop("backfill")
    archive.check("kill -9 again and again, and to the end", process.returncode == 0 and len(resumed) == KILLS,
                  f"{KILLS} kills of {OBJECTS} objects, exit status {process.returncode}")
    archive.check("... the ledger goes on within 5 s", max(claimed) < 5, f"longest {max(claimed):.2f} s")
    # Who dies with the lock of the daemon's table in its hand leaves it locked till the daemon looks, every two seconds.
    archive.check("... and conversion too", len(resumed) == KILLS and max(resumed) < 5,
                  "after " + ", ".join(f"{seconds:.2f}" for seconds in resumed) + " s")
    extra = archive.conversions() - OBJECTS
    archive.check("... repeats at most a batch each time", 0 <= extra <= KILLS * BATCH, f"{extra} conversions more than objects")
    status = archive.status()
    archive.check("... the ledger has every object", status["done"]["objects"] == OBJECTS and not status["workers"], "")


def compare(archive):
    """Every object has its results, and they equal those of `vintak convert`."""
    missing, differing = [], []
    by_hand = []
    for file in archive.made:
        place = archive.path("by-hand/" + os.path.basename(file)[:-4])
        os.mkdir(place)
        os.chown(place, DAEMON, GROUP)
        subprocess.run([archive.path("vintak"), "convert", file, "-o", place + "/"], stdout=subprocess.DEVNULL, check=True,
                       env={**os.environ, **archive.environment})
        by_hand.append((place, os.path.basename(file)[:-4]))
    for number in range(OBJECTS):
        result = archive.path(f"results/p{number % 11}/s{number % 97}/{number}")
        place, name = by_hand[number % KINDS]
        files = os.listdir(place)
        if not os.path.isdir(result) or len(os.listdir(result)) != len(files):
            missing.append(result)
            continue
        for file in files:
            if not filecmp.cmp(f"{place}/{file}", f"{result}/object{file[len(name):]}", False):
                differing.append(f"{result}/{file}")
    archive.check("results equal those by hand", not missing and not differing, f"{OBJECTS} objects {(missing + differing)[:2] or ''}")
    archive.check("no temporary file is left", not os.listdir(archive.path("results/.partial")), "")


def through_a_broker(archive):
    """The same archive by a queue that is topped up; two objects that nothing will come of."""
    import pika  # there where the broker is
    broker = Broker(archive.processes, archive.path("broker"))
    broker.start()
    archive.ledger, archive.results = archive.path("state/queue-ledger"), archive.path("queue-results")
    os.mkdir(archive.results)
    os.chown(archive.results, DAEMON, GROUP)
    for number in range(2):
        with open(archive.path(f"archive/p{number}/poison.dcm"), "wb") as file:
            file.write(bytes(128) + b"DICM" + b"no object")
    archive.processes.start("worker", DAEMON, [archive.path("vintak"), "work", "-o", archive.results, "--tries", "2", "--inputs", archive.root,
                                               "--broker-timeout", "86400", *broker.options()], archive.environment)
    archive.start("queue", "--low-water", str(LOW), "--patience", "20", *broker.options())
    process = archive.processes.running["queue"]
    depths = []
    looker = pika.BlockingConnection(pika.ConnectionParameters(
        "127.0.0.1", broker.port, credentials=pika.PlainCredentials(USER, PASSWORD))).channel()
    while process.poll() is None:
        time.sleep(0.01)
        try:
            depths.append(looker.queue_declare("vintak.jobs", passive=True).method.message_count)
        except pika.exceptions.ChannelClosedByBroker:  # nobody has made it yet
            looker = looker.connection.channel()
    archive.processes.running.pop("queue")
    status = archive.status()
    results = sum("object.desc" in files for folder, _, files in os.walk(archive.results))
    archive.check("through a broker, from the ledger", process.returncode == 1 and status["done"]["objects"] == results == OBJECTS,
                  f"{status['done']['objects']} done, {results} results")
    archive.check("... its queue is never long", depths and 0 < max(depths) <= 2 * LOW, f"longest {max(depths or [0])}, low water {LOW}")
    archive.check("... poison has failed", status["failed"]["objects"] == 2 and "dead letters" in status["causes"][0]["cause"],
                  str(status["causes"]))


def main():
    seed = int(os.environ.get("FIELD_SEED", random.randrange(10**6)))
    print(f"FIELD_SEED={seed}")
    begun = time.monotonic()
    archive = Archive(sys.argv[1])
    try:
        archive.processes.start("vintakd", DAEMON, [archive.path("vintakd"), "--servers", "2"], archive.environment)
        eventually(lambda: "started for channel (1)" in archive.processes.log("vintakd"))
        kill_again_and_again(archive, seed)
        compare(archive)
        if os.path.exists(SERVER):
            through_a_broker(archive)
        else:
            print("SKIPPED: through a broker, there is none")
        if archive.failures:
            print("\n".join(archive.processes.log("backfill").splitlines()[-15:]), file=sys.stderr)
    finally:
        archive.processes.stop_all()
        shutil.rmtree(archive.root)
    archive.check("nothing is left", not os.path.exists("/dev/shm/" + archive.environment["VINTAKD_SEGMENT"]))
    print(f"Took {time.monotonic() - begun:.0f} s")
    return 1 if archive.failures else 0


if __name__ == "__main__":
    sys.exit(main())
