"""The `wiki` command: checks the citations of a wiki from the command line."""
