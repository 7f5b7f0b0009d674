"""What the tests of the command share: calls of it, and a model server on loopback."""

import json
import os
import subprocess
import sys
import threading
from collections.abc import Callable, Iterator
from contextlib import contextmanager, suppress
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


Respond = Callable[[BaseHTTPRequestHandler, str], None]


class ModelServer:
    """Answers the question about a sentence as `respond` says."""

    def __init__(self, respond: Respond) -> None:
        self.respond = respond
        self.sentences: list[str] = []
        self.keys: set[str | None] = set()
        self.url = ""


@contextmanager
def model_server(respond: Respond) -> Iterator[ModelServer]:
    server = ModelServer(respond)

    class Handler(BaseHTTPRequestHandler):
        def do_POST(self) -> None:
            request = json.loads(self.rfile.read(int(self.headers["Content-Length"])))
            sentence = json.loads(request["messages"][1]["content"])["texts"]["sentence"]
            server.keys.add(self.headers["Authorization"])
            server.sentences.append(sentence)
            with suppress(ConnectionError):
                server.respond(self, sentence)

        def log_message(self, *_arguments: object) -> None:
            pass

    with ThreadingHTTPServer(("127.0.0.1", 0), Handler) as http:
        http.daemon_threads = True
        server.url = f"http://127.0.0.1:{http.server_port}/v1"
        threading.Thread(target=http.serve_forever, args=(0.02,), daemon=True).start()
        yield server
        http.shutdown()


def says(body: bytes, status: int = 200) -> Respond:
    def respond(handler: BaseHTTPRequestHandler, _sentence: str) -> None:
        handler.send_response(status)
        handler.send_header("Content-Length", str(len(body)))
        handler.end_headers()
        handler.wfile.write(body)

    return respond
