#!/usr/bin/env python3
"""What an update from one version of a package to the next costs: the publisher, and machines at several delays.

delta.py PLACE PREFIX [PAIR ...]: PLACE is an empty folder, PREFIX has the installed programs. Pairs are two versions of
Debian packages that apt can download, and tables. Other programs are compared where they are installed.
"""
import atexit
import os
import pathlib
import re
import shutil
import socket
import subprocess
import sys
import time

HERE = pathlib.Path(__file__).parent
PLACE, PREFIX = pathlib.Path(sys.argv[1]), pathlib.Path(sys.argv[2])
DELAYS = [0, 50, 200]  # ms, there and back
DEBIAN = {"mariadb": "mariadb-server-core", "postgresql": "postgresql-15", "libreoffice": "libreoffice-core",
          "python": "libpython3.11-stdlib"}
HEADERS = r"linux-headers-[0-9.]+-[0-9]+-common"
PEERS = {"xdelta3": "xdelta3", "zstd": "zstd", "ostree": "ostree", "casync": "casync", "zck": "zchunk"}


class Cost:
    def __init__(self, wall=0.0, cpu=0.0, peak=0):
        self.wall, self.cpu, self.peak = wall, cpu, peak  # s, s, KiB

    def __add__(self, other):
        return Cost(self.wall + other.wall, self.cpu + other.cpu, max(self.peak, other.peak))

    def __str__(self):
        return f"{self.wall:.1f} s | {self.cpu:.1f} s | {self.peak / 1024:.0f} MiB"


def spawn(*command, **options):
    return subprocess.Popen([str(part) for part in command], stdout=subprocess.DEVNULL, **options), time.monotonic()


def wait_for(started):
    process, begin = started
    _, status, usage = os.wait4(process.pid, 0)
    process.returncode = os.waitstatus_to_exitcode(status)
    if process.returncode not in (0, -15):
        raise RuntimeError(f"{process.args} ended with {process.returncode}")
    return Cost(time.monotonic() - begin, usage.ru_utime + usage.ru_stime, usage.ru_maxrss)


def run(*command, **options):
    return wait_for(spawn(*command, **options))


def shell(line):
    return run("/bin/sh", "-ec", line)


def size(path):
    return sum(file.stat().st_size for file in ([path] if path.is_file() else path.rglob("*")) if file.is_file())


def number(count):
    return f"{count:,}"


def missing():
    return [package for program, package in PEERS.items() if not shutil.which(program)]


def has(program):
    return shutil.which(program) is not None


# --- pairs

def newest_two(package):
    """As arguments of apt-get download; fewer if apt knows fewer."""
    lines = subprocess.run(["apt-cache", "madison", package], capture_output=True, text=True, check=True).stdout
    versions = list(dict.fromkeys(line.split("|")[1].strip() for line in lines.splitlines()))
    return [f"{package}={version}" for version in reversed(versions[:2])]


def headers():
    names = subprocess.run(["apt-cache", "search", "--names-only", f"^{HEADERS}$"], capture_output=True, text=True,
                           check=True).stdout.splitlines()
    return sorted((line.split()[0] for line in names), key=lambda name: [int(n) for n in re.findall(r"\d+", name)])[-2:]


def unpack_debian(packages, old, new):
    for package, folder in zip(packages, (old, new)):
        place = folder.with_suffix(".deb")
        place.mkdir(parents=True)
        subprocess.run(["apt-get", "download", "-qq", "-o", "APT::Sandbox::User=root", package], cwd=place, check=True)
        run("dpkg", "-x", next(place.iterdir()), folder)
        # A package cannot have links that lead out of it.
        run("find", folder, "-type", "l", "-lname", "/*", "-delete")


def make_pair(name, folder):
    """False if the two versions cannot be had."""
    old, new = folder / "old", folder / "new"
    if name == "tables":
        run(sys.executable, HERE / "make_tables.py", old, new)
        return True
    packages = headers() if name == "headers" else newest_two(DEBIAN[name])
    if len(packages) < 2:
        return False
    try:
        unpack_debian(packages, old, new)
    except (subprocess.CalledProcessError, RuntimeError):
        return False
    return True


# --- the publisher

class Repository:
    def __init__(self, folder):
        self.folder = folder
        self.publisher("init", folder, "--no-passphrase")
        self.targets = folder / "targets"

    @staticmethod
    def publisher(*arguments):
        return run(PREFIX / "bin/vkpublish", *arguments)

    def add(self, source, version):
        return self.publisher("add", self.folder, source, "--name", "pair", "--version", version)

    def publish(self):
        return self.publisher("publish", self.folder)

    def length(self, pattern):
        return sum(file.stat().st_size for file in self.targets.glob(pattern))


