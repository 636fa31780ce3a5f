"""Files that are whole or not there, however the process ends."""

from __future__ import annotations

import os
from pathlib import Path

__all__ = ["write_whole"]


def write_whole(path: Path, text: str) -> None:
    """Writes a text beside the file and puts it into its place: through a link, and with the rights of what it
    replaces. Raises OSError."""
    real = Path(os.path.realpath(path))
    part = real.with_name(f".{real.name}.{os.getpid()}.part")
    try:
        part.write_bytes(text.encode())
        if real.exists():
            part.chmod(real.stat().st_mode & 0o7777)
        part.replace(real)
    finally:
        part.unlink(missing_ok=True)
