"""The guest, a virtual machine that stands for the instrument: its power, keys, display and memory stick, and a shell."""

import json
import pathlib
import re
import socket
import subprocess
import time

import running  # of simulator/rehearsal

WIDTH, HEIGHT = 320, 240
SHARE = "/run/host"  # the project's build folder in the guest
TOOLS = (running.SIMULATOR / "tools/names").read_text().split()
# The emulator runs in the folder of its instrument, build/acceptance/run/NAME.
EMULATOR = f"""qemu-system-x86_64 -accel tcg -m 768 -nodefaults -display none -no-reboot -serial file:console
    -kernel ../../guest/vmlinux -initrd ../../guest/initrd
    -drive file=root.img,if=virtio,format=raw,cache=unsafe -drive file=nand,if=virtio,format=raw
    -drive file=card,if=none,id=card,format=raw -device sdhci-pci -device sd-card,drive=card -device qemu-xhci,id=usb
    -device bochs-display,xres={WIDTH},yres={HEIGHT} -device virtio-serial -device virtserialport,chardev=shell
    -virtfs local,path=../../..,mount_tag=host,security_model=none,readonly=on
    -mon chardev=monitor,mode=control""".split()


class Guest:
    def __init__(self, folder, kernel_parameters):
        """`folder` keeps the root file system, the card, the stick and a copy of the NAND while the power is off."""
        self.folder = folder
        self.kernel_parameters = f"console=ttyS0 loglevel=4 panic=-1 no_timer_check {kernel_parameters}"
        self.emulator = None

    def switch_on(self):
        ends = {name: socket.socketpair() for name in ("shell", "monitor")}
        channels = [option for name, (_, end) in ends.items()
                    for option in ("-chardev", f"socket,id={name},fd={end.fileno()}")]
        self.emulator = subprocess.Popen([*EMULATOR, *channels, "-append", self.kernel_parameters], cwd=self.folder,
                                         pass_fds=[end.fileno() for _, end in ends.values()])
        for own, end in ends.values():
            own.settimeout(300)
            end.close()
        self._shell, self._monitor = [own.makefile("rw") for own, _ in ends.values()]
        self._execute("qmp_capabilities")
        self.must("true")  # the shell has started

    def cut_power(self):
        if self.emulator:
            self.emulator.kill()
            self.emulator.wait()

    def _execute(self, command, **arguments):
        json.dump({"execute": command, "arguments": arguments}, self._monitor)
        self._monitor.flush()
        reply = next(reply for reply in map(json.loads, self._monitor) if "return" in reply or "error" in reply)
        if "error" in reply:
            raise RuntimeError(f"{command}: {reply['error']['desc']}")
        return reply["return"]

    def monitor(self, command):
        """Executes a command of the emulator's monitor; an answer is an error."""
        answer = self._execute("human-monitor-command", **{"command-line": command})
        if answer not in ("", "OK\r\n"):
            raise RuntimeError(f"{command}: {answer}")

    def run(self, command):
        """Executes a shell command in the guest; returns its exit status and its output."""
        self._shell.write("{ " + command + "\n} 2>&1\necho \"--end-- $?\"\n")
        self._shell.flush()
        lines = []
        while not lines or not (end := re.search(r"--end-- (\d+)\n$", lines[-1])):
            lines.append(self._shell.readline())
            if not lines[-1]:
                raise RuntimeError(f"the guest has stopped; its last messages are in {self.folder}/console")
        return int(end[1]), "".join(lines).removesuffix(end[0])

    def succeeds(self, command):
        return self.run(command)[0] == 0

    def must(self, command):
        status, output = self.run(command)
        if status != 0:
            raise RuntimeError(f"{command}: exit status {status}: {output}")
        return output

    def press(self, key):
        self.monitor(f"sendkey {key}")

    def display(self, file="display.png"):
        """The pixels of the display; `file` keeps them as a picture."""
        self.monitor(f'screendump "{self.folder / file}" -f png')
        return read_picture(self.folder / file)

    def plug(self, options="", device="/dev/sda"):
        self.monitor(f"drive_add 0 if=none,id=stick,file=stick,format=raw{options}")
        self.monitor("device_add usb-storage,id=stick,bus=usb.0,drive=stick,removable=on")
        wait_until(lambda: self.succeeds(f"test -b {device}"), 20, "the memory stick")

    def unplug(self):
        """The emulator removes the drive with its device."""
        self.monitor("device_del stick")
        wait_until(lambda: not self.succeeds("test -b /dev/sda || test -b /dev/sdb"), 20, "the stick to be gone")
        wait_until(lambda: "'stick'" not in str(self._execute("query-block")), 20, "the drive to be gone")

    def trace(self, process):
        """Records from now on which programs the process and its children run."""
        self.must(f"strace -f -q -z -s 200 -e trace=execve -e signal=none -o /run/trace -p {process} 2>/dev/null &"
                  f" until grep -q 'TracerPid:.*[1-9]' /proc/{process}/status; do sleep 0.1; done")

    def calls(self):
        """The system tools that ran since then: (command line, exit status)."""
        # The shell reads the file itself: an instrument that has erased its root file system starts no program.
        trace = self.must('while read -r line; do echo "$line"; done </run/trace')
        running_tools, calls = {}, []
        for process, program, end in re.findall(
                r"^(\d+) +(?:execve\(.*?, \[(.*)\], 0x.*|\+\+\+ .* (\w+) \+\+\+)$", trace, re.M):
            if program:
                name, *arguments = re.findall(r'"([^"]*)"', program)
                name = re.sub(r"^(/usr)?(/local)?/s?bin/", "", name)
                running_tools.setdefault(process, (name, *arguments))  # a script may go on as another program
            elif process in running_tools:
                call = running_tools.pop(process)
                if pathlib.Path(call[0]).name in TOOLS:
                    calls.append((" ".join(call), int(end) if end.isdigit() else end))
        return calls


def read_picture(file):
    """The pixels of a picture, row by row, each red, green and blue."""
    ppm = subprocess.run(["pngtopnm", file], check=True, capture_output=True).stdout
    return list(zip(*[iter(ppm[-WIDTH * HEIGHT * 3:])] * 3))


def wait_until(condition, seconds, what):
    end = time.monotonic() + seconds
    while not condition():
        if time.monotonic() > end:
            raise TimeoutError(f"waited {seconds} s for {what}")
        time.sleep(0.2)
