#!/usr/bin/python3
"""run.py BUILD: storescp and Orthanc feed the daemon through a spool, each under its own account. See scripts/check-field."""
import collections
import filecmp
import glob
import hashlib
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
from receivers import DAEMON, GROUP, ORTHANC, STORESCP, LOG_CONFIG, Processes, ask, eventually, free_port, listens, store

GOOD = 200
TWICE = 20


class Field:
    def __init__(self, build):
        self.root = tempfile.mkdtemp(prefix="vintakd-field-")
        os.chmod(self.root, 0o755)
        self.segment = f"vintakd_field_{os.getpid()}"
        self.failures = 0
        self.bin = self.folder("bin", 0)
        for program in ("vintakd/vintakd", "tools/vintak/vintak", "tools/vintak/vintak-feed", "plugins/orthanc/libVintakdOrthanc.so"):
            shutil.copy(os.path.join(build, program), self.bin)
        self.source = self.folder("source", 0)
        self.logs = self.folder("logs", 0)
        self.run, self.spool, self.results = (self.folder(name, DAEMON) for name in ("run", "spool", "results"))
        self.incoming = self.folder("spool/incoming", DAEMON, 0o2770)
        self.folder("spool/incoming/priority", DAEMON, 0o2770)
        self.orthanc = self.folder("orthanc", ORTHANC)
        self.log_config = self.path("log.cfg")
        with open(self.log_config, "w") as config:
            config.write(LOG_CONFIG)
        self.processes = Processes(self.logs)
        self.environment = {
            "RUN": self.run, "TMP": self.run, "VINTAKD_SEGMENT": self.segment, "VINTAKD_TRACE_SWITCH": "-"}
        self.ports = {name: free_port() for name in ("storescp", "orthanc", "http")}
        self.versions = collections.Counter()  # what is to be converted, by the name in the spool
        self.seconds = []

    def path(self, name):
        return os.path.join(self.root, name)

    def folder(self, name, account, mode=0o750):
        path = self.path(name)
        os.makedirs(path)
        os.chown(path, account, GROUP)
        os.chmod(path, 0o755 if account == 0 else mode)
        return path

    def check(self, name, right, text=""):
        print(f"{name:<58} {'' if right else 'FAILED '}{text}", flush=True)
        self.failures += 0 if right else 1

    # Processes

    def start_daemon(self):
        self.processes.start("vintakd", DAEMON, [f"{self.bin}/vintakd", "--servers", "2"], self.environment)

    def start_spool(self):
        self.processes.start(
            "spool", DAEMON, [f"{self.bin}/vintak", "spool", self.spool, "-o", self.results, "--settle", "1"], self.environment)

    def start_storescp(self):
        self.processes.start(
            "storescp", STORESCP,
            ["/usr/bin/storescp", "--quiet", "--fork", "--accept-all", "--aetitle", "VINTAKD", "--filename-extension", ".dcm",
             "--output-directory", self.incoming, str(self.ports["storescp"])], folder=self.orthanc)

    def start_orthanc(self):
        config = self.path("orthanc.json")
        with open(config, "w") as file:
            json.dump({
                "StorageDirectory": self.orthanc, "IndexDirectory": self.orthanc, "HttpPort": self.ports["http"],
                "DicomPort": self.ports["orthanc"], "RemoteAccessAllowed": False, "DicomAlwaysAllowStore": True,
                "DicomCheckCalledAet": False, "OverwriteInstances": True,
                "Plugins": [f"{self.bin}/libVintakdOrthanc.so"],
                "Vintakd": {"Spool": self.spool, "Results": self.results, "Url": "/images"}}, file)
        self.processes.start("orthanc", ORTHANC, ["/usr/sbin/Orthanc", config])
        if not eventually(lambda: listens(self.ports["http"]) and listens(self.ports["orthanc"])):
            raise RuntimeError("Orthanc did not start: " + self.processes.log("orthanc")[-2000:])

    # What is sent

    @staticmethod
    def orthanc_id(uid):
        """Orthanc's name of an instance: SHA-1 of patient, study, series and instance."""
        digest = hashlib.sha1("|".join((Field.patient, objects.ROOT + ".2", objects.ROOT + ".3", uid)).encode()).hexdigest()
        return "-".join(digest[at:at + 8] for at in range(0, 40, 8))

    def name_in_spool(self, receiver, uid):
        return f"MR.{uid}.dcm" if receiver == "storescp" else self.orthanc_id(uid) + ".dcm"

    def send(self, receiver, pairs, counts=True, calling="FIELD"):
        """Sends (uid, file) pairs; those that were not accepted."""
        accepted, told = store(self.ports[receiver], [file for _, file in pairs], self.log_config, calling)
        self.seconds += [seconds for _, seconds in accepted]
        taken = {file for file, _ in accepted}
        for uid, file in pairs:
            if file in taken and counts:
                self.versions[self.name_in_spool(receiver, uid)] += 1
        left = [(uid, file) for uid, file in pairs if file not in taken]
        if left:
            self.last_told = told
        return left

    # What is looked at

    def events(self):
        try:
            with open(f"{self.spool}/events.jsonl") as file:
                return [json.loads(line) for line in file]
        except FileNotFoundError:
            return []

    def is_drained(self):
        return not any(
            name for folder in ("incoming", "working", "retry") for name in os.listdir(f"{self.spool}/{folder}") if name != "priority")

    def end(self):
        pids = [process.pid for process in self.processes.running.values()]
        self.processes.stop_all()
        for object_name in (self.segment,):
            if os.path.exists("/dev/shm/" + object_name):
                os.unlink("/dev/shm/" + object_name)
        shutil.rmtree(self.root)
        left = [pid for pid in pids if os.path.exists(f"/proc/{pid}")]
        left += [pid for pid in os.listdir("/proc") if pid.isdigit() and self.owner(pid) in (DAEMON, STORESCP, ORTHANC)]
        self.check("nothing is left", not left and not glob.glob(f"/dev/shm/*{self.segment}*"), f"processes {left}" if left else "")

    @staticmethod
    def owner(pid):
        try:
            return os.stat("/proc/" + pid).st_uid
        except FileNotFoundError:
            return -1


