"""The guest of scripts/system-test: what is fetched for it, and how its file system is made.

Everything lands in one cache folder. Packages are fetched once per version that the archive has,
and unpacked, never installed on this machine.
"""

import os
import re
import shutil
import subprocess
from dataclasses import dataclass
from pathlib import Path

# Kernel apart, whose package name changes with each update. What a program of these needs in
# shared libraries comes from here or, when it is not here, from where our programs were linked.
PACKAGES = ("busybox-static", "libusb-1.0-0", "libudev1", "v4l-utils", "libv4l-0", "libv4l2rds0",
            "libv4lconvert0", "alsa-utils", "libasound2", "libasound2-data", "libatopology2",
            "usbutils", "usbip")
DEPMOD_PACKAGE = "kmod"  # runs here, whatever the guest is
PROGRAMS = ("bin/lsusb", "bin/v4l2-ctl", "bin/v4l2-compliance", "bin/arecord", "sbin/usbip")
GST_PLUGINS = ("coreelements", "video4linux2")  # of GStreamer's own
GST_PROGRAM = "usr/bin/gst-launch-1.0"
# Roots of the dependency walk: the share, the network, the virtual host controller, the drivers.
MODULES = ("9p", "9pnet_virtio", "virtio_pci", "virtio_net", "vhci-hcd", "uvcvideo",
           "snd-usb-audio")


class GuestError(Exception):
    """Something that the guest needs cannot be had; the text says what."""


@dataclass(frozen=True)
class Machine:
    """A kind of guest. Paths are relative to the tree."""

    kernel: str  # package that depends on Debian's current kernel
    triplet: str  # where its libraries are
    loader: str  # its dynamic linker, where programs expect it
    emulator: tuple[str, ...]  # QEMU's command, as far as it is this machine's
    console: str
    network: str  # QEMU's device
    build: str  # build tree of the guest's programs
    cache: str
    sysroot: str = ""  # where the programs were linked; empty: this machine
    apt_config: str = ""  # of make-sysroot; empty: this machine's own
    tools: str = ""  # prefix of binutils
    slowness: int = 1  # how many times longer everything may take


MACHINES = {
    "amd64": Machine(
        kernel="linux-image-amd64", triplet="x86_64-linux-gnu",
        loader="lib64/ld-linux-x86-64.so.2", emulator=("qemu-system-x86_64",), console="ttyS0",
        network="virtio-net-pci,romfile=", build="build/release", cache="build/system"),
    "armhf": Machine(
        kernel="linux-image-armmp", triplet="arm-linux-gnueabihf",
        loader="lib/ld-linux-armhf.so.3",
        emulator=("qemu-system-arm", "-machine", "virt,highmem=off", "-cpu", "cortex-a15"),
        console="ttyAMA0", network="virtio-net-pci,romfile=", build="build/armhf",
        cache="build/system-armhf", sysroot="build/sysroot/armhf",
        apt_config="build/sysroot/apt-armhf/apt.conf", tools="arm-linux-gnueabihf-", slowness=4),
}


def run(command, **options):
    result = subprocess.run(command, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True,
                            errors="replace", **options)
    if result.returncode != 0:
        raise GuestError(f"{' '.join(map(str, command))}: {result.stdout.strip()[-500:]}")
    return result.stdout


class Archive:
    """Debian's archive as apt sees it, with a folder for what was fetched of it."""

    def __init__(self, cache, config=None):
        self.cache = cache
        self.environment = {**os.environ, **({"APT_CONFIG": str(config)} if config else {})}
        if config:  # nobody else keeps this state up to date; not every index can always be had
            subprocess.run(["apt-get", "-q", "update"], env=self.environment,
                           stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)

    def ask(self, *words):
        return run(["apt-cache", *words], env=self.environment)

    def kernel_package(self, package):
        """Name of the package that Debian's current kernel is in."""
        listing = self.ask("depends", "--no-recommends", "--no-suggests", package)
        match = re.search(r"Depends: (linux-image-\S+)", listing)
        if not match:
            raise GuestError(f"apt knows no kernel ({package}); run apt-get update")
        return match[1]

    def candidates(self, packages):
        """Version that the archive has of each package."""
        listing = self.ask("policy", *packages)
        versions = dict(re.findall(r"^(\S+):\n.*\n +Candidate: (\S+)", listing, re.MULTILINE))
        for package in packages:
            if versions.get(package, "(none)") == "(none)":
                raise GuestError(f"apt knows no package {package}; run apt-get update")
        return versions

    def fetch_all(self, packages):
        """The folder of each unpacked package."""
        versions = self.candidates(packages)
        return {name: self.fetch(name, versions[name]) for name in packages}

    def fetch(self, package, version):
        """Folder with the unpacked package, fetched when it is not there yet."""
        folder = self.cache / "packages" / f"{package}_{version.replace(':', '%3a')}"
        if folder.is_dir():
            return folder
        downloads = self.cache / "debs"
        downloads.mkdir(parents=True, exist_ok=True)
        run(["apt-get", "download", f"{package}={version}"], cwd=downloads, env=self.environment)
        files = sorted(downloads.glob(f"{package}_*.deb"), key=lambda path: path.stat().st_mtime)
        unfinished = folder.with_name(folder.name + ".part")
        shutil.rmtree(unfinished, ignore_errors=True)
        unfinished.mkdir(parents=True)
        run(["dpkg-deb", "-x", str(files[-1]), str(unfinished)])
        unfinished.rename(folder)
        files[-1].unlink()
        return folder


