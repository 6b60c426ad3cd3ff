# SPDX-License-Identifier: MIT
"""The trees that bench/run measures with: their files, the kit, the package and the rest made of them."""

import os
import shutil
import subprocess
import sys

SERVICE = "inspp-bench"
MIB = 1 << 20
SMALL_FILE, LARGEST_FILE = 64 << 10, 32 * MIB
MOST_CHOSEN = 50000  # files, which the pool may hold; more are made
POOL = ("/usr/include", "/usr/lib", "/usr/share")


def run(*command):
    subprocess.run([str(word) for word in command], check=True, stdout=subprocess.DEVNULL)


def list_pool():
    """Regular files that a script line can name, by path; the same machine gives the same list."""
    small, large = [], []
    for root in POOL:
        for directory, folders, names in os.walk(root):
            folders.sort()
            if any(character in directory for character in ",$*?\n"):
                continue
            for name in sorted(names):
                path = os.path.join(directory, name)
                if os.path.islink(path) or not os.path.isfile(path):
                    continue
                size = os.path.getsize(path)
                if 0 < size <= LARGEST_FILE:
                    (small if size <= SMALL_FILE else large).append((path, size))
    return small, large


def choose(pool, files, total):
    """As many large files, the rest small ones, as together come nearest to the bytes wanted."""
    small, large = pool
    sums = [[0], [0]]
    for sizes, group in zip(sums, (small, large)):
        for _, size in group:
            sizes.append(sizes[-1] + size)
    counts = range(max(0, files - len(small)), min(files, len(large)) + 1)
    best = min(counts, key=lambda n: abs(sums[1][n] + sums[0][files - n] - total), default=None)
    if best is None:
        sys.exit(f"bench/run: {', '.join(POOL)} hold fewer than {files} files")
    return large[:best] + small[: files - best]


def make_payload(payload, files, total, pool):
    payload.mkdir(parents=True)
    if files == 1:
        (payload / "data").mkdir()
        with open(payload / "data" / "image.bin", "wb") as image:
            for _ in range(total // (16 * MIB)):
                image.write(os.urandom(16 * MIB))
        return
    if files > MOST_CHOSEN:
        for number in range(files):
            directory = payload / "data" / f"part-{number // 50 % 40}" / f"of-{number // 2000}"
            directory.mkdir(parents=True, exist_ok=True)
            (directory / f"file-{number}").write_bytes(os.urandom(total // files))
        return
    for path, _ in choose(pool, files, total):
        target = payload / path.lstrip("/")
        target.parent.mkdir(parents=True, exist_ok=True)
        shutil.copy(path, target)


def make_kit(kit):
    """One directory rule and one wildcard rule for each directory, the link, and the record's file."""
    (kit / "product.ini").write_text(
        f"[product]\nname={SERVICE}\nserviceName={SERVICE}\niniFile={SERVICE}.ini\n"
        "version=1.0.0\nbuildNumber=1\n"
    )
    (kit / f"{SERVICE}.ini").write_text("[installControl]\n")
    lines, removal = ["[install]"], []
    for directory, folders, names in os.walk(kit / "payload"):
        folders.sort()
        below = os.path.relpath(directory, kit / "payload")
        below = "" if below == "." else below
        lines.append(f"directory=create,$pathTarget${below}")
        removal.append(f"directory=delete,$pathTarget${below}")
        if names:
            lines.append(f"file=copy,*,$pathSource$payload/{below},$pathTarget${below}")
    lines += [
        "directory=create,$pathTargetConfig$",
        "file=copy,$iniFile$,$pathSource$,$pathTargetConfig$",
        "directory=create,/etc/$serviceName$",
        "file=symlink,$serviceName$,$pathTargetBin$,/etc/$serviceName$",
        "[remove]",
        "file=delete,$serviceName$,/etc/$serviceName$",
        "directory=delete,/etc/$serviceName$",
        "directory=delete,$pathTargetConfig$",
    ]
    lines += reversed(removal)  # what is in a directory first
    (kit / "install.ini").write_text("\n".join(lines) + "\n")


def make_package(work, payload):
    """An uncompressed package, in which the tree's tar lies too: one copy on the disk serves both."""
    staged, package = work / "staged", work / "tree.deb"
    run("cp", "-al", payload, staged)
    (staged / "DEBIAN").mkdir()
    (staged / "DEBIAN" / "control").write_text(
        f"Package: {SERVICE}\nVersion: 1.0\nArchitecture: all\nMaintainer: none <none@localhost>\n"
        "Description: benchmark\n"
    )
    run("dpkg-deb", "-Znone", "--build", staged, package)
    shutil.rmtree(staged)
    return package


def find_tar(package):
    with open(package, "rb") as file:
        offset = 8
        while True:
            file.seek(offset)
            name, size = (lambda head: (head[:16].strip(), int(head[48:58])))(file.read(60))
            if name.rstrip(b"/") == b"data.tar":
                return offset + 60
            offset += 60 + size + size % 2


def make_cmake(work, payload):
    source, build = work / "cmake", work / "cmake-build"
    source.mkdir()
    (source / "CMakeLists.txt").write_text(
        "cmake_minimum_required(VERSION 3.25)\nproject(tree NONE)\n"
        f'install(DIRECTORY "{payload}/" DESTINATION . USE_SOURCE_PERMISSIONS)\n'
    )
    run("cmake", "-S", source, "-B", build)
    return build
