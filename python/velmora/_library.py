"""The shared library, and the thread that owns a handle of it."""

import contextlib
import ctypes
import functools
import json
import os
import pathlib
import queue
import threading
from concurrent.futures import Future
from ctypes import c_bool, c_char_p, c_int, c_int32, c_void_p
from typing import Any, Callable, Hashable, NamedTuple, TypeVar

from .errors import SessionClosed, VelmoraError

T = TypeVar("T")


class ErrorView(ctypes.Structure):
    _fields_ = [("code", c_int), ("title", c_char_p), ("message", c_char_p)]


TEXT = ctypes.CFUNCTYPE(None, c_char_p)
RESULT = ctypes.CFUNCTYPE(None, c_char_p, c_char_p)
MESSAGE = ctypes.CFUNCTYPE(None, c_char_p, c_char_p, c_char_p)
PROGRESS = ctypes.CFUNCTYPE(None, c_char_p, c_int32)
FLAG = ctypes.CFUNCTYPE(None, ctypes.POINTER(ErrorView), c_bool)
CHANGE = ctypes.CFUNCTYPE(None, c_int)

# A call from another thread cannot end the library's wait. So while operations are under way, a wait is short at first
# and doubles while nothing happens. While none is, the thread waits for calls instead.
WAITS = 1, 50  # milliseconds
IDLE_WAIT = 0.25  # seconds, which a renewal of the token may have to wait


@functools.cache
def load(path: str = "") -> ctypes.CDLL:
    """The library at `path`, else that of VELMORA_LIBRARY, of the wheel, or of the system."""
    carried = sorted(str(each) for each in pathlib.Path(__file__).parent.glob("libvelmora*"))
    path = path or os.environ.get("VELMORA_LIBRARY", "") or (carried or ["libvelmora.so.1"])[0]
    # Two or three lines for each request are of no use in a notebook. The variable is read with the first session.
    os.environ.setdefault("QT_LOGGING_RULES", "velmora.debug=false")
    try:
        library = ctypes.CDLL(path)
    except OSError as error:
        raise ImportError(f"{error}. Which libraries of the system are needed: see README.md of the package") from error
    library.CreateCloudAPI.restype = c_void_p
    library.velmoraVersion.restype = library.lastNetworkError.restype = c_char_p
    library.isUserLoggedIn.restype = library.waitForEvents.restype = c_bool
    return library


def text(value: bytes | None) -> str:
    return (value or b"").decode(errors="replace")


class Operation(NamedTuple):
    callbacks: tuple[Any, ...]  # what ctypes made for the library, which keeps bare pointers
    abandon: Callable[[Exception], None]