def copy_program(source, target):
    target.parent.mkdir(parents=True, exist_ok=True)
    shutil.copyfile(source, target)
    target.chmod(0o755)


class Binaries:
    """What is said of programs of one machine, and done to them, without running them."""

    def __init__(self, tools, folders):
        self.tools = tools
        self.folders = folders  # where libraries are looked for

    def copy_stripped(self, source, target):
        """Without symbols and debugging information, which would only make the guest boot later."""
        target.parent.mkdir(parents=True, exist_ok=True)
        run([f"{self.tools}strip", "-o", str(target), str(source)])
        target.chmod(0o755)

    def needed_libraries(self, programs):
        """Files of all shared libraries that one of these needs, directly or not."""
        found = {}
        waiting = list(programs)
        while waiting:
            binary = waiting.pop()
            for name in self.needed_names(binary):
                if name not in found:
                    found[name] = self.find(name, binary)
                    waiting.append(found[name])
        return list(found.values())

    def needed_names(self, binary):
        listing = run([f"{self.tools}readelf", "--dynamic", "--wide", str(binary)])
        return re.findall(r"\(NEEDED\).*\[(.+)\]", listing)

    def find(self, name, binary):
        for folder in self.folders:
            if (folder / name).exists():
                return folder / name
        raise GuestError(f"{binary} needs {name}")


def module_order(kernel, release, kmod, cache):
    """Paths of MODULES and what they need, in an order in which they can be loaded."""
    tree = kernel / "lib/modules" / release
    if not (tree / "modules.dep").is_file():
        environment = {**os.environ, "LD_LIBRARY_PATH": str(cache)}
        depmod = cache / "depmod"
        depmod.unlink(missing_ok=True)
        depmod.symlink_to(kmod / "bin/kmod")
        run([str(depmod), "-b", str(kernel), release], env=environment)
    needs = {}
    for line in (tree / "modules.dep").read_text().splitlines():
        module, _, rest = line.partition(":")
        needs[module] = rest.split()
    by_name = {Path(path).stem.replace("-", "_"): path for path in needs}
    order = []

    def visit(path):
        if path not in order:
            for other in needs[path]:
                visit(other)
            order.append(path)

    for name in MODULES:
        path = by_name.get(name.replace("-", "_"))
        if path is None:
            raise GuestError(f"the kernel package has no module {name}")
        visit(path)
    return [tree / path for path in order]


def add_modules(root, machine, kernel, release, kmod, cache):
    """Copies the modules without their debugging information; the copies are kept."""
    order = module_order(kernel, release, kmod, cache)
    stripped = cache / f"modules-{release}"
    stripped.mkdir(exist_ok=True)
    for source in order:
        if not (stripped / source.name).is_file():
            unfinished = stripped / "unfinished"
            run([f"{machine.tools}strip", "--strip-debug", "-o", str(unfinished), str(source)])
            unfinished.rename(stripped / source.name)
    shutil.copytree(stripped, root / "modules")
    (root / "modules/order").write_text("".join(f"{source.name}\n" for source in order))


def library_folders(machine, packages, sysroot):
    """Of the packages, then of what our programs were linked with."""
    roots = [*packages.values(), sysroot]
    places = (f"usr/lib/{machine.triplet}", f"lib/{machine.triplet}",
              f"usr/lib/{machine.triplet}/pulseaudio")  # named by those who need one of these
    return [root / place for root in roots for place in places if (root / place).is_dir()]


