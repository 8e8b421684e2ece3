"""The proxy's faults are real ones: what a client and a server see of each."""

import http.client
import http.server
import threading
import unittest

import proxy
from proxy import Proxy


class Backend:
    """A server that counts what reached it whole and answers 1000 bytes."""

    def __init__(self):
        outer = self
        self.bodies = []

        class Handler(http.server.BaseHTTPRequestHandler):
            protocol_version = "HTTP/1.1"

            def do_POST(self):
                body = self.rfile.read(int(self.headers["Content-Length"]))
                if len(body) == int(self.headers["Content-Length"]):
                    outer.bodies.append(body)
                self.send_response(200)
                self.send_header("Content-Length", "1000")
                self.end_headers()
                self.wfile.write(b"x" * 1000)

            def log_message(self, *_):
                pass

        class Server(http.server.ThreadingHTTPServer):
            daemon_threads = True

            def handle_error(self, *_):
                pass

        self._server = Server(("127.0.0.1", 0), Handler)
        self.address = self._server.server_address
        threading.Thread(target=self._server.serve_forever, daemon=True).start()

    def close(self):
        self._server.shutdown()
        self._server.server_close()


class ProxyTest(unittest.TestCase):
    def setUp(self):
        self.backend = Backend()
        self.addCleanup(self.backend.close)
        self.proxy = Proxy(self.backend.address)
        self.addCleanup(self.proxy.close)
        self.client = http.client.HTTPConnection(*self.proxy.address, timeout=20)
        self.addCleanup(self.client.close)

    def post(self, endpoint="StartJob", body=b'{"jobinstanceid": "i", "sourcename": "s"}'):
        self.client.request("POST", f"/dorvo/WebServer/jobs/{endpoint}.php", body)
        response = self.client.getresponse()
        return response.status, response.read()

    def test_forwards_over_one_connection_and_records(self):
        self.assertEqual(self.post(), (200, b"x" * 1000))
        first = self.client.sock
        self.assertEqual(self.post()[0], 200)
        self.assertIs(self.client.sock, first)
        self.assertEqual([(r.endpoint, r.instance, r.source, r.status) for r in self.proxy.requests()],
                         [("StartJob", "i", "s", 200)] * 2)

    def test_faults_as_client_and_server_see_them(self):
        # action, what the client gets, whether the server got the request whole
        table = [(proxy.RESET, ConnectionError, False),
                 (proxy.CUT_REQUEST, ConnectionError, False),
                 (proxy.CUT_ANSWER, http.client.IncompleteRead, True),
                 (proxy.LOSE_ANSWER, ConnectionError, True)]
        for action, error, served in table:
            with self.subTest(action):
                self.backend.bodies.clear()
                fault = self.proxy.add("StartJob", action, nth=2)
                self.assertEqual(self.post()[0], 200)
                with self.assertRaises(error):
                    self.post()
                self.client.close()
                self.assertTrue(fault.reached.is_set())
                self.assertIsNone(self.proxy.requests()[-1].status)
                self.assertEqual(self.post()[0], 200)
                self.assertEqual(len(self.backend.bodies), 3 if served else 2)
                self.proxy.clear()

    def test_holds_before_and_after_the_server(self):
        for action, served in ((proxy.HOLD_REQUEST, 0), (proxy.HOLD_ANSWER, 1)):
            with self.subTest(action):
                self.backend.bodies.clear()
                fault = self.proxy.add("StartJob", action)
                got = []
                waiter = threading.Thread(target=lambda: got.append(self.post()))
                waiter.start()
                self.assertTrue(fault.reached.wait(20))
                self.assertEqual((len(self.backend.bodies), got), (served, []))
                fault.release()
                waiter.join(20)
                self.assertEqual(got[0][0], 200)
                self.proxy.clear()

    def test_strikes_one_job_only(self):
        fault = self.proxy.add("endjob", proxy.ANSWER, job="mine")
        for job in ("mine", "other"):
            self.post("StartJob", b'{"jobdefinitionid": "%s", "jobinstanceid": "of %s"}' % (2 * (job.encode(),)))
        self.assertEqual(self.post("endjob", b'{"jobinstanceid": "of other"}')[0], 200)
        self.assertEqual(self.post("endjob", b'{"jobinstanceid": "of mine"}')[0], 503)
        self.assertEqual(fault.struck, 1)

    def test_knows_a_block_that_was_sent_again(self):
        def block(number):
            return (b'--b\r\nContent-Disposition: form-data; name="jobinstanceid"\r\n\r\ni\r\n'
                    b'--b\r\nContent-Disposition: form-data; name="sourcename"\r\n\r\nC:/a b\r\n'
                    b'--b\r\nContent-Disposition: form-data; name="file"; filename="%d.jpg"\r\n\r\nbytes' % number)

        self.post("uploadblock", block(1))
        self.proxy.add("uploadblock", proxy.ANSWER)
        self.post("uploadblock", block(2))
        self.post("uploadblock", block(2))
        self.assertEqual(self.proxy.blocks_sent_again(), [])
        self.post("uploadblock", block(1))
        self.assertEqual(self.proxy.blocks_sent_again(), [("i", "C:/a b", 1)])


if __name__ == "__main__":
    unittest.main()
