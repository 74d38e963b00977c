"""The boards that can be emulated: what each runs on and where its two serial lines are."""
import dataclasses
import pathlib
import shutil
import subprocess


@dataclasses.dataclass(frozen=True)
class Machine:
    """One emulated board.

    preset names the build whose program runs on it, tree the unpacked kernel, root the tree that its
    libraries and tools come from, channel_node the channel's place in the device tree. restart_ends
    is true where a restart of the kernel ends the emulator, and false where the machine then stands
    still. memory is in megabytes; words are added to the kernel's command line.
    """

    name: str
    preset: str
    tree: str
    root: str
    emulator: tuple
    console: str
    channel: str
    serial: tuple
    restart_ends: bool
    device_tree: str = ""
    channel_node: str = ""
    memory: int = 512
    words: tuple = ()


MACHINES = {
    machine.name: machine
    for machine in (
        Machine(
            "sabrelite",
            "armhf",
            "armmp",
            "sysroot",
            ("qemu-system-arm", "-M", "sabrelite", "-smp", "1"),
            "ttymxc1",
            "/dev/ttymxc0",
            ("-serial", "chardev:channel", "-serial", "chardev:console"),
            False,
            "imx6q-sabrelite.dtb",
            "/soc/bus@2000000/spba-bus@2000000/serial@2020000",
        ),
        Machine(
            "virt",
            "armhf",
            "armmp",
            "sysroot",
            ("qemu-system-arm", "-M", "virt,highmem=off", "-cpu", "cortex-a15"),
            "ttyAMA0",
            "/dev/ttyS0",
            ("-serial", "chardev:console", "-device", "pci-serial,chardev=channel"),
            True,
        ),
        Machine(
            "amd64",
            "release",
            "amd64",
            "amd64",
            ("qemu-system-x86_64", "-cpu", "max"),
            "ttyS0",
            "/dev/ttyS1",
            ("-serial", "chardev:console", "-serial", "chardev:channel"),
            True,
        ),
    )
}


# One processor of 500 million instructions a second: what a program takes of it does not depend on how
# busy the host is.
INSTRUCTION_CLOCK = ("-smp", "1", "-icount", "shift=1")


def kernel(tree: pathlib.Path) -> pathlib.Path:
    """The kernel of an unpacked tree; its version follows the dash."""
    return next(tree.glob("boot/vmlinuz-*"))


def version(tree: pathlib.Path) -> str:
    return kernel(tree).name.partition("-")[2]


def device_tree(machine: Machine, tree: pathlib.Path, work: pathlib.Path) -> pathlib.Path:
    """The kernel's device tree for the machine, with the channel's line taken off the DMA engine,
    which the emulator does not have: the kernel would wait for it for ever."""
    target = work / machine.device_tree
    shutil.copyfile(tree / f"usr/lib/linux-image-{version(tree)}" / machine.device_tree, target)
    subprocess.run(["fdtput", "-d", target, machine.channel_node, "dmas", "dma-names"], check=True)
    return target
