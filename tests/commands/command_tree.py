"""A copy of what ./run and ./test are made of, with stand-ins for the machine's tools."""

import os
import shutil
import subprocess
import tempfile
from pathlib import Path

ROOT = Path(__file__).resolve().parents[2]

_COPIED = ("run", "test", "scripts", "tests/desktop/output_folder.py")
_REAL_TOOLS = ("bash", "sh", "cat", "chmod", "curl", "dirname", "env", "find", "flock", "grep", "id", "ln", "mkdir",
               "python3", "realpath", "rm", "sed", "tee", "timeout", "touch", "xargs")


class CommandTree:
    """`root` is the tree, `caller` another folder; `tools` is all that the commands find in PATH."""

    def __init__(self, test):
        folder = tempfile.TemporaryDirectory()
        test.addCleanup(folder.cleanup)
        Path(folder.name).chmod(0o755)
        self.root = Path(folder.name) / "tree"
        self.caller = Path(folder.name) / "caller"
        self.tools = Path(folder.name) / "tools"
        for place in (self.root, self.caller, self.tools, self.root / "processor/src"):
            place.mkdir(parents=True)
        for name in _COPIED:
            copy = shutil.copytree if (ROOT / name).is_dir() else shutil.copy
            (self.root / name).parent.mkdir(parents=True, exist_ok=True)
            copy(ROOT / name, self.root / name)
        for name in _REAL_TOOLS:
            (self.tools / name).symlink_to(shutil.which(name))
        for name in ("yt-dlp", "ffmpeg", "ffprobe"):
            self.stand_in(name, "true")
        self.stand_in("dpkg-query", "echo installed")
        self.stand_in("apt-get", "echo apt-get must not run >&2; exit 1")
        self.stand_in("node", "echo v18.19.0")
        # What is built tells how it was started.
        self.stand_in("cmake", 'mkdir -p build/release/bin; printf "%s\\n" \'#!/bin/sh\' \'echo "helper started: $*"\' '
                               ">build/release/bin/zunto-helper; chmod +x build/release/bin/zunto-helper")
        (self.root / "tests/desktop/demo.py").write_text(
            "import os, sys; print('demonstration:', *sys.argv[1:], 'in', os.environ.get('TMPDIR'))", encoding="utf-8")

    def stand_in(self, name, script):
        tool = self.tools / name
        tool.unlink(missing_ok=True)
        tool.write_text(f"#!/bin/sh\n{script}\n", encoding="utf-8")
        tool.chmod(0o755)

    def call(self, command, *arguments, as_user=False, **environment):
        """Of ./run or ./test, from another folder; answers the completed process. As a user it can read all and write
        what is everyone's."""
        with self.start(command, *arguments, as_user=as_user, **environment) as process:
            output, errors = process.communicate(timeout=60)
        return subprocess.CompletedProcess(process.args, process.returncode, output, errors)

    def start(self, command, *arguments, as_user=False, **environment):
        """The same, still running."""
        # Permissions stop anyone but root.
        as_nobody = [shutil.which("setpriv"), "--reuid=65534", "--regid=65534", "--clear-groups"]
        prefix = as_nobody if as_user and os.getuid() == 0 else []
        kept = {name: os.environ[name] for name in ("HOME", "LANG") if name in os.environ}
        return subprocess.Popen([*prefix, self.root / command, *map(str, arguments)], cwd=self.caller, text=True,
                                env={**kept, "PATH": str(self.tools), **environment}, stdin=subprocess.DEVNULL,
                                stdout=subprocess.PIPE, stderr=subprocess.PIPE)
