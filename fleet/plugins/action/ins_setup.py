# -*- coding: utf-8 -*-
# SPDX-License-Identifier: MIT
"""The controller's half of ins_setup: asks the host whether it has the bundle or kit, by its digest, and
sends it only if not. Digests and packed kits are made once in a run of Ansible, for all hosts."""
from __future__ import absolute_import, division, print_function

__metaclass__ = type

import fcntl
import os
import tarfile

from ansible import constants as C
from ansible.errors import AnsibleActionFail, AnsibleConnectionFailure, AnsibleError
from ansible.module_utils.parsing.convert_bool import boolean
from ansible.plugins.action import ActionBase

from ansible_collections.inspp.setup.plugins.module_utils.digest import RIGHTS, look, source_digest


def once(name, make):
    """The path of a file that is made by one of the workers of this run, and by none again."""
    path = os.path.join(C.DEFAULT_LOCAL_TMP, 'inspp-' + name)
    with open(path + '.lock', 'w') as lock:
        fcntl.flock(lock, fcntl.LOCK_EX)
        if not os.path.exists(path):
            make(path + '.new')
            os.rename(path + '.new', path)
    return path


def write_digest(source, path):
    with open(path, 'w') as written:
        written.write(source_digest(source))


def pack(kit, path):
    """As root's, with the rights that the digest is of."""
    def as_root(member):
        member.uid = member.gid = 0
        member.uname = member.gname = ''
        if not member.issym():
            member.mode &= RIGHTS
        return member

    with tarfile.open(path, 'w:gz', compresslevel=6) as packed:
        for name in sorted(os.listdir(kit)):
            packed.add(os.path.join(kit, name), name, filter=as_root)


class ActionModule(ActionBase):

    TRANSFERS_FILES = False  # only sometimes, and then a directory for it is made

    def run(self, tmp=None, task_vars=None):
        result = super(ActionModule, self).run(tmp, task_vars)
        self._supports_check_mode = True
        arguments = dict(self._task.args)
        arguments.pop('_source', None)
        kind = 'kit' if arguments.get('kit') else 'bundle'
        is_sent = arguments.get(kind) and not boolean(arguments.get('remote_src', False), strict=False)
        if not is_sent:
            result.update(self._run_module(arguments, task_vars))
            return result
        try:
            local = self._find_needle('files', arguments[kind])
            name = look(local)
            with open(once(name + '.digest', lambda path: write_digest(local, path))) as written:
                digest = written.read()
        except (AnsibleError, IOError, OSError, ValueError) as error:
            raise AnsibleActionFail('the %s cannot be read on the controller: %s' % (kind, error))
        source = {'kind': kind, 'digest': digest,
                  'name': 'kit' if kind == 'kit' else os.path.basename(local)}
        answer = self._run_module(dict(arguments, _source=source), task_vars)
        if answer.pop('needs_upload', False):
            source['upload'] = self._send(kind, local, name, digest)
            answer = self._run_module(dict(arguments, _source=source), task_vars)
        result.update(answer)
        return result

    def cleanup(self, force=False):
        """A host that went away during the task is told as unreachable; that its temporary directory
        cannot be deleted must not make a failure of it."""
        try:
            super(ActionModule, self).cleanup(force)
        except AnsibleConnectionFailure:
            pass

    def _run_module(self, arguments, task_vars):
        return self._execute_module(
            module_name='inspp.setup.ins_setup', module_args=arguments, task_vars=task_vars)

    def _send(self, kind, local, name, digest):
        """To the temporary directory of the task. Returns its path there."""
        if kind == 'kit':
            local = once(name + '.tar.gz', lambda path: pack(local, path))
        directory = self._connection._shell.tmpdir or self._make_tmp_path()
        remote = self._connection._shell.join_path(directory, digest)
        self._transfer_file(local, remote)
        self._fixup_perms2((directory, remote))
        return remote
