"""The proxy's faults are real ones: what a client and a server see of each."""

import http.client
import http.server
import threading
import unittest

import proxy

ANSWER = b"x" * 1000


class Backend(http.server.BaseHTTPRequestHandler):
    """Counts the requests that reach it whole."""

    protocol_version = "HTTP/1.1"
    served = 0

    def do_POST(self):
        size = int(self.headers["Content-Length"])
        Backend.served += len(self.rfile.read(size)) == size
        self.send_response(200)
        self.send_header("Content-Length", str(len(ANSWER)))
        self.end_headers()
        self.wfile.write(ANSWER)

    def log_message(self, *_):
        pass


class Server(http.server.ThreadingHTTPServer):
    daemon_threads = True

    def handle_error(self, *_):
        pass


class ProxyTest(unittest.TestCase):
    def setUp(self):
        backend = Server(("127.0.0.1", 0), Backend)
        self.addCleanup(backend.server_close)
        self.addCleanup(backend.shutdown)
        threading.Thread(target=backend.serve_forever, daemon=True).start()
        self.proxy = proxy.Proxy(backend.server_address)
        self.addCleanup(self.proxy.close)
        self.client = http.client.HTTPConnection(*self.proxy.address, timeout=20)
        self.addCleanup(self.client.close)

    def post(self, endpoint="StartJob", body=b'{"jobinstanceid": "i", "sourcename": "s"}'):
        """The status, or the class of what went wrong."""
        try:
            self.client.request("POST", f"/dorvo/WebServer/jobs/{endpoint}.php", body)
            response = self.client.getresponse()
            self.assertTrue(response.read() == ANSWER or response.status != 200)
            return response.status
        except (ConnectionError, http.client.IncompleteRead) as error:
            self.client.close()
            return http.client.IncompleteRead if isinstance(error, http.client.IncompleteRead) else ConnectionError

    def test_faults_as_client_and_server_see_them(self):
        # action, what the client gets, how many requests the server got whole before anything is released
        table = [(proxy.RESET, ConnectionError, 0), (proxy.CUT_REQUEST, ConnectionError, 0),
                 (proxy.CUT_ANSWER, http.client.IncompleteRead, 1), (proxy.LOSE_ANSWER, ConnectionError, 1),
                 (proxy.ANSWER, 503, 0), (proxy.HOLD_REQUEST, 200, 0), (proxy.HOLD_ANSWER, 200, 1),
                 (proxy.HOLD_LOST, ConnectionError, 1)]
        for action, expected, served in table:
            with self.subTest(action):
                fault, got = self.proxy.add("StartJob", action, nth=2), []
                self.assertEqual(self.post(), 200)
                first, Backend.served = self.client.sock, 0
                client = threading.Thread(target=lambda got=got: got.append(self.post()))
                client.start()
                self.assertTrue(fault.reached.wait(20))
                self.assertEqual(Backend.served, served)
                if action.startswith("hold"):
                    self.assertEqual(got, [])
                fault.release()
                client.join(20)
                self.assertEqual(got, [expected])
                self.assertEqual(self.proxy.requests()[-1].status, expected if isinstance(expected, int) else None)
                self.assertEqual(self.post(), 200)
                if expected == 200:
                    self.assertIs(self.client.sock, first)  # all over one connection
                self.proxy.clear()

    def test_strikes_one_job_only(self):
        fault = self.proxy.add("endjob", proxy.ANSWER, job="mine")
        for job in (b"mine", b"other"):
            self.post("StartJob", b'{"jobdefinitionid": "%s", "jobinstanceid": "of %s"}' % (job, job))
        self.assertEqual(self.post("endjob", b'{"jobinstanceid": "of other"}'), 200)
        self.assertEqual(self.post("endjob", b'{"jobinstanceid": "of mine"}'), 503)
        self.assertEqual(fault.struck, 1)

    def test_knows_a_block_that_was_sent_again(self):
        def block(number):
            fields = {b'name="jobinstanceid"': b"i", b'name="sourcename"': b"C:/a b",
                      b'name="file"; filename="%d.jpg"' % number: b"bytes"}
            return b"".join(b"--b\r\nContent-Disposition: form-data; " + f + b"\r\n\r\n" + v + b"\r\n"
                            for f, v in fields.items())

        self.post("uploadblock", block(1))
        self.proxy.add("uploadblock", proxy.ANSWER)
        self.post("uploadblock", block(2))
        self.post("uploadblock", block(2))
        self.assertEqual(self.proxy.blocks_sent_again(), [])
        self.post("uploadblock", block(1))
        self.assertEqual(self.proxy.blocks_sent_again(), [("i", "C:/a b", 1)])


if __name__ == "__main__":
    unittest.main()
