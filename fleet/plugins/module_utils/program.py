# -*- coding: utf-8 -*-
# SPDX-License-Identifier: MIT
"""Runs ins-setup, from where there is one, and reads its answer."""
from __future__ import absolute_import, division, print_function

__metaclass__ = type

import json
import os

ENVIRONMENT = {'LANG': 'C.UTF-8', 'LC_ALL': 'C.UTF-8', 'LANGUAGE': ''}
NOT_INSTALLED = 3
DIFFERS = 4


class NoProgram(Exception):
    """Says in words that there is nothing that could be run."""


class Program(object):
    """The program with the kit that it is to work with, if there is one."""

    def __init__(self, module, command, kit=None):
        self.module = module
        self.command = command
        self.kit = kit

    @classmethod
    def of_bundle(cls, module, path):
        """A bundle takes what ins-setup takes."""
        return cls(module, [path])

    @classmethod
    def of_kit(cls, module, path, executable):
        """The program of the machine; else the one that lies in the kit."""
        own = os.path.join(path, 'ins-setup')
        found = module.get_bin_path(executable)
        if not found and not os.access(own, os.X_OK):
            raise NoProgram('there is no %s on this host, nor in the kit: install it, send a bundle, '
                            'or name it (executable)' % executable)
        return cls(module, [found or own], path)

    @classmethod
    def of_host(cls, module, executable, cache):
        """For questions that need no kit: the program of the machine, else of what was sent before."""
        found = module.get_bin_path(executable)
        if found:
            return cls(module, [found])
        for path in cache.programs():
            return cls(module, [path])
        raise NoProgram('there is no %s on this host, and no bundle in %s: install it, name it '
                        '(executable), or give the bundle' % (executable, cache.directory))

    def ask(self, words, arguments=(), data=None):
        """Runs a command, as ['plan', 'install'], and returns its answer, always with "exitCode"."""
        line = self.command + list(words) + ['--json']
        if self.kit:
            line += ['--kit', self.kit]
        code, out, error = self.module.run_command(
            line + list(arguments), data=data, binary_data=True, environ_update=ENVIRONMENT)
        answer = last_object(out)
        if answer is None:
            last = (error.strip() or out.strip()).splitlines()
            answer = {'result': 'failed', 'error': {
                'text': '%s ended with %d and gave no answer%s'
                        % (self.command[-3 if len(self.command) > 3 else 0], code,
                           ': ' + last[-1] if last else '')}}
            answer['exitCode'] = code or 70
        answer.setdefault('exitCode', code)
        return answer


def last_object(text):
    """The answer: the last line that is a JSON object."""
    for line in reversed(text.splitlines()):
        if line.startswith('{'):
            try:
                return json.loads(line)
            except ValueError:
                return None
    return None


def why(answer):
    """Why a run did not do what it was to do, in words."""
    error = answer.get('error') or {}
    text = error.get('text') or answer.get('refusal') or 'ended with exit code %s' % answer['exitCode']
    if error.get('place'):
        text += ' (%s: %s)' % (error['place'], error.get('rule', ''))
    return text
