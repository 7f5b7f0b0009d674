"""A small stand-in for the host application of the citation check."""
