# SPDX-License-Identifier: MIT
"""What bench/run measures besides installing: the commands of ins-setup on a product that stands
already, each beside the least that could do its work, the memory that they take, and their start."""

import os
import shutil
import statistics
import subprocess
import sys
import time
from pathlib import Path

BASE_MIB, BYTES_A_FILE = 32, 300  # that a command of ins-setup may take at most
MIB = 1 << 20
# Command of ins-setup, the bare loop beside it, the ratio that is aimed at.
LOOPS = {
    "check": ("lstat walk", 1.5),
    "plan install": ("lstat walk", 1.5),
    "install of what is there": ("lstat walk", 1.5),
    "status --verify": ("sha256sum of the tree", 1.5),
    "remove": ("unlink walk", 1.5),
}
START = ("status of an installed product", "dpkg-query -W PACKAGE", 1.5)
STARTS = 20  # of each in a round: one is a few milliseconds


def quartiles(values):
    """The median, and the quartiles behind it as far as so few rounds have any."""
    middle = f"{statistics.median(values):.2f}"
    if len(values) < 4:
        return middle
    low, _, high = statistics.quantiles(values, n=4)
    return f"{middle} [{low:.2f}-{high:.2f}]"


def is_restless(values):
    """Whether the machine did so much else that a ratio says little: the quartiles are far apart."""
    if len(values) < 4:
        return False
    low, middle, high = statistics.quantiles(values, n=4)
    return high - low > 0.2 * middle


class Product:
    """A tree's kit as it is installed, looked at and removed, round by round."""

    def __init__(self, tree, service):
        self.tree, self.service = tree, service
        self.setup = tree.bench.build / "bin" / "ins-setup"
        self.times, self.memory = {}, {}

    def time(self, *command):
        """Wall-clock seconds of the whole process."""
        words = [str(word) for word in command]
        null = self.tree.bench.null
        files = [(os.POSIX_SPAWN_DUP2, null, descriptor) for descriptor in (0, 1)]
        start = time.perf_counter()
        child = os.posix_spawnp(words[0], words, {**os.environ, "LC_ALL": "C.UTF-8"},
                                file_actions=files)
        _, status = os.waitpid(child, 0)
        seconds = time.perf_counter() - start
        if status != 0:
            sys.exit(f"bench/run: status {status} of: {' '.join(words)}")
        return seconds

    def run(self, name, *command):
        self.times.setdefault(name, []).append(self.time(*command))

    def setup_run(self, name, *words):
        """By time(1): a child of this process would begin with its peak, which is larger."""
        peak = self.tree.work / "peak"
        self.run(name, "time", "-f", "%M", "-o", peak, self.setup, *words)
        self.memory.setdefault(name, []).append(int(peak.read_text()) / 1024)

    def round(self):
        tree = self.tree
        kit = ("--kit", tree.kit)
        # find(1) asks for the status of each entry where it is to tell one.
        lstat = ["find", tree.kit, "-size", "-1", "-newermt", "2100-01-01"]
        digest = ["sh", "-c", 'find "$0" -type f -print0 | xargs -0 sha256sum', tree.target]
        tree.prepare("")
        run = subprocess.run
        self.run("lstat walk", *lstat)
        self.setup_run("check", "check", *kit)
        self.setup_run("plan install", "plan", "install", *kit, tree.target)
        self.setup_run("install", "install", *kit, tree.target)
        self.setup_run("install of what is there", "install", *kit, tree.target)
        self.run("sha256sum of the tree", *digest)
        self.setup_run("status --verify", "status", *kit, "--verify")
        for _ in range(STARTS):
            self.run(START[1], "dpkg-query", "-W", "coreutils")
            self.run(START[0], self.setup, "status", self.service)
        self.setup_run("remove", "remove", *kit)
        left = [path for path in Path(tree.target).rglob("*") if not path.is_dir()]
        if left:
            sys.exit(f"bench/run: the removal left {len(left)} files, as {left[0]}")
        shutil.rmtree(tree.target, ignore_errors=True)
        run(["cp", "-r", "--preserve=mode", tree.payload, tree.target], check=True)
        run(["sync", "-f", tree.work], check=True)
        self.run("unlink walk", "sh", "-c", 'rm -r "$0" && sync -f "$1"', tree.target, tree.work)

    def ratios(self):
        """By command: the ratios to its loop, one for each round."""
        found = {
            name: [ours / base for ours, base in zip(self.times[name], self.times[loop])]
            for name, (loop, _) in LOOPS.items()
        }
        found[START[0]] = [
            ours / base for ours, base in zip(self.times[START[0]], self.times[START[1]])
        ]
        return found

    def peaks(self):
        """By command: the median of the peak memory in MiB."""
        names = ["install"] + [name for name in LOOPS]
        return {name: statistics.median(self.memory[name]) for name in names}


def allowed_memory(files):
    return BASE_MIB + files * BYTES_A_FILE / MIB


def measure(tree, service, count):
    product = Product(tree, service)
    for _ in range(count):
        product.round()
    return {"ratios": product.ratios(), "peaks": product.peaks()}


def tables(results):
    """Of what measure gave for each tree: a title, a head and rows for each table."""
    titles = [result["title"] for result in results]
    rows = []
    for name in list(LOOPS) + [START[0]]:
        loop, aim = LOOPS.get(name, START[1:])
        cells = [quartiles(result["product"]["ratios"][name]) for result in results]
        rows.append([f"{name} / {loop}", f"{aim:.1f}"] + cells)
    yield ("Commands: wall clock as ratio to a bare loop, median and quartiles",
           ["what", "aim"] + titles, rows)
    rows = [
        [name] + [f"{result['product']['peaks'][name]:.0f}" for result in results]
        for name in results[0]["product"]["peaks"]
    ]
    rows.append(["aim"] + [f"{allowed_memory(r['content'][0]):.0f}" for r in results])
    yield ("Peak memory, MiB", ["command"] + titles, rows)


def draw(results, path):
    """A bar for each command and tree, with gnuplot; nothing where that is not installed."""
    if shutil.which("gnuplot") is None:
        return False
    names = list(LOOPS)
    data = "\n".join(
        f'"{name}" ' + " ".join(
            f"{statistics.median(result['product']['ratios'][name]):.3f}" for result in results)
        for name in names
    )
    plots = ", ".join(
        f'$data using {column + 2}{":xtic(1)" if column == 0 else ""} title "{result["title"]}"'
        for column, result in enumerate(results)
    )
    script = (
        f'set terminal svg size 900,420 enhanced\nset output "{path}"\n'
        "set style data histogram\nset style fill solid 0.6\nset yrange [0:*]\nset grid y\n"
        'set ylabel "wall clock / bare loop"\nset xtics rotate by -20\n'
        f"$data << END\n{data}\nEND\nplot {plots}, 1.5 title \"aim\" with lines lc rgb \"black\"\n"
    )
    subprocess.run(["gnuplot"], input=script, text=True, check=True)
    return True
