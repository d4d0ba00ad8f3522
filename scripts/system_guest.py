"""The guest of scripts/system-test: what is fetched for it, and how its file system is made.

Everything lands in one cache folder. Packages are fetched once per version that the archive has,
and unpacked, never installed on this machine.
"""

import os
import re
import shutil
import stat
import subprocess
from pathlib import Path

# Kernel apart, whose package name changes with each update. What a program of these needs in
# shared libraries comes from here or, when it is not here, from this machine.
PACKAGES = ("busybox-static", "kmod", "libkmod2", "libusb-1.0-0", "libudev1", "v4l-utils",
            "libv4l-0", "libv4l2rds0", "libv4lconvert0", "alsa-utils", "libasound2",
            "libasound2-data", "libatopology2", "usbutils", "usbip")
PROGRAMS = ("bin/lsusb", "bin/v4l2-ctl", "bin/v4l2-compliance", "bin/arecord", "sbin/usbip")
# Roots of the dependency walk: the share, the network, the virtual host controller, the drivers.
MODULES = ("9p", "9pnet_virtio", "virtio_pci", "virtio_net", "vhci-hcd", "uvcvideo",
           "snd-usb-audio")
LIBRARY_FOLDER = "usr/lib/x86_64-linux-gnu"


class GuestError(Exception):
    """Something that the guest needs cannot be had; the text says what."""


def run(command, **options):
    result = subprocess.run(command, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True,
                            errors="replace", **options)
    if result.returncode != 0:
        raise GuestError(f"{' '.join(map(str, command))}: {result.stdout.strip()[-500:]}")
    return result.stdout


def kernel_package():
    """Name of the package that Debian's current kernel is in."""
    listing = run(["apt-cache", "depends", "--no-recommends", "--no-suggests", "linux-image-amd64"])
    match = re.search(r"Depends: (linux-image-\S+)", listing)
    if not match:
        raise GuestError("apt knows no kernel (linux-image-amd64); run apt-get update")
    return match[1]


def candidates(packages):
    """Version that the archive has of each package."""
    listing = run(["apt-cache", "policy", *packages])
    versions = dict(re.findall(r"^(\S+):\n.*\n +Candidate: (\S+)", listing, re.MULTILINE))
    for package in packages:
        if versions.get(package, "(none)") == "(none)":
            raise GuestError(f"apt knows no package {package}; run apt-get update")
    return versions


def fetch(package, version, cache):
    """Folder with the unpacked package, fetched when it is not there yet."""
    folder = cache / "packages" / f"{package}_{version.replace(':', '%3a')}"
    if folder.is_dir():
        return folder
    downloads = cache / "debs"
    downloads.mkdir(parents=True, exist_ok=True)
    run(["apt-get", "download", f"{package}={version}"], cwd=downloads)
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


def copy_stripped(source, target):
    """Without symbols and debugging information, which would only make the guest boot later."""
    target.parent.mkdir(parents=True, exist_ok=True)
    run(["strip", "-o", str(target), str(source)])
    target.chmod(0o755)


def needed_libraries(program, folders):
    environment = {**os.environ, "LD_LIBRARY_PATH": ":".join(map(str, folders))}
    listing = subprocess.run(["ldd", str(program)], env=environment, stdout=subprocess.PIPE,
                             stderr=subprocess.DEVNULL, text=True).stdout
    if "not found" in listing:
        missing = re.findall(r"(\S+) => not found", listing)
        raise GuestError(f"{program} needs {', '.join(missing)}")
    return [Path(path) for path in re.findall(r"(/\S+) \(0x", listing)]


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


def add_modules(root, kernel, release, kmod, cache):
    """Copies the modules without their debugging information; the copies are kept."""
    order = module_order(kernel, release, kmod, cache)
    stripped = cache / f"modules-{release}"
    stripped.mkdir(exist_ok=True)
    for source in order:
        if not (stripped / source.name).is_file():
            unfinished = stripped / "unfinished"
            run(["strip", "--strip-debug", "-o", str(unfinished), str(source)])
            unfinished.rename(stripped / source.name)
    shutil.copytree(stripped, root / "modules")
    (root / "modules/order").write_text("".join(f"{source.name}\n" for source in order))


def add_programs(root, packages, own_programs, own_libraries):
    """Copies programs and every shared library that one of them needs."""
    folders = [package / LIBRARY_FOLDER for package in packages.values()]
    folders += [package / "lib/x86_64-linux-gnu" for package in packages.values()]
    folders = [folder for folder in folders if folder.is_dir()]
    programs = [next(path for package in packages.values()
                     for path in (package / "usr" / name, package / name) if path.is_file())
                for name in PROGRAMS]
    for program in [*programs, *own_programs]:
        copy_stripped(program, root / "bin" / program.name)
    library_folder = root / "lib/x86_64-linux-gnu"
    libraries = set(own_libraries)
    for program in [*programs, *own_programs, *own_libraries]:
        libraries.update(needed_libraries(program, folders))
    for library in libraries:
        place = root / "lib64" if library.name.startswith("ld-linux") else library_folder
        copy_stripped(library.resolve(), place / library.name)


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


def build_guest(cache, build, scripts):
    """Makes kernel and initial file system in `cache`; returns their paths.

    `build` is the build tree with plug-in, camhost, virtcam and system_scenarios.
    """
    cache.mkdir(parents=True, exist_ok=True)
    kernel_name = kernel_package()
    versions = candidates([kernel_name, *PACKAGES])
    kernel = fetch(kernel_name, versions[kernel_name], cache)
    packages = {name: fetch(name, versions[name], cache) for name in PACKAGES}
    release = kernel_name.removeprefix("linux-image-").removesuffix("-unsigned")

    root = cache / "root"
    shutil.rmtree(root, ignore_errors=True)
    for folder in ("bin", "proc", "sys", "dev", "tmp", "run", "var", "usr/lib"):
        (root / folder).mkdir(parents=True)
    (root / "usr/lib/x86_64-linux-gnu").symlink_to("/lib/x86_64-linux-gnu")
    (root / "usr/bin").symlink_to("/bin")
    copy_program(packages["busybox-static"] / "bin/busybox", root / "bin/busybox")
    copy_program(scripts / "system/init", root / "init")
    copy_program(scripts / "publish-bus-listing", root / "bin/publish-bus-listing")
    add_modules(root, kernel, release, packages["kmod"], cache)
    add_programs(root, packages,
                 [build / "host/camhost", build / "virtcam/tool/virtcam",
                  build / "tests/system/system_scenarios"],
                 [build / "Src/libaitorixcamera.so"])
    add_data(root, packages)
    run([str(scripts / "make-tv-files"), str(root)])
    image = cache / "guest.cpio"
    make_image(root, image)
    return kernel / f"boot/vmlinuz-{release}", image
