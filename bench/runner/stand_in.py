"""A server program for the tests, which talks as the real ones do. Answers
each request "as asked", keeps the connection open for /keep, and refuses what
is not asked for in order."""

import json
import socket
import sys
import threading


def answer(request):
    if not request.startswith(b"GET "):
        return b"HTTP/1.1 400 Bad Request\r\nContent-Length: 0\r\n\r\n", False
    keep = request.startswith(b"GET /keep")
    return (b"HTTP/1.1 200 OK\r\nContent-Length: 8\r\nConnection: %s\r\n\r\n"
            b"as asked" % (b"keep-alive" if keep else b"close"), keep)


def serve(connection):
    with connection:
        request = b""
        while piece := connection.recv(65536):
            request += piece
            if not request.endswith(b"\r\n\r\n"):
                continue
            text, keep = answer(request)
            connection.sendall(text)
            if not keep:
                return
            request = b""


def accept(listener):
    while True:
        connection, _ = listener.accept()
        threading.Thread(target=serve, args=(connection,),
                         daemon=True).start()


def main(arguments):
    if arguments == ["--fail"]:
        sys.exit("stand_in: error: as asked")
    listener = socket.create_server(("127.0.0.1", 0))
    threading.Thread(target=accept, args=(listener,), daemon=True).start()
    print(json.dumps({"port": listener.getsockname()[1]}), flush=True)
    for command in sys.stdin:
        print({"usage": '{"threads": %d}' % threading.active_count(),
               "stop": '{"stopMs": 1.5, "terminated": 0}'}.get(
                   command.strip(), "nonsense"), flush=True)


if __name__ == "__main__":
    main(sys.argv[1:])
