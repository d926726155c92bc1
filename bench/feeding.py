#!/usr/bin/python3
"""feeding.py BUILD [cost|workers|estimate]...: what feeding the daemon costs beside `vintak convert` of the same objects.

cost      spool, backfill and (as root, with RabbitMQ) work over a broker against `vintak convert`, with the same daemon, in turn:
          processor time of the client, of the daemon and of the broker, and the time by the clock, of an object
workers   one worker and two, each with its daemon on a processor of its own
estimate  a dry run against the run that follows, of objects of several sizes

BENCH_ROUNDS (5) and BENCH_SIZES ("512:400 2048:60": rows and columns of a phantom, an object's file or a folder of them, and how many of it); VINTAKD_BENCH_FOLDER is for objects and results, 20 GB.
On ext4 let it be a file system of its own, made anew: for minutes it passes over inodes that were deleted, one by one, and whoever makes
files then, daemon or feeder, pays for what others removed. In memory (/dev/shm) there is no disk at all, for the broker neither.
Figures are medians; "over" is the median of each round's own ratio. By the clock: from the first processed copy to the last one."""
import json
import os
import random
import shutil
import signal
import statistics
import subprocess
import sys
import tempfile
import time

sys.dont_write_bytecode = True  # nothing is left in the tree
sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "tests", "field"))

from broker import SERVER, Broker
from receivers import GROUP, Processes, eventually

ROUNDS = int(os.environ.get("BENCH_ROUNDS", "5"))
SIZES = [(word.rpartition(":")[0], int(word.rpartition(":")[2])) for word in os.environ.get("BENCH_SIZES", "512:400 2048:60").split()]
HAS_BROKER = os.geteuid() == 0 and os.path.exists(SERVER)


def processor_seconds(pid):
    """Of a process and of its children, living and reaped ones."""
    with open(f"/proc/{pid}/stat") as file:
        fields = file.read().rpartition(")")[2].split()
    seconds = sum(map(int, fields[11:15])) / os.sysconf("SC_CLK_TCK")
    with open(f"/proc/{pid}/task/{pid}/children") as file:
        return seconds + sum(processor_seconds(int(child)) for child in file.read().split())


def is_object(path):
    """What a folder's commands take for one."""
    with open(path, "rb") as file:
        return file.read(132)[128:] == b"DICM"


class Bench:
    def __init__(self, build):
        self.root = tempfile.mkdtemp(prefix="feeding-", dir=os.environ.get("VINTAKD_BENCH_FOLDER", build))
        os.chmod(self.root, 0o755)
        self.daemon_program, self.vintak = (os.path.abspath(f"{build}/{name}") for name in ("vintakd/vintakd", "tools/vintak/vintak"))
        self.phantom = f"{build}/tools/phantom/vintak-phantom"
        os.mkdir(self.path("logs"))
        self.processes = Processes(self.path("logs"))
        self.broker = None
        self.places = 0
        self.is_in_memory = subprocess.run(["stat", "-f", "-c", "%T", self.root], check=True, stdout=subprocess.PIPE).stdout.strip() == b"tmpfs"

    def path(self, name):
        return os.path.join(self.root, name)

    def place(self):
        """A new folder. On a disk nothing is removed before the end."""
        self.places += 1
        os.mkdir(self.path(str(self.places)))
        return self.path(str(self.places))

    def objects(self, size, count):
        folder = self.path("objects-" + os.path.basename(size))
        if os.path.exists(folder):
            return folder
        os.mkdir(folder)
        if os.path.isdir(size):
            files = sorted(name for name in os.listdir(size) if is_object(f"{size}/{name}"))
            for number in range(count):
                shutil.copy(f"{size}/{files[number % len(files)]}", f"{folder}/{number}.dcm")
            return folder
        if size.isdigit():
            subprocess.run([self.phantom, f"{folder}/0.dcm", "--size", size, "--frames", "1"], check=True, stdout=subprocess.DEVNULL)
        else:
            shutil.copy(size, f"{folder}/0.dcm")
        for number in range(1, count):
            shutil.copy(f"{folder}/0.dcm", f"{folder}/{number}.dcm")
        return folder

    def start_daemon(self, name="vintakd", servants=2, prefix=()):
        run = self.place()
        environment = {**os.environ, "RUN": run, "TMP": run, "VINTAKD_SEGMENT": f"vintakd_feeding_{os.getpid()}_{name}", "VINTAKD_TRACE_SWITCH": "-"}
        with open(self.path(f"logs/{name}.log"), "ab") as log:
            self.processes.running[name] = subprocess.Popen([*prefix, self.daemon_program, "--servers", str(servants)], env=environment,
                                                            stdin=subprocess.DEVNULL, stdout=log, stderr=log)
        ping = [self.vintak, "ping"]
        if not eventually(lambda: subprocess.run(ping, env=environment, capture_output=True, check=False).returncode == 0, 30):
            raise RuntimeError(self.processes.log(name)[-2000:])
        return environment

    def start_broker(self):
        if not self.broker:
            self.broker = Broker(self.processes, self.path("broker"))
            self.broker.start()

    def used_by_daemon(self, name="vintakd"):
        return processor_seconds(self.processes.running[name].pid)

    def used_by_broker(self):
        return processor_seconds(self.broker.node_pid()) if self.broker else 0.0

    def start(self, words, environment, prefix=()):
        with open(self.path("logs/client.log"), "ab") as log:
            return subprocess.Popen([*prefix, self.vintak, *words], env=environment, stdin=subprocess.DEVNULL, stdout=log, stderr=log)

    def wait(self, process):
        """Its processor time."""
        _, status, usage = os.wait4(process.pid, 0)
        process.returncode = os.waitstatus_to_exitcode(status)
        if process.returncode != 0:
            raise RuntimeError(f"exit status {process.returncode}: " + self.processes.log("client")[-2000:])
        return usage.ru_utime + usage.ru_stime

    @staticmethod
    def span(results, count):
        """Seconds an object took by the clock."""
        ends = [os.stat(f"{folder}/{name}").st_mtime for folder, _, names in os.walk(results) for name in names if name.endswith(".pdcm")]
        if len(ends) != count:
            raise RuntimeError(f"{len(ends)} of {count} objects were converted")
        return (max(ends) - min(ends)) / (count - 1)

    def settle(self, place):
        """The disk has it and memory no more, so that each run finds the machine as the one before."""
        if self.is_in_memory:
            return shutil.rmtree(place)
        os.sync()
        for folder, _, names in os.walk(place):
            for name in names:
                file = os.open(f"{folder}/{name}", os.O_RDONLY)
                if os.fstat(file).st_nlink == 1:  # the objects themselves stay
                    os.posix_fadvise(file, 0, 0, os.POSIX_FADV_DONTNEED)
                os.close(file)
        return None

    def submit(self, objects, environment):
        self.wait(self.start(["submit", *self.broker.options(), objects], environment))

    def end(self):
        pids = list(self.processes.running)
        if self.broker:
            self.broker.stop(signal.SIGTERM)
        for name in pids:
            if name in self.processes.running:
                self.processes.stop(name)
        shutil.rmtree(self.root)


