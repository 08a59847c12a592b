"""Set-up of the whole test process."""

import signal

# A shell starts background jobs with SIGINT ignored, and child processes inherit that.
signal.signal(signal.SIGINT, signal.default_int_handler)
