#!/usr/bin/python
# -*- coding: utf-8 -*-
# SPDX-License-Identifier: MIT
from __future__ import absolute_import, division, print_function

__metaclass__ = type

DOCUMENTATION = r'''
---
module: ins_setup
short_description: Installs, upgrades, verifies, restores and removes a product with ins-setup
version_added: "1.0.0"
description:
  - Brings a product of a bundle or a kit onto a host, or takes it away, and changes nothing where that is done already.
  - A bundle or a kit that lies on the controller is sent once. The host keeps it in I(cache), under the SHA-256 sum of what is
    in it, until a later version of the product was installed.
  - In check mode the plan of C(ins-setup) is asked; nothing is written on the host but what Ansible itself needs. The plan
    does not look at signatures, and not whether another version is newer.
options:
  bundle:
    description:
      - The bundle, a file. It needs nothing on the host.
    type: path
  kit:
    description:
      - The kit, a directory. It needs C(ins-setup) on the host, or in the kit.
    type: path
  remote_src:
    description:
      - Whether I(bundle) or I(kit) lies on the host already; else it is sent from the controller.
    type: bool
    default: false
  name:
    description:
      - The product's or its service's name, for all states but C(present), in place of I(bundle) and I(kit).
    type: str
  state:
    description:
      - With C(present) this version is installed, over the one that is there.
      - With C(absent) the product is removed. Configuration that was edited stays.
      - With C(purged) that goes too.
      - With C(verified) nothing is changed; the task fails where the product is not installed, or is not as it was installed.
      - With C(restored) the last run is undone from the backup that it made (see I(backup)).
    type: str
    choices: [present, absent, purged, verified, restored]
    default: present
  path:
    description:
      - Where to install to. Else it is where the product is installed, or the kit's default.
    type: path
  values:
    description:
      - Lines C(SECTION,KEY,VALUE) for the product's configuration.
      - They are handed over by standard input, and are not told.
      - Where the configuration has them already, they do not count as a change.
    type: list
    elements: str
    default: []
  allow_downgrade:
    description:
      - Whether to install over a newer version.
    type: bool
    default: false
  backup:
    description:
      - Whether to keep what is replaced, so that C(restored) can put it back.
    type: bool
    default: false
  rollback:
    description:
      - Whether a run that fails puts everything back.
    type: bool
    default: false
  wait:
    description:
      - For how many seconds to wait for another run of the product to end.
    type: int
    default: 0
  public_key:
    description:
      - The public key with which the product's kits have to be signed, as its file has it. With C(present) it is laid into
        C(/etc/ins++/trusted.d/SERVICE/ansible.pub), and stays there.
    type: str
  executable:
    description:
      - The program on the host, by its name or its path. A bundle is its own program.
    type: str
    default: ins-setup
  cache:
    description:
      - The directory of the host in which is kept what was sent. It must be writable for root only.
    type: path
    default: /var/cache/inspp
  _source:
    description:
      - What the controller has. Internal; the action plugin sets it.
    type: dict
attributes:
  check_mode:
    description: The plan is told.
    support: full
  diff_mode:
    description: Files, configuration that is kept or replaced, services, and what is obsolete, by the plan.
    support: full
requirements:
  - Python 3.6 on the host
  - root on the host (become)
seealso:
  - module: inspp.setup.ins_setup_facts
author:
  - the authors of Ins++ (@inspp)
'''

EXAMPLES = r'''
- name: Install a bundle of the controller, or upgrade to it
  inspp.setup.ins_setup:
    bundle: files/hello-1.5.run
    values:
      - "General,Greeting,Good morning"
    backup: true
    rollback: true

- name: Tell where it was edited
  inspp.setup.ins_setup:
    name: hello
    state: verified

- name: Put back what the last run replaced
  inspp.setup.ins_setup:
    name: hello
    state: restored

- name: Remove it, with the configuration that was edited
  inspp.setup.ins_setup:
    name: hello
    state: purged
'''

RETURN = r'''
answer:
  description:
    - The JSON object of C(ins-setup) as it is. In check mode, and where nothing was run, that of its plan, list or status.
  returned: when a program was run
  type: dict
  sample: {"schema": 1, "command": "install", "result": "done", "exitCode": 0, "changed": true, "product": "hello"}
sent:
  description: Whether the bundle or kit had to be sent from the controller.
  returned: when it lies on the controller
  type: bool
'''

import os
import tempfile

