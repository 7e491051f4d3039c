#!/usr/bin/env python3
"""Login pages on loopback for the end-to-end login tests.

Serves the pages below on 127.0.0.1 (port 0: any free port, printed as the first line of
standard output) and appends every posted form, as one JSON object a line, to RECORD.

  /one     user ID and password on one page
  /two     two user-ID fields and a password
  /first   the user ID; its Return leads to /second, which asks for the password
  /show    the user ID only: the password is to be read, not typed
  /fieldsN N one-line fields f1 ... fN, the first focused (for typing rates), answered with itself
  /ready   posts itself as soon as it has loaded (the browser is up)
"""
import json
import sys
import urllib.parse
from http.server import BaseHTTPRequestHandler, ThreadingHTTPServer

PAGE = """<!doctype html><html><head><meta charset="utf-8"><title>{title}</title></head>
<body><form method="post" action="/post/{name}" accept-charset="utf-8">{fields}
<input type="submit" value="Log in"></form></body></html>"""


def field(name, kind="text", autofocus=False):
    return '<p><input name="{}" type="{}" autocomplete="off"{}></p>'.format(
        name, kind, " autofocus" if autofocus else "")


PAGES = {
    "one": [field("user", autofocus=True), field("password", "password")],
    "two": [field("user", autofocus=True), field("user2"), field("password", "password")],
    "first": [field("user", autofocus=True)],
    "second": [field("password", "password", autofocus=True)],
    "show": [field("user", autofocus=True)],
    "ready": ['<script>window.onload = () => document.forms[0].submit();</script>'],
}


class Handler(BaseHTTPRequestHandler):
    record = None

    def log_message(self, *args):
        pass

    @staticmethod
    def fields(name):
        if name in PAGES:
            return PAGES[name]
        count = name[len("fields"):] if name.startswith("fields") else ""
        if count.isdigit() and 0 < int(count) <= 1000:
            return [field("f%d" % (i + 1), autofocus=i == 0) for i in range(int(count))]
        return None

    def page(self, name):
        body = PAGE.format(title=name, name=name, fields="".join(self.fields(name))).encode()
        self.send_response(200)
        self.send_header("Content-Type", "text/html; charset=utf-8")
        self.send_header("Content-Length", str(len(body)))
        self.end_headers()
        self.wfile.write(body)

    def do_GET(self):
        name = self.path.strip("/").split("?")[0]
        if self.fields(name) is not None:
            self.page(name)
        else:
            self.send_error(404)

    def do_POST(self):
        length = int(self.headers.get("Content-Length", "0"))
        form = urllib.parse.parse_qs(self.rfile.read(length).decode("utf-8"), keep_blank_values=True)
        name = self.path.rsplit("/", 1)[-1]
        posted = {"page": name}
        posted.update({k: v[0] for k, v in form.items()})
        with open(Handler.record, "a", encoding="utf-8") as f:
            f.write(json.dumps(posted, ensure_ascii=False) + "\n")
        self.page({"first": "second"}.get(name, name if name.startswith("fields") else "one"))


def main():
    Handler.record = sys.argv[1]
    server = ThreadingHTTPServer(("127.0.0.1", 0), Handler)
    print(server.server_address[1], flush=True)
    server.serve_forever()


if __name__ == "__main__":
    main()
