"""How long tests wait for what happens in another process."""
import time

PATIENCE = 120  # seconds; only a program that hangs takes them


def wait_until(condition):
    end = time.monotonic() + PATIENCE
    while not condition():
        assert time.monotonic() < end, "waited in vain"
        time.sleep(0.01)
