"""One run: everything at once, what is measured meanwhile, and the verdict."""

import os
import pathlib
import random
import resource
import statistics
import time

from bustraffic import BusTraffic
from goodtraffic import GOOD_UUIDS, GoodTraffic
from hostiletraffic import HostileTraffic
from scanning import scan
from simdevice.controlpoint import ControlPoint
from simdevice.device import BUS_NAME, Device
from simdevice.network import SUBNET, Lan
from simdevice.waiting import dispatch, wait_for
from texts import BYEBYE
from wirebytes import compare_bytes
from worker import Tally, Worker

MEGABYTE = 1 << 20
GOOD_PEER = f"{SUBNET}.3"
HOSTILE_PEER = f"{SUBNET}.4"
ICON_SIZE = 3 * MEGABYTE

PROGRESS_PERIOD = 5       # seconds
MEASURING_PERIOD = 1      # seconds
WARM_UP = 1 / 3           # of the run, but not more than:
LONGEST_WARM_UP = 5 * 60  # seconds
# The middle of the memory figures of the last third, compared with that of the time right after the warm-up
MOST_GROWTH = 4 * MEGABYTE
# Any single figure after the warm-up, compared with the same
MOST_PEAK = 32 * MEGABYTE
SANITIZER_FACTOR = 16     # shadow memory, red zones, the stack of every allocation
MOST_DESCRIPTORS = 500
MOST_LOG_LINES = 20       # and as many again for each hour


