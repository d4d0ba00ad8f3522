#!/usr/bin/env python3
"""scripts/sandbox from outside: exit status, signals, privacy of the folders, what is left."""

import os
import signal
import subprocess
import tempfile
import unittest
from pathlib import Path

SANDBOX = Path(__file__).resolve().parents[2] / "scripts/sandbox"
# A command that says it is ready, and then tells which signal it got. It waits for the signal, since
# a shell may miss one that comes between its trap and its next command.
WAITER = """
import signal, sys
awaited = {signal.SIGINT: 3, signal.SIGTERM: 4}
signal.pthread_sigmask(signal.SIG_BLOCK, awaited)
print("ready", flush=True)
got = signal.sigwait(awaited)
print("got", got.name[3:], flush=True)
sys.exit(awaited[got])
"""


class Sandbox(unittest.TestCase):
    def setUp(self):
        self.folder = tempfile.TemporaryDirectory()
        self.addCleanup(self.folder.cleanup)
        self.env = dict(os.environ, TMPDIR=self.folder.name)

    def run_in(self, *arguments):
        return subprocess.run([SANDBOX, *arguments], env=self.env, stdin=subprocess.DEVNULL,
                              capture_output=True, text=True, timeout=30)

    def test_help_says_what_it_is_for(self):
        run = self.run_in("--help")
        self.assertEqual(run.returncode, 0)
        self.assertIn("--tv", run.stdout)

    def test_exit_status_is_the_commands(self):
        self.assertEqual(self.run_in("--", "sh", "-c", "exit 42").returncode, 42)

    def test_death_by_signal_is_told_as_a_shell_does(self):
        self.assertEqual(self.run_in("--", "sh", "-c", "kill -SEGV $$").returncode, 128 + 11)

    def test_unknown_command_is_127(self):
        self.assertEqual(self.run_in("no-such-command-here").returncode, 127)

    def test_missing_template_is_refused(self):
        run = self.run_in("--tv", "/no/such/folder", "true")
        self.assertEqual(run.returncode, 125)
        self.assertIn("/no/such/folder", run.stderr)

    def test_nothing_is_left_behind(self):
        before = set(os.listdir("/"))
        self.assertEqual(self.run_in("sh", "-c", "touch /dtv/x /mtd_exe/y").returncode, 0)
        self.assertEqual(os.listdir(self.folder.name), [])
        self.assertEqual(set(os.listdir("/")), before)

    def test_two_sandboxes_do_not_see_each_other(self):
        other = f"{SANDBOX} -- test -e /dtv/mark"
        run = self.run_in("sh", "-c", f"touch /dtv/mark && ! {other} && test -e /dtv/mark")
        self.assertEqual(run.returncode, 0, run.stderr)

    def test_state_folder_is_kept(self):
        with tempfile.TemporaryDirectory() as state:
            self.run_in("--state", state, "--", "sh", "-c", "echo 1.45.203 > /dtv/cm_cam_version")
            self.assertEqual(Path(state, "dtv/cm_cam_version").read_text(), "1.45.203\n")

    def test_template_is_copied_not_shared(self):
        with tempfile.TemporaryDirectory() as template:
            os.mkdir(Path(template, "dtv"))
            Path(template, "dtv/cm_frequency").write_text("2\n")
            run = self.run_in("--tv", template, "sh", "-c",
                              "cat /dtv/cm_frequency; echo 1 > /dtv/cm_frequency")
            self.assertEqual(run.stdout, "2\n")
            self.assertEqual(Path(template, "dtv/cm_frequency").read_text(), "2\n")

    def signalled(self, number):
        # A background job of a shell inherits an ignored INT, which the sandbox would respect.
        process = subprocess.Popen([SANDBOX, "--", "python3", "-c", WAITER], env=self.env,
                                   preexec_fn=lambda: signal.signal(number, signal.SIG_DFL),
                                   stdin=subprocess.PIPE, stdout=subprocess.PIPE, text=True)
        with process.stdin, process.stdout:
            self.assertEqual(process.stdout.readline(), "ready\n")
            process.send_signal(number)
            told = process.stdout.readline()
        return told, process.wait(timeout=30)

    def test_interrupt_reaches_the_command_which_may_clean_up(self):
        self.assertEqual(self.signalled(signal.SIGINT), ("got INT\n", 3))

    def test_termination_reaches_the_command(self):
        self.assertEqual(self.signalled(signal.SIGTERM), ("got TERM\n", 4))


