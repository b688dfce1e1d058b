"""Builds the files of a virtual machine: Debian's kernel, and an initrd with modules, busybox, udev and our programs.

Everything is kept in a folder, and made again only if it is missing; the programs are always brought up to date.
Packages come from the mirror that this machine's apt uses, through an apt state of our own, so that another
release or processor does not touch the machine's.
"""
import os
import pathlib
import re
import shutil
import subprocess

HERE = pathlib.Path(__file__).resolve().parent
ROOT = HERE.parent.parent

RELEASES = {"5.10": "bullseye", "6.1": "bookworm", "6.12": "trixie"}
USER_LAND = "bookworm"  # also for other kernels

MODULES = """virtio_pci virtio_console xhci_pci vhci_hcd dummy_hcd libcomposite usb_f_ss_lb gadgetfs
    usbhid hid_generic""".split()

# The names of the processor and the linker in paths, if they differ from Debian's architecture.
DEBIAN = {"amd64": "x86_64-linux-gnu", "arm64": "aarch64-linux-gnu"}
LOADER = {"amd64": "lib64/ld-linux-x86-64.so.2", "arm64": "lib/ld-linux-aarch64.so.1"}
UDEV = "udev libudev1 libkmod2 libblkid1 libacl1 libselinux1 libpcre2-8-0 libcap2 liblzma5 libzstd1 libssl3".split()
PYTHON = "python3.11-minimal libpython3.11-minimal libpython3.11-stdlib libffi8 libexpat1 zlib1g".split()
TEXT = ["libutf8proc-dev", "libutf8proc2"]  # libraries of yusb


class Failed(Exception):
    """The machine cannot be built; the message says why."""


def run(*command, **options):
    """Returns the output of a command. If it fails, raises Failed with its last lines."""
    done = subprocess.run([str(word) for word in command], stdout=subprocess.PIPE, stderr=subprocess.PIPE,
                          text=True, **options)
    if done.returncode != 0:
        said = "\n".join((done.stdout + done.stderr).strip().splitlines()[-20:])
        raise Failed(f"'{command[0]}' failed with status {done.returncode}:\n{said}")
    return done.stdout


def find_mirror():
    """The URL of Debian's own mirror in this machine's apt."""
    targets = run("apt-get", "indextargets", "--format", "$(ORIGIN)|$(LABEL)|$(REPO_URI)", "Created-By: Packages")
    for line in targets.splitlines():
        origin, label, url = line.split("|")
        if (origin, label) == ("Debian", "Debian"):
            return url
    raise Failed("apt has no Debian mirror: run 'apt-get update', or pass one with --mirror")


class Packages:
    """Debian packages of one release for one processor."""

    def __init__(self, folder, release, arch, mirror):
        self.folder = folder
        self.release = release
        self.arch = arch
        self.mirror = mirror
        self.options = []

    def prepare(self):
        state = self.folder / f"apt-{self.release}-{self.arch}"
        if not self.options:
            for part in ("lists/partial", "cache/archives/partial", "etc"):
                (state / part).mkdir(parents=True, exist_ok=True)
            sources = state / "sources.list"
            sources.write_text(f"deb {self.mirror or find_mirror()} {self.release} main\n")
            (state / "status").touch()
            settings = {"Architecture": self.arch, "Architectures": self.arch, "Sandbox::User": "root",
                        "Install-Recommends": "false"}
            folders = {"State": state, "State::lists": state / "lists", "State::status": state / "status",
                       "Cache": state / "cache", "Etc::sourcelist": sources, "Etc::sourceparts": "/dev/null",
                       "Etc::preferencesparts": "/dev/null"}
            self.options = [f"-oAPT::{key}={value}" for key, value in settings.items()]
            self.options += [f"-oDir::{key}={value}" for key, value in folders.items()]
            self._update()
        return state

    def _update(self):
        try:
            run("apt-get", *self.options, "-oAPT::Update::Error-Mode=any", "-qq", "update")
        except (Failed, subprocess.SubprocessError) as failed:
            mirror = self.mirror or find_mirror()
            raise Failed(f"cannot read {mirror}: is there a network? --mirror URL names another mirror ({failed})")

    def unpack(self, names, destination):
        """Downloads packages and unpacks them into a folder, which appears only when it is complete."""
        state = self.prepare()
        made = destination.with_name(destination.name + ".part")
        shutil.rmtree(made, ignore_errors=True)
        made.mkdir(parents=True)
        for old in state.glob("*.deb"):
            old.unlink()
        run("apt-get", *self.options, "-qq", "download", *names, cwd=state)
        for package in state.glob("*.deb"):
            run("dpkg", "-x", package, made)
            package.unlink()
        made.rename(destination)

    def kernel_package(self):
        """Returns the package that linux-image-ARCH depends on."""
        self.prepare()
        depends = run("apt-cache", *self.options, "depends", f"linux-image-{self.arch}")
        found = re.search(r"Depends: (linux-image-\S+)", depends)
        if not found:
            raise Failed(f"no kernel of {self.release} for {self.arch} on this mirror")
        return found.group(1)