class Measurements:
    def __init__(self, device: Device, seconds: float):
        self._device = device
        self._start = time.monotonic()
        self._warm = min(seconds * WARM_UP, LONGEST_WARM_UP)
        self._figures = []  # (elapsed, resident bytes, descriptors)

    @property
    def elapsed(self) -> float:
        return time.monotonic() - self._start

    def take(self) -> None:
        pages = int(pathlib.Path(f"/proc/{self._device.pid}/statm").read_text().split()[1])
        self._figures.append((self.elapsed, pages * resource.getpagesize(), len(self._device.open_files())))

    @property
    def resident(self) -> int:
        return self._figures[-1][1]

    @property
    def descriptors(self) -> int:
        return self._figures[-1][2]

    @property
    def most_descriptors(self) -> int:
        return max(figure[2] for figure in self._figures)

    @property
    def warm(self) -> list:
        return [memory for elapsed, memory, _ in self._figures if elapsed >= self._warm]

    @property
    def after_warm_up(self) -> float:
        return statistics.median(self.warm[:len(self.warm) // 3])

    @property
    def at_the_end(self) -> float:
        return statistics.median(self.warm[-(len(self.warm) // 3):])


class Verdict:
    """The summary table, line by line, and whether all of it is as it must be."""

    def __init__(self):
        self.good = True

    def line(self, what: str, value, is_good: bool = True, bound: str = "") -> None:
        self.good = self.good and is_good
        bound = f"  ({bound})" if bound else ""
        print(f"  {what:<52} {value:>14}{bound}{'' if is_good else '  <-- WRONG'}", flush=True)


def run(seconds: float, seed: int) -> int:
    print(f"soak: {seconds / 60:g} minutes, seed {seed}", flush=True)
    lan = Lan()
    device = Device(lan)
    good_host = lan.host(addresses=[f"{GOOD_PEER}/24"])
    hostile_host = lan.host(addresses=[f"{HOSTILE_PEER}/24"])
    icon = os.urandom(ICON_SIZE)
    device.set_icon(icon)
    device.start()
    peer = ControlPoint(good_host)
    try:
        return Soak(device, peer, good_host, hostile_host, icon, seed).run(seconds)
    finally:
        peer.close()
        device.close()
        lan.close()


class Soak:
    def __init__(self, device: Device, peer: ControlPoint, good_host, hostile_host, icon: bytes, seed: int):
        self._device = device
        self._peer = peer
        self._tally = Tally()
        self._bus = BusTraffic(device, peer, self._tally, random.Random(seed))
        self._hostile = HostileTraffic(device.address, HOSTILE_PEER, self._tally)
        good = GoodTraffic(device, icon, self._tally)
        self._workers = [Worker(host, self._tally, action, period, seed)
                         for host, plan in ((good_host, good.plan), (hostile_host, self._hostile.plan))
                         for action, period in plan]

    def run(self, seconds: float) -> int:
        self._wait_for_good_devices()
        descriptors = len(self._device.open_files())
        measurements = Measurements(self._device, seconds)
        for worker in self._workers:
            worker.start()
        problem = self._traffic(measurements, seconds) or self._quiet(descriptors)
        return self._judge(measurements, descriptors, problem)

    def _wait_for_good_devices(self) -> None:
        with self._peer.host.inside():
            GoodTraffic(self._device, b"", self._tally).announce(None)
        wait_for(lambda: set(GOOD_UUIDS) <= {one["uuid"] for one in scan(self._device, "allChilds")},
                 what="the good devices are known")

    def _traffic(self, measurements: Measurements, seconds: float) -> str:
        """Returns what made it end early."""
        next_figure = next_line = 0
        while measurements.elapsed < seconds:
            dispatch()
            if self._device.crashed():
                return f"the daemon ended with status {self._device.exit_status}:\n{self._device.output[-5000:]}"
            try:
                self._bus.step()
            except Exception as error:
                self._tally.fail("bus", f"{type(error).__name__}: {error}")
            if self._device.crashed():
                continue
            if measurements.elapsed >= next_figure:
                next_figure = measurements.elapsed + MEASURING_PERIOD
                measurements.take()
            if measurements.elapsed >= next_line:
                next_line = measurements.elapsed + PROGRESS_PERIOD
                self._progress(measurements)
            time.sleep(0.02)
        return ""

    def _progress(self, measurements: Measurements) -> None:
        counts = self._tally.counts
        answered = [f"{counts.get(f'{name}, answered', 0)} {text}" for name, text in
                    (("search", "searches"), ("description", "descriptions"), ("listing", "listings"))]
        hostile = sum(count for name, count in counts.items() if "hostile" in name or "flood" in name or "aborted" in name)
        print(f"{measurements.elapsed:6.0f} s  {', '.join(answered)}, {hostile} hostile, {self._tally.failed} failed; "
              f"{measurements.resident / MEGABYTE:.1f} MB, {measurements.descriptors} descriptors, "
              f"{self._bus.devices_known} devices, {len(self._device.syslog.lines)} log lines", flush=True)

    def _quiet(self, descriptors: int) -> str:
        """Ends the traffic. Everything that was taken must be given back, and the daemon be as on its first day."""
        for worker in self._workers:
            worker.end()
        for worker in self._workers:
            worker.join(90)
            if worker.is_alive():
                return f"{worker.name} does not end"
        self._hostile.close()
        try:
            self._bus.finish()
            wait_for(lambda: len(self._device.open_files()) <= descriptors, 30, "the descriptors are given back",
                     lambda: self._device.open_files())
            assert self._device.bus.pid_of(BUS_NAME) == self._device.pid, "the bus name is lost"
            listener = self._peer.listen_ssdp()
            self._device.terminate()
            compare_bytes(listener.wait_for(b"ssdp:byebye")[0].data, BYEBYE)
        except Exception as error:
            return f"{type(error).__name__}: {error}"
        return ""

    def _judge(self, measurements: Measurements, descriptors: int, problem: str) -> int:
        verdict = Verdict()
        counts = self._tally.counts
        print(f"\nafter {measurements.elapsed / 60:.1f} minutes", flush=True)
        for name in sorted({name.rpartition(",")[0] for name in counts if name.endswith(", asked")}):
            asked, answered = counts[f"{name}, asked"], counts.get(f"{name}, answered", 0)
            verdict.line(f"{name}: answered of asked", f"{answered}/{asked}", answered == asked > 0,
                         f"the longest took {self._tally.longest[name]:.2f} s")
        verdict.line("devices expired on time", counts.get("devices expired on time", 0),
                     counts.get("devices expired on time", 0) > 0, f"the longest took {self._tally.longest.get('expiry', 0):.1f} s")
        for name, count in sorted(counts.items()):
            if not name.endswith((", asked", ", answered", ", failed", "on time")):
                verdict.line(name, count)
        verdict.line("failures of any kind", self._tally.failed, self._tally.failed == 0)
        self._judge_resources(verdict, measurements, descriptors)
        for failure in self._tally.failures:
            print(f"  failed: {failure[:2000]}")
        if problem:
            print(f"  {problem}")
        good = verdict.good and not problem
        print("verdict: " + ("everything held" if good else "FAILED"), flush=True)
        return 0 if good else 1

    def _judge_resources(self, verdict: Verdict, measurements: Measurements, descriptors: int) -> None:
        if len(measurements.warm) >= 3:
            factor = SANITIZER_FACTOR if b"__asan_init" in pathlib.Path(self._device.program).read_bytes() else 1
            base, growth = measurements.after_warm_up, measurements.at_the_end - measurements.after_warm_up
            peak = max(measurements.warm) - base
            verdict.line("memory after the warm-up, MB", f"{base / MEGABYTE:.1f}")
            verdict.line("growth from then to the last third, MB", f"{growth / MEGABYTE:+.1f}", growth < MOST_GROWTH * factor,
                         f"below {MOST_GROWTH * factor // MEGABYTE}")
            verdict.line("highest figure above it, MB", f"{peak / MEGABYTE:+.1f}", peak < MOST_PEAK * factor,
                         f"below {MOST_PEAK * factor // MEGABYTE}")
        most = measurements.most_descriptors
        verdict.line("descriptors before, most", f"{descriptors}, {most}", most < MOST_DESCRIPTORS, f"below {MOST_DESCRIPTORS}")
        lines = self._device.syslog.texts
        most_lines = MOST_LOG_LINES * (1 + int(measurements.elapsed // 3600))
        verdict.line("log lines", len(lines), len(lines) <= most_lines, f"at most {most_lines}")
        for text in sorted(set(lines))[:10]:
            print(f"    {lines.count(text)} x {text[:200]}")
