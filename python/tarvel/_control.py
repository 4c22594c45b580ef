"""Device control and EEPROM operations of tarvel.Device."""

import ctypes

from ._convert import buffer, data_bytes, whole

EEPROM_BLOCK = 16  # the most the device moves per command
EEPROM_SIZE = 0x10000


class ControlOperations:
    """Ping, version, restarts, the device clock and the EEPROM (mixed into tarvel.Device)."""

    def ping(self):
        """Probes the device (PingTarvel); returns its status (0)."""
        return self._call("Ping", self._lib.PingTarvel)

    def get_version(self):
        """The device's feature level (GetVersionTarvel): 100 current, 0 older."""
        return self._call("GetVersion", self._lib.GetVersionTarvel)

    def reset(self):
        """Resets the device: its tables are emptied (ResetTarvel). Returns the device's status.

        The device is deaf for a moment afterwards; the session's transmit
        messages, requests and signals are forgotten.
        """
        code = self._call("Reset", self._lib.ResetTarvel)
        self._message_lengths.clear()
        return code

    def reboot(self, mode=False):
        """Restarts the device and waits up to 5 s for it to answer again (RebootTarvel)."""
        code = self._call("Reboot", self._lib.RebootTarvel, bool(mode))
        self._message_lengths.clear()
        return code

    def bootloader(self):
        """Restarts the device into its bootloader (BootloaderTarvel)."""
        code = self._call("Bootloader", self._lib.BootloaderTarvel)
        self._message_lengths.clear()
        return code

    def get_time(self):
        """The device clock in milliseconds (GetTimeTarvel)."""
        value = ctypes.c_longlong()
        self._call("GetTime", self._lib.GetTimeTarvel, ctypes.byref(value))
        return value.value

    def set_time(self, time_ms):
        """Sets the device clock (milliseconds, unsigned 32-bit) (SetTimeTarvel)."""
        return self._call("SetTime", self._lib.SetTimeTarvel, whole(time_ms, "time_ms", 0, 0xFFFFFFFF))

    def read_eeprom(self, address, length):
        """Reads ``length`` bytes of EEPROM from ``address`` (ReadEepromTarvel, in blocks of 16)."""
        whole(address, "address", 0, EEPROM_SIZE - 1)
        whole(length, "length", 1, EEPROM_SIZE - address)
        out = bytearray()
        while len(out) < length:
            n = min(EEPROM_BLOCK, length - len(out))
            block = (ctypes.c_ubyte * n)()
            at = address + len(out)
            self._call("ReadEeprom", self._lib.ReadEepromTarvel, at, n, block, detail=f"at 0x{at:04X} ({n} bytes)")
            out += bytes(block)
        return bytes(out)

    def write_eeprom(self, address, data):
        """Writes bytes to the EEPROM from ``address`` on (WriteEepromTarvel, in blocks of 16).

        The library refuses writes below address 30 (TarvelError -1).
        """
        data = data_bytes(data)
        whole(address, "address", 0, EEPROM_SIZE - 1)
        whole(len(data), "length of data", 1, EEPROM_SIZE - address)
        for offset in range(0, len(data), EEPROM_BLOCK):
            block = data[offset : offset + EEPROM_BLOCK]
            at = address + offset
            self._call(
                "WriteEeprom",
                self._lib.WriteEepromTarvel,
                at,
                len(block),
                buffer(block),
                detail=f"at 0x{at:04X} ({len(block)} bytes)",
            )
        return 0
