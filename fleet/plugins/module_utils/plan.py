# -*- coding: utf-8 -*-
# SPDX-License-Identifier: MIT
"""What a plan tells, as lines for people, and why it cannot be done."""
from __future__ import absolute_import, division, print_function

__metaclass__ = type


def actions(plan):
    """All that would be done, in its order."""
    for rule in plan.get('rules', []) + [{'actions': plan.get('cleanup', [])}]:
        for action in rule.get('actions', []):
            yield action


def describe(action):
    """One action as a line of a difference: + comes, - goes, ~ becomes another, = stays."""
    what = action['action']
    subject = action.get('path') or action.get('service') or action.get('command', '')
    sign = '+'
    if what.startswith('keep'):
        sign = '='
    elif what.split()[0] in ('delete', 'remove', 'stop'):
        sign = '-'
    elif action.get('replaces'):
        sign = '~'
    line = '%s %s %s' % (sign, what, subject)
    if action.get('option'):  # its value may be a secret
        line += ' ' + action['option'].split('=')[0]
    if action.get('target'):
        line += ' -> ' + action['target']
    if action.get('reason'):
        line += ' (%s)' % action['reason']
    return line


def as_text(plan):
    """The lines of a plan; none where nothing would be done."""
    if plan.get('upToDate'):
        return ''
    return ''.join(describe(action) + '\n' for action in actions(plan))


def why_not(plan):
    """Why the planned run would not be done, in words; nothing if it would."""
    if plan['exitCode'] == 0:
        return None
    if plan.get('error'):
        return plan['error'].get('text')
    if plan.get('refusal'):
        return plan['refusal']
    for space in plan.get('space', []):
        if not space.get('enough', True):
            return ('not enough room for %s: %d bytes and %d to spare are needed, %d are free'
                    % (space['directory'], space['bytesNeeded'], space['bytesToSpare'], space['bytesFree']))
    for action in actions(plan):
        if action.get('obstacle'):
            return '%s: %s' % (describe(action)[2:], action['obstacle'])
    return plan.get('recordObstacle') or 'the run would end with exit code %d' % plan['exitCode']
