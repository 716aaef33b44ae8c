"""A minimal language-server client over stdio: requests, answers to the server's own requests."""

import json
import os
import pathlib
import subprocess
import threading
import time
import urllib.parse


def uri(path):
    return pathlib.Path(path).resolve().as_uri()


def path_of(file_uri):
    return urllib.parse.unquote(urllib.parse.urlparse(file_uri).path)


class Server:
    """One language server process; `request` blocks until its answer or the timeout."""

    def __init__(self, argv, root, env=None, settings=None, init_options=None, log=None):
        self.settings = settings or {}
        self.proc = subprocess.Popen(
            argv, cwd=root, stdin=subprocess.PIPE, stdout=subprocess.PIPE,
            stderr=log or subprocess.DEVNULL, env={**os.environ, **(env or {})})
        self.next_id = 0
        self.answers = {}
        self.cond = threading.Condition()
        self.lock = threading.Lock()
        threading.Thread(target=self._read, daemon=True).start()
        caps = {
            "textDocument": {
                "callHierarchy": {"dynamicRegistration": False},
                "definition": {"linkSupport": False},
                "documentSymbol": {"hierarchicalDocumentSymbolSupport": True},
                "synchronization": {"didSave": False},
            },
            "workspace": {"configuration": True, "workspaceFolders": True},
            "window": {"workDoneProgress": False},
        }
        self.capabilities = (self.request("initialize", {
            "processId": os.getpid(), "rootUri": uri(root), "capabilities": caps,
            "workspaceFolders": [{"uri": uri(root), "name": pathlib.Path(root).name}],
            "initializationOptions": init_options or {},
        }, timeout=600) or {}).get("capabilities", {})
        self.notify("initialized", {})
        self.notify("workspace/didChangeConfiguration", {"settings": self.settings})

    def _send(self, msg):
        body = json.dumps(msg).encode()
        with self.lock:
            self.proc.stdin.write(b"Content-Length: %d\r\n\r\n" % len(body) + body)
            self.proc.stdin.flush()

    def _read(self):
        out = self.proc.stdout
        while True:
            length = None
            while True:
                line = out.readline()
                if not line:
                    with self.cond:
                        self.answers["closed"] = True
                        self.cond.notify_all()
                    return
                line = line.strip()
                if not line:
                    break
                if line.lower().startswith(b"content-length:"):
                    length = int(line.split(b":")[1])
            msg = json.loads(out.read(length))
            if "method" in msg and "id" in msg:
                self._answer_server(msg)
            elif "id" in msg:
                with self.cond:
                    self.answers[msg["id"]] = msg
                    self.cond.notify_all()

    def _answer_server(self, msg):
        result = None
        if msg["method"] == "workspace/configuration":
            result = [self._setting(item.get("section")) for item in msg["params"]["items"]]
        elif msg["method"] == "workspace/workspaceFolders":
            result = []
        self._send({"jsonrpc": "2.0", "id": msg["id"], "result": result})

    def _setting(self, section):
        value = self.settings
        for part in (section or "").split("."):
            if part:
                value = value.get(part, {}) if isinstance(value, dict) else {}
        return value

    def notify(self, method, params):
        self._send({"jsonrpc": "2.0", "method": method, "params": params})

    def request(self, method, params, timeout=300):
        with self.cond:
            self.next_id += 1
            rid = self.next_id
        self._send({"jsonrpc": "2.0", "id": rid, "method": method, "params": params})
        deadline = time.monotonic() + timeout
        with self.cond:
            while rid not in self.answers:
                if self.answers.get("closed"):
                    raise RuntimeError(f"the language server exited during {method}")
                left = deadline - time.monotonic()
                if left <= 0:
                    raise TimeoutError(f"{method} took over {timeout} s")
                self.cond.wait(left)
            msg = self.answers.pop(rid)
        if "error" in msg:
            raise RuntimeError(f"{method}: {msg['error'].get('message')}")
        return msg.get("result")

    def open(self, path, language):
        text = pathlib.Path(path).read_text(errors="replace")
        self.notify("textDocument/didOpen", {"textDocument": {
            "uri": uri(path), "languageId": language, "version": 1, "text": text}})

    def close(self):
        try:
            self.request("shutdown", None, timeout=20)
            self.notify("exit", None)
            self.proc.wait(timeout=20)
        except Exception:
            self.proc.kill()
            self.proc.wait()