# The roads: how each is prepared, and the words of the client whose time is taken.

def by_hand(bench, objects, environment):
    results = bench.place()
    return results, ["convert", objects, "-o", results + "/"]


def by_spool(bench, objects, environment):
    place = bench.place()
    os.makedirs(f"{place}/spool/incoming")
    for name in os.listdir(objects):
        os.link(f"{objects}/{name}", f"{place}/spool/incoming/{name}")
    time.sleep(0.3)  # till they count as settled
    return f"{place}/results", ["spool", f"{place}/spool", "-o", f"{place}/results", "--settle", "0.05", "--until-empty"]


def by_backfill(bench, objects, environment):
    place = bench.place()
    return f"{place}/results", ["backfill", "run", objects, "-o", f"{place}/results", "--ledger", f"{place}/ledger"]


def by_work(bench, objects, environment):
    place = bench.place()
    bench.submit(objects, environment)
    return f"{place}/results", ["work", "-o", f"{place}/results", "--until-empty", "--broker-timeout", "86400", *bench.broker.options()]


def once(bench, road, objects, count, environment):
    results, words = road(bench, objects, environment)
    daemon, broker = bench.used_by_daemon(), bench.used_by_broker() if road is by_work else 0
    client = bench.wait(bench.start(words, environment))
    broker = bench.used_by_broker() - broker if road is by_work else 0
    told = {"client": client / count, "daemon": (bench.used_by_daemon() - daemon) / count, "broker": broker / count,
            "clock": bench.span(results, count)}
    bench.settle(bench.path(str(bench.places)))
    return told


def median_of(rounds, value):
    return statistics.median(map(value, rounds))


def cost(bench):
    environment = bench.start_daemon()
    roads = {"convert": by_hand, "spool": by_spool, "backfill": by_backfill}
    if HAS_BROKER:
        bench.start_broker()
        roads["work"] = by_work
    print("ms an object              client   daemon   broker  clock    over: processor (of the rounds)   clock (of the rounds)")
    for size, count in SIZES:
        objects = bench.objects(size, count)
        once(bench, by_hand, objects, count, environment)  # the objects are in memory and the servants awake
        rounds = []
        for number in range(ROUNDS):
            names = list(roads)
            rounds.append({name: once(bench, roads[name], objects, count, environment)
                           for name in names[number % len(names):] + names[:number % len(names)]})
        for name in roads:
            mine = [{"processor": a[name]["client"] + a[name]["daemon"], "hand": a["convert"]["client"] + a["convert"]["daemon"],
                     "ratio": a[name]["clock"] / a["convert"]["clock"], **a[name]} for a in rounds]
            text = "  ".join(f"{1000 * median_of(mine, lambda one, key=key: one[key]):7.3f}" for key in ("client", "daemon", "broker", "clock"))
            processor, clock = ([100 * (value(one) - 1) for one in mine] for value in (lambda one: one["processor"] / one["hand"], lambda one: one["ratio"]))
            over = "".join(f"{statistics.median(all_of):+9.1f} % ({min(all_of):+.1f} to {max(all_of):+.1f})" for all_of in (processor, clock))
            print(f"{os.path.basename(size):>11}, {count:4} x {name:9} {text} {over}", flush=True)
    bench.processes.stop("vintakd")


