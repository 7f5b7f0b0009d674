import os
import signal
import sys

# Until a run can end in good order there is nothing to lose, and no traceback to show.
signal.signal(signal.SIGINT, signal.SIG_DFL)
for name in ("stdin", "stdout", "stderr"):
    # The number of a closed stream would be given to the next file that is opened.
    stream = getattr(sys, name) or open(os.devnull, "r+")
    stream.reconfigure(errors="backslashreplace")  # a page may hold what the encoding lacks
    setattr(sys, name, stream)
try:
    from command.cli import main

    sys.exit(main())
except ImportError as error:
    print(f"wiki: something is missing that scripts/setup --all provides: {error}", file=sys.stderr)
    sys.exit(2)
