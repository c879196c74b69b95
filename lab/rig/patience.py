"""How long something has stood in line for a processor. On a busy machine it cannot be as quick as
where nothing else runs, and that is not its fault."""

import pathlib
import time


def seconds_in_line(task="thread-self"):
    """Since the task, a process or this thread, was started. A kernel that does not say may have been
    busy all the time."""
    try:
        waited = pathlib.Path(f"/proc/{task}/schedstat").read_text(encoding="ascii").split()[1]
        return int(waited) / 1e9
    except OSError:
        return time.monotonic()
