"""Sessions that end while a job runs: one new login, and the run goes on."""

import shutil
import signal
import unittest

import proxy
import trees
from system import PASSWORD, USER, System, SystemTest, make_tree, until

PAUSED, FAILED = 4, 1


class LoginTest(SystemTest):
    def logins(self, system):
        return [r.status for r in system.proxy.requests("Login")]

    def expire_at(self, system, endpoint, nth, start, and_then=lambda: None):
        """Starts a command, and ends all sessions when it comes to that request."""
        fault = system.proxy.add(endpoint, proxy.HOLD_REQUEST, nth=nth)
        run = start()
        system.await_fault(fault, run)
        self.assertGreater(system.server.change_catalog("DELETE FROM sessions"), 0)
        and_then()
        fault.release()
        return run

    def test_a_run_goes_on_with_one_new_login(self):
        system = System(self, "session")
        make_tree(system.tree)
        backup = lambda: system.start_backup("--name", f"job {len(self.logins(system))}")
        for start, endpoint, nth in ((backup, "GetMD5ofKeys", 1), (backup, "FilesToBackup", 1), (backup, "StartJob", 1),
                                     (backup, "uploadfile", 3), (backup, "uploadblock", 9), (backup, "endjob", 1),
                                     (system.start_restore, "GetMD5ofKeys", 1), (system.start_restore, "ListFiles", 1),
                                     (system.start_restore, "StartRestoreJob", 1), (system.start_restore, "GetFileInfo", 3),
                                     (system.start_restore, "DownloadFileBlock", 9),
                                     (system.start_restore, "RestoreJobHistory", 1)):
            with self.subTest(run=start.__name__, endpoint=endpoint):
                before, fetched = self.logins(system), len(system.proxy.requests("DownloadFileBlock"))
                if start is backup:
                    expected = trees.snapshot(system.tree)
                else:
                    shutil.rmtree(system.tree)
                run = self.expire_at(system, endpoint, nth, start)
                self.assertEqual(run.wait(120), 0, run.out + run.err)
                self.assertNotIn("paused", run.out)
                self.assertEqual(self.logins(system), before + [200])
                if start is backup:
                    self.assertBackedUp(system)
                else:
                    self.assertRestored(system, expected, system.tree)
                self.assertEqual(system.proxy.blocks_sent_again() + system.proxy.blocks_fetched_again(fetched), [])

    def test_a_wrong_password_pauses_the_run(self):
        system = System(self, "password")
        make_tree(system.tree)
        expected = trees.snapshot(system.tree)
        for kind, endpoint, start, password in (("backup", "uploadblock", system.start_backup, "a new password"),
                                                ("restore", "DownloadFileBlock", system.start_restore, "one more")):
            with self.subTest(kind):
                system.server.add_user(kind, password)
                before = self.logins(system)
                run = self.expire_at(system, endpoint, 5, start, lambda: system.server.change_catalog(
                    "UPDATE users SET password = (SELECT password FROM users WHERE name = ?) WHERE name = ?", kind, USER))
                run.until_said("paused")
                self.assertIn("401", run.out)
                self.assertEqual(self.logins(system), before + [401])
                run.signal(signal.SIGINT)
                self.assertEqual(run.wait(60), PAUSED, run.out + run.err)
                system.machine.agent("login", USER, "--password-stdin", stdin=password + "\n")
                system.machine.agent("resume", system.job(kind))
                if kind == "backup":
                    self.assertBackedUp(system)
                    shutil.rmtree(system.tree)
        self.assertRestored(system, expected, system.tree)

    def test_another_address_gets_neither_session_nor_password(self):
        system = System(self, "address")
        make_tree(system.tree)
        system.backup("--name", "docs")
        first = "%s:%d" % system.proxy.address
        with proxy.Proxy(system.server.address) as other:
            second = "%s:%d" % other.address
            self.assertIn("--keep-login", system.machine.agent("server", "set", second).out)
            for command in (("start", "docs"), ("instances",)):
                self.assertIn("agent login", system.machine.agent(*command, code=FAILED).err)
            self.assertEqual(other.requests(), [])
            # Back where it was made for it goes on, and where the user says so.
            system.machine.agent("server", "set", first)
            self.assertIn("docs", system.machine.agent("instances").out)
            system.machine.agent("server", "set", second, "--keep-login")
            system.machine.agent("start", "docs")
            self.assertNotEqual(other.requests(), [])
            self.assertEqual(other.requests("Login"), [])
            # The password has come along too.
            system.server.change_catalog("DELETE FROM sessions")
            system.machine.agent("start", "docs")
            self.assertEqual([r.status for r in other.requests("Login")], [200])
        system.machine.agent("server", "set", first)
        self.assertIn("login", system.machine.agent("instances", code=FAILED).err)

    def test_an_unfinished_backup_goes_on_at_no_other_server(self):
        """What the one has of it would be missing at the other, in a backup that says it is complete."""
        system = System(self, "unfinished")
        make_tree(system.tree)
        states = lambda: {i["jobinstanceid"]: i["state"] for i in system.machine.listing("instances")}

        def move_to(address):
            system.machine.agent("server", "set", address)
            system.machine.agent("login", USER, "--password-stdin", stdin=PASSWORD + "\n")

        first = "%s:%d" % system.proxy.address
        system.kill_at(system.start_backup, "uploadblock", proxy.HOLD_REQUEST, 4)
        job, begun = system.job(), system.instance()
        with proxy.Proxy(system.server.address) as other:
            second = "%s:%d" % other.address
            move_to(second)
            run = system.machine.agent("resume", job, code=FAILED)
            self.assertIn("another server", run.out + run.err)
            self.assertEqual(states()[begun], "running")
            self.assertEqual(other.requests("StartJob") + other.requests("CancelJob"), [])
            # Its own hears of it as soon as it is set again, and the next run goes along to a new address.
            move_to(first)
            fault = system.proxy.add("uploadblock", proxy.HOLD_REQUEST, nth=4)
            run = system.machine.start("start", job)
            system.await_fault(fault, run)
            until(lambda: states()[begun] == "cancelled", run)
            run.kill()
            fault.abandon()
            system.proxy.clear()
            gone_on = system.instance()
            system.machine.agent("server", "set", second, "--keep-login")
            system.machine.agent("resume", job)
            self.assertEqual(states()[gone_on], "completed")
        self.assertBackedUp(system)

    def test_after_a_logout_nothing_runs(self):
        system = System(self, "logout")
        make_tree(system.tree)
        key = system.backup() and system.machine.user_key(USER)
        system.machine.agent("logout", USER)
        self.assertEqual(system.server.change_catalog("DELETE FROM sessions"), 0)
        for arguments in (("start", system.job()), ("restore", system.instance()), ("instances",)):
            with self.subTest(arguments):
                run = system.machine.agent(*arguments, code=FAILED)
                self.assertIn("agent login", run.err)
        self.assertNotIn(401, self.logins(system))
        system.machine.agent("login", USER, "--password-stdin", stdin=PASSWORD + "\n")
        system.machine.agent("start", system.job())
        self.assertBackedUp(system)
        self.assertEqual(system.machine.user_key(USER), key)


if __name__ == "__main__":
    unittest.main()
