"""The service's wire, as an agent speaks it: one logged-in machine on one connection."""

import hashlib
import http.client
import json

from journal import Wrong

PATIENCE = 120  # seconds for one answer; beyond it the service hangs
WEB = "/dorvo/WebServer/"
UPLOAD = "/dorvo/Storage%20Server/backupServer/"
DOWNLOAD = "/dorvo/Storage%20Server/RestoreServer/"
FILE_NUMBERS = ("dwFileAttributes nFileSizeHigh nFileSizeLow ftCreationTimedwHighDateTime"
                " ftCreationTimedwLowDateTime ftLastAccessTimedwHighDateTime"
                " ftLastAccessTimedwLowDateTime ftLastWriteTimedwHighDateTime"
                " ftLastWriteTimedwLowDateTime").split()
COUNTED = 0xFFFFFFFF


class Broken(Exception):
    """There was no whole answer: whether the request was done is not known."""


class Connection:
    """Carries requests over HTTP; what stands in its place in a test of the torture may lie."""

    def __init__(self, address):
        self._http = http.client.HTTPConnection(*address, timeout=PATIENCE)

    def exchange(self, path, body, headers):
        """(status, cookie, body)"""
        try:
            self._http.request("POST", path, body, headers)
            response = self._http.getresponse()
            return response.status, response.getheader("Set-Cookie"), response.read()
        except TimeoutError:
            raise Wrong(f"no answer to {path} in {PATIENCE} s") from None
        except (OSError, http.client.HTTPException) as error:
            self.close()
            raise Broken(repr(error)) from None

    def close(self):
        self._http.close()


class Answer:
    def __init__(self, status, body):
        self.status, self.body = status, body

    @property
    def json(self):
        """A path that was flipped in the catalog may be no text any more."""
        return json.loads(self.body.decode(errors="replace"))

    def __str__(self):
        return str(self.status) if self.status == 200 else f"{self.status} {self.body[:200]!r}"


def halves(number):
    return number >> 32, number & COUNTED


class Session:
    """Every verb is one request; each raises Broken, and gives its answer whatever its status."""

    def __init__(self, connection, user, machine, powered=lambda: True):
        self.connection, self.user, self.machine, self.cookie = connection, user, machine, ""
        self.powered = powered

    def close(self):
        self.connection.close()

    def post(self, path, body, content_type="application/json"):
        if isinstance(body, dict):
            body = json.dumps(body)
        status, cookie, answer = self.connection.exchange(
            path, body, {"Cookie": self.cookie, "Content-Type": content_type})
        if not self.powered():
            # No machine answers after that. This one does, and the kernel may have told it that a sync was done
            # that was under way as the file system was shut off.
            self.connection.close()
            raise Broken("the power went first")
        self.cookie = cookie or self.cookie
        return Answer(status, answer)

    def login(self, password):
        return self.post(WEB + "user/Login.php",
                         {"user": self.user, "password": password, "machine": self.machine})

    def offer(self, instance, job, files, compress, first):
        """`files`: (path, mtime) pairs."""
        source = [{"path": path, "mtimeHigh": halves(mtime)[0], "mtimeLow": halves(mtime)[1]}
                  for path, mtime in files]
        return self.post(WEB + "catalog/FilesToBackup.php",
                         {"id": job, "jobinstanceid": instance, "compress": compress, "first": first,
                          "source": source})

    def start(self, instance, job, totals, time):
        return self.post(WEB + "jobs/StartJob.php",
                         {"jobdefinitionid": job, "jobinstanceid": instance, "totalfiles": totals[0],
                          "totaldirectories": totals[1], "totalsize": totals[2], "starttime": time})

    def info(self, instance, path, kind, numbers, size):
        high, low = halves(size)
        return self.post(UPLOAD + "uploadfile.php",
                         {"attri": dict(zip(FILE_NUMBERS, numbers)), "type": kind, "jobinstanceid": instance,
                          "sourcename": path, "totalsizeHigh": high, "totalsizeLow": low, "totalblock": 0})

    def block(self, instance, path, number, data, md5=None):
        fields = {"md5": md5 or hashlib.md5(data).hexdigest(), "jobinstanceid": instance, "sourcename": path}
        head = "".join(f'--b\r\nContent-Disposition: form-data; name="{name}"\r\n\r\n{value}\r\n'
                       for name, value in fields.items())
        head += f'--b\r\nContent-Disposition: form-data; name="file"; filename="{number}.jpg"\r\n\r\n'
        return self.post(UPLOAD + "uploadblock.php", head.encode() + data + b"\r\n--b--\r\n",
                         "multipart/form-data; boundary=b")

    def errors(self, instance, errors):
        """`errors`: path -> (code, reason)."""
        listed = [{"path": path, "code": code, "reason": reason} for path, (code, reason) in errors.items()]
        return self.post(WEB + "jobs/AddErrorFiles.php", {"jobinstanceid": instance, "errors": listed})

    def end(self, instance, time):
        return self.post(UPLOAD + "endjob.php", {"jobinstanceid": instance, "endtime": time})

    def cancel(self, instance):
        return self.post(WEB + "jobs/CancelJob.php", {"id": instance})

    def instances(self):
        return self.post(WEB + "catalog/ListInstances.php", {"machine": "", "jobdefinitionid": ""})

    def start_restore(self, instance, job):
        return self.post(WEB + "jobs/StartRestoreJob.php", {"jobdefinitionid": job, "jobinstanceid": instance})

    def history(self, restore, record):
        return self.post(WEB + "jobs/RestoreJobHistory.php", {"instanceId": restore, "record": record})

    def files(self, instance, machine, path, after, limit):
        return self.post(WEB + "catalog/ListFiles.php",
                         {"machine": machine, "jobinstanceid": instance, "path": path, "after": after,
                          "limit": limit})

    def file_info(self, instance, machine, path):
        return self.post(DOWNLOAD + "GetFileInfo.php", self._item(instance, machine, path))

    def download(self, instance, machine, path, number):
        return self.post(DOWNLOAD + "DownloadFileBlock.php",
                         self._item(instance, machine, path) | {"blockindex": str(number)})

    @staticmethod
    def _item(instance, machine, path):
        folder, _, name = path.rpartition("\\")
        return {"machine": machine, "jobinstanceid": instance, "path": folder, "filename": name}
