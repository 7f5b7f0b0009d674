"""The wiki's syntax for fenced code."""

import re

# The possessive repeats keep a hostile line linear.
_FENCE_RE = re.compile(r" {0,3}(?:`{3,}+[^`]*+\Z|~{3,})")
