"""The resident agent's control port as a program of its own sees it: commands, and all events."""

import http.client
import json
import threading
import time


class Refused(Exception):
    """The agent's answer to a command that it does not carry out."""

    def __init__(self, answer):
        super().__init__(answer["error"])
        self.code = answer["code"]  # the exit code of the command line


class Control:
    """The resident that the control file below `data` names. Connects for each call."""

    def __init__(self, data):
        named = json.loads((data / "control").read_text())
        self.port, self._token = named["port"], named["token"]

    def call(self, command, seconds=120, **arguments):
        """The answer; OSError or HTTPException when the agent has gone."""
        connection = http.client.HTTPConnection("127.0.0.1", self.port, timeout=seconds)
        try:
            connection.request("POST", "/control/" + command, json.dumps(arguments),
                               {"Authorization": "Bearer " + self._token, "Content-Type": "application/json"})
            response = connection.getresponse()
            answer = json.loads(response.read() or b"{}")
        finally:
            connection.close()
        if response.status == 409:
            raise Refused(answer)
        if response.status != 200:
            raise AssertionError(f"{command} {arguments}: {response.status} {answer}")
        return answer


class Events:
    """Everything that jobs say, in order and without a gap, over restarts of the agent.

    `seen` has (moment of arrival, event) pairs and only grows; it is read without a lock."""

    def __init__(self):
        self.seen = []
        self._changed = threading.Condition()
        self._reader = None
        self.fault = None

    def follow(self, control):
        """Reads from the resident's first event to its end."""
        self._reader = threading.Thread(target=self._read, args=(control,), daemon=True)
        self._reader.start()

    def leave(self):
        """Waits until the resident that is followed has gone."""
        self._reader.join(60)
        if self._reader.is_alive():
            raise AssertionError("the agent has ended, but not its port")

    def until(self, condition, what, seconds=300):
        """Asks the condition again with each event."""
        with self._changed:
            held = self._changed.wait_for(lambda: self.fault or condition(), seconds)
        if self.fault:
            raise AssertionError(self.fault)
        if not held:
            raise AssertionError(f"waited {seconds} s in vain for {what}")

    def _read(self, control):
        after = 0
        while True:
            try:
                page = control.call("events", seconds=3600, after=after)
            except (OSError, http.client.HTTPException):
                return
            except (Refused, AssertionError) as refusal:
                page = {"next": after - 1, "events": [], "why": str(refusal)}
            with self._changed:
                if page["next"] != after + len(page["events"]):
                    self.fault = f"no whole answer after event {after}: {page}"
                self.seen += [(time.time(), json.loads(text)) for text in page["events"]]
                self._changed.notify_all()
                if self.fault:
                    return
            after = page["next"]
