#!/usr/bin/python
# -*- coding: utf-8 -*-
# SPDX-License-Identifier: MIT
from __future__ import absolute_import, division, print_function

__metaclass__ = type

DOCUMENTATION = r'''
---
module: ins_setup_facts
short_description: Tells which products ins-setup has installed on a host
version_added: "1.0.0"
description:
  - Asks C(ins-setup list), that of the host or of a bundle that was sent to it, and sets the answer as facts.
options:
  executable:
    description:
      - The program on the host, by its name or its path.
    type: str
    default: ins-setup
  cache:
    description:
      - The directory of the host in which bundles are kept, for hosts without the program.
    type: path
    default: /var/cache/inspp
attributes:
  check_mode:
    description: Nothing is changed in any case.
    support: full
requirements:
  - Python 3.6 on the host
  - root on the host (become)
seealso:
  - module: inspp.setup.ins_setup
author:
  - the authors of Ins++ (@inspp)
'''

EXAMPLES = r'''
- name: Ask what is installed
  inspp.setup.ins_setup_facts:

- name: Tell hosts that have edited files
  ansible.builtin.debug:
    msg: "{{ inspp_products | selectattr('differs', 'defined') | selectattr('differs') | map(attribute='name') }}"
'''

RETURN = r'''
ansible_facts:
  description: What is installed.
  returned: success
  type: dict
  contains:
    inspp_products:
      description: The products, as C(products) of C(ins-setup list --json).
      type: list
      elements: dict
      sample: [{"name": "hello", "product": "Hello", "version": "1.5", "installed": true}]
'''

import os

from ansible.module_utils.basic import AnsibleModule
from ansible_collections.inspp.setup.plugins.module_utils.cache import Cache, CacheError
from ansible_collections.inspp.setup.plugins.module_utils.program import NoProgram, Program, why

STATE = '/var/lib/ins++'


def products(module):
    if not os.path.isdir(STATE):  # nothing was ever installed, so there need be no program either
        return []
    program = Program.of_host(module, module.params['executable'], Cache(module.params['cache']))
    answer = program.ask(['list'])
    if answer['exitCode'] != 0:
        module.fail_json(msg=why(answer), answer=answer)
    return answer['products']


def main():
    module = AnsibleModule(
        argument_spec=dict(
            executable=dict(type='str', default='ins-setup'),
            cache=dict(type='path', default='/var/cache/inspp'),
        ),
        supports_check_mode=True,
    )
    try:
        module.exit_json(changed=False, ansible_facts={'inspp_products': products(module)})
    except (NoProgram, CacheError) as error:
        module.fail_json(msg=str(error))


if __name__ == '__main__':
    main()
