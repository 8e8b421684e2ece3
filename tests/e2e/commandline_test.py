"""What a user does wrong gets one sentence on standard error and the right exit code; what was done
can be listed."""

import json
import unittest

from machine import windows_path
from system import PASSWORD, USER, System, SystemTest, write

FAILED, USAGE = 1, 2


class CommandLineTest(SystemTest):
    def test_mistakes_get_one_sentence_and_an_exit_code(self):
        system = System(self, "mistakes")
        write(system.tree / "a.txt", b"a")
        tree = windows_path(system.tree)
        options = (system.machine.data / "options").read_bytes()
        # arguments, standard input, exit code, a word that the sentence has
        table = [(["login", USER, "--password-stdin"], "wrong\n", FAILED, "password"),
                 (["login", USER, "--password-stdin"], "", USAGE, "password"),
                 (["login", "nobody", "--password-stdin"], PASSWORD + "\n", FAILED, "password"),
                 (["backup", tree + r"\nothing here"], "", None, "nothing here"),
                 (["backup", tree, "--only-ext", "txt", "--skip-ext", "tmp"], "", USAGE, "--"),
                 (["server", "set", "localhost"], "", USAGE, "localhost"),
                 (["start", "no-such-job"], "", None, "no-such-job"),
                 (["restore", "latest", "--prefix", tree], "", USAGE, "--to"),
                 (["restore", "latest"], "", FAILED, "latest"),
                 (["restore", "no-such-run"], "", FAILED, "no-such-run"),
                 (["files", "no-such-run"], "", FAILED, "no-such-run"),
                 (["key", "export", tree + r"\key", "--passphrase-stdin"], "secret\n", FAILED, "key"),
                 (["key", "import", tree + r"\a.txt", "--passphrase-stdin"], "secret\n", FAILED, "a.txt"),
                 (["key", "import", tree + r"\a.txt", "--passphrase-stdin"], "", USAGE, "passphrase"),
                 (["logout", "nobody"], "", FAILED, "nobody"),
                 ([], "", USAGE, "agent")]
        for arguments, typed, code, word in table:
            with self.subTest(arguments=arguments):
                run = system.machine.agent(*arguments, stdin=typed, code=code)
                self.assertIn(run.wait(0), (FAILED, USAGE))
                self.assertEqual(len(run.err.strip().splitlines()), 1, run.err)
                self.assertIn(word, run.err)
                self.assertEqual(run.out.strip(), "")
        # None of it changed anything: the login still holds, no job was made.
        self.assertEqual((system.machine.data / "options").read_bytes(), options)
        self.assertEqual(system.machine.listing("jobs"), [])
        system.backup()

    def test_an_unreachable_server(self):
        system = System(self, "unreachable")
        system.proxy.refuse()
        for arguments, typed in ((["login", USER, "--password-stdin"], PASSWORD + "\n"), (["instances"], "")):
            with self.subTest(arguments=arguments):
                run = system.machine.agent(*arguments, stdin=typed, code=FAILED)
                self.assertEqual(len(run.err.strip().splitlines()), 1, run.err)
                self.assertIn("127.0.0.1:%d" % system.proxy.address[1], run.err)

    def test_a_job_that_nobody_can_read(self):
        system = System(self, "unread")
        write(system.tree / "a.txt", b"a")
        system.backup("--name", "docs")
        job = system.job()
        definition = system.machine.job_folder(job) / "def"
        definition.write_text(definition.read_text().replace('"web"', '"tape"'))
        # It may be the one that is meant.
        run = system.backup("--name", "docs", "--json")
        self.assertIn("later version", run.err)
        self.assertTrue([json.loads(line) for line in run.out.splitlines()])
        system.machine.agent("remove", job)
        self.assertNotIn(job, [j["id"] for j in system.machine.listing("jobs")])
        self.assertFalse(system.machine.job_folder(job).exists())

    def test_two_users_never_see_each_other(self):
        system = System(self, "users")
        write(system.tree / "a.txt", b"a")
        system.backup()
        self.assertEqual(len(system.machine.listing("instances")), 1)
        system.server.add_user("other", "another password")
        system.machine.agent("login", "other", "--password-stdin", stdin="another password\n")
        self.assertIn("--user", system.machine.agent("instances", code=USAGE).err)
        self.assertEqual(system.machine.listing("instances", "--user", "other"), [])
        for command in ("files", "restore"):
            run = system.machine.agent(command, system.instance(), "--user", "other", code=FAILED)
            self.assertIn(system.instance(), run.err)


if __name__ == "__main__":
    unittest.main()
