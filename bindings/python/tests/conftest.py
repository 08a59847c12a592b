"""What all tests start from."""

import signal

# A shell that runs the tests in the background has them ignore SIGINT, and so would their child processes.
signal.signal(signal.SIGINT, signal.default_int_handler)