def add_programs(root, machine, binaries, packages, own_programs, own_libraries):
    """Copies programs and every shared library that one of them needs."""
    programs = [next(path for package in packages.values()
                     for path in (package / "usr" / name, package / name) if path.is_file())
                for name in PROGRAMS]
    for program in [*programs, *own_programs]:
        binaries.copy_stripped(program, root / "bin" / program.name)
    libraries = binaries.needed_libraries([*programs, *own_programs, *own_libraries])
    for library in [*own_libraries, *libraries]:
        binaries.copy_stripped(library.resolve(), root / "lib" / machine.triplet / library.name)
    loader = root / machine.loader
    loader.parent.mkdir(exist_ok=True)
    loader.symlink_to(f"/lib/{machine.triplet}/{loader.name}")


def element_of(build, sysroot):
    """The GStreamer element, where it was built and a pipeline can be played; None elsewhere. A
    sysroot (scripts/make-sysroot) has what a build needs, and no programs."""
    element = build / "gst/libgstaitcam.so"
    return element if element.is_file() and (sysroot / GST_PROGRAM).is_file() else None


def add_gstreamer(root, machine, binaries, sysroot, element):
    """gst-launch-1.0, our element and what it is compared with, of the GStreamer that the element
    was linked with; at the places where that looks."""
    folder = f"lib/{machine.triplet}"
    plugins = [element, *(sysroot / f"usr/{folder}/gstreamer-1.0/libgst{name}.so"
                          for name in GST_PLUGINS)]
    program = sysroot / GST_PROGRAM
    binaries.copy_stripped(program, root / "bin" / program.name)
    for plugin in plugins:
        binaries.copy_stripped(plugin, root / folder / "gstreamer-1.0" / plugin.name)
    for library in binaries.needed_libraries([program, *plugins]):
        if not (root / folder / library.name).exists():
            binaries.copy_stripped(library.resolve(), root / folder / library.name)


def add_data(root, packages):
    shutil.copytree(packages["libasound2-data"] / "usr/share/alsa", root / "usr/share/alsa")
    (root / "etc").mkdir()
    (root / "etc/passwd").write_text("root:x:0:0:root:/:/bin/sh\n")
    (root / "etc/group").write_text("root:x:0:\n")


def make_image(root, target):
    """Packs `root` as the kernel's initial file system; uncompressed, which starts soonest."""
    names = "\0".join(str(path.relative_to(root)) for path in sorted(root.rglob("*"))) + "\0"
    with open(target, "wb") as image:
        subprocess.run(["cpio", "--null", "-o", "-H", "newc", "--quiet", "-R", "0:0"], cwd=root,
                       input=names.encode(), stdout=image, check=True)


def build_guest(tree, machine, build):
    """Makes kernel and initial file system in the machine's cache; returns their paths.

    `build` is the build tree with plug-in, camhost, virtcam, system_scenarios and the GStreamer
    element, if any, for the guest.
    """
    cache = tree / machine.cache
    cache.mkdir(parents=True, exist_ok=True)
    archive = Archive(cache, tree / machine.apt_config if machine.apt_config else None)
    kernel_name = archive.kernel_package(machine.kernel)
    packages = archive.fetch_all([kernel_name, *PACKAGES])
    kernel = packages.pop(kernel_name)
    kmod = Archive(cache / "tools").fetch_all([DEPMOD_PACKAGE])[DEPMOD_PACKAGE]
    release = kernel_name.removeprefix("linux-image-").removesuffix("-unsigned")
    sysroot = tree / machine.sysroot if machine.sysroot else Path("/")
    binaries = Binaries(machine.tools, library_folders(machine, packages, sysroot))

    root = cache / "root"
    shutil.rmtree(root, ignore_errors=True)
    for folder in ("bin", "proc", "sys", "dev", "tmp", "run", "var", "lib", "usr/lib"):
        (root / folder).mkdir(parents=True)
    (root / f"usr/lib/{machine.triplet}").symlink_to(f"/lib/{machine.triplet}")
    (root / "usr/bin").symlink_to("/bin")
    scripts = tree / "scripts"
    copy_program(packages["busybox-static"] / "bin/busybox", root / "bin/busybox")
    copy_program(scripts / "system/init", root / "init")
    copy_program(scripts / "publish-bus-listing", root / "bin/publish-bus-listing")
    add_modules(root, machine, kernel, release, kmod, cache)
    add_programs(root, machine, binaries, packages,
                 [build / "host/camhost", build / "virtcam/tool/virtcam",
                  build / "tests/system/system_scenarios"],
                 [build / "Src/libaitorixcamera.so"])
    element = element_of(build, sysroot)
    if element:
        add_gstreamer(root, machine, binaries, sysroot, element)
    add_data(root, packages)
    run([str(scripts / "make-tv-files"), str(root)])
    image = cache / "guest.cpio"
    make_image(root, image)
    return kernel / f"boot/vmlinuz-{release}", image
