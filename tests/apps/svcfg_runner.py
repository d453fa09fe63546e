"""A central service of its own, for the tests beside this file."""
import os
import pathlib
import resource
import signal
import subprocess

import cfg_runner

SVCFG = pathlib.Path(cfg_runner.CFG).with_name("svcfg")


def limit_to(files):
    """For a process that may open so many; 0 is no limit."""
    return (lambda: resource.setrlimit(resource.RLIMIT_NOFILE, (files, files))) if files else None


class Service:
    """svcfg on a free port, over a file in `folder`; `flags` come last. It may open `files`."""

    def __init__(self, folder, *flags, port=0, wait=True, files=0):
        self.folder = pathlib.Path(folder)
        self.log = open(self.folder / "svcfg.log", "ab")
        self.process = subprocess.Popen(
            [SVCFG, "--config", "/dev/null", "--store", f"sqlite:{folder}/tree.sqlite",
             "--port", str(port), "--print-port", *flags],
            env=cfg_runner.ENVIRONMENT, stdout=subprocess.PIPE, stderr=self.log,
            preexec_fn=limit_to(files))
        line = self.process.stdout.readline() if wait else ""
        self.port = int(line) if line else 0

    @property
    def address(self):
        return f"127.0.0.1:{self.port}"

    def log_text(self):
        return (self.folder / "svcfg.log").read_text()

    def stop(self, how=signal.SIGTERM):
        """Its exit code."""
        self.process.send_signal(how)
        code = self.process.wait(timeout=60)
        self.process.stdout.close()
        self.log.close()
        return code


def run_svcfg(*arguments, files=0, **environment):
    """Runs it to its end: exit code, standard output, standard error."""
    done = subprocess.run([SVCFG, *arguments], env={**cfg_runner.ENVIRONMENT, **environment},
                          stdout=subprocess.PIPE, stderr=subprocess.PIPE, timeout=60, check=False,
                          cwd=os.sep, text=True, preexec_fn=limit_to(files))
    return done.returncode, done.stdout, done.stderr
