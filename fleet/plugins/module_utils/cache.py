# -*- coding: utf-8 -*-
# SPDX-License-Identifier: MIT
"""Where a host keeps what the controller sent: DIRECTORY/DIGEST/NAME, and beside it what product it is of."""
from __future__ import absolute_import, division, print_function

__metaclass__ = type

import fcntl
import os
import shutil
import stat
import tarfile
import tempfile

from ansible_collections.inspp.setup.plugins.module_utils.digest import source_digest

NEW = '.new-'  # what is not complete yet
KIT = 'kit'    # the name of a kit in its entry


class CacheError(Exception):
    """Says in words why something cannot be kept."""


def unpack_kit(archive, directory):
    """Unpacks a kit as the controller packed it: nothing in it may lead out of the directory."""
    with tarfile.open(archive) as packed:
        for member in packed:
            parts = member.name.split('/')
            if member.name.startswith('/') or '..' in parts or not (
                    member.isfile() or member.isdir() or member.issym()):
                raise CacheError('the packed kit has "%s", which no kit can have' % member.name)
            if hasattr(tarfile, 'fully_trusted_filter'):  # from Python 3.12 on
                packed.extract(member, directory, filter='fully_trusted')
            else:
                packed.extract(member, directory)


def place_upload(upload, source, directory):
    """Puts what was sent into a directory, under its own name, and makes sure that it is what the
    controller has. Returns its path."""
    target = os.path.join(directory, source['name'])
    if source['kind'] == 'kit':
        os.mkdir(target, 0o755)
        unpack_kit(upload, target)
    else:
        shutil.copyfile(upload, target)
        os.chmod(target, 0o755)
    found = source_digest(target)
    if found != source['digest']:
        raise CacheError('what arrived is not what was sent: its digest is %s instead of %s'
                         % (found, source['digest']))
    return target


class Cache(object):
    """The directory of a host. Whoever can write to it owns the host, so it has to be root's."""

    def __init__(self, directory):
        self.directory = directory

    def find(self, source):
        """The path of what was sent before; nothing if it is not there or not what it was."""
        path = os.path.join(self.directory, source['digest'], source['name'])
        if not os.path.lexists(path):
            return None
        self.require_trusted()
        if source_digest(path) == source['digest']:
            return path
        return None

    def require_trusted(self):
        """Throws CacheError for a directory in which others than its user could lay something."""
        status = os.lstat(self.directory)
        if not stat.S_ISDIR(status.st_mode):
            raise CacheError('%s is no directory' % self.directory)
        if status.st_uid != os.geteuid() or status.st_mode & 0o022:
            raise CacheError('%s can be changed by others than its user: delete it, or name another '
                             'directory (cache)' % self.directory)

    def adopt(self, upload, source):
        """Takes in what was sent, whole or not at all. Returns its path."""
        if not os.path.isdir(self.directory):
            os.makedirs(self.directory, 0o700)
        self.require_trusted()
        with open(os.path.join(self.directory, '.lock'), 'w') as lock:
            fcntl.flock(lock, fcntl.LOCK_EX)
            for name in os.listdir(self.directory):
                if name.startswith(NEW):  # of one that was killed: nobody else is here
                    shutil.rmtree(os.path.join(self.directory, name))
            entry = os.path.join(self.directory, source['digest'])
            if os.path.lexists(entry):
                shutil.rmtree(entry)  # it was looked at, and is damaged
            new = tempfile.mkdtemp(prefix=NEW, dir=self.directory)
            try:
                place_upload(upload, source, new)
                os.sync()
                os.rename(new, entry)
            except BaseException:
                shutil.rmtree(new, ignore_errors=True)
                raise
        return os.path.join(entry, source['name'])

    def keep_only(self, source, product):
        """Notes whose it is, and deletes what was sent before for the same product."""
        entry = os.path.join(self.directory, source['digest'])
        with open(os.path.join(entry, '.product'), 'w') as note:
            note.write(product)
        for name in os.listdir(self.directory):
            if name != source['digest'] and self._product_of(name) == product:
                shutil.rmtree(os.path.join(self.directory, name))

    def programs(self):
        """What can be run of what is there, the newest first: bundles, and the programs of kits."""
        found = []
        names = os.listdir(self.directory) if os.path.isdir(self.directory) else []
        for name in names:
            entry = os.path.join(self.directory, name)
            if name.startswith('.') or not os.path.isdir(entry):
                continue
            self.require_trusted()
            for path in (os.path.join(entry, each) for each in os.listdir(entry)):
                program = os.path.join(path, 'ins-setup') if os.path.isdir(path) else path
                if os.path.isfile(program) and os.access(program, os.X_OK):
                    found.append((os.stat(program).st_ctime, program))
        return [program for when, program in sorted(found, reverse=True)]

    def _product_of(self, name):
        try:
            with open(os.path.join(self.directory, name, '.product')) as note:
                return note.read()
        except (IOError, OSError):
            return None
