"""Runs hosts in another language that exit while a callback runs: without a shutdown, or with one in
an exit handler.

    c_interface_test.py LIBRARY [CALLBACK]
"""
import atexit
import ctypes
import subprocess
import sys
import threading
from ctypes import POINTER, c_bool, c_char_p, c_double, c_size_t, c_void_p


class Text(ctypes.Structure):
    _fields_ = [("bytes", c_void_p), ("length", c_size_t)]


Block = ctypes.CFUNCTYPE(None, c_void_p)
BooleanBlock = ctypes.CFUNCTYPE(None, c_void_p, c_bool)
SessionToken = ctypes.CFUNCTYPE(c_void_p, c_void_p)
LogSink = ctypes.CFUNCTYPE(None, c_void_p, Text)


class Options(ctypes.Structure):
    """The first ones, as of a host built with an older header."""
    _fields_ = [
        ("size", c_size_t), ("collection_host", Text), ("user_defaults_file", Text),
        ("info_dictionary", c_void_p), ("info_property_list_file", Text),
        ("certificate_authorities", Text), ("proxy_from_environment", c_bool),
        ("session_token", SessionToken), ("session_token_context", c_void_p),
        ("log_sink", LogSink), ("log_sink_context", c_void_p)]


library = ctypes.CDLL(sys.argv[1])


def declare(name, result, *arguments):
    function = getattr(library, "veltrano_" + name)
    function.restype, function.argtypes = result, arguments
    return function


install = declare("install_posix_platform", c_bool, POINTER(Options), POINTER(c_void_p))
run_for = declare("run_loop_run_for", c_bool, c_void_p, c_double)
stop = declare("run_loop_stop", None, c_void_p)
main_loop = declare("main_run_loop", c_void_p)
set_logger_enabled = declare("set_logger_enabled", None, c_bool)
set_user_id = declare("set_user_id", c_bool, c_char_p)
set_triggers = declare("set_refresh_triggers", c_bool, POINTER(c_char_p), c_size_t, Block, c_void_p)
track = declare("track", c_bool, c_char_p, c_void_p, BooleanBlock, c_void_p)
none, kept = BooleanBlock(), []  # callbacks must live as long as the library


def exit_in(callback):
    """Returns while the library runs the callback, so that the interpreter exits meanwhile."""
    is_running = threading.Event()

    def stay():
        is_running.set()
        if callback == "any":
            return
        stop(main_loop())
        while True:
            pass

    in_sink = LogSink(
        lambda _, line: ctypes.string_at(line.bytes, line.length).endswith(b"waiting") and stay())
    in_token = SessionToken(lambda _: stay())
    in_completion = BooleanBlock(lambda _, accepted: stay())
    in_handler = Block(lambda _: stay())
    kept.extend([in_sink, in_token, in_completion, in_handler])
    host = Text(ctypes.cast(b"localhost:1", c_void_p), 11)
    options = Options(size=ctypes.sizeof(Options), collection_host=host)
    if callback in ("sink", "any"):
        options.log_sink = in_sink
        set_logger_enabled(True)
    options.session_token = in_token
    assert install(ctypes.byref(options), None)
    if callback == "any":
        # As in veltrano_c.h.
        library.veltrano_shut_down.argtypes = [ctypes.c_double]
        atexit.register(library.veltrano_shut_down, 2.0)
    if callback == "token":
        set_user_id(b"user")
        run_for(main_loop(), 30)
    elif callback == "handler":
        set_triggers((c_char_p * 1)(b"E"), 1, in_handler, None)
        threading.Thread(target=track, args=[b"E", None, none, None], daemon=True).start()
    else:
        for _ in range(100 if callback == "any" else 1):
            track(b"E", None, in_completion, None)
    assert is_running.wait(30)


if len(sys.argv) > 2:
    exit_in(sys.argv[2])
else:
    for each in ("sink", "completion", "token", "handler", "any"):
        host = subprocess.run([sys.executable, *sys.argv, each], capture_output=True, text=True,
                              timeout=60)
        assert (host.returncode, host.stderr) == (0, ""), f"{each}: {host}"
