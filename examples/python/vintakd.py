"""The conversion service from Python: a thin wrapper of libvintakd_client by ctypes, see docs/clients.md.

    with vintakd.Client() as client:
        warnings = client.convert("scan.dcm", "out/scan")
        print(client.query("scan.dcm", [0x00080060, 0x00280008]))

As a program: python3 vintakd.py OBJECT PREFIX
"""

import ctypes
import os
import sys

OK, NO_DAEMON, NOT_ALLOWED = 0, 2, 3
REQUEST, FILE, OBJECT, UNSUPPORTED, DECODE, LIMIT, MEMORY, OUTPUT, OTHER = range(16, 25)
PREVIEW, STREAM, NO_THUMBNAILS, NO_RAW = 1, 2, 4, 16
NO_CACHE, KEEP_WIDE = 1, 2


class Error(Exception):
    """A call that failed; `status` is one of vintakd.h."""

    def __init__(self, status, text):
        super().__init__(text)
        self.status = status


class Conversion(ctypes.Structure):
    _fields_ = [("size", ctypes.c_size_t), ("input", ctypes.c_char_p), ("output_prefix", ctypes.c_char_p),
                ("cache_prefix", ctypes.c_char_p), ("files", ctypes.c_uint32), ("flags", ctypes.c_uint32),
                ("frame", ctypes.c_int32), ("stream_parameter", ctypes.c_float)]


def _load():
    library = ctypes.CDLL(os.environ.get("VINTAKD_CLIENT_LIBRARY", "libvintakd_client.so.1"))
    pointer, text, size, integer = ctypes.c_void_p, ctypes.c_char_p, ctypes.c_size_t, ctypes.c_int
    answer = ctypes.POINTER(pointer)
    for name, result, arguments in [
            ("open", integer, [text, ctypes.POINTER(pointer)]),
            ("close", None, [pointer]),
            ("ping", integer, [pointer]),
            ("set_timeout", integer, [pointer, integer]),
            ("status_text", text, [integer]),
            ("convert", integer, [pointer, ctypes.POINTER(Conversion), answer]),
            ("dump", integer, [pointer, text, integer, answer]),
            ("query", integer, [pointer, text, ctypes.POINTER(ctypes.c_uint32), size, answer]),
            ("answer_text", text, [pointer]),
            ("answer_character_set", text, [pointer]),
            ("answer_warning_count", size, [pointer]),
            ("answer_warning", text, [pointer, size]),
            ("answer_value_count", size, [pointer]),
            ("answer_value", text, [pointer, size]),
            ("answer_free", None, [pointer])]:
        function = getattr(library, "vintakd_" + name)
        function.restype, function.argtypes = result, arguments
    return library


def _bytes(path):
    return None if path is None else os.fsencode(path)


class Client:
    """A connection to a daemon; any number of threads may use it. ctypes lets other threads run meanwhile."""

    def __init__(self, segment=None):
        self._library = _load()
        self._client = ctypes.c_void_p()
        self._check(self._library.vintakd_open(_bytes(segment), ctypes.byref(self._client)))

    def close(self):
        self._library.vintakd_close(self._client)
        self._client = ctypes.c_void_p()

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.close()

    def ping(self):
        self._check(self._library.vintakd_ping(self._client))

    def convert(self, path, output, cache=None, files=PREVIEW | STREAM, flags=0, frame=0):
        """Converts; the warnings."""
        conversion = Conversion(ctypes.sizeof(Conversion), _bytes(path), _bytes(output), _bytes(cache), files, flags,
                                frame, 0)
        return self._ask("convert", self._warnings, ctypes.byref(conversion))

    def dump(self, path, escape=False):
        """The dump, as bytes in the object's character set, and the name of this."""
        return self._ask("dump", lambda answer: (self._library.vintakd_answer_text(answer),
                                                 self._library.vintakd_answer_character_set(answer).decode()),
                         _bytes(path), int(escape))

    def query(self, path, tags):
        """The values of tags (group << 16 | element), as bytes in the object's character set."""
        return self._ask("query", self._values, _bytes(path), (ctypes.c_uint32 * len(tags))(*tags), len(tags))

    def _ask(self, name, take, *arguments):
        answer = ctypes.c_void_p()
        status = getattr(self._library, "vintakd_" + name)(self._client, *arguments, ctypes.byref(answer))
        try:
            self._check(status, self._library.vintakd_answer_text(answer))
            return take(answer)
        finally:
            self._library.vintakd_answer_free(answer)

    def _warnings(self, answer):
        count = self._library.vintakd_answer_warning_count(answer)
        return [os.fsdecode(self._library.vintakd_answer_warning(answer, i)) for i in range(count)]

    def _values(self, answer):
        count = self._library.vintakd_answer_value_count(answer)
        return [self._library.vintakd_answer_value(answer, i) for i in range(count)]

    def _check(self, status, text=b""):
        if status != OK:
            raise Error(status, os.fsdecode(text or self._library.vintakd_status_text(status)))


def main():
    if len(sys.argv) != 3:
        sys.exit("usage: vintakd.py OBJECT PREFIX")
    try:
        with Client() as client:
            for warning in client.convert(sys.argv[1], sys.argv[2]):
                print("warning:", warning, file=sys.stderr)
    except Error as error:
        sys.exit(f"{sys.argv[1]}: {error}")


if __name__ == "__main__":
    main()
