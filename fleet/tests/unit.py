# -*- coding: utf-8 -*-
# SPDX-License-Identifier: MIT
"""What needs no host: digests, values, plans, and what a packed kit may hold."""
import io
import os
import sys
import tarfile
import tempfile
import unittest

from ansible_collections.inspp.setup.plugins.module_utils import cache, digest, plan, program, values


class Digests(unittest.TestCase):

    def setUp(self):
        self.kit = tempfile.mkdtemp()
        with open(os.path.join(self.kit, 'a'), 'w') as written:
            written.write('x')

    def test_a_digest_is_of_names_contents_and_rights(self):
        before = digest.source_digest(self.kit)
        os.chmod(os.path.join(self.kit, 'a'), 0o755)
        executable = digest.source_digest(self.kit)
        os.rename(os.path.join(self.kit, 'a'), os.path.join(self.kit, 'b'))
        self.assertEqual(len({before, executable, digest.source_digest(self.kit)}), 3)

    def test_the_right_of_others_to_write_does_not_count(self):
        os.chmod(os.path.join(self.kit, 'a'), 0o644)
        before = digest.source_digest(self.kit)
        os.chmod(os.path.join(self.kit, 'a'), 0o666)
        self.assertEqual(digest.source_digest(self.kit), before)

    def test_a_look_sees_a_change(self):
        before = digest.look(self.kit)
        with open(os.path.join(self.kit, 'a'), 'w') as written:
            written.write('y')
        self.assertNotEqual(digest.look(self.kit), before)


class Values(unittest.TestCase):

    def test_a_value_may_have_commas(self):
        self.assertEqual(values.parse_lines(['A, b,c,d']), [('A', 'b', 'c,d')])

    def test_what_is_no_value_is_told_by_its_number(self):
        for wrong in ('secret', 'A,b', ',b,c', 'A,,c', 'A,b=c,d', 'A,b,c\nd'):
            with self.assertRaisesRegex(ValueError, '^values: line 2 is not SECTION,KEY,VALUE$'):
                values.parse_lines(['A,b,c', wrong])

    def test_a_profile_is_read(self):
        found = values.read_profile('; c\n[A]\nb = 1\nb=2\n#x=1\n[B]\nb=x=y\n')
        self.assertEqual(found, {('A', 'b'): '1', ('B', 'b'): 'x=y'})

    def test_the_last_of_two_values_is_wanted(self):
        with tempfile.NamedTemporaryFile('w') as profile:
            profile.write('[A]\nb=2\n')
            profile.flush()
            self.assertTrue(values.are_in([('A', 'b', '1'), ('A', 'b', '2')], profile.name))
            self.assertFalse(values.are_in([('A', 'b', '1')], profile.name))


class Plans(unittest.TestCase):

    def test_a_plan_tells_no_value(self):
        line = plan.describe({'action': 'put option', 'path': '/a', 'option': '[S] Key=secret'})
        self.assertEqual(line, '+ put option /a [S] Key')

    def test_room_that_is_missing_is_told(self):
        space = {'directory': '/opt', 'bytesNeeded': 5, 'bytesToSpare': 2, 'bytesFree': 1, 'enough': False}
        self.assertEqual(plan.why_not({'exitCode': 73, 'space': [space]}),
                         'not enough room for /opt: 5 bytes and 2 to spare are needed, 1 are free')

    def test_an_obstacle_is_told(self):
        action = {'action': 'copy file', 'path': '/a', 'obstacle': 'it is a directory'}
        self.assertEqual(plan.why_not({'exitCode': 1, 'rules': [{'actions': [action]}]}),
                         'copy file /a: it is a directory')


class Programs(unittest.TestCase):

    def test_an_answer_is_the_last_object(self):
        self.assertEqual(program.last_object('prose\n{"a": 1}\n{"a": 2}\n'), {'a': 2})
        self.assertIsNone(program.last_object('prose\n{damaged\n'))


class Uploads(unittest.TestCase):

    def test_a_packed_kit_may_not_lead_out(self):
        for name in ('/etc/x', '../x', 'a/../../x'):
            with tempfile.NamedTemporaryFile() as archive:
                with tarfile.open(archive.name, 'w') as packed:
                    packed.addfile(tarfile.TarInfo(name), io.BytesIO())
                with self.assertRaisesRegex(cache.CacheError, 'which no kit can have'):
                    cache.unpack_kit(archive.name, tempfile.mkdtemp())

    def test_what_arrives_damaged_is_not_kept(self):
        home = cache.Cache(os.path.join(tempfile.mkdtemp(), 'cache'))
        with tempfile.NamedTemporaryFile() as upload:
            upload.write(b'other')
            upload.flush()
            source = {'kind': 'bundle', 'digest': '0' * 64, 'name': 'a.run'}
            with self.assertRaisesRegex(cache.CacheError, 'what arrived is not what was sent'):
                home.adopt(upload.name, source)
        self.assertEqual(os.listdir(home.directory), ['.lock'])


if __name__ == '__main__':
    outcome = unittest.main(exit=False, argv=sys.argv[:1]).result
    print(outcome.testsRun)
    sys.exit(not outcome.wasSuccessful())