def publisher_rows(pair, repository):
    """Publishes the new version, and prints what it takes."""
    print(f"| **{pair.name}** | | | | |")
    full = pair / "full.zst"
    tar = f"tar -C {pair}/new --sort=name -c ."
    one = shell(f"{tar} | zstd -q -19 -o {full}")
    print(f"| one frame, `zstd -19` | {number(size(full))} | {one} |")
    before = repository.length("*.index.zst")
    added = repository.add(pair / "new", 2)
    print(f"| `vkpublish add`: archive | {number(repository.length('*-2.0.0.0.tar.zst'))} | {added} |")
    print(f"| its index | {number(repository.length('*.index.zst') - before)} | | | |")
    published = repository.publish()
    print(f"| `vkpublish publish`: delta | {number(repository.length('*.delta'))} | {published} |")
    peers_make(pair)


def peers_make(pair):
    for version in ("old", "new"):
        shell(f"tar -C {pair}/{version} --sort=name -cf {pair}/{version}.tar .")
    # Everything below web/ is served.
    web = pair / "web"
    web.mkdir()

    def row(program, name, line, result):
        if has(program):
            cost = shell(line)
            print(f"| {name} | {number(size(web / result))} | {cost} |")

    row("xdelta3", "`xdelta3 -9` of the tar", f"xdelta3 -e -9 -f -B 268435456 -s {pair}/old.tar {pair}/new.tar {web}/xdelta",
        "xdelta")
    row("zstd", "`zstd -19 --long=27 --patch-from` of the tar",
        f"zstd -q -19 --long=27 --patch-from={pair}/old.tar {pair}/new.tar -o {web}/patch.zst 2>/dev/null", "patch.zst")
    if has("ostree"):
        shell(f"""ostree --repo={web}/ostree init --mode=archive
            ostree --repo={web}/ostree commit -b pair --tree=dir={pair}/old
            ostree --repo={pair}/ostree-machine init --mode=bare
            ostree --repo={pair}/ostree-machine pull-local {web}/ostree pair
            ostree --repo={web}/ostree commit -b pair --tree=dir={pair}/new""")
        row("ostree", "`ostree static-delta generate`", f"ostree --repo={web}/ostree static-delta generate pair >/dev/null 2>&1;"
            f"ostree --repo={web}/ostree summary -u", "ostree/deltas")
    if has("zck"):
        for version in ("old", "new"):
            cost = shell(f"cd {web} && zck -o {version}.zck {pair}/{version}.tar")
        print(f"| `zck`, the whole file | {number(size(web / 'new.zck'))} | {cost} |")
    if has("casync"):
        cost = shell(f"cd {web} && casync make --store=store.castr new.caidx {pair}/new")
        print(f"| `casync make`, the whole store | {number(size(web / 'store.castr'))} | {cost} |")


# --- machines

def free_port():
    with socket.socket() as probe:
        probe.bind(("127.0.0.1", 0))
        return probe.getsockname()[1]


def wait_for_port(port):
    for _ in range(200):
        with socket.socket() as probe:
            if probe.connect_ex(("127.0.0.1", port)) == 0:
                return
        time.sleep(0.05)
    raise RuntimeError("nothing listens")


class Server:
    """nginx with the repository over https and the files of the peers over http, each behind proxies that wait."""

    def __init__(self, folder, repository, web):
        folder.mkdir()
        self.log = folder / "access.log"
        self.certificate = folder / "cert.pem"
        subprocess.run(["openssl", "req", "-x509", "-newkey", "ec", "-pkeyopt", "ec_paramgen_curve:P-256", "-nodes", "-subj",
                        "/CN=localhost", "-addext", "subjectAltName=DNS:localhost", "-keyout", folder / "key.pem", "-out",
                        self.certificate], check=True, stderr=subprocess.DEVNULL)
        ports = free_port(), free_port()
        temporary = "".join(f"{kind}_temp_path {folder}/{kind};" for kind in
                            ("client_body", "proxy", "fastcgi", "uwsgi", "scgi"))
        user = "user root;" if os.geteuid() == 0 else ""
        (folder / "nginx.conf").write_text(
            f"{user} daemon off; master_process off; error_log stderr crit; pid {folder}/pid; events {{}}"
            f"http {{ {temporary} log_format bytes '$bytes_sent'; access_log {self.log} bytes;"
            f"server {{ listen 127.0.0.1:{ports[0]} ssl http2; root {repository};"
            f"ssl_certificate {self.certificate}; ssl_certificate_key {folder}/key.pem; }}"
            f"server {{ listen 127.0.0.1:{ports[1]}; root {web}; }} }}")
        self.processes = [spawn("/usr/sbin/nginx", "-p", folder, "-c", folder / "nginx.conf")[0]]
        self.ports = {0: ports}
        for delay in DELAYS[1:]:
            self.ports[delay] = free_port(), free_port()
            for near, far in zip(self.ports[delay], ports):
                self.processes.append(spawn(sys.executable, HERE / "slow_proxy.py", near, far, delay)[0])
        atexit.register(self.stop)
        for pair in self.ports.values():
            for port in pair:
                wait_for_port(port)

    def traffic(self):
        """Bytes and requests since the last call."""
        time.sleep(0.3)  # nginx logs behind its answer
        lines = self.log.read_text().split()
        os.truncate(self.log, 0)
        return sum(int(line) for line in lines), len(lines)

    def stop(self):
        for process in self.processes:
            process.terminate()
            process.wait()