def feed(field, seed):
    made = objects.good(field.source, GOOD)
    by_storescp, by_orthanc = made[: GOOD // 2], made[GOOD // 2:]
    hostile, strange = objects.hostile(field.source), objects.strange(field.source)
    field.start_daemon()
    field.start_spool()
    field.start_storescp()
    field.start_orthanc()
    assert eventually(lambda: listens(field.ports["storescp"]))

    # A quarter each, then a tenth of all once more with other pixels.
    first = GOOD // 8
    left = field.send("storescp", by_storescp[:first]) + field.send("orthanc", by_orthanc[:first])
    left += field.send("storescp", hostile[:3], False) + field.send("orthanc", hostile[3:], False)
    left += field.send("storescp", [(objects.STRANGE, strange)], False, "X;touch hacked")
    field.check("first objects were accepted", not left, f"{2 * first} good, 5 hostile, 1 of a strange name")
    field.check("... and converted", eventually(field.is_drained))
    left = []
    for receiver, pairs in (("storescp", by_storescp), ("orthanc", by_orthanc)):
        again = [(uid, objects.second_version(file, field.source)) for uid, file in pairs[: TWICE // 2]]
        left += field.send(receiver, again)
    field.check("sent once more with other pixels", not left, f"{TWICE} objects")
    eventually(field.is_drained)

    outage(field, by_storescp[first:], by_orthanc[first: GOOD // 4])
    kill_orthanc(field, by_orthanc[GOOD // 4:], seed)
    field.check("all went through", eventually(field.is_drained, 120), ", ".join(name for name in os.listdir(f"{field.spool}/incoming") if name != "priority")[:200])
    return made, hostile


def outage(field, by_storescp, by_orthanc):
    """The daemon is away for a while; the receivers must not notice."""
    length = float(os.environ.get("FIELD_OUTAGE", "30"))
    field.processes.stop("vintakd")
    field.seconds, left, begun = [], [], time.monotonic()
    pieces = 10
    for piece in range(pieces):
        left += field.send("storescp", by_storescp[piece::pieces]) + field.send("orthanc", by_orthanc[piece::pieces])
        time.sleep(max(0.0, begun + (piece + 1) * length / pieces - time.monotonic()))
    seconds = sorted(field.seconds)
    late = seconds[int(len(seconds) * 0.95)]
    health = subprocess.run([f"{field.bin}/vintak", "spool", "--health", "--run", field.run], stdout=subprocess.DEVNULL, check=False)
    field.check(f"C-STORE while the daemon is away for {length:.0f} s", not left and late < 0.1,
                f"{len(seconds)} accepted, 95th percentile {late * 1000:.1f} ms, longest {seconds[-1] * 1000:.1f} ms")
    field.check("... the feeder's health", health.returncode == 1, f"exit status {health.returncode}")
    field.start_daemon()


def kill_orthanc(field, pairs, seed):
    """kill -9 of Orthanc while it receives; what it did not accept is sent again."""
    chance = random.Random(seed)
    last = field.name_in_spool("orthanc", pairs[chance.randrange(5, len(pairs) - 5)][0])
    moment = chance.random() * 0.003
    child = os.fork()
    if child == 0:
        places = [f"{field.spool}/{folder}/{last}" for folder in ("incoming", "working", "done")]
        eventually(lambda: any(map(os.path.exists, places)), 20, 0.0002)
        time.sleep(moment)
        os.kill(field.processes.running["orthanc"].pid, signal.SIGKILL)
        os._exit(0)
    left = field.send("orthanc", pairs)
    os.waitpid(child, 0)
    field.processes.stop("orthanc", signal.SIGKILL)
    field.maybe_twice = {field.name_in_spool("orthanc", uid) for uid, _ in left[:1]}
    killed_at = len(pairs) - len(left)
    field.start_orthanc()
    again = field.send("orthanc", left) if left else []
    field.check("kill -9 of Orthanc", not again, f"after {killed_at} of {len(pairs)} objects, the rest sent again")


def judge(field, made, hostile):
    events = field.events()
    converted = collections.Counter(event["name"] for event in events if event["result"] == "converted")
    strange = [name for name in converted if "touch" in name]
    for name in field.maybe_twice:  # stored, in the spool, and yet not answered
        field.versions[name] = max(field.versions[name], converted[name])
        field.check("... the one in flight", converted[name] in (1, 2), f"converted {converted[name]} times")
    wrong = {name: (count, converted[name]) for name, count in field.versions.items() if converted[name] != count}
    field.check("every good object once per version", not wrong and len(field.versions) == GOOD,
                f"{sum(field.versions.values())} versions of {len(field.versions)} objects {dict(list(wrong.items())[:3]) or ''}")
    keys = [(event["name"], event["version"]) for event in events]
    field.check("... each version one event", len(set(keys)) == len(keys), f"{len(keys)} events")
    failed = sorted(name for name in os.listdir(f"{field.spool}/failed") if not name.endswith(".reason.txt"))
    expected = sorted(field.name_in_spool("storescp" if number < 3 else "orthanc", uid) for number, (uid, _) in enumerate(hostile))
    reasons = [open(f"{field.spool}/failed/{name}.reason.txt").read() for name in failed]
    field.check("each hostile one aside with its reason, and no other", failed == expected and all("cause: " in text for text in reasons),
                "; ".join(sorted({text.split("class: ")[1].split("\n")[0] for text in reasons})))
    traces = [path for path in glob.glob(field.root + "/**", recursive=True) if os.path.basename(path) == "hacked"]
    field.check("names for a shell leave no trace", not traces and not os.path.exists("hacked") and len(strange) == 1, str(strange)[:80])
    temporary = [name for name in os.listdir(field.incoming) if name.startswith(".")]
    field.check("no temporary file is left", not temporary and not [path for path in glob.glob(f"{field.results}/.partial/*/*") if not path.endswith("/lock")], str(temporary))
    compare(field, made)


def compare(field, made):
    """The results equal those of `vintak convert` of the last version that was sent."""
    by_hand = field.folder("by-hand", DAEMON)
    differing, compared = [], 0
    for number, (uid, file) in enumerate(made):
        again = f"{field.source}/again-{os.path.basename(file)}"
        receiver = "storescp" if number < GOOD // 2 else "orthanc"
        result = f"{field.results}/{field.name_in_spool(receiver, uid)[:-4]}"
        shutil.copy(again if os.path.exists(again) else file, f"{by_hand}/object.dcm")
        subprocess.run([f"{field.bin}/vintak", "convert", f"{by_hand}/object.dcm", "-o", f"{by_hand}/"],
                       env={**os.environ, **field.environment}, stdout=subprocess.DEVNULL, check=True)
        # The copy keeps the meta header that each receiver writes anew.
        names = [name for name in os.listdir(by_hand) if not name.endswith((".dcm", ".pdcm"))]
        differing += [f"{result}/{name}" for name in names
                      if not os.path.exists(f"{result}/{name}") or not filecmp.cmp(f"{by_hand}/{name}", f"{result}/{name}", False)]
        compared += len(names)
    field.check("results equal those by hand", not differing, f"{compared} files {differing[:2] or ''}")


def rest(field, made):
    uid = made[-1][0]
    name = field.orthanc_id(uid)
    status, answer = ask(field.ports["http"], "/vintakd/instances/" + name)
    files = answer["Results"] if answer else []
    right = status == 200 and answer["State"] == "done" and f"/images/{name}/object.desc" in files
    right = right and all(os.path.exists(field.results + path[len("/images"):]) for path in files)
    field.check("REST: a converted instance", right, f"{len(files)} addresses")
    unknown = "-".join(["00000000"] * 5)
    statuses = [ask(field.ports["http"], "/vintakd/instances/" + word)[0] for word in (unknown, "..%2f..%2fetc", name + "x")]
    field.check("REST: what nobody knows", statuses == [404] * 3, str(statuses))
    before = len(field.events())
    status, _ = ask(field.ports["http"], "/vintakd/instances/" + name, "POST")
    field.check("REST: put again", status == 202 and eventually(lambda: len(field.events()) == before + 1), str(status))
    states = {ask(field.ports["http"], "/vintakd/instances/" + os.path.basename(path)[:-4])[1]["State"]
              for path in glob.glob(field.spool + "/failed/*-*.dcm")}
    field.check("REST: a hostile instance", states == {"failed"}, str(states))


def main():
    seed = int(os.environ.get("FIELD_SEED", random.randrange(10**6)))
    print(f"FIELD_SEED={seed}")
    begun = time.monotonic()
    Field.patient = objects._template().PatientID
    field = Field(sys.argv[1])
    try:
        made, hostile = feed(field, seed)
        judge(field, made, hostile)
        rest(field, made)
        if field.failures:
            for name in ("vintakd", "spool", "storescp", "orthanc"):
                print(f"--- {name}\n" + "\n".join(field.processes.log(name).splitlines()[-15:]), file=sys.stderr)
    finally:
        field.end()
    print(f"Took {time.monotonic() - begun:.0f} s")
    return 1 if field.failures else 0


if __name__ == "__main__":
    sys.exit(main())
