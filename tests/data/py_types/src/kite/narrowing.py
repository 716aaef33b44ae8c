from kite.adapters import Adapter
from kite.wrappers import Response


class Pipe:
    def send(self):
        pass

    def close(self):
        pass


def either(conn):
    if isinstance(conn, (Adapter, Pipe, int)):
        conn.send()


def early(conn, other, item):
    if not isinstance(conn, Adapter):
        return None
    conn.send()
    if not isinstance(other, Pipe):
        other = None
    else:
        return None
    other.send()
    assert isinstance(item, Response)
    item.close()


def loop(items):
    for item in items:
        if not isinstance(item, Pipe):
            continue
        item.close()
    item.close()


class Holder:
    def __init__(self, conn):
        self.conn = conn

    def run(self):
        if isinstance(self.conn, Pipe):
            self.conn.close()
            self.conn = Response(1)
            self.conn.close()


def again(conn):
    if not isinstance(conn, Pipe):
        raise TypeError(conn)
    conn = conn.close()
    conn.close()


def negated(conn):
    if isinstance(conn, (Adapter, Pipe)):
        if not isinstance(conn, Pipe):
            conn.send()


def joined(conn, item, flag):
    if flag and isinstance(conn, Pipe) and conn.send():
        conn.close()
    if not isinstance(item, Response):
        return None
    elif flag:
        item.close()
    if isinstance(conn, Pipe) or flag:
        conn.close()
