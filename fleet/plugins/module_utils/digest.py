# -*- coding: utf-8 -*-
# SPDX-License-Identifier: MIT
"""What names a bundle or a kit wherever it lies: a SHA-256 sum of what is in it."""
from __future__ import absolute_import, division, print_function

__metaclass__ = type

import hashlib
import os
import stat

CHUNK = 1 << 20
# What group and others may write is refused by ins-setup, so this right is not taken along.
RIGHTS = 0o755


def file_digest(path):
    """The sum of one file, in hexadecimal."""
    digest = hashlib.sha256()
    with open(path, 'rb') as source:
        for chunk in iter(lambda: source.read(CHUNK), b''):
            digest.update(chunk)
    return digest.hexdigest()


def entries(directory):
    """The names of all that is below a directory, sorted: in it, not absolute."""
    names = []
    for below, directories, files in os.walk(directory):
        start = os.path.relpath(below, directory)
        for name in directories + files:
            names.append(os.path.normpath(os.path.join(start, name)))
    return sorted(names)


def tree_digest(directory):
    """The sum of names, kinds, rights, link texts and contents of all below a directory."""
    digest = hashlib.sha256()
    for name in entries(directory):
        path = os.path.join(directory, name)
        status = os.lstat(path)
        if stat.S_ISLNK(status.st_mode):
            row = ('link', os.readlink(path))
        elif stat.S_ISDIR(status.st_mode):
            row = ('directory', '%o' % (status.st_mode & RIGHTS))
        elif stat.S_ISREG(status.st_mode):
            row = ('file', '%o' % (status.st_mode & RIGHTS), file_digest(path))
        else:
            raise ValueError('%s is neither a file, a directory nor a link' % path)
        digest.update(b'\0'.join(os.fsencode(field) for field in (name,) + row) + b'\0\0')
    return digest.hexdigest()


def source_digest(path):
    """The sum of a bundle (a file) or a kit (a directory)."""
    return tree_digest(path) if os.path.isdir(path) else file_digest(path)


def look(path):
    """What changes when somebody changes a bundle or a kit, without reading it."""
    digest = hashlib.sha256(os.fsencode(os.path.realpath(path)))
    for name in [''] + (entries(path) if os.path.isdir(path) else []):
        status = os.lstat(os.path.join(path, name) if name else os.path.realpath(path))
        row = (status.st_mode, status.st_ino, status.st_size, status.st_mtime_ns, status.st_ctime_ns)
        digest.update(os.fsencode(name) + b'\0' + ' '.join(map(str, row)).encode() + b'\0')
    return digest.hexdigest()
