"""python-can filters as the device's requests: one request per identifier."""

from ._frames import EXTENDED_MAX, STANDARD_MAX

LIMITATION = (
    "the Tarvel device reports only identifiers it was asked for, one request per identifier, "
    "so a filter must name one identifier: can_mask 0x7FF for a standard one, 0x1FFFFFFF for an extended one"
)


def request_targets(filters):
    """[(identifier, extended)] to request for python-can filters; ValueError for what the device can't express.

    A filter without "extended" is standard for an identifier up to 0x7FF, else extended.
    """
    targets = []
    for f in filters or ():
        try:
            can_id, mask = int(f["can_id"]), int(f["can_mask"])
        except (KeyError, TypeError, ValueError):
            raise ValueError(f"filter {f!r}: expected a dict with can_id and can_mask") from None
        extended = f.get("extended")
        extended = can_id > STANDARD_MAX if extended is None else bool(extended)
        full = EXTENDED_MAX if extended else STANDARD_MAX
        if mask & full != full:
            raise ValueError(f"filter {f!r}: can_mask 0x{mask:X} is a partial mask; {LIMITATION}")
        if not 0 <= can_id <= full:
            kind = "an extended" if extended else "a standard"
            raise ValueError(f"filter {f!r}: {kind} identifier is at most 0x{full:X}")
        target = (can_id, extended)
        if target not in targets:
            targets.append(target)
    # The device tells requests apart by the low 16 bits of the identifier.
    seen = {}
    for can_id, extended in targets:
        other = seen.setdefault(can_id & 0xFFFF, (can_id, extended))
        if other != (can_id, extended):
            raise ValueError(
                f"filters for 0x{other[0]:X} and 0x{can_id:X}: the Tarvel device reports only the low 16 bits "
                "of an identifier and could not tell the two apart on the same channel"
            )
    return targets