class Worker:
    """Runs all calls of one handle, and all of its callbacks, on one thread."""

    def __init__(self, library: ctypes.CDLL) -> None:
        self.library = library
        self.finished: Future[None] = Future()
        self._calls: queue.SimpleQueue[Callable[[], object] | None] = queue.SimpleQueue()
        self._lock = threading.Lock()
        self._closed = False
        # The rest belongs to the thread.
        self.handle = c_void_p()
        self._under_way: dict[Hashable, Operation] = {}
        self._ended: list[Operation] = []
        threading.Thread(target=self._run, name="velmora").start()

    def close(self) -> None:
        """What is under way fails, the handle is destroyed, the thread ends."""
        with self._lock:
            if not self._closed:
                self._closed = True
                self._calls.put(None)

    def post(self, call: Callable[[], object]) -> None:
        """Runs what must not raise, on the thread, after what was posted before."""
        with self._lock:
            if self._closed:
                raise SessionClosed()
            self._calls.put(call)

    def post_if_open(self, call: Callable[[], object]) -> None:
        """As `post`, for what a closed session has done already."""
        with contextlib.suppress(SessionClosed):
            self.post(call)

    def ask(self, call: Callable[[], T]) -> "Future[T]":
        """Runs it on the thread. The future has its result."""
        future: Future[T] = Future()

        def run() -> None:
            if future.set_running_or_notify_cancel():
                try:
                    future.set_result(call())
                except Exception as error:  # the caller's
                    future.set_exception(error)

        self.post(run)
        return future

    def start(self, name: str, *arguments: Any, read: Callable[..., T], kind: Any = RESULT,
              before: tuple[Any, ...] = ()) -> "Future[T]":
        """Begins an operation. `read` makes the future's result of what the completion receives besides the outcome;
        `before` are the callbacks that come before that."""
        future: Future[T] = Future()
        key = object()

        def complete(error: Any, *values: Any) -> None:
            self.end(key)
            try:
                outcome = self.succeeded(error)
                future.set_result(read(*values or [outcome]))
            except Exception as raised:  # none may pass through the library
                future.set_exception(raised.with_traceback(None))  # whose frames say nothing to the caller

        def run() -> None:
            if future.set_running_or_notify_cancel():
                self.begin(key, name, arguments, Operation((*before, kind(complete)), future.set_exception))

        self.post(run)
        return future

    def begin(self, key: Hashable, name: str, arguments: tuple[Any, ...], operation: Operation) -> None:
        """On the thread: calls the library. An earlier operation of this key ends, as it does in the library."""
        if key in self._under_way:
            title = name.partition("_")[0]
            self.end(key).abandon(VelmoraError(400, title, "Called again, which ends the earlier call"))
        self._under_way[key] = operation
        try:
            getattr(self.library, name)(self.handle, *arguments, *operation.callbacks)
        except Exception as error:  # such as a library without this function
            self.end(key).abandon(error)

    def end(self, key: Hashable) -> Operation:
        """On the thread, also inside a callback of the operation: which is released later, therefore."""
        self._ended.append(self._under_way.pop(key))
        return self._ended[-1]

    def withdraw(self, key: Hashable, operation: Operation, stop: Callable[[], object]) -> None:
        """Calls `stop` if the operation is still under way."""

        def run() -> None:
            if self._under_way.get(key) is operation:
                self.end(key)
                stop()

        self.post_if_open(run)

    def abandon(self, name: str, error: VelmoraError) -> None:
        """On the thread: the library has dropped all operations of this name."""
        for key in [key for key in self._under_way if isinstance(key, tuple) and key[0] == name]:
            self.end(key).abandon(error)

    def succeeded(self, error: Any) -> dict[str, Any]:
        """In a completion: returns the outcome, which is passed as text or view, or raises it."""
        if isinstance(error, bytes):
            outcome = json.loads(error)
        else:
            view = error.contents
            outcome = {"errorCode": view.code, "errorTitle": text(view.title), "errorMessage": text(view.message)}
        code, title, message = outcome["errorCode"], outcome["errorTitle"], outcome["errorMessage"]
        if not 0 < code < 300:
            reason = message if code else text(self.library.lastNetworkError(self.handle))
            raise VelmoraError(code, title, reason.replace("<b>", "").replace("</b>", ""))
        return dict(outcome)

    def _run(self) -> None:
        self.handle = c_void_p(self.library.CreateCloudAPI())
        wait = WAITS[0]
        while True:
            waits = False
            try:
                call = self._calls.get(not self._under_way, IDLE_WAIT)
            except queue.Empty:
                waits = True  # below: in here, an error of an operation would have this one as its context
            if waits:
                handled = self.library.waitForEvents(self.handle, wait if self._under_way else 0)
                wait = WAITS[0] if handled else min(2 * wait, WAITS[1])
                self._ended.clear()
            elif call is None:
                break
            else:
                call()
                wait = WAITS[0]
            if not threading.main_thread().is_alive():  # a session that nobody closes does not keep the program
                self.close()
        self.library.DestroyCloudAPI(self.handle)
        for operation in self._under_way.values():
            operation.abandon(SessionClosed())
        self.finished.set_result(None)