def workers(bench):
    """The broker runs where it finds room."""
    if not HAS_BROKER or os.cpu_count() < 2:
        print("SKIPPED: two workers, there is no broker or no second processor")
        return
    bench.start_broker()
    servants = 2
    environments = [bench.start_daemon(f"pinned{number}", servants, ["taskset", "-c", str(number)]) for number in range(2)]
    for size, count in SIZES:
        objects = bench.objects(size, count)
        rates, loads = {1: [], 2: []}, {1: [], 2: []}
        for _ in range(ROUNDS):
            for number in rates:
                place = bench.place()
                bench.submit(objects, environments[0])
                used = bench.used_by_broker()
                words = ["work", "-o", f"{place}/results", "--until-empty", "--broker-timeout", "86400", *bench.broker.options()]
                begun = [bench.start(words, environments[i], ["taskset", "-c", str(i)]) for i in range(number)]
                for process in begun:
                    bench.wait(process)
                rates[number].append(1 / bench.span(f"{place}/results", count))
                loads[number].append((bench.used_by_broker() - used) / count)
                bench.settle(place)
        ratios = [two / one for one, two in zip(rates[1], rates[2])]
        print(f"{os.path.basename(size):>11}, {servants} servants a daemon: {statistics.median(rates[1]):6.1f} objects/s by one worker, "
              f"{statistics.median(rates[2]):6.1f} by two: {statistics.median(ratios):.2f} ({min(ratios):.2f} to {max(ratios):.2f}) times; "
              f"broker {1000 * statistics.median(loads[1]):.2f} and {1000 * statistics.median(loads[2]):.2f} ms an object", flush=True)
    for number in range(2):
        bench.processes.stop(f"pinned{number}")


def estimate(bench):
    """Objects of several sizes, the small ones first, as an archive's folders have them."""
    environment = bench.start_daemon()
    chance = random.Random(1)
    archive = bench.path("archive")
    os.mkdir(archive)
    for size, count in ((128, 1200), (256, 600), (512, 600), (1024, 120), (2048, 40)):
        folder = f"{archive}/{size}"
        os.mkdir(folder)
        subprocess.run([bench.phantom, f"{folder}/0.dcm", "--size", str(size), "--frames", "1"], check=True, stdout=subprocess.DEVNULL)
        for number in range(1, count):
            shutil.copy(f"{folder}/0.dcm", f"{folder}/{number}.dcm")
        for number in range(count // 20):  # some have more than one frame
            subprocess.run([bench.phantom, f"{folder}/m{number}.dcm", "--size", str(size // 2), "--frames", str(chance.randint(2, 6))],
                           check=True, stdout=subprocess.DEVNULL)
    for number in range(ROUNDS):
        place, begun = bench.place(), time.monotonic()
        # The run first: what a dry run removes a run right after it would pay for, on ext4.
        bench.wait(bench.start(["backfill", "run", archive, "-o", f"{place}/results", "--ledger", f"{place}/ledger"], environment))
        seconds, begun = time.monotonic() - begun, time.monotonic()
        os.sync()
        told = json.loads(subprocess.run([bench.vintak, "backfill", "run", "--dry-run", "--json", archive, "-o", f"{place}/dry"], env=environment,
                                         check=True, stdout=subprocess.PIPE).stdout)
        dry = time.monotonic() - begun
        written = sum(os.stat(f"{folder}/{name}").st_size for folder, _, names in os.walk(f"{place}/results") for name in names)
        bench.settle(place)
        print(f"{told['objects']} objects: {told['seconds']:6.1f} s (+- {told['spread']:.1f}) and {told['written'] / 1e6:7.1f} MB expected after {dry:.1f} s, "
              f"took {seconds:6.1f} s, {written / 1e6:7.1f} MB: {told['seconds'] / seconds:.2f} and {told['written'] / written:.2f} of the truth", flush=True)
    bench.processes.stop("vintakd")


def main():
    parts = {"cost": cost, "workers": workers, "estimate": estimate}
    bench = Bench(sys.argv[1])
    try:
        for name in sys.argv[2:] or parts:
            parts[name](bench)
    finally:
        bench.end()


if __name__ == "__main__":
    main()
