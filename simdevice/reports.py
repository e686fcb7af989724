"""What the PC hears, as lines to read: repetitions are counted and shown in one line."""

import time

_GATHERED = 2.0   # seconds

_TOO_EARLY = ("That one has no address in it: it left before the device had read its own. The device says alive again as "
              "soon as it has.")


class Reports:
    """`say` prints an event, `explain` a text. What is heard for the first time is told of at once."""

    def __init__(self, say, explain):
        self._say, self._explain = say, explain
        self._repeated = {}    # text -> how often since when
        self._explained = False

    def add(self, heard) -> None:
        text = f"The PC hears {heard.name} say {heard.kind}: {heard.location}"
        if text in self._repeated:
            count, since = self._repeated[text]
            self._repeated[text] = (count + 1, since)
            return
        self._repeated[text] = (0, time.monotonic())
        self._say(text)
        if heard.location.startswith("http://:") and not self._explained:
            self._explained = True
            self._explain(_TOO_EARLY)

    def gather(self) -> None:
        """To be called now and then. Tells of the repetitions that there were in the last seconds."""
        now = time.monotonic()
        for text, (count, since) in list(self._repeated.items()):
            if now - since < _GATHERED:
                continue
            del self._repeated[text]
            if count:
                times = "once" if count == 1 else f"{count} times"
                self._say(f"{text}   {times} more within {now - since:.0f} seconds")
                self._repeated[text] = (0, now)
