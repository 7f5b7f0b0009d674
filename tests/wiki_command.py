"""What the tests of the command share: calls of it, a wiki, and a model server on loopback."""

import json
import os
import signal
import subprocess
import sys
import threading
from contextlib import contextmanager, suppress
from http.server import BaseHTTPRequestHandler, ThreadingHTTPServer
from types import SimpleNamespace

from support import ROOT

ENVIRONMENT = os.environ | {
    "PYTHONPATH": f"{ROOT / 'host'}:{ROOT}", "PYTHONIOENCODING": "ascii", "WIKI_MODEL_KEY": "sesame"}


@contextmanager
def started(arguments, **keywords):
    """A call, with its processes; none of them outlives the block."""
    call = [sys.executable, "-P", "-m", "command", *map(str, arguments)]
    keywords = {"stdout": subprocess.PIPE, "stderr": subprocess.PIPE, "env": ENVIRONMENT} | keywords
    with subprocess.Popen(call, text=True, start_new_session=True, **keywords) as running:
        try:
            yield running
        finally:
            with suppress(ProcessLookupError):
                os.killpg(running.pid, signal.SIGKILL)


def wiki(*arguments, **keywords):
    """Exit status, output and errors of a call."""
    with started(arguments, **keywords) as running:
        output, errors = running.communicate(timeout=60)
    return running.returncode, output, errors


def write_wiki(folder, pages, lines=1):
    """Pages p00, p01... of different sentences, each of which cites a line of src/app.py."""
    folder.mkdir()
    for page in range(pages):
        text = (f"Page {page} has a sentence {line} [src/app.py:L{line}].\n" for line in range(1, lines + 1))
        (folder / f"p{page:02}.md").write_text("".join(text))
    return folder


def completion(content):
    return json.dumps({"choices": [{"message": {"content": content}}]}).encode()


def says(body, status=200, **headers):
    head = "".join(f"\r\n{name.replace('_', '-')}: {value}" for name, value in headers.items())
    return lambda handler, _: handler.wfile.write(f"HTTP/1.0 {status} -{head}\r\n\r\n".encode() + body)


SUPPORTS = says(completion("supports"))


@contextmanager
def model_server(respond):
    """A server that answers the question about a sentence as `respond` does."""
    server = SimpleNamespace(respond=respond, requests=[], sentences=[])

    class Handler(BaseHTTPRequestHandler):
        def do_POST(self):
            request = json.loads(self.rfile.read(int(self.headers["Content-Length"])))
            sentence = json.loads(request["messages"][1]["content"])["texts"]["sentence"]
            server.requests.append(request | {"key": self.headers["Authorization"]})
            server.sentences.append(sentence)
            with suppress(ConnectionError):
                server.respond(self, sentence)

        def log_message(self, *_arguments):
            pass

    with ThreadingHTTPServer(("127.0.0.1", 0), Handler) as http:
        server.url = f"http://127.0.0.1:{http.server_port}/v1"
        threading.Thread(target=http.serve_forever, args=(0.02,), daemon=True).start()
        yield server
        http.shutdown()
