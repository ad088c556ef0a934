"""Loads the shared library as a host in another language does, and shuts it down.
Then runs hosts that exit while a callback runs: without a shutdown, or with one in an exit handler.

    c_interface_test.py LIBRARY COLLECTOR
    c_interface_test.py LIBRARY --exit-in CALLBACK
"""
import atexit
import ctypes
import json
import os
import queue
import subprocess
import sys
import threading
import traceback
from ctypes import POINTER, c_bool, c_char_p, c_double, c_size_t, c_void_p


class Text(ctypes.Structure):
    _fields_ = [("bytes", c_char_p), ("length", c_size_t)]


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
shut_down = declare("shut_down", c_bool, c_double)
set_logger_enabled = declare("set_logger_enabled", None, c_bool)
set_user_id = declare("set_user_id", c_bool, c_char_p)
set_triggers = declare("set_refresh_triggers", c_bool, POINTER(c_char_p), c_size_t, Block, c_void_p)
track = declare("track", c_bool, c_char_p, c_void_p, BooleanBlock, c_void_p)
make_dictionary = declare("dictionary", c_void_p)
set_text = declare("dictionary_set_text", c_bool, c_void_p, c_char_p, c_char_p)
release = declare("release", None, c_void_p)
none = BooleanBlock()


def text(string):
    data = string.encode()
    return Text(data, len(data))


def string_of(given):
    address = c_void_p.from_buffer(given).value  # the field itself reads up to a NUL only
    return ctypes.string_at(address, given.length).decode() if address else None


# Callbacks must live as long as the library.
outcomes, lines, kept = queue.Queue(), [], []
finish = BooleanBlock(lambda _, accepted: outcomes.put(accepted))
keep_line = LogSink(lambda _, line: lines.append(string_of(line)))


def check(actual, expected):
    assert actual == expected, f"{actual!r} is not {expected!r}"


def live_and_leave(start, next_events):
    options = Options(
        size=ctypes.sizeof(Options), collection_host=text(start["url"][len("https://"):]),
        certificate_authorities=text(start["certificate"]), log_sink=keep_line)
    assert install(ctypes.byref(options), None)
    set_logger_enabled(True)
    properties = make_dictionary()
    assert set_text(properties, b"text", "å".encode())
    assert track(b"E", properties, finish, None)
    release(properties)
    check(outcomes.get(timeout=30), True)
    check(next_events()[0]["properties"]["text"], "å")
    # After a shutdown, the interpreter can exit normally.
    assert track(b"Last", None, none, None)
    check(shut_down(30), True)
    check(next_events()[0]["event"], "Last")
    count = len(lines)
    assert track(b"Late", None, finish, None)
    check((len(lines) - count, outcomes.empty(), shut_down(0)), (0, True, True))
    assert count > 10


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

    in_sink = LogSink(lambda _, line: string_of(line).endswith("waiting") and stay())
    in_token = SessionToken(lambda _: stay())
    in_completion = BooleanBlock(lambda _, accepted: stay())
    in_handler = Block(lambda _: stay())
    kept.extend([in_sink, in_token, in_completion, in_handler])
    options = Options(size=ctypes.sizeof(Options), collection_host=text("localhost:1"))
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


def check_exits():
    for callback in ("sink", "completion", "token", "handler", "any"):
        host = subprocess.run([sys.executable, sys.argv[0], sys.argv[1], "--exit-in", callback],
                              capture_output=True, text=True, timeout=60)
        check((callback, host.returncode, host.stderr), (callback, 0, ""))


def main():
    collector = subprocess.Popen([sys.argv[2]], text=True, stdout=subprocess.PIPE,
                                 stderr=subprocess.DEVNULL)
    try:
        start = dict(line.rstrip().split("=", 1)
                     for line in iter(collector.stdout.readline, "ready\n"))
        live_and_leave(start, lambda: json.loads(collector.stdout.readline())["body"])
    finally:
        collector.terminate()


if sys.argv[2] == "--exit-in":
    exit_in(sys.argv[3])
else:
    try:
        main()
        check_exits()
    except BaseException:
        traceback.print_exc()
        os._exit(1)  # the library may not have been shut down
