import os
import signal
import sys

# Until a run can end in good order there is nothing to lose, and no traceback to show.
signal.signal(signal.SIGINT, signal.SIG_DFL)
# The number of a closed stream would be given to the next file that is opened.
for name in ("stdin", "stdout", "stderr"):
    if getattr(sys, name) is None:
        setattr(sys, name, open(os.devnull, "r+"))
try:
    from command.cli import main
except ImportError as error:
    print(f"wiki: the citation check cannot be loaded, scripts/setup builds it: {error}", file=sys.stderr)
    sys.exit(2)
sys.exit(main())
