# -*- coding: utf-8 -*-
# SPDX-License-Identifier: MIT
"""Prints what ansible.builtin.assert finds, a sentence each, and what else fails; then how many."""
from __future__ import absolute_import, division, print_function

__metaclass__ = type

DOCUMENTATION = r'''
name: sentences
type: stdout
short_description: Prints each assertion as a test
description: [Prints each assertion as a test.]
'''

import os

from ansible.plugins.callback import CallbackBase


class CallbackModule(CallbackBase):

    CALLBACK_VERSION = 2.0
    CALLBACK_TYPE = 'stdout'
    CALLBACK_NAME = 'sentences'

    def __init__(self):
        super(CallbackModule, self).__init__()
        self.passed = int(os.environ.get('FLEET_PASSED', 0))  # of what ran before
        self.failed = 0

    def v2_runner_on_ok(self, result):
        if result._task.action.endswith('assert'):
            self.passed += 1
            print('ok     %s' % result._task.get_name(), flush=True)

    def v2_runner_on_failed(self, result, ignore_errors=False):
        if ignore_errors:
            return
        self.failed += 1
        data = dict(result._result)
        data.pop('invocation', None)
        print('FAILED %s\n       %s' % (result._task.get_name(), data), flush=True)

    def v2_runner_on_unreachable(self, result):
        self.v2_runner_on_failed(result)

    def v2_playbook_on_stats(self, stats):
        print('%d passed, %d failed' % (self.passed, self.failed), flush=True)
