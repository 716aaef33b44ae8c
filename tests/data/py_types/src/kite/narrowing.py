from kite.adapters import Adapter
from kite.wrappers import Response


class Pipe:
    def send(self):
        pass

    def close(self):
        pass


def either(conn, flag):
    if isinstance(conn, (Adapter, Pipe, int)):
        conn.send()
        if not isinstance(conn, Pipe):
            conn.send()
    if flag and isinstance(conn, Pipe) and conn.send():
        conn.close()
    if isinstance(conn, Pipe) or flag:
        conn.close()


def early(conn, other, item, flag):
    if not isinstance(conn, Adapter):
        return None
    conn.send()
    if not isinstance(other, Pipe):
        other = None
    elif flag:
        other.close()
    other.send()
    assert isinstance(item, Response)
    item.close()


def loop(items):
    for item in items:
        if not isinstance(item, Pipe):
            continue
        item = item.close()
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


def expressions(conn, items, flag):
    conn.send() if isinstance(conn, Pipe) else conn.close()
    None if not isinstance(conn, Pipe) else conn.close()
    flag and isinstance(conn, Adapter) and conn.send()
    not isinstance(conn, Pipe) or conn.close()
    isinstance(conn, Pipe) or conn.close()
    [i.close() for i in items
     if i and isinstance(i, Response) if i.close()]
    while isinstance(conn, Pipe):
        conn.close()
    if isinstance(conn, (Adapter, Pipe)):
        (conn.close() if isinstance(conn, Pipe)
         else conn.send())
        if isinstance(conn, Pipe):
            pass
        elif flag:
            conn.send()
    if not isinstance(conn, Adapter) or flag:
        return None
    conn.send()


def matched(conn, flag):
    match flag:
        case 1 if isinstance(conn, Pipe):
            conn.close()