from ansible.module_utils.basic import AnsibleModule
from ansible_collections.inspp.setup.plugins.module_utils.cache import Cache, CacheError, place_upload
from ansible_collections.inspp.setup.plugins.module_utils.plan import as_text, why_not
from ansible_collections.inspp.setup.plugins.module_utils.program import (
    DIFFERS, NOT_INSTALLED, NoProgram, Program, why)
from ansible_collections.inspp.setup.plugins.module_utils.values import are_in, parse_lines
from ansible_collections.inspp.setup.plugins.module_utils.values import as_text as values_as_text

STATE = '/var/lib/ins++'
KEYS = '/etc/ins++/trusted.d'


def warnings_of(answer):
    """What somebody should know although the run is done."""
    for program in answer.get('running', []):
        yield 'it ran while its files were replaced or deleted: %s' % program
    for sentence in answer.get('outdated', []):
        yield sentence
    for kept in answer.get('keptConfiguration', []):
        yield ('edited configuration was kept: %s' % kept['path'] +
               ('; the new one is %s' % kept['new'] if kept.get('new') else ''))
    for kept in answer.get('keptServices', []):
        yield 'service %s stays as it was: %s' % (kept.get('service'), kept.get('state'))
    if answer.get('recordDamage'):
        yield answer['recordDamage']


