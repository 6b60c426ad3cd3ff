# -*- coding: utf-8 -*-
# SPDX-License-Identifier: MIT
"""Lines SECTION,KEY,VALUE for a product's configuration, and whether they are there already."""
from __future__ import absolute_import, division, print_function

__metaclass__ = type


def parse_lines(lines):
    """The lines as [(section, key, value)]. Throws ValueError with the number of a wrong one, and not
    with its text, which may be a secret."""
    options = []
    for number, line in enumerate(lines, 1):
        parts = [part.strip() for part in line.split(',', 2)]
        if len(parts) != 3 or not parts[0] or not parts[1] or '\n' in line or '=' in parts[1]:
            raise ValueError('values: line %d is not SECTION,KEY,VALUE' % number)
        options.append(tuple(parts))
    return options


def as_text(options):
    """The text of a file for --values."""
    return ''.join('[%s]\n%s=%s\n' % option for option in options)


def read_profile(text):
    """What a configuration file has: {(section, key): value}. The first of two lines counts."""
    found = {}
    section = ''
    for line in text.splitlines():
        line = line.strip()
        if line.startswith('[') and line.endswith(']'):
            section = line[1:-1].strip()
        elif line and line[0] not in ';#' and '=' in line:
            key, value = line.split('=', 1)
            found.setdefault((section, key.strip()), value.strip())
    return found


def are_in(options, path):
    """Whether a configuration file has all of the options, with these values."""
    try:
        with open(path, encoding='utf-8', errors='surrogateescape') as profile:
            found = read_profile(profile.read())
    except (IOError, OSError):
        return False
    wanted = dict(((section, key), value) for section, key, value in options)
    return all(found.get(option) == value for option, value in wanted.items())
