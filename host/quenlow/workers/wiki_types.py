"""The wiki's syntax for fenced code."""

import re

# In a list item, too. The possessive repeats keep a hostile line linear.
_FENCE_RE = re.compile(r"[ \t]*+(?:(?:[-*+]|[0-9]{1,9}[.)])[ \t]++)*+(?:`{3,}+[^`]*+\Z|~{3,})")
