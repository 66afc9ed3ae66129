"""Hosts, as urlstat prints them."""

import re


def bytes_of(text: str) -> bytes:
    """The host that is printed so."""
    return re.sub(rb"\\(?:x([0-9a-f]{2})|(\\))", lambda match: match[2] or bytes.fromhex(
        match[1].decode()), text.encode())


def text_of(host: bytes) -> str:
    """As tables print it."""
    return "".join("\\\\" if byte == 92 else chr(byte) if 32 <= byte < 127 else f"\\x{byte:02x}"
                   for byte in host)