class Setup(object):
    """One task on one host."""

    def __init__(self, module):
        self.module = module
        self.state = module.params['state']
        self.source = module.params['_source']
        self.cache = Cache(module.params['cache'])
        self.result = {'changed': False}
        self.program = None

    def run(self):
        self.program = self.choose_program()
        getattr(self, 'be_' + self.state)()
        self.module.exit_json(**self.result)

    # What is run.

    def choose_program(self):
        bundle, kit = self.module.params['bundle'], self.module.params['kit']
        executable = self.module.params['executable']
        path = self.find_source() if self.source else bundle or kit
        if path and not os.path.exists(path):
            self.module.fail_json(msg='%s is not on this host' % path)
        if bundle:
            return Program.of_bundle(self.module, path)
        if kit:
            return Program.of_kit(self.module, path, executable)
        return Program.of_host(self.module, executable, self.cache)

    def find_source(self):
        """What the controller has, on this host; if it is not, the action plugin is asked for it."""
        upload = self.source.get('upload')
        self.result['sent'] = bool(upload)
        try:
            if not upload:
                path = self.cache.find(self.source)
                if not path:
                    self.module.exit_json(changed=False, needs_upload=True)
                return path
            if self.module.check_mode:  # it goes with the temporary directory of the task
                return place_upload(upload, self.source, tempfile.mkdtemp(dir=self.module.tmpdir))
            return self.cache.adopt(upload, self.source)
        except (IOError, OSError) as error:
            self.module.fail_json(msg='cannot keep what the controller sent in %s: %s'
                                  % (self.cache.directory, error))

    def ask(self, words, arguments=(), data=None):
        answer = self.program.ask(words, arguments, data)
        self.result['answer'] = answer
        return answer

    def options(self, *names):
        """The options of a run that were asked for."""
        given = ['--' + name.replace('_', '-') for name in names if self.module.params[name]]
        if self.module.params['wait']:
            given += ['--wait', str(self.module.params['wait'])]
        return given

    def end(self, answer):
        """What a run that changes something has told."""
        self.result['changed'] = self.result['changed'] or bool(answer.get('changed'))
        for warning in warnings_of(answer):
            self.module.warn(warning)
        if answer['exitCode'] != 0:
            self.fail(why(answer))

    def fail(self, message):
        self.module.fail_json(msg=message, **self.result)

    def show(self, text):
        if self.module._diff and text:
            self.result['diff'] = {'prepared': text}

    # The states.

    def be_present(self):
        try:
            options = parse_lines(self.module.params['values'])
        except ValueError as error:
            self.fail(str(error))
        path = [self.module.params['path']] if self.module.params['path'] else []
        macros = {}
        if options or self.module.params['public_key']:
            answer = self.ask(['macros'], path)
            if answer['exitCode'] != 0:
                self.fail(why(answer))
            macros = answer['macros']
        has_values = not options or are_in(options, macros['pathTargetConfig'] + macros['iniFile'])
        if self.module.check_mode or self.module._diff or options:
            plan = self.ask(['plan', 'install'], path)
            would_change = not plan.get('upToDate') or not has_values
            wrong = why_not(plan)
            self.show(as_text(dict(plan, upToDate=not would_change)))
        if self.module.params['public_key']:
            self.lay_key(macros['serviceName'])
        if self.module.check_mode:
            if wrong:
                self.fail(wrong)
            self.result['changed'] = self.result['changed'] or would_change
            return
        arguments = path + self.options('allow_downgrade', 'backup', 'rollback')
        if options and would_change:
            answer = self.ask(['install'], arguments + ['--values', '-'], values_as_text(options))
        else:
            answer = self.ask(['install'], arguments)
        self.end(answer)
        if self.source and answer.get('changed') and answer.get('product'):
            self.cache.keep_only(self.source, answer['product'])

    def lay_key(self, service):
        """The key counts from here on, so it has to be there before the run."""
        key = self.module.params['public_key'].strip() + '\n'
        path = os.path.join(KEYS, service, 'ansible.pub')
        try:
            with open(path) as present:
                if present.read() == key:
                    return
        except (IOError, OSError):
            pass
        self.result['changed'] = True
        if self.module.check_mode:
            return
        try:
            if not os.path.isdir(os.path.dirname(path)):
                os.makedirs(os.path.dirname(path), 0o755)
            descriptor, new = tempfile.mkstemp(dir=self.module.tmpdir)
            with os.fdopen(descriptor, 'w') as written:
                written.write(key)
            os.chmod(new, 0o644)
            self.module.atomic_move(new, path)
        except (IOError, OSError) as error:
            self.fail('cannot lay the public key into %s: %s' % (path, error))

    def be_absent(self):
        self.remove([])

    def be_purged(self):
        self.remove(['--purge'])

    def remove(self, arguments):
        if not self.module.check_mode:
            answer = self.ask(['remove'], ['--yes'] + arguments + self.names() + self.options())
            if answer['exitCode'] != NOT_INSTALLED:
                self.end(answer)
            return
        service = self.module.params['name']
        if self.program.kit or self.module.params['bundle']:
            service = (self.ask(['macros']).get('macros') or {}).get('serviceName', service)
        listed = self.ask(['list'])
        if listed['exitCode'] != 0:
            self.fail(why(listed))
        for product in listed['products']:
            if service in (product['name'], product['product']):
                self.result['changed'] = bool(
                    product['installed'] or product['interrupted'] or
                    (arguments and product['configurationLeft']))
                self.show('- %s %s\n' % (product['product'], product.get('version', '')))

    def names(self):
        """The product by its name, where no bundle or kit says it."""
        by_source = self.module.params['kit'] or self.module.params['bundle']
        return [] if by_source else [self.module.params['name']]

    def be_verified(self):
        answer = self.ask(['status', '--verify'], self.names())
        for warning in warnings_of(answer):
            self.module.warn(warning)
        if answer['exitCode'] == DIFFERS and answer.get('differences'):
            self.fail('not as it was installed: ' + '; '.join(
                '%s %s' % (each['path'], each['what']) for each in answer['differences']))
        if answer['exitCode'] == NOT_INSTALLED:
            self.fail('not installed')
        if answer['exitCode'] != 0:
            self.fail(why(answer))

    def be_restored(self):
        if not self.module.check_mode:
            self.end(self.ask(['restore'], self.names() + self.options()))
            return
        answer = self.ask(['status'], self.names())
        service = self.module.params['name']
        if not self.names():
            service = (self.ask(['macros']).get('macros') or {}).get('serviceName', '')
        elif answer['exitCode'] != 0:
            self.fail(why(answer))
        if not os.path.isdir(os.path.join(STATE, service, 'backup')):
            self.fail('there is no backup of the last run of %s' % service)
        self.result['changed'] = True


def main():
    module = AnsibleModule(
        argument_spec=dict(
            bundle=dict(type='path'),
            kit=dict(type='path'),
            remote_src=dict(type='bool', default=False),
            name=dict(type='str'),
            state=dict(type='str', default='present',
                       choices=['present', 'absent', 'purged', 'verified', 'restored']),
            path=dict(type='path'),
            values=dict(type='list', elements='str', default=[], no_log=True),
            allow_downgrade=dict(type='bool', default=False),
            backup=dict(type='bool', default=False),
            rollback=dict(type='bool', default=False),
            wait=dict(type='int', default=0),
            public_key=dict(type='str', no_log=False),
            executable=dict(type='str', default='ins-setup'),
            cache=dict(type='path', default='/var/cache/inspp'),
            _source=dict(type='dict'),
        ),
        mutually_exclusive=[['bundle', 'kit']],
        required_one_of=[['bundle', 'kit', 'name']],
        required_if=[['state', 'present', ['bundle', 'kit'], True]],
        supports_check_mode=True,
    )
    try:
        Setup(module).run()
    except (NoProgram, CacheError) as error:
        module.fail_json(msg=str(error))


if __name__ == '__main__':
    main()