class RoadOfTheEnvironment(unittest.TestCase):
    def run_with(self, road):
        return subprocess.run([SANDBOX, "true"], env=dict(os.environ, AITCAM_SANDBOX_ROAD=road),
                              capture_output=True, text=True, timeout=30)

    def test_empty_is_none(self):
        self.assertEqual(self.run_with("").returncode, 0)

    def test_unknown_is_refused(self):
        run = self.run_with("proot")
        self.assertEqual(run.returncode, 2)
        self.assertIn("AITCAM_SANDBOX_ROAD: proot: one of auto, namespace, fakechroot", run.stderr)


class FakechrootRoad(Sandbox):
    """The same by the other road, which no machine of ours takes by itself."""

    def run_in(self, *arguments):
        return super().run_in("--road", "fakechroot", *arguments)

    def signalled(self, number):
        self.env["AITCAM_SANDBOX_ROAD"] = "fakechroot"
        return super().signalled(number)

    def test_road_is_taken_without_a_word(self):
        run = self.run_in("sh", "-c", "echo $AITCAM_SANDBOX")
        self.assertEqual((run.stdout, run.stderr), ("fakechroot\n", ""))

    def test_nothing_is_traced(self):
        run = self.run_in("grep", "TracerPid", "/proc/self/status")
        self.assertEqual(run.stdout.split(), ["TracerPid:", "0"])

    def test_every_program_sees_the_folders(self):
        run = self.run_in("sh", "-c", "echo x > /proc/bus/usb/devices && ls /proc/bus/usb && "
                          "cp /proc/bus/usb/devices /dtv/copy && "
                          "python3 -c 'print(open(\"/dtv/copy\").read())' && stat -c %s /dtv/copy")
        self.assertEqual((run.stdout.split(), run.stderr), (["devices", "x", "2"], ""))


class WithoutNamespaces(unittest.TestCase):
    """Where mounting is not permitted, the road is found by trying, and said in one line."""

    # Mounting is taken away in a user namespace of its own or, where there are none, from root. A
    # process that cannot do either (as in a plain container) may be in the wanted surroundings
    # already.
    IN_NAMESPACE = ("echo 0 > /proc/sys/user/max_user_namespaces && "
                    "exec capsh --drop=cap_sys_admin -- -c 'exec \"$@\"' sh \"$@\"")
    WAYS = (["unshare", "-r", "sh", "-c", IN_NAMESPACE, "sh"],
            ["capsh", "--drop=cap_sys_admin", "--", "-c", 'exec "$@"', "sh"],
            [])

    @staticmethod
    def works(command):
        return subprocess.run(command, stdin=subprocess.DEVNULL,
                              capture_output=True).returncode == 0

    def run_without_namespaces(self, command):
        for way in self.WAYS:
            if (not way or self.works([*way, "true"])) and \
                    not self.works([*way, "bwrap", "--dev-bind", "/", "/", "true"]):
                return subprocess.run([*way, *map(str, command)], stdin=subprocess.DEVNULL,
                                      capture_output=True, text=True, timeout=60)
        self.skipTest("mounting is permitted here and cannot be taken away")

    def test_fakechroot_takes_over_and_says_so_once(self):
        run = self.run_without_namespaces(
            [SANDBOX, "--road", "auto", "--", "sh", "-c", "echo x > /dtv/x && cat /dtv/x; exit 7"])
        self.assertEqual((run.returncode, run.stdout), (7, "x\n"), run.stderr)
        self.assertEqual(run.stderr.count("\n"), 1, run.stderr)
        self.assertIn("using fakechroot", run.stderr)

    def test_namespace_road_cannot_be_forced(self):
        run = self.run_without_namespaces([SANDBOX, "--road", "namespace", "--", "true"])
        self.assertEqual(run.returncode, 125)
        self.assertIn("cannot make a sandbox", run.stderr)


if __name__ == "__main__":
    unittest.main()
