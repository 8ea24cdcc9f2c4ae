"""The guest, a virtual machine that plays the instrument: its power, its keys, its display, and a shell inside it."""

import json
import re
import socket
import subprocess
import time

WIDTH, HEIGHT = 320, 240
SHARE = "/run/host"  # the project's build folder, as the guest sees it
TOOLS = ("mount umount losetup modprobe rmmod flash_eraseall nandwrite ubiformat sdimage tar cp sync").split()


class Guest:
    def __init__(self, build, folder, root_in_nand):
        """Switches the guest on. `folder` keeps its system disk (root.img) and its card from one start to the next."""
        self.folder = folder
        guest = build / "acceptance" / "guest"
        sockets = [folder / "shell.socket", folder / "qmp.socket"]
        for path in sockets:
            path.unlink(missing_ok=True)
        self.qemu = subprocess.Popen(
            ["qemu-system-x86_64", "-accel", "tcg", "-m", "768", "-no-reboot", "-display", "none", "-vga", "none",
             "-device", f"bochs-display,xres={WIDTH},yres={HEIGHT}",
             "-kernel", guest / "vmlinux", "-initrd", guest / "initrd",
             "-append", "console=ttyS0 loglevel=4 panic=-1 no_timer_check " + ("root_in_nand" if root_in_nand else ""),
             "-serial", f"file:{folder}/console",
             "-device", "virtio-serial", "-device", "virtserialport,chardev=shell",
             "-chardev", f"socket,id=shell,path={sockets[0]},server=on,wait=off",
             "-qmp", f"unix:{sockets[1]},server=on,wait=off",
             "-drive", f"file={folder}/root.img,if=virtio,format=raw,cache=unsafe",
             "-device", "sdhci-pci", "-drive", f"file={folder}/card,if=none,id=card,format=raw",
             "-device", "sd-card,drive=card", "-device", "qemu-xhci,id=usb",
             "-virtfs", f"local,path={build},mount_tag=host,security_model=none,readonly=on"],
            stdin=subprocess.DEVNULL)
        try:
            self.shell, self.qmp = [self._connect(path) for path in sockets]
            self.qmp.readline()
            self.monitor("qmp_capabilities")
            while self._shell_line() != "ready\n":
                pass
        except BaseException:
            self.cut_power()
            raise
        self.sticks = 0

    def _connect(self, path):
        connection = socket.socket(socket.AF_UNIX)
        connection.settimeout(60)
        wait_until(lambda: path.exists(), 20, "the guest")
        wait_until(lambda: connection.connect_ex(str(path)) == 0, 20, "the guest")
        return connection.makefile("rw")

    def monitor(self, command, **arguments):
        self.qmp.write(json.dumps({"execute": command, "arguments": arguments}) + "\n")
        self.qmp.flush()
        while True:
            reply = json.loads(self.qmp.readline())
            if "error" in reply:
                raise RuntimeError(f"{command}: {reply['error']['desc']}")
            if "return" in reply:
                return reply["return"]

    def _shell_line(self):
        line = self.shell.readline()
        if not line:
            raise RuntimeError(f"the guest has stopped; its last words are in {self.folder}/console")
        return line

    def run(self, command):
        """Executes a shell command inside; returns its exit status and its output."""
        self.shell.write("{ " + command + "\n} 2>&1\necho \"--end-- $?\"\n")
        self.shell.flush()
        lines = []
        while True:
            line = self._shell_line()
            end = re.match(r"(.*)--end-- (\d+)$", line, re.S)
            if end:
                return int(end.group(2)), "".join(lines) + end.group(1)
            lines.append(line)

    def succeeds(self, command):
        return self.run(command)[0] == 0

    def must(self, command):
        status, output = self.run(command)
        if status != 0:
            raise RuntimeError(f"{command}: exit status {status}: {output}")
        return output

    def press(self, key):
        self.monitor("send-key", keys=[{"type": "qcode", "data": key}])

    def display(self, file=None):
        """The display's rows of pixels, each red, green and blue; kept as a picture in `file`."""
        file = file or self.folder / "display.png"
        self.monitor("screendump", filename=str(file), format="png")
        return read_picture(file)

    def colours(self):
        return {pixel for row in self.display() for pixel in row}

    def plug(self, image, device="/dev/sda", options=""):
        self.sticks += 1
        self.monitor("human-monitor-command", **{
            "command-line": f"drive_add 0 if=none,id=stick{self.sticks},file={image},format=raw{options}"})
        self.monitor("device_add", driver="usb-storage", id=f"stick{self.sticks}", bus="usb.0",
                     drive=f"stick{self.sticks}", removable=True)
        wait_until(lambda: self.succeeds(f"test -b {device}"), 20, "the memory stick")

    def unplug(self, device="/dev/sda"):
        self.monitor("device_del", id=f"stick{self.sticks}")
        wait_until(lambda: not self.succeeds(f"test -b {device}"), 20, "the memory stick to be gone")
        self.monitor("human-monitor-command", **{"command-line": f"drive_del stick{self.sticks}"})

    def cut_power(self):
        self.qemu.kill()
        self.qemu.wait()

    def trace(self, pid):
        """Keeps from now on which programs the process and its children run."""
        self.must(f"strace -f -qq -s 200 -e trace=execve,exit_group -e signal=none -o /run/trace -p {pid} 2>/dev/null &"
                  f" until grep -q 'TracerPid:.*[1-9]' /proc/{pid}/status; do sleep 0.1; done")

    def calls(self):
        """The system tools that ran since the updater was started: (command line, exit status)."""
        # An instrument that has erased its own root file system starts no program any more: then by the shell alone.
        return parse_trace(self.run("cat /run/trace || while read -r line; do echo \"$line\"; done </run/trace")[1])


def read_picture(file):
    ppm = subprocess.run(["pngtopnm", file], check=True, capture_output=True).stdout
    pixels = list(zip(*[iter(ppm[-WIDTH * HEIGHT * 3:])] * 3))
    return [pixels[at:at + WIDTH] for at in range(0, len(pixels), WIDTH)]


def parse_trace(trace):
    running, calls = {}, []
    for line in trace.splitlines():
        started = re.match(r'(\d+) +execve\("[^"]*", \[(.*)\], .*= 0$', line)
        ended = re.match(r"(\d+) +(?:exit_group\((-?\d+)\)|\+\+\+ killed by (\w+))", line)
        if started:
            words = re.findall(r'"([^"]*)"', started.group(2))
            words[0] = re.sub(r"^(/usr)?(/local)?/s?bin/", "", words[0])
            running.setdefault(started.group(1), " ".join(words))  # a script may go on as another program
        elif ended and ended.group(1) in running:
            command = running.pop(ended.group(1))
            if command.split()[0].split("/")[-1] in TOOLS:
                calls.append((command, int(ended.group(2)) & 0xFF if ended.group(2) else -1))
    return calls


def wait_until(condition, seconds, what):
    end = time.monotonic() + seconds
    while not condition():
        if time.monotonic() > end:
            raise TimeoutError(f"waited {seconds} s for {what}")
        time.sleep(0.2)
