"""tarvel.Device: operations, TarvelError, reports, statistics, log sinks; finding the library and the simulator."""

import dataclasses
import gc

import pytest
from conftest import INSTALLED, bus_log, frames_of, run_python, wait_for

import tarvel


INJECT = ["0:18DA00F1#0102030405060708@10"]  # for the device fixture


def test_device_operations_reach_the_device_and_are_counted(device):
    device.reset_statistics()
    assert not any(dataclasses.astuple(device.statistics()))
    assert device.connected and device.get_version() == 100 and device.ping() == 0
    counted = device.statistics()  # the fields in their places: two commands, their answers, no time-out
    assert (counted.frames_sent, counted.frames_received, counted.exchanges_timed_out) == (2, 2, 0)
    assert counted.last_received_us > 0
    device.set_time(123456)
    assert 123456 <= device.get_time() < 123456 + 60000
    image = bytes(range(40))  # more than one 16-byte block
    device.write_eeprom(0x40, image)
    assert device.read_eeprom(0x40, len(image)) == image

    # A transmit message with a signal, on channel 2, sent on every change: the arguments reach the library in order.
    handler = device.add_message(0x1ABCDEF0, bytes(8), channel=2, extended=True)
    assert device.get_handler(0x1ABCDEF0, channel=2, extended=True) == handler
    device.set_message_data(handler, b"\x11\x22" + bytes(6), b"\xff\xff" + bytes(6))
    device.signal_change_value(device.add_signal(handler, 16, 23), 0xAB)
    carried = b"\x11\x22\xab" + bytes(5)
    sent = wait_for(lambda: [f for f in frames_of(bus_log(device.sim), 0x1ABCDEF0) if f.data == carried], "the value")
    assert sent[0].channel == "can2"
    with pytest.raises(ValueError, match="has 8 data bytes"):
        device.set_message_data(handler, b"\x01")
    device.remove_message(handler)

    crc = device.add_crc(bytes(16))
    assert device.change_crc(crc, bytes(range(16))) == 0 and device.disable_crc(crc) == 0
    assert device.gateway_id(1, 0x7E0) == 0 and device.blob_remove() == 0


def test_reports_come_through_the_generator_the_callback_and_the_readers(device):
    key = device.request_report(0x18DA00F1, extended=True)
    signal = device.request_signal(key, 8, 15)
    assert device.start_receiver() == 0 and device.receiver_running
    # One Report each way (its other fields reach python-can's received messages: test_bus_logging).
    report = next(iter(device.reports(timeout=2.0)))
    assert (report.id, report.extended, report.request_key, report.data) == (0x18DA00F1, True, key, bytes(range(1, 9)))
    assert device.read_report(key).id == 0x18DA00F1
    assert device.signal_read_value(signal).value == 0x02

    seen = []
    device.set_report_callback(seen.append)
    wait_for(lambda: len(seen) >= 3, "three reports through the callback")
    device.set_report_callback(None)
    count = len(seen)
    wait_for(lambda: device.wait_reports(256, timeout=0.1), "reports queued after the callback went")
    assert len(seen) == count and all(r.id == 0x18DA00F1 for r in seen)
    device.remove_request(key)
    assert device.read_report(device.request_report(0x7FF)) is None  # nothing of 0x7FF yet


# (call, operation, code, words of the result's text); the last one's library also explains itself on its error channel.
ERRORS = [
    (lambda d: d.write_eeprom(10, b"\x01"), "WriteEeprom", -1, "invalid block"),
    (lambda d: d.remove_message(999), "RemoveMessage", -22, None),
    (lambda d: d.signal_read_value(77), "SignalReadValue", -3, "receiver thread is not running"),
    (lambda d: d.set_message_data(999, b"\x01"), "SetMessageData", -31, "did not add a message with that handler"),
]


def test_negative_results_raise_tarvel_error_and_log_sinks_get_the_library_text_while_attached(device):
    errors, infos, second = [], [], []
    device.add_log_sink(lambda text: errors.append(text))  # kept alive by the device
    device.add_log_sink(second.append, tarvel.LogLevel.ERR)
    device.add_log_sink(infos.append, tarvel.LogLevel.INF)
    gc.collect()
    for call, operation, code, words in ERRORS:
        with pytest.raises(tarvel.TarvelError) as caught:
            call(device)
        error = caught.value
        assert (error.operation, error.code, error.text) == (operation, code, tarvel.result_text(code, operation))
        assert words is None or words in error.text
        assert f"failed: {code}: {error.text}" in str(error)
    assert error.report and error.report in "".join(errors) == "".join(second)
    device.print_info("100% at %s")
    assert "".join(infos) == "100% at %s"
    device.remove_log_sink(second.append)
    before = len(second)
    device.print_error("after removal")
    assert len(second) == before and "after removal" in errors[-1]


MISSING = "/nonexistent/tarvel"
BUS = "import can\ntry: can.Bus(interface='tarvel', channel='/dev/null')\nexcept Exception as e: print(type(e), e)"


# (code, environment changes, words said): what could not be found is named with every place looked at.
FAILURES = [
    pytest.param(
        "import tarvel; tarvel.Device()",
        {"TARVEL_LIBRARY": None, "LD_LIBRARY_PATH": None},
        ["LibraryNotFoundError", "(next to the package): no such file", "system's loader:", "Set TARVEL_LIBRARY"],
        marks=pytest.mark.skipif(not INSTALLED, reason="from a checkout the build tree is found"),
    ),
    (BUS, {"TARVEL_LIBRARY": MISSING}, ["CanInterfaceNotImplementedError", f"TARVEL_LIBRARY={MISSING}: no such"]),
    ("import tarvel; tarvel.Simulator()", {"TARVEL_SIM": MISSING}, [f"TARVEL_SIM={MISSING}: no such program"]),
    ("import tarvel; tarvel.Simulator(inject='x').start()", {}, ["SimulatorError", "status 105", "--inject: expected"]),
]


@pytest.mark.parametrize("code, env, said", FAILURES)
def test_what_is_not_found_or_does_not_start_says_why(code, env, said):
    run = run_python(["-c", code], **env)
    assert all(words in run.stdout + run.stderr for words in said), run.stdout + run.stderr