class Machine:
    """An installation of rkm with the old version, as often as it is wanted."""

    def __init__(self, folder, server, root):
        self.folder, self.server = folder, server
        etc = PREFIX / "etc/vk"
        etc.mkdir(parents=True, exist_ok=True)
        shutil.copy(root, etc / "root.json")
        self.configuration = etc / "vk.cfg"
        self.update(0)
        shutil.copytree(folder, folder.with_suffix(".old"), symlinks=True)

    def restore(self):
        # Set aside instead of removed: see bench/run.
        self.folder.rename(self.folder.with_suffix(f".{time.monotonic_ns()}"))
        run("cp", "-a", self.folder.with_suffix(".old"), self.folder)
        (self.folder / "state/state.db").unlink()  # it holds the address of the server

    def update(self, delay):
        state = self.folder
        state.mkdir(exist_ok=True)
        self.configuration.write_text(
            f'[application]\nlogDir = "{state}/log"\nsettingsDir.other = "{state}/settings"\n'
            f'[service]\nsocketName = "{state}/socket"\nstateDir = "{state}/state"\ninstall.dir = "{state}/installed"\n'
            f'defaultServer = "https://localhost:{self.server.ports[delay][0]}"\n'
            f'update.caFile = "{self.server.certificate}"\n')
        service = spawn(PREFIX / "bin/vkservice", "-e")
        while not (state / "socket").exists():
            time.sleep(0.02)
        client = run(PREFIX / "bin/rkm", "update")
        service[0].terminate()
        cost = wait_for(service)
        return Cost(client.wall, client.cpu + cost.cpu, max(client.peak, cost.peak))


def machine_rows(pair, server, machine):
    print(f"| **{pair.name}** | | | | | |")
    for delay in DELAYS:
        def row(name, cost):
            data, requests = server.traffic()
            print(f"| {delay} ms: {name} | {number(data)} | {requests} | {cost} |", flush=True)

        web = f"http://127.0.0.1:{server.ports[delay][1]}"
        machine.restore()
        server.traffic()
        row("`rkm update`", machine.update(delay))
        out = pair / "out"
        for name, program, line in (
                ("`xdelta3 -d`, `tar x`", "xdelta3",
                 f"curl -sf {web}/xdelta | xdelta3 -d -c -B 268435456 -s {pair}/old.tar | tar x -C {out}"),
                ("`zstd -d --patch-from`, `tar x`", "zstd",
                 f"curl -sf {web}/patch.zst | zstd -dc --long=27 --patch-from={pair}/old.tar | tar x -C {out}"),
                ("`ostree pull`, `checkout`", "ostree",
                 f"cp -a {pair}/ostree-machine {out}/r; ostree --repo={out}/r remote add --no-gpg-verify o {web}/ostree;"
                 f"ostree --repo={out}/r pull o pair >/dev/null; ostree --repo={out}/r checkout o:pair {out}/c"),
                ("`zckdl`, `unzck`, `tar x`", "zckdl",
                 f"cd {out} && zckdl -s {pair}/web/old.zck {web}/new.zck >/dev/null && unzck -c new.zck | tar x"),
                ("`casync extract`", "casync",
                 f"casync extract --store={web}/store.castr --seed={pair}/old {web}/new.caidx {out}/c")):
            if has(program):
                shutil.rmtree(out, ignore_errors=True)
                out.mkdir()
                row(name, shell(line + f"; sync -f {out}"))


def main():
    wanted = sys.argv[3:] or [*DEBIAN, "headers", "tables"]
    if missing():
        print(f"Not installed, and so not compared: {', '.join(missing())}\n")
    pairs = []
    for name in wanted:
        pair = PLACE / name
        pair.mkdir(parents=True)
        if make_pair(name, pair):
            pairs.append(pair)
        else:
            print(f"apt cannot get two versions for {name}\n")
    print("| making | bytes | time | CPU | peak memory |\n|---|---|---|---|---|")
    machines = []
    for pair in pairs:
        repository = Repository(pair / "repository")
        repository.add(pair / "old", 1)
        repository.publish()
        server = Server(pair / "server", repository.folder, pair / "web")
        machines.append((pair, server, Machine(pair / "machine", server, repository.folder / "metadata/1.root.json")))
        publisher_rows(pair, repository)
    print("\n| updating | bytes | requests | time | CPU | peak memory |\n|---|---|---|---|---|---|")
    for pair, server, machine in machines:
        shutil.copy(pair / "repository/metadata/1.root.json", PREFIX / "etc/vk/root.json")
        machine_rows(pair, server, machine)
        server.stop()


main()
