"""Loads the shared library as a host in another language does, uses all of it, and shuts it down.
Then runs hosts that exit while a callback runs: without a shutdown, or with one in an exit handler.

    c_interface_test.py LIBRARY COLLECTOR
    c_interface_test.py LIBRARY --exit-in CALLBACK
"""
import atexit
import ctypes
import json
import os
import subprocess
import sys
import tempfile
import threading
import traceback
from ctypes import POINTER, c_bool, c_char_p, c_double, c_int, c_size_t, c_uint64, c_void_p


class Text(ctypes.Structure):
    _fields_ = [("bytes", c_char_p), ("length", c_size_t)]


Block = ctypes.CFUNCTYPE(None, c_void_p)
BooleanBlock = ctypes.CFUNCTYPE(None, c_void_p, c_bool)
SessionToken = ctypes.CFUNCTYPE(c_void_p, c_void_p)
LogSink = ctypes.CFUNCTYPE(None, c_void_p, Text)


class Options(ctypes.Structure):
    _fields_ = [
        ("size", c_size_t), ("collection_host", Text), ("user_defaults_file", Text),
        ("info_dictionary", c_void_p), ("info_property_list_file", Text),
        ("certificate_authorities", Text), ("proxy_from_environment", c_bool),
        ("session_token", SessionToken), ("session_token_context", c_void_p),
        ("log_sink", LogSink), ("log_sink_context", c_void_p), ("system_name", Text),
        ("system_version", Text), ("screen_width", c_double), ("screen_height", c_double),
        ("application_state", c_int), ("interface_orientation", c_int),
        ("device_orientation", c_int), ("carrier_name", Text),
        ("tracking_authorization_status", c_uint64), ("advertising_identifier", Text),
        ("pinned_public_key", Text), ("proxy", Text), ("on_transfer", c_void_p),
        ("on_transfer_context", c_void_p), ("withheld_properties", POINTER(c_char_p)),
        ("withheld_count", c_size_t)]


library = ctypes.CDLL(sys.argv[1])


def declare(name, result, *arguments):
    function = getattr(library, "veltrano_" + name)
    function.restype, function.argtypes = result, arguments
    return function


release = declare("release", None, c_void_p)
string_text = declare("string_text", Text, c_void_p)
install = declare("install_posix_platform", c_bool, POINTER(Options), POINTER(c_void_p))
run_for = declare("run_loop_run_for", c_bool, c_void_p, c_double)
stop = declare("run_loop_stop", None, c_void_p)
main_loop = declare("main_run_loop", c_void_p)
shut_down = declare("shut_down", c_bool, c_double)
make_string = declare("string", c_void_p, Text)
make_dictionary = declare("dictionary", c_void_p)
set_text = declare("dictionary_set_text", c_bool, c_void_p, c_char_p, c_char_p)
set_triggers = declare("set_refresh_triggers", c_bool, POINTER(c_char_p), c_size_t, Block, c_void_p)


def text(string):
    data = string.encode()
    return Text(data, len(data))


def string_of(given):
    address = c_void_p.from_buffer(given).value  # the field itself reads up to a NUL only
    return ctypes.string_at(address, given.length).decode() if address else None


def dictionary(entries):
    made = make_dictionary()
    for key, value in entries.items():
        assert set_text(made, key, value)
    return made


def call(name, *values):
    """Calls one of the tracker's functions. Converts bytes to text and dicts to dictionaries."""
    arguments = [dictionary(value) if isinstance(value, dict) else value for value in values]
    function = declare(name, c_bool, *[c_char_p if isinstance(value, bytes) else c_void_p
                                       for value in values])
    assert function(*arguments), name
    for value, argument in zip(values, arguments):
        if isinstance(value, dict):
            release(argument)


def set_trigger(handler):
    set_triggers((c_char_p * 1)(b"E"), 1, handler, None)


# Callbacks must live as long as the library.
lines, outcomes, reports, kept = [], [], [], []


@SessionToken
def session_token(_):
    return make_string(text("demo-token"))


@LogSink
def keep_line(_, line):
    lines.append(string_of(line))


@BooleanBlock
def finish(_, accepted):
    outcomes.append(accepted)
    stop(main_loop())


def receive(output):
    for line in output:
        reports.append(json.loads(line))
        stop(main_loop())


def next_of(entries):
    """Runs the main thread's loop until there is an entry, and removes it."""
    while not entries:
        assert run_for(main_loop(), 30), lines
    return entries.pop(0)


def check(actual, expected):
    assert actual == expected, f"{actual!r} is not {expected!r}"


def set_up(url, certificate, directory):
    info = dictionary({b"CFBundleShortVersionString": b"2.3", b"CFBundleVersion": b"45"})
    options = Options(
        size=ctypes.sizeof(Options), collection_host=text(url[len("https://"):]),
        certificate_authorities=text(certificate), info_dictionary=info,
        user_defaults_file=text(directory + "/settings"), session_token=session_token,
        log_sink=keep_line, system_name=text("Other"), system_version=text("9"),
        screen_width=100, screen_height=200, interface_orientation=3, device_orientation=1,
        carrier_name=text("Carrier\0One"), tracking_authorization_status=2,
        advertising_identifier=text("00000000-0000-0000-0000-00000000000a"),
        withheld_properties=(c_char_p * 2)(b"secret", b"$model"), withheld_count=2)
    error = c_void_p(1)
    assert install(ctypes.byref(options), ctypes.byref(error)), string_of(string_text(error))
    assert error.value is None
    release(info)
    declare("set_logger_enabled", None, c_bool)(True)


