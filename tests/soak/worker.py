"""Threads that do one thing again and again, and count how often it went well."""

import random
import threading
import time

MOST_FAILURES_SHOWN = 20


class Tally:
    """What was asked for and what came of it, from all threads."""

    def __init__(self):
        self._lock = threading.Lock()
        self._counts = {}
        self.longest = {}
        self.failures = []

    def add(self, name: str, count: int = 1) -> None:
        with self._lock:
            self._counts[name] = self._counts.get(name, 0) + count

    def took(self, name: str, seconds: float) -> None:
        with self._lock:
            self.longest[name] = max(self.longest.get(name, 0), seconds)

    def fail(self, name: str, text: str) -> None:
        with self._lock:
            self._counts[f"{name}, failed"] = self._counts.get(f"{name}, failed", 0) + 1
            if len(self.failures) < MOST_FAILURES_SHOWN:
                self.failures.append(f"{name}: {text}")

    @property
    def counts(self) -> dict:
        with self._lock:
            return dict(self._counts)

    @property
    def failed(self) -> int:
        return sum(count for name, count in self.counts.items() if name.endswith(", failed"))


class Question:
    """Something that must be answered in time: counts it, measures it, and keeps its failure."""

    def __init__(self, tally: Tally, name: str, seconds: float):
        self._tally = tally
        self._name = name
        self._seconds = seconds

    def __enter__(self) -> "Question":
        self._start = time.monotonic()
        return self

    def __exit__(self, kind, error, _trace) -> bool:
        took = time.monotonic() - self._start
        self._tally.add(f"{self._name}, asked")
        self._tally.took(self._name, took)
        if isinstance(error, Exception):
            self._tally.fail(self._name, f"{kind.__name__}: {error}")
        elif error is None and took > self._seconds:
            self._tally.fail(self._name, f"answered after {took:.1f} s, not within {self._seconds:g} s")
        elif error is None:
            self._tally.add(f"{self._name}, answered")
        return isinstance(error, Exception)


class Worker(threading.Thread):
    """Calls `action` every `period` seconds inside the network of `host`, with a random generator of its own."""

    def __init__(self, host, tally: Tally, action, period: float, seed: int):
        super().__init__(name=action.__name__, daemon=True)
        self._host = host
        self._tally = tally
        self._action = action
        self._period = period
        self._random = random.Random(f"{seed} {action.__name__}")
        self._ending = threading.Event()

    def run(self) -> None:
        with self._host.inside():
            while not self._ending.is_set():
                start = time.monotonic()
                try:
                    self._action(self._random)
                except Exception as error:
                    self._tally.fail(self.name, f"{type(error).__name__}: {error}")
                self._ending.wait(max(0, self._period - (time.monotonic() - start)))

    def end(self) -> None:
        self._ending.set()
