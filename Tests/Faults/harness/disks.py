"""Small file systems: in memory, and on loop devices."""

import contextlib
import ctypes
import fcntl
import os
import pathlib
import subprocess

from .case import NotRun, need, need_root

CLONE_NEWNS, MS_REC, MS_PRIVATE = 0x20000, 0x4000, 1 << 18
FIFREEZE, FITHAW = 0xC0045877, 0xC0045878


def keep_mounts_private():
    """Whatever this process mounts goes with it. Before any thread is started; needs root."""
    libc = ctypes.CDLL(None, use_errno=True)
    if libc.unshare(CLONE_NEWNS) == 0:
        libc.mount(b"none", b"/", None, MS_REC | MS_PRIVATE, None)


def _mount(*arguments):
    need_root()
    need("mount")
    done = subprocess.run(["mount", *map(str, arguments)], capture_output=True, text=True)
    if done.returncode != 0:
        raise NotRun(f"cannot mount: {done.stderr.strip()}")


@contextlib.contextmanager
def mounted(folder, *arguments):
    """`mount ARGUMENTS FOLDER` for the length of a block; the folder is made."""
    folder = pathlib.Path(folder)
    folder.mkdir(parents=True, exist_ok=True)
    _mount(*arguments, folder)
    try:
        yield folder
    finally:
        if subprocess.run(["umount", str(folder)], capture_output=True).returncode != 0:
            subprocess.run(["umount", "-l", str(folder)], check=True)


def in_memory(folder, size: str):
    """A file system in memory of a size such as "64k"."""
    return mounted(folder, "-t", "tmpfs", "-o", f"size={size},mode=0700", "none")


def remount(folder, options: str):
    _mount("-o", f"remount,{options}", folder)


def make_image(image, megabytes: int):
    """A file that holds an empty ext4 file system."""
    need("mkfs.ext4")
    with open(image, "wb") as made:
        made.truncate(megabytes << 20)
    subprocess.run(["mkfs.ext4", "-q", "-F", "-m", "0", str(image)], check=True,
                   env=dict(os.environ, PATH=os.environ.get("PATH", "") + ":/usr/sbin:/sbin"))


def on_loop(image, folder):
    """Mounts an image."""
    if not pathlib.Path("/dev/loop-control").exists():
        raise NotRun("there are no loop devices")
    return mounted(folder, "-o", "loop", image)


class PoweredDisk:
    """A file system whose power can be cut: `copy` is what its device holds at one moment.

    Its image is a file of an outer file system. Freezing the outer one stops the device between two
    writes, and nothing that the inner one still holds in memory gets into the copy. It is mounted `at` some folder, "disk"
    within `folder` unless told otherwise."""

    def __init__(self, folder, megabytes: int = 48, at=None):
        folder = pathlib.Path(folder)
        self._stack = contextlib.ExitStack()
        outer, self.folder = folder / "outer", pathlib.Path(at or folder / "disk")
        make_image(folder / "outer.image", megabytes + 16)
        try:
            self._outer = self._stack.enter_context(on_loop(folder / "outer.image", outer))
            self._image = outer / "image"
            make_image(self._image, megabytes)
            self._stack.enter_context(on_loop(self._image, self.folder))
        except BaseException:
            self._stack.close()
            raise

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self._stack.close()

    @contextlib.contextmanager
    def frozen(self):
        """Whatever is written to the device waits for the end of the block."""
        outer = os.open(self._outer, os.O_RDONLY | os.O_DIRECTORY)
        try:
            fcntl.ioctl(outer, FIFREEZE, 0)
            try:
                yield
            finally:
                fcntl.ioctl(outer, FITHAW, 0)
        finally:
            os.close(outer)

    def copy(self, image):
        """The device's bytes at this moment."""
        with self.frozen():
            subprocess.run(["cp", "--sparse=always", str(self._image), str(image)], check=True)