def track_events():
    set_collecting = declare("set_collecting", c_bool, c_bool)
    assert set_collecting(False)
    call("track", b"Silenced", {}, None, None)
    assert set_collecting(True)
    call("set_app_id", b"app")
    call("set_publisher_uid", b"pub")
    call("set_idfa")
    call("set_super_properties", {b"kept": b"1", b"gone": b"2", b"secret": b"3"})
    call("remove_super_property", b"gone")
    check(declare("screen_orientation", c_char_p)(), b"landscape")
    declare("set_device_orientation", None, c_int)(5)
    declare("set_interface_orientation", None, c_int)(1)
    call("track", b"First", {}, None, None)
    call("set_publisher_uid", None)
    declare("set_carrier_name", None, Text)(Text())
    declare("set_tracking_authorization_status", None, c_uint64)(3)
    declare("set_advertising_identifier", None, Text)(text("none"))
    declare("set_screen_size", None, c_double, c_double)(1, 1)
    call("track", b"E", {b"text": "å".encode()}, finish, None)
    check(next_of(outcomes), True)


def check_events(report):
    check((report["path"], report["headers"]["publisher_version"]), ("/track", "ios_2.3"))
    events = {event["event"]: event["properties"] for event in report["body"]}
    check(list(events), ["Device Orientation Changed", "Screen Orientation Changed", "First",
                         "E"])
    for name, expected in [("First", {
            "kept": "1", "app_id": "app", "pub_uid": "pub", "gone": None, "secret": None,
            "$carrier": "Carrier\0One", "$os": "Other", "$os_version": "9",
            "$screen_width": 100, "$screen_height": 200, "$app_build_number": "45",
            "extra_json": {"att_auth_status": 2}, "screen_orientation": "portrait",
            "$ios_ifa": "00000000-0000-0000-0000-00000000000A", "device_orientation": "faceUp"}),
                           ("E", {"text": "å", "extra_json": {"att_auth_status": 3},
                                  "$screen_width": 100, "pub_uid": None, "$carrier": None, "$model": None})]:
        check({key: events[name].get(key) for key in expected}, expected)


def live_and_leave():
    # Heartbeats need the main thread's run loop and the session's token.
    call("set_user_id", b"user-17")
    for step in ("will_resign_active", "will_enter_foreground", "did_become_active"):
        declare("application_" + step, None)()
    check(next_of(reports)["path"], "/heartbeat")
    # Entering the background uploads waiting events.
    call("track", b"Last", None, None, None)
    declare("application_did_enter_background", None)()
    check(next_of(reports)["body"][0]["event"], "Last")
    assert any(line.endswith("App entered background!") for line in lines), lines
    # After a shutdown, the interpreter can exit normally.
    call("track", b"Very last", None, None, None)
    check(shut_down(30), True)
    check(next_of(reports)["body"][0]["event"], "Very last")
    count = len(lines)
    call("track", b"Late", None, finish, None)
    check((len(lines), outcomes, shut_down(0)), (count, [], True))


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
        declare("set_logger_enabled", None, c_bool)(True)
    options.session_token = in_token
    assert install(ctypes.byref(options), None)
    if callback == "any":
        # As in veltrano_c.h.
        library.veltrano_shut_down.argtypes = [ctypes.c_double]
        atexit.register(library.veltrano_shut_down, 2.0)
    if callback == "token":
        call("set_user_id", b"user")
        run_for(main_loop(), 30)
    elif callback == "handler":
        set_trigger(in_handler)
        threading.Thread(target=call, args=["track", b"E", None, None, None], daemon=True).start()
    else:
        for _ in range(100 if callback == "any" else 1):
            call("track", b"E", None, in_completion, None)
    assert is_running.wait(30)


def check_exits():
    for callback in ("sink", "completion", "token", "handler", "any"):
        host = subprocess.run([sys.executable, sys.argv[0], sys.argv[1], "--exit-in", callback],
                              capture_output=True, text=True, timeout=60)
        check((callback, host.returncode, host.stderr), (callback, 0, ""))


def main():
    collector = subprocess.Popen([sys.argv[2], "--require-token", "demo-token"], text=True,
                                 stdout=subprocess.PIPE, stderr=subprocess.DEVNULL)
    try:
        start = dict(line.rstrip().split("=", 1)
                     for line in iter(collector.stdout.readline, "ready\n"))
        threading.Thread(target=receive, args=[collector.stdout], daemon=True).start()
        with tempfile.TemporaryDirectory() as directory:
            set_up(start["url"], start["certificate"], directory)
            track_events()
            check_events(next_of(reports))
            live_and_leave()
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
