import signal
import sys

# Until a run can end in good order there is nothing to lose, and no traceback to show.
signal.signal(signal.SIGINT, signal.SIG_DFL)

from command.cli import main  # noqa: E402

sys.exit(main())