def needed_libraries(program):
    return re.findall(r"\(NEEDED\).*\[(.*)\]", run("readelf", "-d", program))


class Machine:
    """The files of one kernel on one processor."""

    def __init__(self, build, kernel, arch, mirror):
        self.arch = arch
        self.folder = build / f"{kernel}-{arch}"
        self._user_land = build / f"user-land-{arch}"
        self._programs = build / f"programs-{arch}"
        self._packages = Packages(build, RELEASES[kernel], arch, mirror)
        self._basis = Packages(build, USER_LAND, arch, mirror)
        self.kernel = self.folder / "vmlinuz"
        self.initrd = self.folder / "initrd"
        self.log = build / f"programs-{arch}.log"

    def make(self):
        self.folder.mkdir(parents=True, exist_ok=True)
        if not (self.folder / "modules").exists():
            self._make_kernel()
        if not (self._user_land / "usr/bin/python3.11").exists():
            shutil.rmtree(self._user_land, ignore_errors=True)
            self._basis.unpack(["busybox-static", *TEXT, *UDEV, *PYTHON], self._user_land)
        self._build_programs()
        self._make_initrd()

    def _make_kernel(self):
        image = self.folder / "image"
        if not image.exists():
            self._packages.unpack([self._packages.kernel_package()], image)
        version = next((image / "boot").glob("vmlinuz-*")).name.partition("-")[2]
        shutil.copy(image / "boot" / f"vmlinuz-{version}", self.kernel)
        tree = next(path for path in (image / "lib/modules" / version, image / "usr/lib/modules" / version)
                    if path.exists())
        base = self.folder / "modules.part"
        shutil.rmtree(base, ignore_errors=True)
        kept = base / "lib/modules" / version
        kept.mkdir(parents=True)
        for name in ("modules.builtin", "modules.order"):
            shutil.copy(tree / name, kept)
        prefix = tree.parents[2]
        run("depmod", "-b", prefix, version)
        for module in MODULES:
            for line in run("modprobe", "-d", prefix, "-S", version, "--show-depends", module).splitlines():
                if not line.startswith("insmod "):
                    continue
                source = pathlib.Path(re.match(r"insmod (.*?\.ko(\.\w+)?)( |$)", line)[1])
                target = kept / source.relative_to(tree)
                target.parent.mkdir(parents=True, exist_ok=True)
                shutil.copy(source, target)
                if target.suffix == ".xz":
                    run("xz", "-d", "-f", target)
        run("depmod", "-b", base, version)
        base.rename(self.folder / "modules")
        shutil.rmtree(image)

    def _build_programs(self):
        cache = self._programs / "CMakeCache.txt"
        if cache.exists() and f"CMAKE_HOME_DIRECTORY:INTERNAL={HERE}\n" not in cache.read_text():
            shutil.rmtree(self._programs)  # built when this checkout was elsewhere
        options = []
        if self.arch not in run("dpkg", "--print-architecture"):
            options = ["-DCMAKE_SYSTEM_NAME=Linux", f"-DCMAKE_CXX_COMPILER={DEBIAN[self.arch]}-g++",
                       f"-DCMAKE_PREFIX_PATH={self._user_land / 'usr'}"]
        with open(self.log, "w") as log:
            for command in (["cmake", "-G", "Ninja", "-S", HERE, "-B", self._programs, "-DCMAKE_BUILD_TYPE=Release",
                             *options], ["ninja", "-C", self._programs]):
                if subprocess.run([str(word) for word in command], stdout=log, stderr=log).returncode != 0:
                    raise Failed(f"cannot build the programs:\n{self.log.read_text()[-4000:]}")

    def _make_initrd(self):
        tree = self.folder / "tree"
        shutil.rmtree(tree, ignore_errors=True)
        shutil.copytree(self.folder / "modules", tree, symlinks=True)
        for name in ("bin", "lib64", "proc", "sys", "dev", "run", "tmp", "etc", "root", "var"):
            (tree / name).mkdir(exist_ok=True)
        (tree / "var/run").symlink_to("/run")
        shutil.copy(self._user_land / "bin/busybox", tree / "bin")
        shutil.copy(self._user_land / "bin/udevadm", tree / "bin")
        (tree / "bin/systemd-udevd").symlink_to("udevadm")
        shutil.copytree(self._user_land / "lib/udev", tree / "lib/udev", symlinks=True,
                        ignore=shutil.ignore_patterns("hwdb.d", "hwdb.bin"))
        for program in ("usb-device", "usb-watch", "usb-compare", "usb-uevents", "usb-wide-hub", "usb-open"):
            shutil.copy(self._programs / program, tree / "bin")
        shutil.copy(self._programs / "project/tools/yusb", tree / "bin")
        self._copy_python(tree)
        self._copy_libraries(tree)
        (tree / "etc/passwd").write_text("root:x:0:0:root:/root:/bin/sh\nnobody:x:65534:65534:nobody:/:/bin/sh\n")
        (tree / "etc/group").write_text("root:x:0:\nnogroup:x:65534:\n")
        shutil.copytree(HERE / "scenarios", tree / "scenarios")
        for name in ("init", "library.sh"):
            shutil.copy(HERE / "guest" / name, tree)
        (tree / "init").chmod(0o755)
        names = run("find", ".", cwd=tree)
        with open(self.initrd, "wb") as image:
            subprocess.run(["cpio", "--quiet", "-o", "-H", "newc", "-R", "0:0"], input=names.encode(), cwd=tree,
                           stdout=image, check=True)

    def _copy_python(self, tree):
        """The interpreter, what our package needs of its modules, and our package."""
        shutil.copy(self._user_land / "usr/bin/python3.11", tree / "bin/python3")
        modules = tree / "usr/lib/python3.11"
        left_out = ("__pycache__", "lib-dynload", "lib2to3", "pydoc_data", "unittest", "idlelib", "distutils", "email")
        shutil.copytree(self._user_land / "usr/lib/python3.11", modules, ignore=shutil.ignore_patterns(*left_out))
        for name in ("_asyncio", "_contextvars", "_ctypes"):
            for module in (self._user_land / "usr/lib/python3.11/lib-dynload").glob(f"{name}.*.so"):
                (modules / "lib-dynload").mkdir(exist_ok=True)
                shutil.copy(module, modules / "lib-dynload")
        shutil.copytree(ROOT / "bindings/python/yorvanusb", modules / "yorvanusb")
        (tree / "lib").mkdir(exist_ok=True)
        shutil.copy(self._programs / "project/bindings/c/libYorvanUsbC.so.1", tree / "lib")

    def _copy_libraries(self, tree):
        triplet = DEBIAN[self.arch]
        places = [self._programs / "project", pathlib.Path("/usr") / triplet / "lib",
                  pathlib.Path("/lib") / triplet, self._user_land / "lib" / triplet,
                  self._user_land / "usr/lib" / triplet]
        shutil.copy(next(place / LOADER[self.arch].split("/")[1] for place in places[1:]
                         if (place / LOADER[self.arch].split("/")[1]).exists()), tree / LOADER[self.arch])
        waiting = [path for path in (tree / "bin").iterdir() if path.is_file() and path.name != "busybox"]
        waiting += [tree / "lib/libYorvanUsbC.so.1", *(tree / "usr/lib/python3.11/lib-dynload").iterdir()]
        while waiting:
            for name in needed_libraries(waiting.pop()):
                target = tree / (LOADER[self.arch] if name in LOADER[self.arch] else f"lib/{name}")
                if target.exists():
                    continue
                source = next((place / name for place in places if (place / name).exists()), None)
                if source is None:
                    raise Failed(f"the library {name} was not found")
                shutil.copy(source, target)
                waiting.append(target)
