"""What the tests of the command share: calls of it, and a model server on loopback."""

import json
import os
import subprocess
import sys
import threading
from collections.abc import Callable, Iterator
from contextlib import contextmanager
from http.server import BaseHTTPRequestHandler, ThreadingHTTPServer
from pathlib import Path
from typing import Any

ROOT = Path(__file__).resolve().parent.parent
ENVIRONMENT = os.environ | {"PYTHONPATH": f"{ROOT / 'host'}:{ROOT}", "WIKI_MODEL_KEY": "sesame"}
COMMAND = [sys.executable, "-P", "-m", "command"]


def wiki(*arguments: object, **keywords: Any) -> subprocess.CompletedProcess[str]:
    call = [*COMMAND, *map(str, arguments)]
    return subprocess.run(call, capture_output=True, text=True, env=ENVIRONMENT, timeout=60, **keywords)


def write_wiki(folder: Path, pages: int, sentences: int = 1) -> Path:
    """Pages p00, p01... whose sentences each cite a line of src/app.py and are all different."""
    folder.mkdir()
    for page in range(pages):
        text = (
            f"Page {page} has a sentence {number} [src/app.py:L{number}]." for number in range(1, sentences + 1)
        )
        (folder / f"p{page:02}.md").write_text("\n\n".join(text) + "\n")
    return folder


def completion(content: object) -> bytes:
    return json.dumps({"choices": [{"message": {"content": content}}]}).encode()


class ModelServer:
    """Answers each question as `respond` says; counts what it was asked."""

    def __init__(self, respond: Callable[[BaseHTTPRequestHandler], None]) -> None:
        self.respond = respond
        self.requests: list[dict[str, Any]] = []
        self.keys: set[str | None] = set()
        self.url = ""

    def asked(self) -> list[str]:
        """The sentences that were asked about."""
        return [json.loads(each["messages"][1]["content"])["texts"]["sentence"] for each in self.requests]


@contextmanager
def model_server(respond: Callable[[BaseHTTPRequestHandler], None]) -> Iterator[ModelServer]:
    server = ModelServer(respond)

    class Handler(BaseHTTPRequestHandler):
        def do_POST(self) -> None:
            body = self.rfile.read(int(self.headers["Content-Length"]))
            server.keys.add(self.headers["Authorization"])
            server.requests.append(json.loads(body))
            server.respond(self)

        def log_message(self, *_arguments: object) -> None:
            pass

    with ThreadingHTTPServer(("127.0.0.1", 0), Handler) as http:
        http.daemon_threads = True
        server.url = f"http://127.0.0.1:{http.server_port}/v1"
        threading.Thread(target=http.serve_forever, args=(0.02,), daemon=True).start()
        yield server
        http.shutdown()


def says(body: bytes, status: int = 200) -> Callable[[BaseHTTPRequestHandler], None]:
    def respond(handler: BaseHTTPRequestHandler) -> None:
        handler.send_response(status)
        handler.send_header("Content-Length", str(len(body)))
        handler.end_headers()
        handler.wfile.write(body)

    return respond
