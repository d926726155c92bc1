"""A RabbitMQ of our own on loopback: its folders, its account, its ports, its port mapper; all end by their pids."""
import os
import subprocess

from receivers import DAEMON, GROUP, eventually, free_port, listens

BROKER = 64994
SERVER = "/usr/lib/rabbitmq/bin/rabbitmq-server"
CONTROL = "/usr/lib/rabbitmq/bin/rabbitmqctl"
USER, PASSWORD = "vintak", "a password: with %2f and spaces"


class Broker:
    """`lines` are added to its configuration."""

    def __init__(self, processes, folder, lines=()):
        self.processes, self.folder = processes, folder
        self.port, self.mapper_port, self.distribution = free_port(), free_port(), free_port()
        self.beam = None
        os.makedirs(folder)
        with open(f"{folder}/rabbitmq.conf", "w") as file:
            file.write("\n".join([
                f"listeners.tcp.1 = 127.0.0.1:{self.port}", "distribution.listener.interface = 127.0.0.1",
                f"distribution.listener.port_range.min = {self.distribution}",
                f"distribution.listener.port_range.max = {self.distribution}",
                "log.console = false", "log.file.level = info",
                f"default_user = {USER}", f"default_pass = {PASSWORD}", "consumer_timeout = 86400000",
                # The machine's memory and disk are not the test's.
                "vm_memory_high_watermark.absolute = 1GB", "disk_free_limit.absolute = 50MB", *lines]) + "\n")
        with open(f"{folder}/enabled_plugins", "w") as file:
            file.write("[].\n")
        self.password_file = f"{folder}/password"
        with open(self.password_file, "w") as file:
            file.write(PASSWORD + "\n")
        for name in (folder, *(f"{folder}/{name}" for name in os.listdir(folder))):
            os.chown(name, BROKER, GROUP)
        os.chmod(self.password_file, 0o640)
        os.chmod(folder, 0o750)
        self.environment = {
            "HOME": folder, "LANG": "C.UTF-8", "RABBITMQ_NODENAME": f"vintak{os.getpid()}@localhost",
            "RABBITMQ_MNESIA_BASE": f"{folder}/mnesia", "RABBITMQ_LOG_BASE": f"{folder}/log",
            "RABBITMQ_CONFIG_FILE": f"{folder}/rabbitmq.conf", "RABBITMQ_ENABLED_PLUGINS_FILE": f"{folder}/enabled_plugins",
            "RABBITMQ_PID_FILE": f"{folder}/pid", "ERL_EPMD_ADDRESS": "127.0.0.1", "ERL_EPMD_PORT": str(self.mapper_port),
            # Schedulers that spin while they wait would be counted as load.
            "RABBITMQ_SERVER_ADDITIONAL_ERL_ARGS": "+sbwt none +sbwtdcpu none +sbwtdio none"}

    def address(self):
        return f"amqp://127.0.0.1:{self.port}"

    def options(self):
        return ["--broker", self.address(), "--user", USER, "--password-file", self.password_file]

    def start(self):
        # Of its own, since one that the node starts would outlive it.
        if "epmd" not in self.processes.running:
            self.processes.start("epmd", BROKER, ["/usr/bin/epmd", "-address", "127.0.0.1", "-port", str(self.mapper_port)])
            if not eventually(lambda: listens(self.mapper_port)):
                raise RuntimeError("the port mapper did not start")
        self.processes.start("broker", BROKER, [SERVER], self.environment, self.folder)
        if not eventually(lambda: listens(self.port)):
            raise RuntimeError("RabbitMQ did not start: " + self.processes.log("broker")[-2000:])

    def node_pid(self):
        with open(f"{self.folder}/pid") as file:
            return int(file.read())

    def stop(self, number):
        os.kill(self.node_pid(), number)
        self.processes.running.pop("broker").wait(timeout=60)

    def control(self, *words):
        """rabbitmqctl's answer; it shares the node's account and cookie."""
        def become():
            os.setgroups([])
            os.setgid(GROUP)
            os.setuid(BROKER)

        return subprocess.run([CONTROL, "--quiet", *words], env={"PATH": "/usr/bin:/bin", **self.environment},
                              cwd=self.folder, preexec_fn=become, stdout=subprocess.PIPE, stderr=subprocess.STDOUT,
                              check=False).stdout.decode()
